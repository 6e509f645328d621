/// Writing ".vndlp": version 3 files with previews, layers in order.

#include "tools/vendor_output.h"

#include "tools/failure.h"
#include "tools/input.h"
#include "tools/transform.h"
#include "tools/vendor_records.h"

#include <vndlp/container.h>

namespace vndlp::tools {

namespace {

// what the packed run's fields can hold
constexpr int kMaxColumns = 16384;
constexpr int kMaxRows = 8192;

constexpr int kV2Kind = 2;
constexpr int kWrittenVersion = 3;

/// Scales a picture into a preview of 5-6-5 bits, big-endian.
void fillPreview(const ColourImage& picture, DlpImage& preview) {
    preview.needData();
    const ColourImage scaled = resizeColour(picture, preview.width(), preview.height());
    auto* out = reinterpret_cast<unsigned char*>(preview.bits());
    for (std::size_t i = 0; i < scaled.pixels.size(); i += 4, out += 2) {
        const unsigned colour = static_cast<unsigned>(scaled.pixels[i] >> 3) << 11 |
                                static_cast<unsigned>(scaled.pixels[i + 1] >> 2) << 5 | scaled.pixels[i + 2] >> 3;
        out[0] = static_cast<unsigned char>(colour >> 8);
        out[1] = static_cast<unsigned char>(colour);
    }
}

class VendorOutput final : public SliceOutput {
public:
    VendorOutput(std::string path, std::string temporary)
        : m_path(std::move(path)), m_temporary(std::move(temporary)) {}

    void begin(const OutputJob& job) override {
        if (job.width > kMaxColumns || job.height > kMaxRows) {
            throw Failure(m_path + ": layers of " + std::to_string(job.width) + " x " + std::to_string(job.height) +
                          " pixels do not fit this format, which holds " + std::to_string(kMaxColumns) + " x " +
                          std::to_string(kMaxRows) + "; --rotate 90 may help");
        }
        const PrintSettings& s = job.settings;
        m_pixelArea = pixelAreaOf(s, job.width, job.height);
        DlpFileStructure structure;
        structure.headerType = kV2Kind;
        structure.headerVersion = kWrittenVersion;
        structure.setMachineType(s.text("machine"));
        structure.setLayerCount(job.layerCount);
        structure.setResolution(job.width, job.height);
        structure.getVndlpBackUse()->setMachineHeight(static_cast<float>(s.number("machine_height_mm")));
        structure.getVndlpBackUse()->setTotalVolume(static_cast<float>(s.number("resin_ml")));
        DlpV2Header& header = structure.v2Header;
        std::size_t next = 0;
        for (DlpImage* preview : {&header.smallPreview, &header.middlePreview, &header.largePreview}) {
            fillPreview(job.pictures.at(next), *preview);
            next = std::min(next + 1, job.pictures.size() - 1);
        }
        structure.parameters = parametersOf(s);
        structure.sliceBasicParameters = sliceParametersOf(s);
        m_areas.reserve(static_cast<std::size_t>(job.layerCount));
        if (m_writer.openDlpFile(m_temporary) < 0) throw Failure(m_path + ": cannot be created");
        if (m_writer.writeDlpStructure(structure) < 0) fail();
    }

    EncodedLayer encode(int /*index*/, GreyImage& image) override {
        EncodedLayer layer;
        grayDataPackedRuns(image.pixels.data(), image.width, image.height, layer.code);
        layer.litPixels = countLit(image);
        return layer;
    }

    void write(int /*index*/, EncodedLayer&& layer) override {
        unsigned int area = storedLayerArea(layer.litPixels * m_pixelArea);
        m_areas.push_back(area);
        if (m_writer.writeLayerPackedRuns(layer.code, &area) < 0) fail();
    }

    void finish() override {
        if (m_writer.writeLayerAreasDealyer(m_areas) < 0 || m_writer.writeTail(kV2Kind) < 0) fail();
    }

private:
    [[noreturn]] void fail() const {
        throw Failure(m_path + ": could not be written completely: the disk is full, or the system reports an error");
    }

    std::string m_path;
    std::string m_temporary;
    VndlpWrite m_writer;
    double m_pixelArea = 0;  // square micrometres
    std::vector<unsigned int> m_areas;
};

}  // namespace

std::unique_ptr<SliceOutput> createVendorOutput(const std::string& path, const std::string& temporary) {
    return std::make_unique<VendorOutput>(path, temporary);
}

}  // namespace vndlp::tools
