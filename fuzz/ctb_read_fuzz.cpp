// The CTB reader: every query of a file, and the images that are small enough to be tried often.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/ctb.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

constexpr unsigned long long kMostPixels = 1u << 20;

bool isSmall(unsigned int width, unsigned int height) {
    return static_cast<unsigned long long>(width) * height <= kMostPixels;
}

template <class Record>
void deleteAll(const std::vector<Record*>& records) {
    for (const Record* record : records) delete record;
}

void readPreviews(CTB::CTBRead& reader) {
    const std::vector<CTB::PreView*> preViews = reader.preViews();
    for (CTB::PreView* preView : preViews) {
        if (!isSmall(preView->resolutionX, preView->resolutionY)) continue;
        preView->decodeImg(preView->imageData.data(), static_cast<unsigned int>(preView->imageData.size()));
    }
    deleteAll(preViews);
}

void readLayers(CTB::CTBRead& reader, bool withData) {
    constexpr std::size_t kMostLayers = 8;
    const CTB::HeaderSettings* header = reader.headerSettings();
    const std::vector<CTB::LayerDef*> layers = reader.layerDef(withData);
    for (std::size_t i = 0; i < std::min(layers.size(), kMostLayers); ++i) {
        if (!isSmall(header->resolutionX, header->resolutionY)) break;
        reader.readLayerImage(header, layers[i], static_cast<int>(i), nullptr);
    }
    const std::vector<CTB::LayerDefEx*> extended = reader.layerDefEx();
    if (!layers.empty() && !extended.empty()) reader.readLayerImage(layers[0], extended[0]);
    deleteAll(layers);
    deleteAll(extended);
}

}  // namespace

void run(const Bytes& input) {
    const test::MemoryFile file(input);
    CTB::CTBRead reader;
    if (reader.openDlpFile(file.path(), false) != 0) return;
    reader.parseFile(true);
    allowBytes(4 * kMostPixels);
    readPreviews(reader);
    reader.printParameters();
    reader.slicerInfo();
    // the last byte chooses, so that real files are seeds
    readLayers(reader, input.back() % 2 == 0);
}

}  // namespace vndlp::fuzz
