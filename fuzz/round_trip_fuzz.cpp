// Jobs of any settings and layers through the writer of every format: what is written is sealed, is read back without
// complaint, and holds the layers as each format keeps them.

#include "fuzz/choices.h"
#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/vndlp.h>

#include <memory>

namespace vndlp::fuzz {

namespace {

struct Job {
    unsigned int width = 1;
    unsigned int height = 1;
    std::vector<Bytes> layers;
};

SliceImage imageOf(const Bytes& pixels, unsigned int width, unsigned int height) {
    SliceImage image{static_cast<unsigned int>(pixels.size()), width, height, nullptr};
    image.pixels = std::shared_ptr<unsigned char[]>(new unsigned char[pixels.size() + 1]);
    std::copy(pixels.begin(), pixels.end(), image.pixels.get());
    return image;
}

Job jobOf(Choices& choices) {
    Job job;
    job.width = 1 + choices.upTo(63);
    job.height = 1 + choices.upTo(31);
    job.layers.resize(1 + choices.upTo(3));
    for (Bytes& layer : job.layers) {
        const bool inRuns = choices.upTo(1) == 0;
        while (layer.size() < std::size_t{job.width} * job.height) {
            const auto grey = choices.any<unsigned char>();
            layer.insert(layer.end(), inRuns ? 1 + choices.upTo(255) : 1, grey);
        }
        layer.resize(std::size_t{job.width} * job.height);
    }
    return job;
}

/// Every pixel as a format keeps it.
template <class Kept>
void requireLayer(const Bytes& back, const Bytes& layer, Kept kept) {
    require(back.size() == layer.size());
    for (std::size_t i = 0; i < layer.size(); ++i) require(back[i] == kept(layer[i]));
}

int sevenBits(int grey) { return grey < 2 ? 0 : grey | 1; }

void checkVendor(const std::string& path, const Job& job) {
    VndlpRead reader;
    require(reader.openDlpFile(path, true) == 0 && reader.readDlpStructure(true) == 0);
    for (const Bytes& layer : job.layers) {
        std::vector<WhiteData> runs;
        require(reader.getWhiteDatas(runs, nullptr) == 0);
        Bytes back(layer.size());
        paintWhiteData(runs, back.data(), static_cast<int>(job.width), static_cast<int>(job.height));
        requireLayer(back, layer, [](int grey) { return grey < 16 ? 0 : grey; });
    }
    std::string tail;
    require(reader.readTag(tail) == 0 && tail == reader.tailMagic() && reader.remaining() == 4);
}

void checkCtb(const std::string& path, const Job& job) {
    CTB::CTBRead reader;
    require(reader.openDlpFile(path, false) == 0 && reader.parseFile(true) == 1);
    const std::vector<CTB::LayerDef*> layers = reader.layerDef(false);
    require(layers.size() == job.layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
        const std::unique_ptr<CTB::LayerDef> layer(layers[i]);
        requireLayer(reader.readLayerImage(reader.headerSettings(), layer.get(), static_cast<int>(i), nullptr),
                     job.layers[i], sevenBits);
    }
    for (const CTB::PreView* preView : reader.preViews()) delete preView;
}

void checkV4(const std::string& path, const Job& job) {
    VNDLPV4::VNDLPV4Read reader;
    require(reader.openDlpFile(path, true) == 0 && reader.parseFile() == 0 && reader.isWhole());
    const std::vector<VNDLPV4::LayerDef*> layers = reader.layerDef();
    require(layers.size() == job.layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
        requireLayer(reader.readLayerImage(reader.headerSettings(), layers[i], static_cast<int>(i)), job.layers[i],
                     sevenBits);
    }
}

void checkLine(const std::string& path, const std::vector<std::vector<std::vector<Vec3i>>>& layers) {
    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    DlpParameters parameters;
    DlpImageParam image;
    require(reader.open(path, true) == 0 && reader.readHeader(header, true) == 0);
    std::vector<unsigned int> areas(header.layerCount);
    require(areas.size() == layers.size());
    require(reader.readDlpParam(parameters, areas) == 0 && reader.readDlpImageParam(image) == 0);
    for (std::size_t i = 0; i < layers.size(); ++i) {
        std::vector<std::vector<Vec3i>> back;
        unsigned int area = 0;
        require(reader.readLayerPath(back, area) == static_cast<int>(layers[i].size()) && area == areas[i]);
        for (std::size_t p = 0; p < back.size(); ++p) {
            require(back[p].size() == layers[i][p].size());
            for (std::size_t q = 0; q < back[p].size(); ++q) {
                require(back[p][q].x == layers[i][p][q].x && back[p][q].y == layers[i][p][q].y);
            }
        }
    }
}

std::vector<std::vector<Vec3i>> pathsOf(Choices& choices) {
    std::vector<std::vector<Vec3i>> paths(choices.upTo(4));
    for (std::vector<Vec3i>& path : paths) {
        for (unsigned int i = choices.upTo(20); i > 0; --i) {
            const int x = choices.any<int>();
            path.emplace_back(x, choices.any<int>(), 0);
        }
    }
    return paths;
}

void fillSettings(Choices& choices, const Job& job, DLPWriter& writer) {
    writer.layerCount = static_cast<int>(job.layers.size());
    writer.resolutionX = job.width;
    writer.resolutionY = job.height;
    writer.machineType = std::string(choices.upTo(20), 'm');
    writer.bedSizeX = choices.any<double>();
    writer.printTime = choices.any<unsigned int>();
    writer.zThrough = choices.any<unsigned int>();
    writer.fileStructure.parameters.platformX = "1.5";
    writer.fileStructure.parameters.platformY = "2";
    writer.fileStructure.parameters.thickness = "0.05";
    writer.fileStructure.parameters.first_layer_count = choices.any<unsigned short>();
    writer.fileStructure.parameters.exposure_time = choices.any<unsigned short>();
    writer.fileStructure.sliceBasicParameters.consumables = std::string(choices.upTo(20), 'c');
}

}  // namespace

void run(const Bytes& input) {
    constexpr const char* kEndings[] = {".vndlp", ".ctb", ".vndlpv4", ".vnline"};
    Choices choices(input);
    const unsigned int format = choices.upTo(3);
    // a V4 writer comes with its bead field
    allowBytes(32 << 20);
    const std::unique_ptr<DLPWriter> writer(createDLPWriter(std::string("job") + kEndings[format]));
    const test::MemoryFile file;
    writer->filePath = file.path();
    const bool outOfOrder = (format == 1 || format == 2) && choices.upTo(1) != 0;
    const int batch = static_cast<int>(choices.upTo(5)) - 1;
    const double area = choices.any<double>();
    const Job job = jobOf(choices);
    fillSettings(choices, job, *writer);

    std::vector<SliceImage> previews(3, imageOf(job.layers[0], job.width, job.height));
    for (SliceImage& preview : previews) {
        preview.width = (preview.size + 2) / 3;
        preview.height = 1;
    }
    require(writer->openFile() == 0);
    if (outOfOrder) writer->resizeLayers(writer->layerCount);
    require(writer->writeHeader(previews) == 0);
    std::vector<std::vector<std::vector<Vec3i>>> outlines;
    for (std::size_t i = 0; i < job.layers.size(); ++i) {
        // from the last to the first
        const std::size_t at = outOfOrder ? job.layers.size() - 1 - i : i;
        const SliceImage image = imageOf(job.layers[at], job.width, job.height);
        if (format == 3) {
            outlines.push_back(pathsOf(choices));
            require(writer->addLayerPaths(static_cast<unsigned>(i), outlines.back(), area) == 0);
        } else if (outOfOrder) {
            require(writer->setLayerImageAt(static_cast<int>(at), image, area) == 0);
        } else {
            require(writer->addLayerImage(static_cast<unsigned>(i), image, area, batch) == 0);
        }
    }
    require(writer->finish() == 0);
    switch (format) {
        case 0: return checkVendor(file.path(), job);
        case 1: return checkCtb(file.path(), job);
        case 2: return checkV4(file.path(), job);
        default: return checkLine(file.path(), outlines);
    }
}

}  // namespace vndlp::fuzz
