/// Pictures of three bytes a pixel, as the library gives and takes them.

#pragma once

#include "tools/images/png.h"

#include <vector>

namespace vndlp::tools {

/// A picture of width x height pixels of red, green and blue.
inline ColourImage pictureOfRgb(const std::vector<unsigned char>& pixels, int width, int height) {
    ColourImage picture{width, height, {}};
    picture.pixels.reserve(pixels.size() / 3 * 4);
    for (std::size_t i = 0; i + 2 < pixels.size(); i += 3) {
        picture.pixels.insert(picture.pixels.end(), {pixels[i], pixels[i + 1], pixels[i + 2], 255});
    }
    return picture;
}

/// The other way: what the library takes.
inline std::vector<unsigned char> rgbOf(const ColourImage& picture) {
    std::vector<unsigned char> pixels;
    pixels.reserve(picture.pixels.size() / 4 * 3);
    for (std::size_t i = 0; i + 3 < picture.pixels.size(); i += 4) {
        pixels.insert(pixels.end(), {picture.pixels[i], picture.pixels[i + 1], picture.pixels[i + 2]});
    }
    return pixels;
}

}  // namespace vndlp::tools
