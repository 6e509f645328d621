// The model of a slice file: opening, every setting and field, pictures, verifying, every layer. The last byte may ask for
// a right trailer first.

#include "fuzz/harness.h"
#include "fuzz/pictures.h"
#include "tests/support/memory_file.h"

#include <vndlp/checksum.h>
#include <vndlp/slice_file.h>

#include <algorithm>
#include <cstdlib>

namespace vndlp::fuzz {

namespace {

constexpr std::int64_t kMostPixels = 1 << 18;
constexpr std::uint32_t kMostLayers = 4;
/// Two pictures of 2^24 pixels, decoded.
constexpr std::uint64_t kMaxPreviewPixels = 1 << 24;
constexpr long long kPreviewBytes = 2 * static_cast<long long>(kMaxPreviewPixels) * 3;

void describe(const SliceFile& file) {
    SliceRawField field;
    for (std::uint64_t i = 0; i < 1 << 16 && file.raw(i, field).isOk(); ++i) {
    }
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        double number = 0;
        std::string text;
        (void)file.number(key->name, -1, number);
        (void)file.text(key->name, text);
    }
    SlicePreviewInfo info;
    for (std::uint32_t i = 0; file.previewInfo(i, info).isOk(); ++i) {
        if (std::uint64_t{info.width} * info.height > kMaxPreviewPixels) continue;
        std::vector<unsigned char> rgb(std::size_t{3} * info.width * info.height);
        (void)file.preview(i, rgb.data(), 0, rgb.size());
    }
    SliceEstimate estimate;
    (void)file.estimate(estimate);
}

/// \return whether every layer could be read.
bool readLayers(const SliceFile& file) {
    const SliceInfo& info = file.info();
    // the sides first: the product of two 32-bit numbers need not fit
    if (info.width > kMostPixels || info.height > kMostPixels) return true;
    const std::int64_t pixels = std::int64_t{info.width} * info.height;
    if (pixels > kMostPixels) return true;
    std::vector<unsigned char> image(static_cast<std::size_t>(pixels));
    SliceShapes shapes;
    bool areRead = true;
    for (std::uint32_t i = 0; i < std::min(info.layers, kMostLayers); ++i) {
        const SliceResult result = info.layerKind == SliceLayers::images
                                       ? file.layerPixels(i, image.data(), 0, image.size())
                                       : file.layerShapes(i, shapes);
        areRead = areRead && result.isOk();
    }
    return areRead;
}

}  // namespace

void run(const Bytes& input) {
    const test::MemoryFile memory(withPictures(input));
    if (input.back() % 2 == 0) CheckSum::instance().appendFileSum(memory.path().c_str());
    // the pictures of a vendor file are there more than once
    allowBytes((8 << 20) + 4 * kMostPixels + kPreviewBytes);
    SliceFile file;
    if (!file.open(memory.path()).isOk()) return;
    describe(file);
    std::uint64_t errors = 0;
    if (!file.verify(nullptr, nullptr, errors).isOk()) return;
    // what is found sound can be read
    if (!readLayers(file) && errors == 0) std::abort();
}

}  // namespace vndlp::fuzz
