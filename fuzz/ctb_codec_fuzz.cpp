// The CTB layer code: what is encoded comes back but for the lowest bit, and any bytes can be decoded.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/ctb.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

/// Decodes a code, into `size` pixels and into fewer.
Bytes decoded(const Bytes& code, unsigned int size, unsigned int key) {
    const test::MemoryFile file(code);
    const FileRead in(file.path(), 0);
    CTB::LayerDef layer(in);
    layer.dataSize = static_cast<unsigned int>(code.size());
    Bytes fewer(size / 2, 1);
    layer.decodeCtbImageInto(fewer.data(), fewer.size(), 1, key);
    Bytes pixels = layer.decodeCtbImage(size, 1, 1, key);
    require(pixels.size() == size && std::equal(fewer.begin(), fewer.end(), pixels.begin()));
    layer.codedPixelCount(1, key);
    return pixels;
}

}  // namespace

void run(const Bytes& input) {
    if (input.size() > CTB::kLongestImageSide) return;
    Bytes bytes = input;
    const auto count = static_cast<unsigned int>(bytes.size());
    const unsigned int key = bytes.back();
    const Bytes code = CTB::LayerDef::encodeCtbImage(bytes.data(), count, key, 1);
    const Bytes pixels = decoded(code, count, key);
    for (std::size_t i = 0; i < bytes.size(); ++i) require(pixels[i] == (bytes[i] < 2 ? 0 : bytes[i] | 1));
    decoded(bytes, count, key);
}

}  // namespace vndlp::fuzz
