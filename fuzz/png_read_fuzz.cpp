// PNG pictures: any bytes, and what is encoded comes back.

#include "fuzz/harness.h"
#include "tools/failure.h"
#include "tools/png.h"

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

}  // namespace

void run(const Bytes& input) {
    try {
        decode(input);
    } catch (const tools::Failure&) {
    }
}

}  // namespace vndlp::fuzz
