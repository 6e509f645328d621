/// Which files of a job are its layers, and in what order.

#pragma once

#include "tools/jobs/archive.h"
#include "tools/jobs/job_settings.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vndlp::tools {

/// The place of a layer that a cut archive has lost.
constexpr std::size_t kLostEntry = ~std::size_t{0};

/// A file of a job.
struct JobFile {
    std::string name;       ///< below the job's root folder, '/' between folders
    std::size_t entry = 0;  ///< its place in the archive
};

/// Behind a message about a job that is not whole: what to do.
constexpr const char* kMakeAgain = "; slice the model again or copy the job again";

/// The files of an archive but for hidden ones. Where all lie in one folder, that folder is the root.
std::vector<JobFile> listJobFiles(const Archive& archive);

/// The layers of a sliced job in the order of their numbers: named `settings.jobDir`, five or more digits, ".png". With
/// the job's name unknown, any name will do that is the same for all layers; that is added to the assumptions.
/// Throws Failure when there are none, a number is missing or there twice, or the settings count other layers.
std::vector<JobFile> findNumberedLayers(const Archive& archive, const std::vector<JobFile>& files,
                                        JobSettings& settings);

/// The PNG files at the root in the natural order of their names. Numbers need not follow each other; where they do
/// not, that is added to the assumptions. Throws Failure when there are none.
std::vector<JobFile> findPlainLayers(const Archive& archive, const std::vector<JobFile>& files, JobSettings& settings);

}  // namespace vndlp::tools
