// How time and memory grow with a job: layer after layer through the front end, and large jobs to convert.
//   growth curve FILE                         prints format, layers, milliseconds a layer, resident megabytes
//   growth job FOLDER WIDTH HEIGHT LAYERS     makes a job of PNGs

#include "bench/png.h"

#include <vndlp/writer.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>

#include <unistd.h>

using namespace vndlp;

namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 3840;
constexpr int kHeight = 2400;
constexpr int kLayers = 10000;
constexpr int kLayersAPoint = 250;

double residentMegabytes() {
    std::ifstream file("/proc/self/statm");
    long all = 0;
    long resident = 0;
    file >> all >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

SliceImage blankPreview() {
    SliceImage preview;
    preview.width = 4;
    preview.height = 3;
    preview.size = 36;
    preview.pixels.reset(new unsigned char[preview.size]());
    return preview;
}

/// \return false when the job could not be written.
bool printCurve(const std::string& path, const bench::Layer& layer) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    writer->filePath = path;
    writer->layerCount = kLayers;
    writer->resolutionX = kWidth;
    writer->resolutionY = kHeight;
    std::vector<SliceImage> previews(3, blankPreview());
    if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return false;
    using Clock = std::chrono::steady_clock;
    std::chrono::duration<double, std::milli> spent{};
    for (int i = 0; i < kLayers; ++i) {
        // an image of its own for every layer, as a slicer hands it over
        SliceImage image;
        image.width = kWidth;
        image.height = kHeight;
        image.size = image.width * image.height;
        image.pixels.reset(new unsigned char[image.size]);
        std::memcpy(image.pixels.get(), layer.pixels.data(), image.size);
        const Clock::time_point start = Clock::now();
        if (writer->addLayerImage(static_cast<unsigned>(i), std::move(image), 1, 1) < 0) return false;
        spent += Clock::now() - start;
        if ((i + 1) % kLayersAPoint != 0) continue;
        std::printf("%s,%d,%.3f,%.1f\n", fs::path(path).extension().c_str(), i + 1, spent.count() / kLayersAPoint,
                    residentMegabytes());
        spent = {};
    }
    const Clock::time_point start = Clock::now();
    if (writer->finish() < 0) return false;
    spent = Clock::now() - start;
    std::printf("%s,finish,%.3f,%.1f\n", fs::path(path).extension().c_str(), spent.count(), residentMegabytes());
    return true;
}

/// The layers of the sample job side by side, a few of them again and again.
void makeJob(const fs::path& folder, int width, int height, int layers) {
    constexpr int kDifferent = 16;
    fs::create_directories(folder);
    const std::unique_ptr<tools::LayerSource> sample = tools::openJob(VNDLP_EXAMPLES_DIR "/lattice_tower.sl1");
    const auto name = [&folder](int index) { return folder / ("layer" + std::to_string(index) + ".png"); };
    for (int i = 0; i < layers; ++i) {
        if (i >= kDifferent) {
            fs::create_hard_link(name(i % kDifferent), name(i));
            continue;
        }
        const int index = i * sample->layerCount() / kDifferent;
        const std::vector<unsigned char> png = bench::encodePng(bench::plateLayer(*sample, index, width, height));
        std::ofstream out(name(i), std::ios::binary);
        out.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
        if (!out.flush()) throw std::runtime_error(name(i).string() + ": cannot be written");
    }
}

int run(const std::vector<std::string>& arguments) {
    if (arguments.size() == 5 && arguments[0] == "job") {
        makeJob(arguments[1], std::stoi(arguments[2]), std::stoi(arguments[3]), std::stoi(arguments[4]));
        return 0;
    }
    if (arguments.size() != 2 || arguments[0] != "curve") {
        std::fputs("usage: growth curve FILE | growth job FOLDER WIDTH HEIGHT LAYERS\n", stderr);
        return 2;
    }
    if (printCurve(arguments[1], bench::sparseLayer(kWidth, kHeight))) return 0;
    std::fprintf(stderr, "%s: cannot be written\n", arguments[1].c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "growth: %s\n", error.what());
        return 1;
    }
}
