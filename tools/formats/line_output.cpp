/// Writing ".vnline": previews, and every layer's outlines as closed polylines.

#include "tools/formats/line_output.h"

#include "tools/base/failure.h"
#include "tools/drawings/outline.h"
#include "tools/formats/vendor_head.h"
#include "tools/formats/vendor_records.h"
#include "tools/jobs/input.h"

#include <algorithm>

namespace vndlp::tools {

namespace {

/// Without a wish outlines may lie off by this part of a pixel.
constexpr double kToleranceInPixels = 0.125;

class LineOutput final : public SliceOutput {
public:
    LineOutput(std::string path, std::string temporary) : m_path(std::move(path)), m_temporary(std::move(temporary)) {}

    bool holdsOutlines() const override { return true; }

    void begin(const OutputJob& job) override {
        const PrintSettings& s = job.settings;
        m_scale.pixelWidthUm = s.number("display_width_mm") * 1000 / job.width;
        m_scale.pixelHeightUm = s.number("display_height_mm") * 1000 / job.height;
        m_scale.toleranceUm = job.toleranceUm >= 0
                                  ? job.toleranceUm
                                  : kToleranceInPixels * std::min(m_scale.pixelWidthUm, m_scale.pixelHeightUm);
        DlpFileStructure structure;
        structure.headerType = kLine;
        structure.setMachineType(s.text("machine"));
        structure.setLayerCount(job.layerCount);
        structure.setResolution(job.width, job.height);
        structure.getVndlpBackUse()->setMachineHeight(static_cast<float>(s.number("machine_height_mm")));
        structure.getVndlpBackUse()->setTotalVolume(static_cast<float>(s.number("resin_ml")));
        DlpV2LineHeader& header = structure.lineHeader;
        fillPreviews(job.pictures, header.smallPreview, header.middlePreview, header.largePreview);
        structure.parameters = parametersOf(s);
        DlpImageParam imageParam;
        imageParam.enableAliasing = static_cast<short>(s.whole("anti_aliasing"));
        imageParam.minGray = static_cast<short>(s.whole("min_grey"));
        imageParam.maxGray = static_cast<short>(s.whole("max_grey"));
        m_areas.reserve(static_cast<std::size_t>(job.layerCount));
        if (m_writer.openDlpFile(m_temporary) < 0) throw Failure(m_path + ": cannot be created");
        if (m_writer.writeDlpStructure(structure) < 0 || m_writer.writeDlpImageParam(imageParam) < 0) {
            failToWrite(m_path);
        }
    }

    EncodedLayer encode(int /*index*/, GreyImage& image) override {
        EncodedLayer layer;
        removePadding(image);
        layer.litPixels = countLit(image);
        layer.outlines.areaUm2 = layer.litPixels * m_scale.pixelWidthUm * m_scale.pixelHeightUm;
        layer.outlines.polylines = traceOutlines(image, m_scale);
        return layer;
    }

    void write(int /*index*/, EncodedLayer&& layer) override {
        unsigned int area = storedLayerArea(layer.outlines.areaUm2);
        m_areas.push_back(area);
        if (m_writer.writeLayerPath(layer.outlines.polylines, &area, false) < 0) failToWrite(m_path);
    }

    void finish() override {
        if (m_writer.writeLayerAreasDealyer(m_areas) < 0 || m_writer.writeTail(kLine) < 0) failToWrite(m_path);
    }

private:
    std::string m_path;
    std::string m_temporary;
    VndlpWrite m_writer;
    OutlineScale m_scale;
    std::vector<unsigned int> m_areas;
};

}  // namespace

std::unique_ptr<SliceOutput> createLineOutput(const std::string& path, const std::string& temporary) {
    return std::make_unique<LineOutput>(path, temporary);
}

}  // namespace vndlp::tools
