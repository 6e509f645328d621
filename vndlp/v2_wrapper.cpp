#include <vndlp/formats.h>
#include <vndlp/wrappers.h>
#include "io/report.h"
#include "vndlp/wrapper_common.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace vndlp {

namespace {

/// A grey byte as a 16-bit preview pixel. Not a clean conversion to 5-6-5 bits (high bits spill over and the last step
/// merges the two bytes), but the one printers were given all along.
std::uint16_t previewPixel(unsigned char grey) {
    auto c = static_cast<std::uint16_t>(grey << 6 | grey);
    c = static_cast<std::uint16_t>(c << 5 | grey);
    return static_cast<std::uint16_t>(c << 8 | c);
}

/// Fills a preview with pixels in the host's byte order.
void fillPreview(const unsigned char* grey, DlpImage& preview) {
    if (!preview.haveDatas()) return;
    const auto pixels = static_cast<std::size_t>(preview.width()) * static_cast<std::size_t>(preview.height());
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint16_t pixel = previewPixel(grey[i]);
        std::memcpy(preview.bits() + sizeof pixel * i, &pixel, sizeof pixel);
    }
}

/// Whether there are no pixels to take, which is reported.
bool lacksPixels(const unsigned char* grey) {
    if (grey == nullptr) report("error: no pixels given\n");
    return grey == nullptr;
}

}  // namespace

// the five members without a default are the caller's to set; zeros beat whatever the memory held
DlpV2ParamWrapper::DlpV2ParamWrapper()
    : machineHeight(0), enableXYCompensate(0), supportPad(0), autoAllSupport(0), supportDensity(0) {}
DlpV2ParamWrapper::DlpV2ParamWrapper(const DlpV2ParamWrapper& other) = default;
DlpV2ParamWrapper::DlpV2ParamWrapper(DlpV2ParamWrapper&& other) noexcept = default;
DlpV2ParamWrapper& DlpV2ParamWrapper::operator=(const DlpV2ParamWrapper& other) = default;
DlpV2ParamWrapper& DlpV2ParamWrapper::operator=(DlpV2ParamWrapper&& other) noexcept = default;
DlpV2ParamWrapper::~DlpV2ParamWrapper() = default;

VndlpV2Wrapper::VndlpV2Wrapper() : m_readyFlags(0) {}
VndlpV2Wrapper::VndlpV2Wrapper(const VndlpV2Wrapper& other) = default;
VndlpV2Wrapper& VndlpV2Wrapper::operator=(const VndlpV2Wrapper& other) = default;
VndlpV2Wrapper::~VndlpV2Wrapper() = default;

int VndlpV2Wrapper::open(std::string path) {
    const int status = m_writer.openDlpFile(std::move(path));
    m_readyFlags = 0;
    if (status < 0) return status;
    m_structure = std::make_shared<DlpFileStructure>();
    m_structure->headerType = kV2Header;
    m_structure->needData();
    return status;
}

void VndlpV2Wrapper::setDlpV2Param(const DlpV2ParamWrapper& p) {
    if (!m_structure) return;
    applyCommonParam(p, p.machineType, *m_structure);
    m_readyFlags |= kParametersSet;
    m_layerRuns.resize(static_cast<std::size_t>(m_structure->layerCount()));
}

void VndlpV2Wrapper::setGrayPreview116X116(unsigned char* grey) {
    if (!m_structure || lacksPixels(grey)) return;
    fillPreview(grey, m_structure->v2Header.smallPreview);
    m_readyFlags |= kSmallPreviewSet;
}

void VndlpV2Wrapper::setGrayPreview290X290(unsigned char* grey, int which) {
    if (!m_structure || (which != 0 && which != 1) || lacksPixels(grey)) return;
    DlpV2Header& header = m_structure->v2Header;
    fillPreview(grey, which == 0 ? header.middlePreview : header.largePreview);
    m_readyFlags |= which == 0 ? kFirstLargePreviewSet : kSecondLargePreviewSet;
}

void VndlpV2Wrapper::setLayerImage(int layerIndex, unsigned char* grey, int width, int height, double area) {
    if (layerIndex < 0 || static_cast<std::size_t>(layerIndex) >= m_layerRuns.size()) {
        report("error: layer %d given, the parameters announced %zu layers\n", layerIndex, m_layerRuns.size());
        return;
    }
    if (lacksPixels(grey)) return;
    const auto index = static_cast<std::size_t>(layerIndex);
    m_layerRuns[index].clear();
    grayDataVecWhiteData(grey, width, height, m_layerRuns[index]);
    if (m_layerAreas.size() <= index) m_layerAreas.resize(index + 1);
    m_layerAreas[index] = storedLayerArea(area);
}

void VndlpV2Wrapper::wrieLayerImage(unsigned char* grey, int width, int height, double area) {
    if (!m_structure || lacksPixels(grey)) return;
    std::vector<WhiteData> runs;
    grayDataVecWhiteData(grey, width, height, runs);
    // the height, not the area, goes in front of the layer: kept, and said in the header
    auto heightAsArea = static_cast<unsigned int>(height);
    m_writer.writeLayerWhiteData(runs, &heightAsArea);
    m_layerAreas.push_back(storedLayerArea(area));
}

bool VndlpV2Wrapper::writeDlpStructure() {
    return m_structure && m_readyFlags == kAllSet && m_writer.writeDlpStructure(*m_structure) >= 0;
}

int VndlpV2Wrapper::writeTail() {
    // a layer never given has no area yet
    if (m_layerAreas.size() < m_layerRuns.size()) m_layerAreas.resize(m_layerRuns.size());
    const std::size_t layers = m_structure ? m_layerRuns.size() : 0;
    for (std::size_t i = 0; i < layers; ++i) m_writer.writeLayerWhiteData(m_layerRuns[i], &m_layerAreas[i]);
    const int table = m_writer.writeLayerAreasDealyer(m_layerAreas);
    const int tail = m_writer.writeTail(kV2Header);
    return table < 0 ? table : tail;
}

void VndlpV2Wrapper::clear() {
    m_layerRuns.clear();
    m_layerAreas.clear();
    if (m_structure) m_structure->release();
}

void VndlpV2Wrapper::close() {
    m_writer.close();
    m_structure.reset();
}

}  // namespace vndlp
