#include "writer/v2_writer.h"

#include <vndlp/formats.h>

#include <algorithm>
#include <utility>

namespace vndlp {

namespace {

constexpr int kFrontEndVersion = 3;
constexpr int kFrontEndFormat = 2;

/// Appends a layer's runs to a list that is not emptied first.
void appendRuns(const SliceImage& image, std::vector<unsigned char>& packed) {
    grayDataPackedRuns(image.pixels.get(), static_cast<int>(image.width), static_cast<int>(image.height),
                       static_cast<std::ptrdiff_t>(strideOf(image)), packed);
}

}  // namespace

DLPVNV2::DLPVNV2() : m_doneCount(0) {
    headerType = kV2Header;
    headerVersion = kFrontEndVersion;
    formatFlag = kFrontEndFormat;
}

int DLPVNV2::openFile() {
    m_failure.clear();
    const int status = m_writer.openDlpFile(filePath);
    if (status < 0) return status;
    if (layerCount >= 1) m_pendingRuns.resize(static_cast<std::size_t>(layerCount));
    return status;
}

int DLPVNV2::writeHeader(std::vector<SliceImage>& previews) {
    // the previews are held, yet the header's own go to the file as needData makes them: black
    if (!takePreviews(previews, m_previewSmall, m_previewLarge1, m_previewLarge2)) {
        return static_cast<int>(previews.size());
    }
    fileStructure.headerType = static_cast<int>(headerType);
    fileStructure.headerVersion = static_cast<int>(headerVersion);
    fileStructure.setMachineType(machineType);
    fileStructure.needData();
    fileStructure.setLayerCount(layerCount);
    m_resolution.lendTo(fileStructure, resolutionX, resolutionY);
    m_announced.set(layerCount);
    if (VndlpBackUse* backUse = fileStructure.getVndlpBackUse()) {
        const auto extent = [this](int axis) { return modelBoxValid ? modelBox[axis + 3] - modelBox[axis] : 0.0F; };
        backUse->setSliceModelX(extent(0));
        backUse->setSliceModelY(extent(1));
        backUse->setSliceModelZ(extent(2));
    }
    return m_failure.note(m_writer.writeDlpStructure(fileStructure));
}

int DLPVNV2::addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) {
    const int checked = checkLayerImage(image, layerIndex);
    if (checked < 0) return m_failure.note(checked);
    m_pendingIndex.push_back(static_cast<int>(layerIndex));
    m_pendingImages.push_back(image);
    m_layerAreas.push_back(static_cast<int>(storedLayerArea(area)));
    // compared as unsigned: a negative batch size is beyond any number of pending layers
    if (m_pendingIndex.size() >= static_cast<std::size_t>(batchSize)) flushPending();
    return m_failure.note(m_writer.failed() ? -1 : kWriterOk);
}

int DLPVNV2::setLayerImageAt(int layerIndex, const SliceImage& image, double area) {
    const auto index = static_cast<std::size_t>(layerIndex);
    const std::size_t tableSize =
        std::min({m_pendingIndex.size(), m_pendingImages.size(), m_pendingRuns.size(), m_layerAreas.size()});
    if (layerIndex < 0 || index >= tableSize) {
        report("error: layer %d, tables sized for %zu: invalid vector subscript\n", layerIndex, tableSize);
        return m_failure.note(kBadLayerIndex);
    }
    const int checked = checkLayerImage(image, layerIndex);
    if (checked < 0) return m_failure.note(checked);
    m_pendingIndex[index] = layerIndex;
    m_pendingImages[index] = image;
    m_layerAreas[index] = static_cast<int>(storedLayerArea(area));
    appendRuns(image, m_pendingRuns[index]);
    const unsigned long long previous = m_doneCount.fetch_add(1);
    if (previous >= m_pendingIndex.size()) {
        // openFile may have made the run table longer than the others, ordered layers the others longer
        const std::size_t count = std::min(m_pendingRuns.size(), m_pendingIndex.size());
        for (std::size_t i = 0; i < count; ++i) writeLayer(m_pendingIndex[i], m_pendingRuns[i]);
        clearPending();
    }
    return kWriterOk;
}

/// Converts and writes every pending layer. Runs from setLayerImageAt are still in the lists and the image's are
/// appended to them once more: a long-standing habit that files after indexed delivery show.
void DLPVNV2::flushPending() {
    m_pendingRuns.resize(m_pendingIndex.size());
    for (std::size_t i = 0; i < m_pendingIndex.size(); ++i) {
        // one buffer for all layers delivered in order: fresh memory costs as much as the writing
        std::vector<unsigned char>& runs = m_pendingRuns[i].empty() ? m_runs : m_pendingRuns[i];
        m_runs.clear();
        appendRuns(m_pendingImages[i], runs);
        writeLayer(m_pendingIndex[i], runs);
    }
    clearPending();
}

void DLPVNV2::writeLayer(int layerIndex, const std::vector<unsigned char>& runs) {
    const auto index = static_cast<std::size_t>(layerIndex);
    unsigned int area = 0;
    if (index < m_layerAreas.size()) {
        area = static_cast<unsigned int>(m_layerAreas[index]);
    } else {
        report("error: layer index %d given, %zu layers were delivered\n", layerIndex, m_layerAreas.size());
        m_failure.note(kBadLayerIndex);
    }
    m_failure.note(m_writer.writeLayerPackedRuns(runs, &area));
}

void DLPVNV2::clearPending() {
    m_pendingRuns.clear();
    m_pendingIndex.clear();
    m_pendingImages.clear();
}

int DLPVNV2::finish() {
    if (!m_pendingIndex.empty()) flushPending();
    std::vector<unsigned int> areas(m_layerAreas.begin(), m_layerAreas.end());
    m_failure.note(m_writer.writeLayerAreasDealyer(areas));
    m_failure.note(m_writer.writeTail(kV2Header));
    // the area table reports too many itself
    if (m_failure.code() == kWriterOk) m_failure.note(m_announced.settle(filePath, m_layerAreas.size()));
    reset();
    return m_failure.code();
}

int DLPVNV2::cancel() {
    reset();
    return platform::removeFile(filePath.c_str());
}

void DLPVNV2::reset() {
    m_announced = {};
    m_writer.close();
    clearPending();
    m_runs = {};
    m_layerAreas.clear();
}

void DLPVNV2::resizeLayers(int count) {
    const auto entries = static_cast<std::size_t>(std::max(count, 0));
    m_layerAreas.resize(entries);
    m_pendingIndex.resize(entries);
    m_pendingImages.resize(entries);
    m_pendingRuns.resize(entries);
}

}  // namespace vndlp
