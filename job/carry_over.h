/// What of a job arrives in a file of another format, and what does not.

#pragma once

#include "job/edits.h"
#include "job/preview_scaling.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vndlp::job {

/// Gives a new file the fields that are no settings and that the records of both formats hold: flags, reserved bytes.
[[nodiscard]] SliceResult carryRawFields(const Model& from, Edits& to);

/// Gives the layers of a new CTB or V4 file the values that the layers of the other hold.
[[nodiscard]] SliceResult carryLayers(const Model& from, Edits& to);

/// "not kept in .ctb: KEY, exposure_s of 4 layers, raw.RECORD.member"; empty where all is kept.
/// \param to a new file that has what arrives.
std::string notKeptText(const Model& from, const Model& to);

/// The previews of a file that can be read, the smallest first.
std::vector<Picture> picturesOf(const SliceFile& file);
/// The picture for a preview of a new file.
/// \param isVendor whose previews stand smallest first; those of other files, largest first.
std::size_t pictureFor(std::size_t preview, std::size_t pictures, bool isVendor);

}  // namespace vndlp::job
