// The V4 layer codecs: all forms give one code, what is encoded comes back but for the lowest bit, any bytes can be
// decoded, and the bead mask made from the code is that made from the image.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/v4.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

using VNDLPV4::LayerDef;

constexpr std::size_t kExtendedRecordBytes = 44;

/// Four columns of beads behind 256 x 64 pixels.
VNDLPV4::LampBeadCal smallField() {
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    std::vector<unsigned> beads{4, 3};
    field.initLampBeadCal(1000000, 25600, 6400, 256, 64, 4, beads, {0, 0}, {0, 0.5F}, 6, 1200, 120, 0);
    return field;
}

/// Decodes a code in every form, into whole images and into part of one.
Bytes decoded(const Bytes& code, unsigned short width, unsigned short height, unsigned int key) {
    Bytes bytes(kExtendedRecordBytes);
    bytes.insert(bytes.end(), code.begin(), code.end());
    const test::MemoryFile file(bytes);
    VNDLPV4::VNDLPV4Read reader;
    require(reader.openDlpFile(file.path(), false) == 0);
    VNDLPV4::HeaderSettings header;
    header.resolutionX = width;
    header.resolutionY = height;
    header.encryptionKey = key;
    LayerDef layer;
    layer.dataSize = static_cast<unsigned int>(bytes.size());
    Bytes whole = reader.readLayerImage(&header, &layer, 1);
    require(whole.size() == std::size_t{width} * height);
    require(whole == reader.readLayerImage_16k(&header, &layer, 1));
    Bytes rows;
    reader.readLayerImage_16k(&header, &layer, 1, [&](unsigned int, const unsigned char* pixels) {
        rows.insert(rows.end(), pixels, pixels + width);
    });
    require(whole == rows);
    Bytes part(whole.size() / 2, 1);
    reader.readLayerImage(&header, &layer, 1, part.data(), part.size());
    require(std::equal(part.begin(), part.end(), whole.begin()));
    return whole;
}

}  // namespace

void run(const Bytes& input) {
    static VNDLPV4::LampBeadCal field = smallField();
    const auto width = static_cast<unsigned short>(1 + input.back());
    const auto height = static_cast<unsigned short>(std::min<std::size_t>(input.size() / width, 1000));
    const unsigned int key = input.front() % 4 == 0 ? 0 : input.front();
    const Bytes pixels(input.begin(), input.begin() + std::ptrdiff_t{width} * height);
    const Bytes code = LayerDef::encodeImage(pixels.data(), pixels.size(), key, 1);
    const auto row = [&](unsigned int y) { return pixels.data() + std::size_t{y} * width; };
    require(code == LayerDef::encodeImage_16k(width, height, row, key, 1));
    Bytes mask;
    require(code == LayerDef::encodeImageSubZone(pixels.data(), width, height, key, 1, field, mask));
    const Bytes plain = LayerDef::encodeImage(pixels.data(), pixels.size(), 0, 1);
    require(mask == LayerDef::beadMaskOfCode(plain, width, field));
    require(LayerDef::codedPixels(plain) == static_cast<long long>(pixels.size()));

    const Bytes back = decoded(code, width, height, key);
    for (std::size_t i = 0; i < pixels.size(); ++i) require(back[i] == (pixels[i] < 2 ? 0 : pixels[i] | 1));
    decoded(input, width, 16, key);
    LayerDef::codedPixels(input);
    LayerDef::beadMaskOfCode(input, width, field);
}

}  // namespace vndlp::fuzz
