// Writes a slice file of 40 layers with several threads, each delivering the layers it has drawn.
//   write_parallel OUTPUT
// OUTPUT may end in .ctb or .vndlpv4. A .vndlp file takes layers in this way too, but then holds the runs of each layer
// twice: deliver those in order, as write_vndlp.cpp does.

#include <vndlp/vndlp.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int kLayers = 40;
constexpr unsigned kWidth = 1440;
constexpr unsigned kHeight = 2560;
constexpr double kPixelAreaUm2 = 47.25 * 47.25;

/// A square that grows from layer to layer.
vndlp::SliceImage drawLayer(int layer, double& litPixels) {
    vndlp::SliceImage image;
    image.width = kWidth;
    image.height = kHeight;
    image.size = kWidth * kHeight;
    image.pixels.reset(new unsigned char[image.size]());
    const unsigned side = 200 + 20 * static_cast<unsigned>(layer);
    unsigned char* const corner = image.pixels.get() + std::size_t{(kHeight - side) / 2} * kWidth + (kWidth - side) / 2;
    for (unsigned y = 0; y < side; ++y) std::fill_n(corner + std::size_t{y} * kWidth, side, 255);
    litPixels = static_cast<double>(side) * side;
    return image;
}

int writeFile(const char* path) {
    const std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter(path));
    if (writer == nullptr) return 1;
    writer->filePath = path;
    writer->machineType = writer->machineName = "M01";
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
    writer->resizeLayers(kLayers);  // the tables that the threads deliver into
    std::atomic<int> next{0};
    const auto work = [&] {
        for (int layer = next++; layer < kLayers; layer = next++) {
            double litPixels = 0;
            const vndlp::SliceImage image = drawLayer(layer, litPixels);
            writer->setLayerImageAt(layer, image, litPixels * kPixelAreaUm2);
        }
    };
    std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
    for (std::thread& thread : threads) thread = std::thread(work);
    for (std::thread& thread : threads) thread.join();
    return writer->finish() < 0 ? 1 : 0;  // tells of every layer that failed, too
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && writeFile(argv[1]) == 0) return 0;
    std::fprintf(stderr, "usage: write_parallel OUTPUT.ctb\n");
    return 1;
}
