// The preview code of CTB and V4 files: five bits of each byte come back, any bytes can be decoded, and both formats'
// functions agree.

#include "fuzz/harness.h"

#include <vndlp/ctb.h>
#include <vndlp/v4.h>

namespace vndlp::fuzz {

namespace {

Bytes decodedByBoth(const Bytes& code, unsigned int width, unsigned int height) {
    CTB::PreView ctb;
    ctb.resolutionX = width;
    ctb.resolutionY = height;
    VNDLPV4::PreView v4;
    v4.resolutionX = width;
    v4.resolutionY = height;
    v4.imageData = code;
    Bytes copy = code;
    Bytes pixels = ctb.decodeImg(copy.data(), static_cast<unsigned int>(copy.size()));
    require(pixels == v4.decodeImage() && pixels.size() == std::size_t{3} * width * height);
    return pixels;
}

}  // namespace

void run(const Bytes& input) {
    Bytes bytes = input;
    const auto count = static_cast<unsigned int>(bytes.size());
    CTB::PreView preView;
    const Bytes code = preView.Encode(bytes.data(), count);
    require(code == VNDLPV4::PreView::Encode(bytes.data(), count));
    const Bytes picture = decodedByBoth(code, (count + 2) / 3, 1);
    for (std::size_t i = 0; i < bytes.size(); ++i) require(picture[i] == (bytes[i] & 0xF8));
    decodedByBoth(bytes, 1 + bytes.back(), 16);
}

}  // namespace vndlp::fuzz
