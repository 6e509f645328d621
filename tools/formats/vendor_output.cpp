/// Writing ".vndlp": version 3 files with previews, layers in order.

#include "tools/formats/vendor_output.h"

#include "tools/base/failure.h"
#include "tools/formats/vendor_head.h"
#include "tools/formats/vendor_records.h"
#include "tools/jobs/input.h"

namespace vndlp::tools {

namespace {

// what the packed run's fields can hold
constexpr int kMaxColumns = 16384;
constexpr int kMaxRows = 8192;

constexpr int kWrittenVersion = 3;

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
        structure.headerType = kV2;
        structure.headerVersion = kWrittenVersion;
        structure.setMachineType(s.text("machine"));
        structure.setLayerCount(job.layerCount);
        structure.setResolution(job.width, job.height);
        structure.getVndlpBackUse()->setMachineHeight(static_cast<float>(s.number("machine_height_mm")));
        structure.getVndlpBackUse()->setTotalVolume(static_cast<float>(s.number("resin_ml")));
        DlpV2Header& header = structure.v2Header;
        fillPreviews(job.pictures, header.smallPreview, header.middlePreview, header.largePreview);
        structure.parameters = parametersOf(s);
        structure.sliceBasicParameters = sliceParametersOf(s);
        m_areas.reserve(static_cast<std::size_t>(job.layerCount));
        if (m_writer.openDlpFile(m_temporary) < 0) throw Failure(m_path + ": cannot be created");
        if (m_writer.writeDlpStructure(structure) < 0) failToWrite(m_path);
    }

    EncodedLayer encode(int /*index*/, GreyImage& image) override {
        EncodedLayer layer;
        grayDataPackedRuns(image.row(0), image.width, image.height, static_cast<std::ptrdiff_t>(image.stride()),
                           layer.code);
        layer.litPixels = static_cast<double>(countPackedPixels(layer.code));
        return layer;
    }

    void write(int /*index*/, EncodedLayer&& layer) override {
        unsigned int area = storedLayerArea(layer.litPixels * m_pixelArea);
        m_areas.push_back(area);
        if (m_writer.writeLayerPackedRuns(layer.code, &area) < 0) failToWrite(m_path);
    }

    void finish() override {
        if (m_writer.writeLayerAreasDealyer(m_areas) < 0 || m_writer.writeTail(kV2) < 0) failToWrite(m_path);
    }

private:
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
