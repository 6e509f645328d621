/// A slice file or a job: what the commands read layers, settings and pictures from.

#pragma once

#include "tools/base/settings.h"
#include "tools/images/png.h"
#include "tools/jobs/job.h"

#include <vndlp/slice_file.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vndlp::tools {

/// Opened once, then read in any number of threads.
struct Source {
    std::string path;  ///< as it was given
    std::uint64_t bytes = 0;
    std::unique_ptr<SliceFile> file;  ///< null for jobs
    int width = 0;                    ///< pixels of every layer
    int height = 0;
    int layerCount = 0;
    SliceLayers kind = SliceLayers::images;
    PrintSettings settings;            ///< those the file or job holds, with the origin `job`
    std::vector<std::string> notes;    ///< what a job lacked, and what was taken for it
    std::vector<SliceFinding> damage;  ///< of a job's archive
    std::string warning;               ///< what a user has to know of a job: its mirrored display
    bool mirrorX = false;              ///< the job's images are mirrored; `readLayer` has flipped them back
    bool mirrorY = false;

    bool isJob() const { return file == nullptr; }

    /// Decodes a layer of a source whose layers are images. May leave padding. Throws Failure, naming the layer.
    std::function<void(int, GreyImage&)> readLayer;
    /// Reads a layer of a source whose layers are geometry. Throws Failure.
    std::function<SliceShapes(int)> readShapes;
    /// Pictures for previews, the smallest first; may be none. Throws Failure.
    std::function<std::vector<ColourImage>()> readPictures;
    /// Settings of a single layer of a job, by key.
    std::function<PrintSettings(int)> layerSettings;
};

/// Opens a slice file, or a job: an SL1 archive, a folder or zip of pictures or drawings. Files are told by what stands in
/// them. Throws Failure.
Source openSource(const std::string& path);

/// Takes what the settings files of a job say. Throws UsageFailure for a value out of its range.
void takeJobSettings(const JobSettings& job, Source& source);

/// Opens a slice file. Throws Failure, for a job as well.
SliceFile openSlices(const std::string& path);

/// "FILE: layer 3, offset 120 (0x78): text: reason" for a result that is not ok.
std::string describeResult(const std::string& path, const SliceResult& result);

/// Throws the Failure that a result stands for, a UsageFailure for keys, values and indices; nothing when it is ok.
void require(const std::string& path, const SliceResult& result);

/// "layer 3, offset 120 (0x78): ", as far as they are known.
std::string placeText(std::int64_t layer, std::int64_t offset, const std::string& text);

/// Settings that a slice file holds. \param layer -1: the file's.
PrintSettings settingsOf(const SliceFile& file, std::int64_t layer);

/// Number of pixels above the background.
std::uint64_t countLit(const GreyImage& image);

/// True when a picture is black all over.
bool isBlank(const ColourImage& image);

/// Area of a layer's shapes in um^2, even-odd.
double areaOf(const SliceShapes& shapes);

/// True for a CTB or V4 file whose layers are scrambled with constants that no machine has.
bool hasIllustrativeConstants(const SliceFile& file);
constexpr const char* kIllustrativeText = "scrambled with the illustrative constants, which no machine uses";

}  // namespace vndlp::tools
