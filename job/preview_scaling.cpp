#include "job/preview_scaling.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace vndlp::job {

namespace {

constexpr std::size_t kChannels = 3;

/// Source pixels under one target pixel, the outer ones in part.
struct Cover {
    std::size_t first = 0;
    std::vector<float> weights;  // they add up to 1
};

std::vector<Cover> coversOf(std::uint32_t from, std::uint32_t to) {
    std::vector<Cover> covers(to);
    const double scale = static_cast<double>(from) / to;
    for (std::uint32_t i = 0; i < to; ++i) {
        const double begin = i * scale;
        const double end = std::min((i + 1) * scale, static_cast<double>(from));
        Cover& cover = covers[i];
        cover.first = std::min(static_cast<std::size_t>(begin), static_cast<std::size_t>(from - 1));
        for (std::size_t s = cover.first; s == cover.first || static_cast<double>(s) < end; ++s) {
            const auto at = static_cast<double>(s);
            cover.weights.push_back(static_cast<float>((std::min(end, at + 1.0) - std::max(begin, at)) / scale));
        }
    }
    return covers;
}

std::uint32_t scaledSide(std::uint32_t side, double scale, std::uint32_t most) {
    return static_cast<std::uint32_t>(std::clamp<long>(std::lround(side * scale), 1, static_cast<long>(most)));
}

unsigned char toByte(float value) { return static_cast<unsigned char>(std::lround(std::clamp(value, 0.0F, 255.0F))); }

}  // namespace

Picture fitted(const Picture& picture, std::uint32_t width, std::uint32_t height) {
    Picture out{width, height, std::vector<unsigned char>(std::size_t{width} * height * kChannels)};
    if (picture.width == 0 || picture.height == 0 || width == 0 || height == 0) return out;
    const double scale =
        std::min(static_cast<double>(width) / picture.width, static_cast<double>(height) / picture.height);
    const std::uint32_t columns = scaledSide(picture.width, scale, width);
    const std::uint32_t rows = scaledSide(picture.height, scale, height);
    const std::vector<Cover> across = coversOf(picture.width, columns);
    const std::vector<Cover> down = coversOf(picture.height, rows);
    const std::size_t left = (width - columns) / 2;
    const std::size_t top = (height - rows) / 2;
    // rows first: all pixels of one weigh the same
    std::vector<float> line(picture.width * kChannels);
    for (std::size_t y = 0; y < rows; ++y) {
        std::fill(line.begin(), line.end(), 0.0F);
        for (std::size_t r = 0; r < down[y].weights.size(); ++r) {
            const unsigned char* pixel = picture.rgb.data() + (down[y].first + r) * line.size();
            for (float& sum : line) sum += static_cast<float>(*pixel++) * down[y].weights[r];
        }
        unsigned char* to = out.rgb.data() + ((y + top) * width + left) * kChannels;
        for (const Cover& cover : across) {
            float sums[kChannels] = {};
            const float* from = line.data() + cover.first * kChannels;
            for (const float weight : cover.weights) {
                for (float& sum : sums) sum += *from++ * weight;
            }
            for (const float sum : sums) *to++ = toByte(sum);
        }
    }
    return out;
}

std::vector<unsigned char> packed565(const Picture& picture) {
    std::vector<unsigned char> bytes;
    bytes.reserve(picture.rgb.size() / kChannels * 2);
    for (std::size_t i = 0; i + 2 < picture.rgb.size(); i += kChannels) {
        const unsigned colour = static_cast<unsigned>(picture.rgb[i] >> 3) << 11 |
                                static_cast<unsigned>(picture.rgb[i + 1] >> 2) << 5 | picture.rgb[i + 2] >> 3;
        bytes.push_back(static_cast<unsigned char>(colour >> 8));
        bytes.push_back(static_cast<unsigned char>(colour));
    }
    return bytes;
}

}  // namespace vndlp::job
