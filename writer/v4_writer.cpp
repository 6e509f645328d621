#include "writer/v4_writer.h"

#include <vndlp/ctb.h>
#include <vndlp/formats.h>
#include "ctb/scramble.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vndlp {

namespace {

constexpr int kFrontEndVersion = 3;
constexpr int kFrontEndFormat = 3;
constexpr unsigned int kProjectionType = 1;
constexpr unsigned int kAntiAliasLevel = 1;
constexpr unsigned int kSlicerVersion = 0x01090000;
constexpr double kExposureStepsPerSecond = 10;

/// Pixels of a layer image; where it states no size in pixels, its bytes.
std::size_t pixelCount(const SliceImage& image) {
    const std::size_t pixels = static_cast<std::size_t>(image.width) * image.height;
    return pixels != 0 || image.pixels == nullptr ? pixels : image.size;
}

}  // namespace

void BeadFieldPool::prepare(int count) {
    if (count < 1) return;
    if (m_field == nullptr) {
        m_field = std::make_unique<VNDLPV4::LampBeadCal>();
        VNDLPV4::initPrinterBeadField(*m_field);
    }
    const std::lock_guard lock(m_mutex);
    m_allowed = std::max(m_allowed, count);
}

BeadFieldPool::Lease BeadFieldPool::take() {
    std::unique_lock lock(m_mutex);
    m_returned.wait(lock, [this] { return !m_free.empty() || m_copies < m_allowed; });
    if (m_free.empty()) {
        ++m_copies;
        lock.unlock();
        return Lease(*this, std::make_unique<VNDLPV4::LampBeadCal>(*m_field));
    }
    Field field = std::move(m_free.back());
    m_free.pop_back();
    return Lease(*this, std::move(field));
}

void BeadFieldPool::put(Field field) {
    const std::lock_guard lock(m_mutex);
    m_free.push_back(std::move(field));
    m_returned.notify_one();
}

DLPVNV4::DLPVNV4() {
    headerType = kV2Header;
    headerVersion = kFrontEndVersion;
    formatFlag = kFrontEndFormat;
    fileStructure.headerType = kV2Header;
    fileStructure.headerVersion = kFrontEndVersion;
}

int DLPVNV4::openFile() {
    m_failure.clear();
    m_sizeWarned = false;
    return m_writer.openDlpFile(filePath, false);
}

int DLPVNV4::writeHeader(std::vector<SliceImage>& previews) {
    SliceImage small;
    SliceImage large;
    SliceImage unused;
    if (!takePreviews(previews, small, large, unused)) return static_cast<int>(previews.size());
    if (resolutionX > CTB::kLongestImageSide || resolutionY > CTB::kLongestImageSide) {
        report("error: %s: a screen of %u x %u pixels, a side has at most %u\n", filePath.c_str(), resolutionX,
               resolutionY, CTB::kLongestImageSide);
        return m_failure.note(kBadImage);
    }
    fileStructure.headerType = static_cast<int>(headerType);
    fileStructure.headerVersion = static_cast<int>(headerVersion);
    fileStructure.setMachineType(machineName);
    fileStructure.needData();
    fileStructure.setLayerCount(layerCount);
    m_announced.set(layerCount);

    m_writer.preViews()->clear();
    addPreview(small);
    addPreview(large);
    fillHeader();
    fillParameters();
    fillSlicerInfo();
    return kWriterOk;
}

void DLPVNV4::addPreview(const SliceImage& image) {
    fillPreview(*m_writer.preViews()->emplace_back(std::make_shared<VNDLPV4::PreView>()), image, m_failure);
}

void DLPVNV4::fillHeader() {
    const DlpParameters& parameters = fileStructure.parameters;
    VNDLPV4::HeaderSettings& header = *m_writer.headerSettings();
    header = {};
    header.headerText1 = VNDLPV4::kV4HeaderText;
    header.version = VNDLPV4::kV4Version;
    header.headerText2 = machineName;
    header.resolutionX = static_cast<unsigned short>(resolutionX);
    header.resolutionY = static_cast<unsigned short>(resolutionY);
    header.floatField0 = static_cast<float>(bedSizeX);
    header.floatField1 = static_cast<float>(bedSizeY);
    header.floatField2 = static_cast<float>(bedSizeZ);
    header.floatField4 = static_cast<float>(parameters.parseThickness());
    header.word0 = parameters.first_layer_count;
    header.layerCount = static_cast<unsigned int>(std::max(layerCount, 0));
    header.word5 = printTime;
    header.word6 = kProjectionType;
    header.word8 = VNDLPV4::PrintParameters::size();
    header.word9 = kAntiAliasLevel;
    header.shortField0 = static_cast<short>(parameters.brightnessPVM);
    header.shortField1 = static_cast<short>(parameters.firstBrightnessPVM);
    header.encryptionKey = 0;
    header.word12 = VNDLPV4::SlicerInfo::size();
    header.tailFloat0 = static_cast<float>(parameters.exposure_time / kExposureStepsPerSecond);
    header.tailFloat1 = parameters.first_exposure_time;
    header.tailFloat2 = parameters.light_off_delay;
}

void DLPVNV4::fillParameters() {
    const DlpParameters& parameters = fileStructure.parameters;
    auto to = printParametersOf<VNDLPV4::PrintParameters>(*this);
    to.bottomLightOffDelay = parameters.light_off_delay;
    to.lightOffDelay = parameters.light_off_delay;
    to.bottomLayerCount = parameters.first_layer_count;
    *m_writer.printParameters() = to;
}

void DLPVNV4::fillSlicerInfo() {
    VNDLPV4::SlicerInfo& info = *m_writer.slicerInfo();
    info = {};
    info.word44 = fileStructure.sliceBasicParameters.enableAntiAliasing;
    info.word48 = kSlicerVersion;
}

int DLPVNV4::addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int /*batchSize*/) {
    const std::size_t entries = m_writer.layerDef().size();
    if (layerIndex > entries) return refuseIndex(layerIndex);
    if (layerIndex == entries) {
        m_writer.layerDef().emplace_back();
        m_writer.layerDefEx().emplace_back();
    }
    return storeLayer(layerIndex, image, area);
}

int DLPVNV4::setLayerImageAt(int layerIndex, const SliceImage& image, double area) {
    if (layerIndex < 0 || static_cast<std::size_t>(layerIndex) >= m_writer.layerDef().size()) {
        return refuseIndex(layerIndex);
    }
    return storeLayer(static_cast<std::size_t>(layerIndex), image, area);
}

int DLPVNV4::refuseIndex(long long index) {
    report("error: layer %lld, tables sized for %zu: invalid vector subscript\n", index, m_writer.layerDef().size());
    return m_failure.note(kBadLayerIndex);
}

int DLPVNV4::storeLayer(std::size_t index, const SliceImage& image, double area) {
    const int checked = checkLayerImage(image, static_cast<long long>(index));
    if (checked < 0) return m_failure.note(checked);
    const auto number = static_cast<unsigned>(index);
    warnOfOtherSize(number, image);
    const VNDLPV4::HeaderSettings& header = *m_writer.headerSettings();
    const VNDLPV4::PrintParameters& parameters = *m_writer.printParameters();

    auto layer = std::make_shared<VNDLPV4::LayerDef>();
    layer->positionZ = static_cast<float>(index + 1) * header.floatField4;
    layer->exposureTime = number < header.word0 ? header.tailFloat1 : header.tailFloat0;
    layer->lightOffDelay = parameters.lightOffDelay;
    layer->tableSize = VNDLPV4::LayerDefEx::size();
    layer->word36 = storedLayerArea(area);
    encodeInto(*layer, number, image);
    layer->dataSize = static_cast<unsigned int>(VNDLPV4::LayerDefEx::size() + layer->data.size());

    auto extended = std::make_shared<VNDLPV4::LayerDefEx>();
    extended->liftHeight = parameters.liftHeight;
    extended->liftSpeed = parameters.liftSpeed;
    extended->retractSpeed = parameters.retractSpeed;
    extended->lightPwm = header.shortField0;

    m_writer.layerDef()[index] = std::move(layer);
    m_writer.layerDefEx()[index] = std::move(extended);
    return kWriterOk;
}

void DLPVNV4::encodeInto(VNDLPV4::LayerDef& layer, unsigned index, const SliceImage& image) {
    const VNDLPV4::HeaderSettings& header = *m_writer.headerSettings();
    const unsigned char* pixels = image.pixels.get();
    const auto row = [pixels, stride = strideOf(image)](unsigned y) { return pixels + y * stride; };
    const bool isPadded = strideOf(image) != image.width;
    if (m_beadFields.isPrepared() && image.width != 0) {
        const BeadFieldPool::Lease beads = m_beadFields.take();
        if (isPadded) {
            layer.data = VNDLPV4::LayerDef::encodeImage_16k(image.width, image.height, row, 0, index);
            layer.setBeadMask(VNDLPV4::LayerDef::beadMaskOfCode(layer.data, image.width, *beads));
            CTB::scramble(header.encryptionKey, index, layer.data.data(), layer.data.size());
            return;
        }
        std::vector<unsigned char> mask;
        layer.data = VNDLPV4::LayerDef::encodeImageSubZone(pixels, image.width, image.height, header.encryptionKey,
                                                           index, *beads, mask);
        layer.setBeadMask(mask);
    } else if (isPadded || VNDLPV4::LayerDef::is16k(image.width, image.height)) {
        layer.data = VNDLPV4::LayerDef::encodeImage_16k(image.width, image.height, row, header.encryptionKey, index);
    } else {
        layer.data = VNDLPV4::LayerDef::encodeImage(pixels, pixelCount(image), header.encryptionKey, index);
    }
}

/// Encoded data do not say how large their image is: readers take the header's word for it.
void DLPVNV4::warnOfOtherSize(unsigned index, const SliceImage& image) {
    if ((image.width == resolutionX && image.height == resolutionY) || m_sizeWarned.exchange(true)) return;
    report("warning: %s: layer %u has %u x %u pixels, the screen %u x %u\n", filePath.c_str(), index, image.width,
           image.height, resolutionX, resolutionY);
}

void DLPVNV4::setLayerArea(int layerIndex, double area) {
    const auto& layers = m_writer.layerDef();
    const auto index = static_cast<std::size_t>(layerIndex);
    if (layerIndex < 0 || index >= layers.size() || layers[index] == nullptr) {
        refuseIndex(layerIndex);
        return;
    }
    layers[index]->word36 = storedLayerArea(area);
}

/// Table entries are of one size in a file: layers that came before the bead fields get their masks now.
void DLPVNV4::completeMasks() {
    if (!m_beadFields.isPrepared()) return;
    const BeadFieldPool::Lease beads = m_beadFields.take();
    for (const auto& layer : m_writer.layerDef()) {
        if (layer == nullptr || layer->extensionFlag != 0) continue;
        layer->setBeadMask(
            VNDLPV4::LayerDef::beadMaskOfCode(layer->data, m_writer.headerSettings()->resolutionX, *beads));
    }
}

/// The header counts the layers that were delivered, whatever was announced.
void DLPVNV4::completeCounts() {
    VNDLPV4::HeaderSettings& header = *m_writer.headerSettings();
    const std::size_t layers = m_writer.layerDef().size();
    header.layerCount = static_cast<unsigned int>(layers);
    header.floatField3 = static_cast<float>(layers) * header.floatField4;
}

int DLPVNV4::finish() {
    completeMasks();
    completeCounts();
    const std::size_t layers = m_writer.layerDef().size();
    m_failure.note(m_writer.encode(filePath));
    m_failure.note(m_writer.close());
    // without a first string the missing trailer has been reported, which is one line enough
    if (m_writer.headerSettings()->headerText1.empty()) m_failure.note(kOtherLayers);
    if (m_failure.code() == kWriterOk) m_failure.note(m_announced.settle(filePath, layers));
    reset();
    return m_failure.code();
}

int DLPVNV4::cancel() {
    m_writer.close();
    reset();
    return platform::removeFile(filePath.c_str());
}

void DLPVNV4::reset() {
    m_announced = {};
    m_writer.preViews()->clear();
    m_writer.layerDef().clear();
    m_writer.layerDefEx().clear();
}

void DLPVNV4::resizeLayers(int count) {
    const auto entries = static_cast<std::size_t>(std::max(count, 0));
    m_writer.layerDef().resize(entries);
    m_writer.layerDefEx().resize(entries);
}

void DLPVNV4::setLightData(const std::vector<unsigned int>& data, long long value) {
    m_lightData = data;
    m_lightValue = value;
}

void DLPVNV4::prepareLampBeadCal(int count) { m_beadFields.prepare(count); }

}  // namespace vndlp
