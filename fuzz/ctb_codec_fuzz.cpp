// The CTB codecs: what is encoded comes back, and any bytes can be decoded.

#include "fuzz/memory_file.h"

#include <vndlp/ctb.h>

#include <algorithm>

namespace {

using Bytes = std::vector<unsigned char>;

void require(bool holds) {
    if (!holds) std::abort();
}

/// Decodes a code, into `size` pixels and into fewer.
Bytes decoded(const Bytes& code, unsigned int size, unsigned int key) {
    const vndlp::fuzz::MemoryFile file(code.data(), code.size());
    const vndlp::FileRead in(file.path(), 0);
    CTB::LayerDef layer(in);
    layer.dataSize = static_cast<unsigned int>(code.size());
    Bytes fewer(size / 2, 1);
    layer.decodeCtbImageInto(fewer.data(), fewer.size(), 1, key);
    Bytes pixels = layer.decodeCtbImage(size, 1, 1, key);
    require(pixels.size() == size && std::equal(fewer.begin(), fewer.end(), pixels.begin()));
    return pixels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > CTB::kLongestImageSide) return 0;
    Bytes bytes(data, data + size);
    const auto count = static_cast<unsigned int>(size);
    const unsigned int key = bytes.back();

    const Bytes code = CTB::LayerDef::encodeCtbImage(bytes.data(), count, key, 1);
    const Bytes pixels = decoded(code, count, key);
    for (std::size_t i = 0; i < size; ++i) require(pixels[i] == (bytes[i] < 2 ? 0 : bytes[i] | 1));
    decoded(bytes, count, key);

    CTB::PreView preView;
    preView.resolutionX = (count + 2) / 3;
    preView.resolutionY = 1;
    Bytes previewCode = preView.Encode(bytes.data(), count);
    const Bytes picture = preView.decodeImg(previewCode.data(), static_cast<unsigned int>(previewCode.size()));
    for (std::size_t i = 0; i < size; ++i) require(picture[i] == (bytes[i] & 0xF8));
    preView.decodeImg(bytes.data(), count);
    return 0;
}
