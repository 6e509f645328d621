/// PNGs built chunk by chunk, and the texts of failures.

#pragma once

#include "support/bytes.h"
#include "tools/base/failure.h"

#include <initializer_list>

namespace vndlp::test {

/// CRC-32 of PNG and zip.
inline std::uint32_t zipCrc(const std::vector<unsigned char>& bytes) {
    return ~plainCrc(bytes.data(), bytes.size(), 0xFFFFFFFF);
}

inline std::uint32_t adler32(const std::vector<unsigned char>& bytes) {
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const unsigned char byte : bytes) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

/// A zlib stream of one stored block; at most 65535 bytes.
inline Bytes zlibStored(const Bytes& raw) {
    return Bytes{0x78, 0x01, 0x01}.le(raw.size(), 2).le(raw.size() ^ 0xFFFF, 2).raw(raw).u32(adler32(raw));
}

inline Bytes chunk(std::string_view type, const Bytes& data) {
    const Bytes body = Bytes().raw(type).raw(data);
    return Bytes().be(data.size(), 4).raw(body).u32(zipCrc(body));
}

inline Bytes headerChunk(std::uint32_t width, std::uint32_t height, unsigned depth = 8, unsigned colour = 0,
                         unsigned interlace = 0) {
    return chunk("IHDR", Bytes().u32(width).u32(height).u8(depth).u8(colour).u8(0).u8(0).u8(interlace));
}

inline Bytes pngSignature() { return {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A}; }

/// A PNG of the given chunks and IEND.
inline Bytes pngOf(std::initializer_list<Bytes> chunks) {
    Bytes png = pngSignature();
    for (const Bytes& each : chunks) png.raw(each);
    return png.raw(chunk("IEND", {}));
}

/// An 8-bit grey PNG; `raw` is rows of a filter byte and `width` bytes.
inline Bytes greyPng(std::uint32_t width, std::uint32_t height, const Bytes& raw) {
    return pngOf({headerChunk(width, height), chunk("IDAT", zlibStored(raw))});
}

/// An 8-bit grey PNG all of one grey.
inline Bytes flatPng(std::uint32_t width, std::uint32_t height, unsigned grey) {
    Bytes raw;
    for (std::uint32_t y = 0; y < height; ++y) raw.u8(0).fill(width, grey);
    return greyPng(width, height, raw);
}

/// Text of the failure an action ends in; empty when it does not fail.
template <class Action>
std::string failureOf(Action&& action) {
    try {
        action();
    } catch (const tools::Failure& failure) {
        return failure.what();
    }
    return {};
}

}  // namespace vndlp::test
