// Writes a V4 file whose layers carry the mask of the light source's LED beads that they need, and reads the masks
// back.
//   write_beads OUTPUT.vndlpv4

#include <vndlp/vndlp.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kLayers = 3;
// the screen that the printers' bead field lies behind
constexpr unsigned kWidth = 15120;
constexpr unsigned kHeight = 6230;
constexpr double kPixelAreaUm2 = 14.0 * 19.0;

int writeFile(const std::string& path) {
    const std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter(path));
    if (writer == nullptr) return 1;
    writer->filePath = path;
    writer->machineName = "M31";
    writer->layerCount = kLayers;
    writer->resolutionX = kWidth;
    writer->resolutionY = kHeight;
    writer->bedSizeX = 211.68;  // mm
    writer->bedSizeY = 118.37;
    writer->bedSizeZ = 200;
    vndlp::DlpParameters& parameters = writer->fileStructure.parameters;
    parameters.thickness = "0.05";
    parameters.exposure_time = 25;  // tenths of a second
    parameters.first_exposure_time = 30;
    parameters.first_layer_count = 1;

    std::vector<vndlp::SliceImage> previews(3);
    if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return 1;
    writer->prepareLampBeadCal(1);  // one worker; as many as threads for setLayerImageAt
    vndlp::SliceImage image;
    image.width = kWidth;
    image.height = kHeight;
    image.size = kWidth * kHeight;
    image.pixels.reset(new unsigned char[image.size]());
    for (unsigned layer = 0; layer < kLayers; ++layer) {
        // a bar that grows to the right; V4 layers are encoded at once, so one image may serve them all
        const unsigned side = 2000 * (layer + 1);
        for (unsigned y = 0; y < 2000; ++y) std::fill_n(image.pixels.get() + std::size_t{y} * kWidth, side, 255);
        writer->addLayerImage(layer, image, 2000.0 * side * kPixelAreaUm2, 0);
    }
    return writer->finish();
}

int printMasks(const std::string& path) {
    VNDLPV4::VNDLPV4Read reader;
    if (reader.openDlpFile(path, true) < 0 || reader.parseFile() < 0) return 1;
    VNDLPV4::LampBeadCal bits;  // only for its bit numbering
    for (const VNDLPV4::LayerDef* layer : reader.layerDef()) {
        const std::vector<unsigned char> mask = layer->beadMask();
        unsigned beads = 0;
        for (unsigned bead = 0; bead < mask.size() * 8; ++bead) beads += bits.mgetBit(mask, bead) ? 1 : 0;
        std::printf("layer at %.2f mm lights %u beads\n", static_cast<double>(layer->positionZ), beads);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && writeFile(argv[1]) == 0 && printMasks(argv[1]) == 0) return 0;
    std::fprintf(stderr, "usage: write_beads OUTPUT.vndlpv4\n");
    return 1;
}
