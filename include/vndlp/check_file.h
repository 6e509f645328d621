/// \file check_file.h
/// The check of `job_check.h` for slice files: what a file says of its job, and its layers without making an image.
///
///     vndlp::SliceFile file;
///     std::vector<vndlp::CheckFinding> findings;
///     if (file.open("tower.ctb").isOk()) vndlp::checkSliceFile(file, vndlp::CheckOptions(), findings);
///
/// That is one thread's work. `readCheckLayer` may run in several threads, for different layers; `JobCheck::addLayer`
/// and `compareAreas` then follow in order.

#ifndef VNDLP_CHECK_FILE_H
#define VNDLP_CHECK_FILE_H

#include <vndlp/export.h>
#include <vndlp/job_check.h>
#include <vndlp/slice_file.h>

#include <cstdint>
#include <vector>

namespace vndlp {

/// What a file says of its job: screen, pixel size (50 um where it is not known, see `SliceInfo::pixelXUm`), layer
/// height, build height, exposures, light powers, bottom layers. Values the format fixes are left out.
VNDLP_API CheckJob checkJobOf(const SliceFile& file);

/// Reads one layer. Layers of lines are rasterised at the resolution and pixel size of `job`; of meshes it is
/// known only whether they are empty.
/// \param job       of `checkJobOf`; its pixel size may be another.
/// \param layer     number.
/// \param threshold greys above it are lit.
/// \param out       new, made of `job`; closed on success.
/// \param areaMm2   receives what the layer cures: greys above 15 whatever the threshold, or the area inside the lines,
///                  holes counter to their outlines; NaN where the pixel size is not known.
/// \return `damaged`, `index`, `file`, or ok.
VNDLP_API SliceResult readCheckLayer(const SliceFile& file, const CheckJob& job, std::uint32_t layer, int threshold,
                                     CheckLayer& out, double& areaMm2);

/// Compares the areas a file holds of a layer, if any, with what is there: see `JobCheck::compareArea`. Areas of lines
/// may be off by two pixels along the lines: they are often those of an image the lines were traced from.
/// \param areaMm2 of `readCheckLayer`; NaN: nothing is compared.
/// \param litMm2  of the lit pixels; of lines that cross each other it is the better one. NaN: none.
VNDLP_API void compareAreas(const SliceFile& file, std::uint32_t layer, double areaMm2, double litMm2, JobCheck& check);

/// Checks a whole file.
/// \param findings receives what was found, sorted as by `JobCheck::finish`; left as it was on failure.
/// \return the first failure of a layer: only whole files are checked. `stopped` if `progress` asked for it.
VNDLP_API SliceResult checkSliceFile(const SliceFile& file, const CheckOptions& options,
                                     std::vector<CheckFinding>& findings, SliceProgressFn progress = nullptr,
                                     void* context = nullptr);

}  // namespace vndlp

#endif
