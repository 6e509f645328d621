// The V4 reader: every record of a file, and the images that are small enough to be tried often, in both forms; a bead
// mask for the codes that are as wide as the printers' screen.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/v4.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

constexpr std::size_t kMostLayers = 4;
constexpr unsigned int kMostPixels = 1u << 16;

void readPreviews(VNDLPV4::VNDLPV4Read& reader) {
    for (const VNDLPV4::PreView* preView : reader.preViews()) {
        const auto pixels = static_cast<unsigned long long>(preView->resolutionX) * preView->resolutionY;
        if (pixels <= kMostPixels) preView->decodeImage();
    }
}

void readLayer(VNDLPV4::VNDLPV4Read& reader, VNDLPV4::LayerDef& layer, int index) {
    const VNDLPV4::HeaderSettings& header = *reader.headerSettings();
    if (static_cast<unsigned int>(header.resolutionX) * header.resolutionY > kMostPixels) return;
    const std::vector<unsigned char> whole = reader.readLayerImage(&header, &layer, index);
    std::vector<unsigned char> rows;
    reader.readLayerImage_16k(&header, &layer, index, [&](unsigned int, const unsigned char* pixels) {
        rows.insert(rows.end(), pixels, pixels + header.resolutionX);
    });
    require(rows == whole);
    // what comes back is coded and decoded without another change
    const std::vector<unsigned char> code = VNDLPV4::LayerDef::encodeImage(whole.data(), whole.size(), 0, 0);
    const auto row = [&](unsigned int y) { return whole.data() + std::size_t{y} * header.resolutionX; };
    require(VNDLPV4::LayerDef::encodeImage_16k(header.resolutionX, header.resolutionY, row, 0, 0) == code);
}

VNDLPV4::LampBeadCal quietField() {
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    return field;
}

}  // namespace

void run(const Bytes& input) {
    static VNDLPV4::LampBeadCal field = quietField();
    const test::MemoryFile file(input);
    VNDLPV4::VNDLPV4Read reader;
    if (reader.openDlpFile(file.path(), false) != 0) return;
    reader.parseFile();
    readPreviews(reader);
    const std::vector<VNDLPV4::LayerDef*> layers = reader.layerDef();
    require(reader.layerDefEx().size() == layers.size());
    for (std::size_t i = 0; i < std::min(layers.size(), kMostLayers); ++i) {
        layers[i]->beadMask();
        readLayer(reader, *layers[i], static_cast<int>(i));
    }
    // a code of few bytes can light every row of the screen, so the last byte lets only some through
    if (input.back() == 0xA5) VNDLPV4::LayerDef::beadMaskOfCode(input, 15120, field);
}

}  // namespace vndlp::fuzz
