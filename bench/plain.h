/// Every operation in its plain form: what the quick ones are compared with and held against.

#pragma once

#include "bench/layers.h"

#include <vndlp/ctb.h>
#include <vndlp/image.h>

#include <cstdint>
#include <vector>

namespace vndlp::bench {

using Bytes = std::vector<unsigned char>;

/// Runs column by column as the format defines them.
inline void columnWalk(const Layer& layer, std::vector<WhiteData>& runs) {
    const auto stride = static_cast<std::size_t>(layer.width);
    for (int x = 0; x < layer.width; ++x) {
        WhiteData run;
        int last = -2;
        for (int y = 0; y < layer.height; ++y) {
            const int grey = layer.pixels[static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x)];
            if (grey <= 15) continue;
            if (last == y - 1 && grey == run.grey) {
                run.end.y = static_cast<float>(y);
            } else {
                if (last >= 0) runs.push_back(run);
                run.start = Vec2(static_cast<float>(x), static_cast<float>(y));
                run.end = run.start;
                run.grey = grey;
            }
            last = y;
        }
        if (last >= 0) runs.push_back(run);
    }
}

inline void packRuns(const std::vector<WhiteData>& runs, Bytes& packed) {
    for (const WhiteData& run : runs) {
        packed.resize(packed.size() + kPackedRunBytes);
        whiteData2Bits(run, packed.data() + packed.size() - kPackedRunBytes);
    }
}

/// A comparison per pixel.
inline Bytes encodeCtb(const Layer& layer) {
    Bytes code;
    unsigned char grey = 0;
    unsigned int count = 0;
    for (const unsigned char pixel : layer.pixels) {
        if (count > 0 && pixel >> 1 == grey) {
            ++count;
            continue;
        }
        CTB::LayerDef::addRep(count, grey, code);
        grey = static_cast<unsigned char>(pixel >> 1);
        count = 1;
    }
    CTB::LayerDef::addRep(count, grey, code);
    return code;
}

/// What a decoder makes of a layer's code: the lowest bit of each pixel is set where it is not black.
inline Bytes reducedPixels(const Layer& layer) {
    Bytes pixels = layer.pixels;
    for (unsigned char& pixel : pixels) pixel = static_cast<unsigned char>(pixel >> 1 == 0 ? 0 : pixel | 1);
    return pixels;
}

/// A comparison per byte, one table look-up per byte.
inline std::uint32_t crc32(const Bytes& data) {
    std::uint32_t crc = 0;
    for (const unsigned char byte : data) {
        std::uint32_t entry = (crc ^ byte) & 0xFF;
        for (int bit = 0; bit < 8; ++bit) entry = (entry & 1) != 0 ? entry >> 1 ^ 0xEDB88320 : entry >> 1;
        crc = crc >> 8 ^ entry;
    }
    return crc;
}

}  // namespace vndlp::bench
