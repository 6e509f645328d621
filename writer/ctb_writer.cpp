#include "writer/ctb_writer.h"

#include <vndlp/formats.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>

namespace vndlp {

namespace {

constexpr int kFrontEndVersion = 3;
constexpr unsigned int kProvisionalTableOffset = 12781;  // until the file is laid out
constexpr unsigned int kProjectorType = 1;
constexpr unsigned int kAntiAliasLevel = 1;
constexpr unsigned int kSlicerVersion = 0x01090000;
constexpr float kLightOffDelay = 4.0F;
constexpr unsigned int kMinKey = 255;
constexpr unsigned int kRandomRange = 0x7FFF;  // of the generator that files have always been made with

/// The key of the header written last: shared by every writer of the process, so that of two files written at the same
/// time the layers of both take the later one's.
std::atomic<unsigned int> layerKey{0};

/// The key is no secret, it stands in the header: any number but 0 will do.
unsigned int drawKey() {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    const int random = std::rand();  // NOLINT(cert-msc30-c,cert-msc50-cpp)
    return (static_cast<unsigned int>(random) & kRandomRange) + kMinKey;
}

float asFloat(unsigned short value) { return static_cast<float>(value); }

/// Numbers taken as signed and widened.
unsigned int widened(unsigned short value) { return static_cast<unsigned int>(static_cast<short>(value)); }
unsigned int widened(unsigned char value) { return static_cast<unsigned int>(static_cast<signed char>(value)); }

template <class Record>
void resizeOwned(std::vector<Record*>& records, std::size_t count) {
    for (std::size_t i = count; i < records.size(); ++i) delete records[i];
    records.resize(count);
}

template <class Record>
void replaceOwned(Record*& slot, std::unique_ptr<Record> record) {
    delete slot;
    slot = record.release();
}

/// Bytes of an image: what it states, or width x height where it states nothing.
unsigned int byteCount(const SliceImage& image) { return image.size != 0 ? image.size : image.width * image.height; }

/// Whether a layer image can be read. Without padding it is the bytes it states, whatever its width and height say.
int checkLayer(const SliceImage& image, long long layerIndex) {
    if (image.size == 0 || strideOf(image) != image.width) return checkLayerImage(image, layerIndex);
    if (image.pixels != nullptr) return kWriterOk;
    report("error: layer %lld has no pixels\n", layerIndex);
    return kBadImage;
}

}  // namespace

DLPCTB::DLPCTB() {
    headerType = kV2Header;
    headerVersion = kFrontEndVersion;
}

int DLPCTB::openFile() {
    m_failure.clear();
    return m_writer.openDlpFile(filePath, false);
}

int DLPCTB::writeHeader(std::vector<SliceImage>& previews) {
    if (!takePreviews(previews, m_previewSmall, m_previewLarge1, m_previewLarge2)) {
        return static_cast<int>(previews.size());
    }
    fileStructure.headerType = static_cast<int>(headerType);
    fileStructure.headerVersion = static_cast<int>(headerVersion);
    fileStructure.setMachineType(machineType);
    fileStructure.needData();
    fileStructure.setLayerCount(layerCount);
    m_announced.set(layerCount);
    addPreview(m_previewSmall);
    addPreview(m_previewLarge1);
    // the vendor writer has no file: its message is what users of this format have always seen, and no failure
    m_vendorWriter.writeDlpStructure(fileStructure);
    fillHeader();
    fillPrintParameters();
    fillSlicerInfo();
    return kWriterOk;
}

void DLPCTB::addPreview(const SliceImage& image) {
    auto preView = std::make_unique<CTB::PreView>();
    fillPreview(*preView, image, m_failure);
    m_writer.preViews()->push_back(preView.release());
}

void DLPCTB::fillHeader() {
    const DlpParameters& from = fileStructure.parameters;
    CTB::HeaderSettings& to = *m_writer.headerSettings();
    const auto layerHeight = static_cast<float>(from.parseThickness());
    const auto storedLayers = static_cast<unsigned int>(fileStructure.layerCount());
    layerKey = drawKey();

    to.magic = CTB::kMagic;
    to.version = fileStructure.v2Header.versionCode;
    to.bedSizeX = static_cast<float>(bedSizeX);
    to.bedSizeY = static_cast<float>(bedSizeY);
    to.bedSizeZ = static_cast<float>(bedSizeZ);
    to.reserved20 = 0;
    to.reserved24 = 0;
    to.totalHeight = static_cast<float>(storedLayers) * layerHeight;
    to.layerHeight = layerHeight;
    // tenths of a second, unlike the two below: kept
    to.exposureTime = static_cast<float>(static_cast<short>(from.exposure_time) / 10.0);
    to.bottomExposureTime = asFloat(from.first_exposure_time);
    to.lightOffDelay = asFloat(from.light_off_delay);
    to.bottomLayerCount = widened(from.first_layer_count);
    to.resolutionX = resolutionX;
    to.resolutionY = resolutionY;
    to.previewLargeOffset = CTB::HeaderSettings::size();
    to.layerDefOffset = kProvisionalTableOffset;
    to.layerCount = storedLayers;
    to.previewSmallOffset = 0;
    to.printTime = printTime;
    to.projectorType = kProjectorType;
    to.printParametersOffset = 0;
    to.printParametersSize = CTB::PrintParameters::size();
    to.antiAliasLevel = kAntiAliasLevel;
    to.lightPwm = from.brightnessPVM;
    to.bottomLightPwm = from.firstBrightnessPVM;
    to.encryptionKey = layerKey;
    to.slicerInfoOffset = 0;
    to.slicerInfoSize = CTB::SlicerInfo::size();
}

void DLPCTB::fillPrintParameters() {
    auto to = printParametersOf<CTB::PrintParameters>(*this);
    to.lightOffDelay = kLightOffDelay;
    to.bottomLayerCount = widened(fileStructure.parameters.first_layer_count);
    *m_writer.printParameters() = to;
}

void DLPCTB::fillSlicerInfo() {
    CTB::SlicerInfo to;
    to.word44 = widened(fileStructure.sliceBasicParameters.enableAntiAliasing);
    to.slicerVersion = kSlicerVersion;
    to.machineName = fileStructure.v2Header.machine_type;
    to.machineNameSize = static_cast<unsigned int>(to.machineName.size());
    *m_writer.slicerInfo() = to;
}

bool DLPCTB::isExtended() { return m_writer.headerSettings()->version >= CTB::kFirstExtendedVersion; }

/// A layer's records; the extended one only in files that have it.
DLPCTB::Layer DLPCTB::encodeLayer(unsigned int layerIndex, const SliceImage& image) {
    const CTB::HeaderSettings& header = *m_writer.headerSettings();
    const CTB::PrintParameters& parameters = *m_writer.printParameters();
    Layer layer(std::make_unique<CTB::LayerDef>(), nullptr);
    CTB::LayerDef& entry = *layer.first;
    const bool isBottom = layerIndex < header.bottomLayerCount;
    std::vector<unsigned char> encoded =
        strideOf(image) == image.width
            ? CTB::LayerDef::encodeCtbImage(image.pixels.get(), byteCount(image), layerKey, layerIndex)
            : CTB::LayerDef::encodeCtbImage(image.pixels.get(), image.width, image.height,
                                            static_cast<std::ptrdiff_t>(strideOf(image)), layerKey, layerIndex);
    entry.exposureTime = isBottom ? header.bottomExposureTime : header.exposureTime;
    entry.lightOffDelay = header.lightOffDelay;
    entry.positionZ = static_cast<float>(layerIndex + 1) * header.layerHeight;
    entry.tableSize = CTB::LayerDefEx::size();
    entry.dataSize = static_cast<unsigned int>(encoded.size());
    if (isExtended()) {
        layer.second = std::make_unique<CTB::LayerDefEx>();
        layer.second->layerDef = entry;
        layer.second->totalSize = CTB::LayerDefEx::size() + entry.dataSize;
        layer.second->liftHeight = parameters.liftHeight;
        layer.second->liftSpeed = parameters.liftSpeed;
        layer.second->retractSpeed = parameters.retractSpeed;
        layer.second->lightPwm = asFloat(header.lightPwm);
    }
    entry.data = std::move(encoded);
    return layer;
}

int DLPCTB::addLayerImage(unsigned layerIndex, const SliceImage& image, double /*area*/, int /*batchSize*/) {
    const int checked = checkLayer(image, layerIndex);
    if (checked < 0) return m_failure.note(checked);
    // layer 0 again starts over, with the table only: the extended records of the first start stay in front, as ever
    if (layerIndex == 0) resizeOwned(m_writer.layerDef(), 0);
    Layer layer = encodeLayer(layerIndex, image);
    m_writer.layerDef().push_back(layer.first.release());
    if (layer.second != nullptr) m_writer.layerDefEx().push_back(layer.second.release());
    return kWriterOk;
}

int DLPCTB::setLayerImageAt(int layerIndex, const SliceImage& image, double /*area*/) {
    const auto index = static_cast<std::size_t>(layerIndex);
    const std::size_t tableSize = std::min(m_writer.layerDef().size(), m_writer.layerDefEx().size());
    if (layerIndex < 0 || index >= tableSize) {
        report("error: layer %d, tables sized for %zu: invalid vector subscript\n", layerIndex, tableSize);
        return m_failure.note(kBadLayerIndex);
    }
    const int checked = checkLayer(image, layerIndex);
    if (checked < 0) return m_failure.note(checked);
    Layer layer = encodeLayer(static_cast<unsigned int>(layerIndex), image);
    replaceOwned(m_writer.layerDef()[index], std::move(layer.first));
    if (layer.second != nullptr) replaceOwned(m_writer.layerDefEx()[index], std::move(layer.second));
    return kWriterOk;
}

int DLPCTB::finish() {
    const std::size_t layers = m_writer.layerDef().size();
    m_failure.note(m_writer.encode());
    m_failure.note(m_writer.close());
    if (m_failure.code() == kWriterOk) m_failure.note(m_announced.settle(filePath, layers));
    emptyLists();
    return m_failure.code();
}

int DLPCTB::cancel() {
    m_writer.close();
    emptyLists();
    return platform::removeFile(filePath.c_str());
}

void DLPCTB::emptyLists() {
    m_announced = {};
    resizeOwned(*m_writer.preViews(), 0);
    resizeLayers(0);
}

void DLPCTB::resizeLayers(int count) {
    const auto entries = static_cast<std::size_t>(std::max(count, 0));
    resizeOwned(m_writer.layerDef(), entries);
    resizeOwned(m_writer.layerDefEx(), entries);
}

}  // namespace vndlp
