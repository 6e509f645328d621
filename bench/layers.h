/// Layers to measure on.

#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vndlp::bench {

struct Layer {
    int width;
    int height;
    std::vector<unsigned char> pixels;
};

/// All background.
inline Layer emptyLayer(int width, int height) {
    return {width, height,
            std::vector<unsigned char>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))};
}

/// The left half cured.
inline Layer solidLayer(int width, int height) {
    Layer layer = emptyLayer(width, height);
    for (int y = 0; y < height; ++y) {
        const auto row = layer.pixels.begin() + static_cast<std::ptrdiff_t>(y) * width;
        std::fill(row, row + width / 2, static_cast<unsigned char>(255));
    }
    return layer;
}

/// Every pixel at random.
inline Layer noiseLayer(int width, int height) {
    Layer layer = emptyLayer(width, height);
    std::mt19937 random(1);
    for (unsigned char& pixel : layer.pixels) pixel = static_cast<unsigned char>(random());
    return layer;
}

/// Rings of round struts with soft edges, some 7 % lit: what a lattice on supports looks like.
inline Layer sparseLayer(int width, int height) {
    Layer layer = emptyLayer(width, height);
    constexpr int kSpacing = 150;
    constexpr double kRadius = 22.5;
    for (int cy = kSpacing / 2; cy < height; cy += kSpacing) {
        for (int cx = kSpacing / 2; cx < width; cx += kSpacing) {
            for (int y = -24; y <= 24; ++y) {
                for (int x = -24; x <= 24; ++x) {
                    if (cy + y >= height || cx + x >= width) continue;
                    const double outside = std::sqrt(static_cast<double>(x * x + y * y)) - kRadius;
                    const double cover = outside < -0.5 ? 1 : outside > 0.5 ? 0 : 0.5 - outside;
                    layer.pixels[static_cast<std::size_t>(cy + y) * static_cast<std::size_t>(width) +
                                 static_cast<std::size_t>(cx + x)] = static_cast<unsigned char>(255 * cover);
                }
            }
        }
    }
    return layer;
}

}  // namespace vndlp::bench
