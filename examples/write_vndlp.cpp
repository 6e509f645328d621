// Writes a slice file of 50 layers, a growing disc, through the writer front end.
//   write_vndlp OUTPUT.vndlp

#include <vndlp/vndlp.h>

#include <cstdio>
#include <memory>

namespace {

constexpr unsigned kLayers = 50;
constexpr int kWidth = 1440;
constexpr int kHeight = 2560;
constexpr double kPixelAreaUm2 = 47.25 * 47.25;

vndlp::SliceImage drawLayer(unsigned layer, double& litPixels) {
    vndlp::SliceImage image;
    image.width = kWidth;
    image.height = kHeight;
    image.size = image.width * image.height;
    image.pixels.reset(new unsigned char[image.size]());
    const long long radius = 100 + 10 * static_cast<long long>(layer);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const long long dx = x - kWidth / 2;
            const long long dy = y - kHeight / 2;
            if (dx * dx + dy * dy > radius * radius) continue;
            image.pixels[static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)] = 255;
            litPixels += 1;
        }
    }
    return image;
}

int writeFile(const char* path) {
    std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter(path));
    if (writer == nullptr) return 1;
    writer->filePath = path;
    writer->machineType = "M01";
    writer->layerCount = kLayers;
    writer->resolutionX = kWidth;
    writer->resolutionY = kHeight;
    vndlp::DlpParameters& parameters = writer->fileStructure.parameters;
    parameters.platformX = "68.04";  // mm
    parameters.platformY = "120.96";
    parameters.thickness = "0.05";
    parameters.exposure_time = 25;  // tenths of a second
    parameters.first_exposure_time = 30;
    parameters.first_layer_count = 4;

    std::vector<vndlp::SliceImage> previews(3);
    if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return 1;
    for (unsigned layer = 0; layer < kLayers; ++layer) {
        double litPixels = 0;
        const vndlp::SliceImage image = drawLayer(layer, litPixels);
        writer->addLayerImage(layer, image, litPixels * kPixelAreaUm2, 8);
    }
    if (writer->finish() < 0) return 1;  // a full disk shows here
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && writeFile(argv[1]) == 0) return 0;
    std::fprintf(stderr, "usage: write_vndlp OUTPUT.vndlp\n");
    return 1;
}
