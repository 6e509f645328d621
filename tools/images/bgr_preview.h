/// Previews of three bytes a pixel, blue, green, red, as CTB and V4 files hold them.

#pragma once

#include "tools/images/png.h"

#include <vector>

namespace vndlp::tools {

/// \param pixels width x height x 3 bytes; empty for a preview that could not be decoded, which gives an empty picture.
inline ColourImage pictureOfBgr(const std::vector<unsigned char>& pixels, unsigned int width, unsigned int height) {
    ColourImage picture;
    if (pixels.empty()) return picture;
    picture.width = static_cast<int>(width);
    picture.height = static_cast<int>(height);
    picture.pixels.reserve(pixels.size() / 3 * 4);
    for (std::size_t i = 0; i + 2 < pixels.size(); i += 3) {
        picture.pixels.insert(picture.pixels.end(), {pixels[i + 2], pixels[i + 1], pixels[i], 255});
    }
    return picture;
}

}  // namespace vndlp::tools
