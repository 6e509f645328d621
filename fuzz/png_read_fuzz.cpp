// PNG pictures: any bytes, the same with the CRCs of their chunks made right, and what is encoded comes back.

#include "fuzz/harness.h"
#include "tools/base/failure.h"
#include "tools/images/png.h"

namespace vndlp::fuzz {

namespace {

constexpr std::int64_t kMostPixels = 1 << 18;

void decode(const Bytes& bytes) {
    const tools::PngHeader header = tools::readPngHeader(bytes, "input");
    if (std::int64_t{header.width} * header.height > kMostPixels) return;
    // eight bytes of a pixel while it is decoded, four afterwards, and the unpacked rows
    allowBytes(24 * kMostPixels);
    try {
        tools::GreyImage layer;
        tools::decodeGreyLayer(bytes, "input", layer);
        const std::vector<unsigned char> again = tools::encodePng(layer);
        tools::GreyImage back;
        tools::decodeGreyLayer(again, "input", back);
        require(back.pixels == layer.pixels);
    } catch (const tools::Failure&) {
    }
    const tools::ColourImage picture = tools::decodeColour(bytes, "input");
    require(picture.pixels.size() == std::size_t{4} * static_cast<std::size_t>(picture.width * picture.height));
}

std::uint32_t numberAt(const Bytes& bytes, std::size_t at) {
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 | std::uint32_t{bytes[at + 2]} << 8 |
           bytes[at + 3];
}

std::uint32_t crcOf(const unsigned char* data, std::size_t size) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return ~crc;
}

/// Length, type and CRC of a chunk take 12 bytes.
Bytes withRightCrcs(Bytes png) {
    for (std::size_t at = 8; at + 12 <= png.size();) {
        const std::size_t length = numberAt(png, at);
        if (length > png.size() - at - 12) break;
        const std::uint32_t crc = crcOf(png.data() + at + 4, length + 4);
        for (std::size_t i = 0; i < 4; ++i) {
            png[at + 8 + length + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
        }
        at += length + 12;
    }
    return png;
}

void tryDecoding(const Bytes& bytes) {
    try {
        decode(bytes);
    } catch (const tools::Failure&) {
    }
}

}  // namespace

void run(const Bytes& input) {
    tryDecoding(input);
    tryDecoding(withRightCrcs(input));
}

}  // namespace vndlp::fuzz
