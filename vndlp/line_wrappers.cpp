#include <vndlp/formats.h>
#include <vndlp/wrappers.h>
#include "io/report.h"
#include "vndlp/wrapper_common.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace vndlp {

namespace {

constexpr std::string_view kMakerName = "Vantakor";
/// The maker's name and the space behind it.
constexpr std::size_t kMakerPrefix = kMakerName.size() + 1;

/// As `atoi`, but defined for numbers of any size.
int wholeNumber(const std::string& text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

/// Cuts from the front wherever the maker's name stands: "My Vantakor" becomes "or", and stays so.
std::string withoutMakerPrefix(std::string name) {
    if (name.find(kMakerName) != std::string::npos) name.erase(0, kMakerPrefix);
    return name;
}

void copyPreviewPixels(const unsigned char* pixels, DlpImage& preview) {
    if (pixels == nullptr || !preview.haveDatas()) return;
    std::memcpy(preview.bits(), pixels, static_cast<std::size_t>(preview.size()));
}

/// Prints a message when a result is a failure; returns the result.
int reportFailure(int result, const char* message) {
    if (result < 0) report("%s", message);
    return result;
}

}  // namespace

// the five members without a default are the caller's to set; zeros beat whatever the memory held
DlpLineV2ParamWrapper::DlpLineV2ParamWrapper()
    : enableXYCompensate(0), supportPad(0), autoAllSupport(0), supportDensity(0), blurPixel(0) {}
DlpLineV2ParamWrapper::DlpLineV2ParamWrapper(const DlpLineV2ParamWrapper& other) = default;
DlpLineV2ParamWrapper::DlpLineV2ParamWrapper(DlpLineV2ParamWrapper&& other) noexcept = default;
DlpLineV2ParamWrapper& DlpLineV2ParamWrapper::operator=(const DlpLineV2ParamWrapper& other) = default;
DlpLineV2ParamWrapper& DlpLineV2ParamWrapper::operator=(DlpLineV2ParamWrapper&& other) noexcept = default;
DlpLineV2ParamWrapper::~DlpLineV2ParamWrapper() = default;

std::string DlpLineV2ParamWrapper::findKey(const std::unordered_map<std::string, std::string>& map,
                                           const std::string& key) {
    const auto found = map.find(key);
    return found == map.end() ? std::string() : found->second.substr(0, found->second.find('\0'));
}

void DlpLineV2ParamWrapper::setVal(const std::unordered_map<std::string, std::string>& map) {
    const auto number = [&map](const char* key) { return wholeNumber(findKey(map, key)); };
    exposure_time = number("exposure_time");
    light_off_delay = number("light_off_delay");
    first_exposure_time = number("first_exposure_time");
    first_layer_count = number("first_layer_count");
    first_lift_distance = number("first_lift_distance");
    first_lift_speed = number("first_lift_speed");
    lifting_distance = number("lifting_distance");
    lifting_speed = number("lifting_speed");
    retract_speed = number("retract_speed");
    thickness = static_cast<float>(parseDecimal(findKey(map, "layer_height")));
    zThrough = number("zthrough_deep_value");
    enableAliasing = findKey(map, "anti_aliasing") == "true" ? 1 : 0;
    minGray = number("minimum_grayscale");
    maxGray = number("maximum_grayscale");
    machineName = withoutMakerPrefix(findKey(map, "machine_name"));
}

VnLineV2WriteWrapper::VnLineV2WriteWrapper() : m_readyFlags(0) {}
VnLineV2WriteWrapper::VnLineV2WriteWrapper(const VnLineV2WriteWrapper& other) = default;
VnLineV2WriteWrapper& VnLineV2WriteWrapper::operator=(const VnLineV2WriteWrapper& other) = default;
VnLineV2WriteWrapper::~VnLineV2WriteWrapper() = default;

int VnLineV2WriteWrapper::open(std::string path) {
    const int status = m_writer.openDlpFile(std::move(path));
    m_readyFlags = 0;
    if (status < 0) return status;
    m_structure = std::make_shared<DlpFileStructure>();
    m_structure->headerType = kLineHeader;
    m_structure->needData();
    return status;
}

void VnLineV2WriteWrapper::setDlpLineV2Param(const DlpLineV2ParamWrapper& p) {
    if (!m_structure) return;
    applyCommonParam(p, p.machineName, *m_structure);
    m_structure->lineHeader.backUse.setBlurPixel(p.blurPixel);
    m_readyFlags |= kParametersSet;
    m_imageParam = {static_cast<short>(p.zThrough), static_cast<short>(p.enableAliasing), static_cast<short>(p.minGray),
                    static_cast<short>(p.maxGray)};
}

void VnLineV2WriteWrapper::setGrayPreview116X116(unsigned char* pixels) {
    if (!m_structure) return;
    copyPreviewPixels(pixels, m_structure->lineHeader.smallPreview);
    m_readyFlags |= kSmallPreviewSet;
}

void VnLineV2WriteWrapper::setGrayPreview290X290(unsigned char* pixels, int which) {
    if (!m_structure || (which != 0 && which != 1)) return;
    DlpV2LineHeader& header = m_structure->lineHeader;
    copyPreviewPixels(pixels, which == 0 ? header.middlePreview : header.largePreview);
    m_readyFlags |= which == 0 ? kFirstLargePreviewSet : kSecondLargePreviewSet;
}

void VnLineV2WriteWrapper::setLayerPath(int /*layerIndex*/, const std::vector<std::vector<Vec3i>>& paths, double area) {
    if (!m_structure) return;
    // a layer that cannot be written keeps its place in the table; the stream remembers, and writeTail reports it
    unsigned int stored = storedLayerArea(area);
    m_layerAreas.push_back(stored);
    m_writer.writeLayerPath(paths, &stored, false);
}

bool VnLineV2WriteWrapper::writeDlpStructure() {
    if (!m_structure || m_readyFlags != kAllSet) return false;
    const int head = m_writer.writeDlpStructure(*m_structure);
    m_writer.writeDlpImageParam(m_imageParam);
    return head >= 0;
}

int VnLineV2WriteWrapper::writeTail() {
    const int table = m_writer.writeLayerAreasDealyer(m_layerAreas);
    const int tail = m_writer.writeTail(kLineHeader);
    return table < 0 ? table : tail;
}

void VnLineV2WriteWrapper::clear() {
    m_layerAreas.clear();
    if (m_structure) m_structure->release();
}

void VnLineV2WriteWrapper::close() {
    m_writer.close();
    m_structure.reset();
}

int VnLineV2WriteWrapper::flush() { return m_writer.flush(); }

VnLineV2ReadWrapper::VnLineV2ReadWrapper() = default;
VnLineV2ReadWrapper::VnLineV2ReadWrapper(const VnLineV2ReadWrapper& other) = default;
VnLineV2ReadWrapper& VnLineV2ReadWrapper::operator=(const VnLineV2ReadWrapper& other) = default;
VnLineV2ReadWrapper::~VnLineV2ReadWrapper() = default;

int VnLineV2ReadWrapper::open(std::string path, bool verify) { return m_reader.openDlpFile(std::move(path), verify); }

void VnLineV2ReadWrapper::close() { m_reader.close(); }

int VnLineV2ReadWrapper::readHeader(DlpV2LineHeader& header, bool withPreview) {
    std::string magic;
    const int tag = reportFailure(m_reader.readTag(magic), "error: read tag error\n");
    if (tag < 0) return tag;
    return reportFailure(m_reader.readDlpLineV2Header(header, withPreview), "error: readHeader error\n");
}

int VnLineV2ReadWrapper::readDlpParam(DlpParameters& params, std::vector<unsigned int>& areas) {
    const int status = m_reader.readDlpParameters(params, &areas);
    if (status >= 0) return 0;
    report("error: readDlpParam error:%d\n", status);
    return -1;
}

int VnLineV2ReadWrapper::readDlpSliceBasicParam(DlpSliceBasicParameters& params) {
    const int status = m_reader.readDlpSliceBasicParameters(params);
    if (status >= 0) return 0;
    report("error: readDlpSliceBasicParam error:%d\n", status);
    return -1;
}

// one message for the image parameters and both kinds of layers
int VnLineV2ReadWrapper::readDlpImageParam(DlpImageParam& param) {
    return reportFailure(m_reader.readDlpImageParam(param), "error: readDlpImageParam error\n");
}

int VnLineV2ReadWrapper::readLayerMesh(trimesh::TriMesh& mesh, unsigned int* area, bool /*flag*/) {
    return reportFailure(m_reader.readLayerMesh(mesh, area, false), "error: readDlpImageParam error\n");
}

int VnLineV2ReadWrapper::readLayerPath(std::vector<std::vector<Vec3i>>& paths, unsigned int& area) {
    return reportFailure(m_reader.readLayerPath(paths, &area, false), "error: readDlpImageParam error\n");
}

}  // namespace vndlp
