/// \file slice_check.h
/// A slice file handed to the check for printability: what `JobCheck` is told of it, and its layers.
///
///     vndlp::CheckJob job;
///     vndlp::CheckOptions options;
///     if (!vndlp::checkJobOf(file, job).isOk()) return;
///     vndlp::JobCheck check(job, options);
///     for (std::uint32_t i = 0; i < file.info().layers; ++i) {
///         vndlp::FileCheckLayer layer(job);                                                    // these two
///         if (!vndlp::readCheckLayer(file, job, i, options.threshold, layer).isOk()) return;  // in any thread
///         vndlp::addCheckLayer(check, job, i, layer);                                          // in order
///     }

#ifndef VNDLP_SLICE_CHECK_H
#define VNDLP_SLICE_CHECK_H

#include <vndlp/export.h>
#include <vndlp/job_check.h>
#include <vndlp/slice_file.h>

#include <cstdint>

namespace vndlp {

/// Screen, pixel size, heights and settings of a file; what it does not hold counts as not known, a layer
/// height as 0.05 mm.
/// \return `argument` for a file that is not open, `size` for one without a screen.
VNDLP_API SliceResult checkJobOf(const SliceFile& file, CheckJob& job);

/// A layer on its way from a file into a check.
struct FileCheckLayer {
    explicit FileCheckLayer(const CheckJob& job) : lit(job) {}

    CheckLayer lit;
    double storedMm2 = -1;  ///< area the file holds of it; -1: none
};

/// Reads a layer, in any thread. Layers of lines are filled, even-odd, where they are closed; meshes are empty.
/// \param layer     a new one; closed when this returns.
/// \param threshold greys above it are lit.
VNDLP_API SliceResult readCheckLayer(const SliceFile& file, const CheckJob& job, std::uint32_t index, int threshold,
                                     FileCheckLayer& layer);

/// Hands the next layer to the check, and its stored area with it.
VNDLP_API void addCheckLayer(JobCheck& check, const CheckJob& job, std::uint32_t index, FileCheckLayer& layer);

}  // namespace vndlp

#endif
