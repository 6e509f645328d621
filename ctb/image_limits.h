/// The one test of image sizes that come from a file.

#pragma once

#include <cstddef>

namespace CTB {

/// Computes width x height.
/// \param what the image, for the error line.
/// \param most pixels allowed.
/// \return false, with an error line, when there are more than `most` pixels.
bool countPixels(const char* what, unsigned int width, unsigned int height, unsigned int most, std::size_t& count);

}  // namespace CTB
