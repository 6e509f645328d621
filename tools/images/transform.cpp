#include "tools/images/transform.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace vndlp::tools {

namespace {

void mirror(GreyImage& image, bool x, bool y) {
    const auto width = static_cast<std::ptrdiff_t>(image.width);
    const auto begin = image.pixels.begin();
    if (x && y) {
        std::reverse(begin, image.pixels.end());
    } else if (x) {
        for (int row = 0; row < image.height; ++row) std::reverse(begin + row * width, begin + (row + 1) * width);
    } else if (y) {
        for (int top = 0, bottom = image.height - 1; top < bottom; ++top, --bottom)
            std::swap_ranges(begin + top * width, begin + (top + 1) * width, begin + bottom * width);
    }
}

/// Exchanges rows and columns, walking the source's columns or rows backwards where told:
///
///     to[y][x] = from[flipRows ? height - 1 - x : x][flipColumns ? width - 1 - y : y]
///
/// A plain walk touches a new cache line with every pixel on one of the two sides. Here a tile as wide as a cache line
/// is turned in small blocks, so that the lines of both sides are used up while they are near.
/// \param from width x height pixels; `to` is height x width.
void exchangeSides(const unsigned char* from, int width, int height, bool flipRows, bool flipColumns,
                   unsigned char* to) {
    constexpr int kTile = 64;
    constexpr int kBlock = 8;
    const std::ptrdiff_t rowStep = flipRows ? -std::ptrdiff_t{width} : std::ptrdiff_t{width};
    const std::ptrdiff_t columnStep = flipColumns ? -1 : 1;
    const unsigned char* const origin =
        from + (flipRows ? std::ptrdiff_t{width} * (height - 1) : 0) + (flipColumns ? width - 1 : 0);
    const std::ptrdiff_t toStride = height;
    const auto turnBlock = [&](int x0, int y0, int columns, int rows) {
        const unsigned char* const source = origin + x0 * rowStep + y0 * columnStep;
        unsigned char* const target = to + y0 * toStride + x0;
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < columns; ++x) target[y * toStride + x] = source[x * rowStep + y * columnStep];
        }
    };
    for (int tile = 0; tile < width; tile += kTile) {
        const int tileEnd = std::min(tile + kTile, width);
        for (int x = 0; x < height; x += kBlock) {
            const int columns = std::min(kBlock, height - x);
            for (int y = tile; y < tileEnd; y += kBlock) {
                const int rows = std::min(kBlock, tileEnd - y);
                if (columns == kBlock && rows == kBlock)
                    turnBlock(x, y, kBlock, kBlock);  // constant sizes: unrolled
                else
                    turnBlock(x, y, columns, rows);
            }
        }
    }
}

/// Source pixels under one target pixel, the outer ones in part.
struct Span {
    int first = 0;
    std::vector<float> weights;  // of source pixels first, first + 1, ...; they add up to 1
};

std::vector<Span> spansOf(int sourceSize, int targetSize) {
    std::vector<Span> spans(static_cast<std::size_t>(targetSize));
    const double scale = static_cast<double>(sourceSize) / targetSize;
    for (int i = 0; i < targetSize; ++i) {
        Span& span = spans[static_cast<std::size_t>(i)];
        const double begin = i * scale;
        const double end = std::min((i + 1) * scale, static_cast<double>(sourceSize));
        span.first = std::min(static_cast<int>(begin), sourceSize - 1);
        for (int s = span.first; s == span.first || s < end; ++s)
            span.weights.push_back(static_cast<float>((std::min(end, s + 1.0) - std::max(begin, s + 0.0)) / scale));
    }
    return spans;
}

struct Size {
    int width;
    int height;
};

/// Averages areas of an image of `kChannels` bytes a pixel into width x height pixels of as many floats.
/// `row(y)` is a source row; `load(pixel, floats)` turns a source pixel into floats.
template <int kChannels, class Row, class Load>
std::vector<float> areaAverage(Row&& row, int sourceWidth, int sourceHeight, Size size, Load&& load) {
    const std::vector<Span> columns = spansOf(sourceWidth, size.width);
    const std::vector<Span> rows = spansOf(sourceHeight, size.height);
    std::vector<float> out(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * kChannels);
    float* cell = out.data();
    // rows first: all pixels of one weigh the same, which compilers make vectors of
    std::vector<float> line(static_cast<std::size_t>(sourceWidth) * kChannels);
    for (const Span& rowSpan : rows) {
        std::fill(line.begin(), line.end(), 0.0F);
        for (std::size_t r = 0; r < rowSpan.weights.size(); ++r) {
            const unsigned char* pixel = row(rowSpan.first + static_cast<int>(r));
            const float weight = rowSpan.weights[r];
            for (std::size_t x = 0; x < line.size(); x += kChannels, pixel += kChannels) {
                float values[kChannels];
                load(pixel, values);
                for (int c = 0; c < kChannels; ++c) line[x + static_cast<std::size_t>(c)] += values[c] * weight;
            }
        }
        for (const Span& span : columns) {
            const float* source = line.data() + static_cast<std::ptrdiff_t>(span.first) * kChannels;
            for (const float weight : span.weights) {
                for (int c = 0; c < kChannels; ++c) cell[c] += *source++ * weight;
            }
            cell += kChannels;
        }
    }
    return out;
}

unsigned char toByte(float value) { return static_cast<unsigned char>(std::lround(std::clamp(value, 0.0F, 255.0F))); }

/// The largest size of an image's proportions inside a frame.
Size fitInto(int width, int height, Size frame) {
    const double scale = std::min(static_cast<double>(frame.width) / width, static_cast<double>(frame.height) / height);
    const auto scaled = [scale](int side, int limit) {
        return std::clamp(static_cast<int>(std::lround(side * scale)), 1, limit);
    };
    return {scaled(width, frame.width), scaled(height, frame.height)};
}

/// Sets a picture of floats into the middle of a black frame. `colourOf(floats, rgb)` makes a pixel of them.
template <int kChannels, class ColourOf>
ColourImage setIntoFrame(const std::vector<float>& picture, Size size, Size frame, ColourOf&& colourOf) {
    ColourImage out;
    out.width = frame.width;
    out.height = frame.height;
    out.pixels.assign(static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height) * 4, 0);
    for (std::size_t i = 3; i < out.pixels.size(); i += 4) out.pixels[i] = 255;
    const int left = (frame.width - size.width) / 2;
    const int top = (frame.height - size.height) / 2;
    const float* cell = picture.data();
    for (int y = 0; y < size.height; ++y) {
        const std::ptrdiff_t row = y + top;
        unsigned char* pixel = out.pixels.data() + (row * frame.width + left) * 4;
        for (int x = 0; x < size.width; ++x, pixel += 4, cell += kChannels) colourOf(cell, pixel);
    }
    return out;
}

}  // namespace

void transform(GreyImage& image, const Orientation& orientation) {
    if (!orientation.mirrorX && !orientation.mirrorY && orientation.clockwiseTurns == 0) return;
    removePadding(image);
    const bool isHalfTurned = orientation.clockwiseTurns == 2;
    if (!orientation.swapsSides()) {
        mirror(image, orientation.mirrorX != isHalfTurned, orientation.mirrorY != isHalfTurned);
        return;
    }
    thread_local std::vector<unsigned char> turned;
    turned.resize(image.pixels.size());
    exchangeSides(image.pixels.data(), image.width, image.height,
                  orientation.mirrorY != (orientation.clockwiseTurns == 1),
                  orientation.mirrorX != (orientation.clockwiseTurns == 3), turned.data());
    image.pixels.swap(turned);
    std::swap(image.width, image.height);
}

ColourImage resizeColour(const ColourImage& image, int width, int height) {
    const Size frame{width, height};
    const Size size = fitInto(image.width, image.height, frame);
    const auto row = [&image](int y) { return image.pixels.data() + std::ptrdiff_t{4} * image.width * y; };
    const std::vector<float> average =
        areaAverage<4>(row, image.width, image.height, size, [](const unsigned char* pixel, float* values) {
            // weighted by alpha: black shows where nothing is
            const float alpha = static_cast<float>(pixel[3]) / 255;
            for (int c = 0; c < 3; ++c) values[c] = pixel[c] * alpha;
            values[3] = 0;
        });
    return setIntoFrame<4>(average, size, frame, [](const float* cell, unsigned char* rgb) {
        for (int c = 0; c < 3; ++c) rgb[c] = toByte(cell[c]);
    });
}

void shrink(GreyImage& image, int longerSide) {
    if (std::max(image.width, image.height) <= longerSide) return;
    const Size size = fitInto(image.width, image.height, {longerSide, longerSide});
    const std::vector<float> average =
        areaAverage<1>([&image](int y) { return image.row(y); }, image.width, image.height, size,
                       [](const unsigned char* pixel, float* values) { values[0] = *pixel; });
    GreyImage small{size.width, size.height, {}};
    small.pixels.resize(average.size());
    std::transform(average.begin(), average.end(), small.pixels.begin(), toByte);
    image = std::move(small);
}

ColourImage renderLayerPreview(const GreyImage& layer, int width, int height) {
    constexpr float kScreen[3] = {40, 40, 44};
    constexpr float kCured[3] = {235, 240, 255};
    const Size frame{width, height};
    const Size size = fitInto(layer.width, layer.height, frame);
    const std::vector<float> average =
        areaAverage<1>([&layer](int y) { return layer.row(y); }, layer.width, layer.height, size,
                       [](const unsigned char* pixel, float* values) { values[0] = *pixel; });
    return setIntoFrame<1>(average, size, frame, [&](const float* cell, unsigned char* rgb) {
        const float share = *cell / 255;
        for (int c = 0; c < 3; ++c) rgb[c] = toByte(kScreen[c] + (kCured[c] - kScreen[c]) * share);
    });
}

}  // namespace vndlp::tools
