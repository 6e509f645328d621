// Whole files and jobs: sealing and verifying beside reading, writing jobs through the front end beside copying their
// images, converting beside decoding.

#include "bench/measure.h"
#include "bench/plain.h"
#include "bench/png.h"
#include "tools/base/pipeline.h"
#include "tools/commands/commands.h"

#include <vndlp/checksum.h>
#include <vndlp/writer.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

using namespace vndlp;
using bench::Bytes;
using bench::Layer;

namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 11520;
constexpr int kHeight = 5120;

/// Files go to memory where the system offers that, so that no disk is measured.
class Folder {
public:
    Folder()
        : m_path((fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) / "vndlp_file_bench") {
        fs::create_directories(m_path);
    }
    ~Folder() { fs::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    [[nodiscard]] std::string file(const std::string& name) const { return (m_path / name).string(); }

private:
    fs::path m_path;
};

std::size_t fileSize(const std::string& path) { return static_cast<std::size_t>(fs::file_size(path)); }

SliceImage lend(const Layer& layer) {
    SliceImage image;
    image.width = static_cast<unsigned>(layer.width);
    image.height = static_cast<unsigned>(layer.height);
    image.size = image.width * image.height;
    image.pixels = std::shared_ptr<unsigned char[]>(const_cast<unsigned char*>(layer.pixels.data()), [](auto*) {});
    return image;
}

/// Writes a job of the same layer again and again. \return the file's size.
std::size_t writeJob(const std::string& path, const Layer& layer, int layers) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    writer->filePath = path;
    writer->layerCount = layers;
    writer->resolutionX = static_cast<unsigned>(layer.width);
    writer->resolutionY = static_cast<unsigned>(layer.height);
    std::vector<SliceImage> previews(3);
    for (SliceImage& preview : previews) {
        preview.width = 4;
        preview.height = 3;
        preview.size = 36;
        preview.pixels.reset(new unsigned char[preview.size]());
    }
    const SliceImage image = lend(layer);
    if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return 0;
    for (int i = 0; i < layers; ++i) writer->addLayerImage(static_cast<unsigned>(i), image, 1, 1);
    return writer->finish() < 0 ? 0 : fileSize(path);
}

/// The plain road: column walk, a record a run, six bytes each, to a file.
std::size_t writePlainRuns(const std::string& path, const Layer& layer, int layers) {
    std::ofstream out(path, std::ios::binary);
    for (int i = 0; i < layers; ++i) {
        std::vector<WhiteData> runs;
        bench::columnWalk(layer, runs);
        for (const WhiteData& run : runs) {
            unsigned char packed[kPackedRunBytes];
            whiteData2Bits(run, packed);
            out.write(reinterpret_cast<const char*>(packed), sizeof packed);
        }
    }
    out.close();
    return fileSize(path);
}

void addJobRows(const Folder& folder, const Layer& layer) {
    const std::string name = "sparse/11520x5120";
    const std::size_t size = layer.pixels.size();
    constexpr int few = 20;
    constexpr int many = 200;
    auto copy = std::make_shared<Bytes>(size);
    const auto copyLayers = [&layer, copy](int layers) {
        for (int i = 0; i < layers; ++i) {
            std::memcpy(copy->data(), layer.pixels.data(), copy->size());
            benchmark::ClobberMemory();
        }
        return copy->size() * static_cast<std::size_t>(layers);
    };
    bench::add("memcpy of 20", name, size * few, [copyLayers] { return copyLayers(few); });
    const std::string plain = folder.file("plain");
    bench::add(
        "20 layers of plain runs", name, size * few, [plain, &layer] { return writePlainRuns(plain, layer, few); },
        true);
    for (const char* ending : {".vndlp", ".ctb", ".vndlpv4"}) {
        const std::string path = folder.file(std::string("few") + ending);
        bench::add(std::string("20 layers, ") + ending, name, size * few,
                   [path, &layer] { return writeJob(path, layer, few); });
    }
    bench::add("memcpy of 200", name, size * many, [copyLayers] { return copyLayers(many); });
    for (const char* ending : {".vndlp", ".ctb"}) {
        const std::string path = folder.file(std::string("many") + ending);
        bench::add(
            std::string("200 layers, ") + ending, name, size * many,
            [path, &layer] { return writeJob(path, layer, many); }, true);
    }
    bench::add("PNG", name, size, [&layer] { return bench::encodePng(layer).size(); });
}

std::size_t readFile(const std::string& path) {
    static Bytes block(1u << 18);
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    std::size_t total = 0;
    while (const std::size_t got = std::fread(block.data(), 1, block.size(), file)) total += got;
    std::fclose(file);
    return total;
}

void addSealRows(const Folder& folder) {
    constexpr std::size_t size = 512u << 20;
    const std::string path = folder.file("sealed");
    {
        std::ofstream out(path, std::ios::binary);
        const Layer noise = bench::noiseLayer(1024, 1024);
        for (std::size_t done = 0; done < size; done += noise.pixels.size()) {
            out.write(reinterpret_cast<const char*>(noise.pixels.data()),
                      static_cast<std::streamsize>(noise.pixels.size()));
        }
    }
    CheckSum& sums = CheckSum::instance();
    // sealing leaves four more bytes, which are cut off again
    const auto seal = [path](auto member) {
        fs::resize_file(path, size);
        return (CheckSum::instance().*member)(path.c_str()) == 0 ? size : 0;
    };
    if (seal(&CheckSum::appendFileSumCrc32) == 0 || sums.checkFileSumCrc32(path.c_str()) != 0) {
        return bench::addFailure("seal, CRC", "512MB");
    }
    bench::add("read", "512MB", size, [path] { return readFile(path); });
    bench::add("seal, CRC", "512MB", size, [seal] { return seal(&CheckSum::appendFileSumCrc32); });
    bench::add("verify, CRC", "512MB", size,
               [path] { return CheckSum::instance().checkFileSumCrc32(path.c_str()) == 0 ? size : 0; });
    bench::add("seal, XOR", "512MB", size, [seal] { return seal(&CheckSum::appendFileSumXor); });
    bench::add("verify, XOR", "512MB", size,
               [path] { return CheckSum::instance().checkFileSumXor(path.c_str()) == 0 ? size : 0; });
}

void addConvertRows(const Folder& folder) {
    const std::string name = "plate/11520x5120";
    const std::string jobPath = folder.file("job");
    fs::create_directories(jobPath);
    int layers = 0;
    {
        const std::unique_ptr<tools::LayerSource> sample = tools::openJob(VNDLP_EXAMPLES_DIR "/lattice_tower.sl1");
        for (; layers < sample->layerCount(); ++layers) {
            const Bytes png = bench::encodePng(bench::plateLayer(*sample, layers, kWidth, kHeight));
            std::ofstream out(jobPath + "/layer" + std::to_string(layers) + ".png", std::ios::binary);
            out.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
        }
    }
    const std::size_t size = std::size_t{kWidth} * kHeight * static_cast<std::size_t>(layers);
    const int threads = static_cast<int>(std::max(std::thread::hardware_concurrency(), 1u));
    bench::add("decode PNGs", name, size, [jobPath, threads] {
        const std::unique_ptr<tools::LayerSource> job = tools::openJob(jobPath);
        std::size_t pixels = 0;
        tools::runOrdered<tools::GreyImage, std::size_t>(
            job->layerCount(), threads,
            [&job](int index, tools::GreyImage& image) {
                job->readLayer(index, image);
                return image.pixels.size();
            },
            [&pixels](int, std::size_t decoded) { pixels += decoded; });
        return pixels;
    });
    for (const char* ending : {".vndlp", ".ctb"}) {
        tools::ConvertOptions options;
        options.input = jobPath;
        options.output = folder.file(std::string("converted") + ending);
        options.force = true;
        bench::add(std::string("convert to ") + ending, name, size,
                   [options] { return tools::convert(options) == tools::kSuccess ? fileSize(options.output) : 0; });
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const Folder folder;
    const Layer layer = bench::sparseLayer(kWidth, kHeight);
    addSealRows(folder);
    addJobRows(folder, layer);
    addConvertRows(folder);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
