#include <vndlp/formats.h>
#include "ctb/open_file.h"
#include "ctb/record_io.h"
#include "ctb/scramble.h"
#include "io/report.h"
#include "io/running_sum.h"
#include "io/seal.h"
#include "v4/record_fields.h"

#include <algorithm>
#include <utility>

namespace VNDLPV4 {

using CTB::kDone;
using CTB::kFailed;

namespace {

constexpr unsigned long long kBytesReached = 0xFFFFFFFF;  // by a 32-bit offset

/// Index of the first null entry; the number of entries when there is none.
template <class Record>
std::size_t firstNull(const std::vector<std::shared_ptr<Record>>& records) {
    return static_cast<std::size_t>(std::find(records.begin(), records.end(), nullptr) - records.begin());
}

}  // namespace

VNDLPV4Write::VNDLPV4Write()
    : m_header(std::make_shared<HeaderSettings>()),
      m_printParameters(std::make_shared<PrintParameters>()),
      m_slicerInfo(std::make_shared<SlicerInfo>()) {
    m_file.setFileByteOrder(vndlp::LittleEndian);
}

VNDLPV4Write::~VNDLPV4Write() = default;

int VNDLPV4Write::openDlpFile(std::string path, bool verify) {
    close();
    m_failureReported = false;
    const CTB::Result result = CTB::openVerified(m_file, std::move(path), verify);
    if (result == kDone) m_file.keepSum();
    return result;
}

int VNDLPV4Write::changeDlpFile(std::string path, bool verify) { return openDlpFile(std::move(path), verify); }

std::shared_ptr<HeaderSettings> VNDLPV4Write::headerSettings() { return m_header; }

std::shared_ptr<PrintParameters> VNDLPV4Write::printParameters() { return m_printParameters; }

std::shared_ptr<SlicerInfo> VNDLPV4Write::slicerInfo() { return m_slicerInfo; }

std::vector<std::shared_ptr<PreView>>* VNDLPV4Write::preViews() { return &m_preViews; }

std::vector<std::shared_ptr<LayerDef>>& VNDLPV4Write::layerDef() { return m_layerDefs; }

std::vector<std::shared_ptr<LayerDefEx>>& VNDLPV4Write::layerDefEx() { return m_layerDefExs; }

bool VNDLPV4Write::isReady(const char* step) {
    if (m_file.isOpenFile()) return true;
    vndlp::report("error: no file is open to write %s to\n", step);
    return false;
}

bool VNDLPV4Write::isExtended() const { return m_header->version >= kFirstExtendedVersion; }

/// Bytes of a table entry, which are those of the first.
unsigned int VNDLPV4Write::entrySize() const { return m_layerDefs.empty() ? 0 : m_layerDefs.front()->size(); }

bool VNDLPV4Write::havePreviews() {
    const std::size_t missing = firstNull(m_preViews);
    if (missing == m_preViews.size()) return true;
    vndlp::report("error: %s: preview %zu is missing\n", m_file.fileName().c_str(), missing);
    return false;
}

bool VNDLPV4Write::haveExtendedRecords(std::size_t count) {
    const std::size_t missing = firstNull(m_layerDefExs);
    if (missing >= count) return true;
    vndlp::report("error: %s: layer %zu has no extended record\n", m_file.fileName().c_str(), missing);
    return false;
}

bool VNDLPV4Write::haveLayers() {
    const std::size_t missing = firstNull(m_layerDefs);
    if (missing < m_layerDefs.size()) {
        vndlp::report("error: %s: layer %zu is missing\n", m_file.fileName().c_str(), missing);
        return false;
    }
    for (std::size_t i = 0; i < m_layerDefs.size(); ++i) {
        const LayerDef& layer = *m_layerDefs[i];
        if (layer.size() != entrySize()) {
            vndlp::report("error: %s: the table entry of layer %zu has %u bytes, that of layer 0 has %u\n",
                          m_file.fileName().c_str(), i, layer.size(), entrySize());
            return false;
        }
        if (layer.dataSize < kLayerDefExBytes) {
            vndlp::report("error: %s: layer %zu declares %u bytes, its extended record alone has %u\n",
                          m_file.fileName().c_str(), i, layer.dataSize, kLayerDefExBytes);
            return false;
        }
    }
    return !isExtended() || haveExtendedRecords(m_layerDefs.size());
}

/// The table takes the room its header asks for in the offsets, and the room of its entries in the file.
bool VNDLPV4Write::layersFit(unsigned long long tableOffset) {
    const auto layers = std::max<unsigned long long>(m_header->layerCount, m_layerDefs.size());
    unsigned long long end = tableOffset + layers * entrySize();
    for (const auto& layer : m_layerDefs) end += layer->dataSize;
    if (end <= kBytesReached) return true;
    vndlp::report("error: %s: the layers would reach to byte %llu, their offsets reach %llu\n",
                  m_file.fileName().c_str(), end, kBytesReached);
    return false;
}

void VNDLPV4Write::setOffsets() {
    const auto imageSize = [this](std::size_t i) { return i < m_preViews.size() ? m_preViews[i]->imageSize : 0; };
    m_header->previewLargeOffset = m_header->size();
    m_header->previewSmallOffset = m_header->previewLargeOffset + imageSize(0) + kPreViewBytes;
    m_header->printParametersOffset = m_header->previewSmallOffset + kPreViewBytes + imageSize(1);
    m_header->slicerInfoOffset = m_header->printParametersOffset + kPrintParametersBytes;
    m_header->layerDefOffset = m_header->slicerInfoOffset + kSlicerInfoBytes;
}

// the signature is the exported one: NOLINTNEXTLINE(performance-unnecessary-value-param)
int VNDLPV4Write::encode(std::string /*unused*/) {
    // what writing forces is what the checks below are about
    m_header->version = kV4Version;
    if (!isReady("the file") || !havePreviews() || !haveLayers() || !haveExtendedRecords(m_layerDefs.size())) {
        return kFailed;
    }
    unsigned long long tableOffset = m_header->size() + 2ull * kPreViewBytes + kPrintParametersBytes + kSlicerInfoBytes;
    for (const auto& preView : m_preViews) tableOffset += preView->imageSize;
    if (!layersFit(tableOffset)) return kFailed;
    if (m_header->layerCount != m_layerDefs.size()) {
        vndlp::report("warning: %s: the header counts %u layers, %zu are written\n", m_file.fileName().c_str(),
                      m_header->layerCount, m_layerDefs.size());
    }

    int result = writeHeader();
    result |= writePreviews();
    result |= writePrintParameters();
    setOffsets();
    result |= writeSlicerInfo();
    result |= writeLayerDefs();
    result |= writeLayerDefExs();
    const long long end = m_file.currentPosition();
    m_file.seek(0, 0, false);
    result |= writeHeader();
    const bool sealed = writeTail() == 0;
    m_file.seek(end, 0, false);
    // a file of a text that is no magic has no trailer to miss
    const vndlp::MagicRow* format = vndlp::findMagic(m_header->headerText1);
    return sealed || (format == nullptr && !m_file.failed()) ? result : kFailed;
}

int VNDLPV4Write::writeHeader() {
    if (!isReady("the header")) return kFailed;
    m_header->Serialization(m_file);
    return kDone;
}

int VNDLPV4Write::writePreviews() {
    if (!isReady("the previews") || !havePreviews()) return kFailed;
    const unsigned int first = m_header->size() + kPreViewBytes;
    if (!m_preViews.empty()) m_preViews[0]->imageOffset = first;
    if (m_preViews.size() > 1) m_preViews[1]->imageOffset = first + kPreViewBytes + m_preViews[0]->imageSize;
    int result = kDone;
    for (const auto& preView : m_preViews) {
        preView->Serialization(m_file);
        if (preView->imageData.size() < preView->imageSize) result = kFailed;
    }
    return result;
}

int VNDLPV4Write::writePrintParameters() {
    if (!isReady("the print parameters")) return kFailed;
    m_printParameters->Serialization(m_file);
    return kDone;
}

int VNDLPV4Write::writeSlicerInfo() {
    if (!isReady("the slicer information")) return kFailed;
    m_slicerInfo->Serialization(m_file);
    return kDone;
}

int VNDLPV4Write::writeLayerDefs() {
    if (!isReady("the layers") || !haveLayers() || !layersFit(m_header->layerDefOffset)) return kFailed;
    writeLayerTable();
    return writeLayerCodes() ? kDone : kFailed;
}

void VNDLPV4Write::writeLayerTable() {
    unsigned int position = m_header->layerDefOffset + m_header->layerCount * entrySize();
    for (const auto& layer : m_layerDefs) {
        layer->dataOffset = position;
        position += layer->dataSize;
        layer->Serialization(m_file);
    }
}

bool VNDLPV4Write::writeLayerCodes() {
    bool whole = true;
    for (std::size_t i = 0; i < m_layerDefs.size() && !m_file.failed(); ++i) {
        const LayerDef& layer = *m_layerDefs[i];
        if (isExtended()) m_layerDefExs[i]->Serialization(m_file);
        const unsigned int declared = layer.dataSize - kLayerDefExBytes;
        if (CTB::writeDeclared(m_file, layer.data.data(), layer.data.size(), declared)) continue;
        if (whole) {
            CTB::reportShort(m_file.fileName(), "the image of layer " + std::to_string(i), declared, layer.data.size());
        }
        whole = false;
    }
    return whole;
}

int VNDLPV4Write::writeLayerDefExs() {
    if (!isReady("the extended layer records") || !haveExtendedRecords(m_layerDefExs.size())) return kFailed;
    for (const auto& extended : m_layerDefExs) extended->Serialization(m_file);
    return kDone;
}

int VNDLPV4Write::writeTail() {
    if (!m_file.isOpenFile()) {
        vndlp::report("Error: no dlp file open\n");
        return kFailed;
    }
    // the trailer is appended to what the system has of the file
    m_file.flush();
    if (m_file.failed()) return incompleteFileResult();
    const int code = vndlp::appendKnownSum(m_file.fileName(), *m_file.m_sum);
    if (code != 0) vndlp::report("error: write dlp file checksum, ret:%d\n", code);
    return code;
}

int VNDLPV4Write::incompleteFileResult() {
    if (!m_file.failed()) return kDone;
    if (!m_failureReported) vndlp::reportIncompleteFile(m_file.fileName().c_str(), m_file.failureCode());
    m_failureReported = true;
    return kFailed;
}

int VNDLPV4Write::close() {
    if (!m_file.isOpenFile()) return kDone;
    m_file.close();
    return incompleteFileResult();
}

std::vector<unsigned char> VNDLPV4Write::LayerRleCrypt(unsigned int key, unsigned int layerIndex,
                                                       std::vector<unsigned char> data) {
    LayerRleCryptBuffer(key, layerIndex, data);
    return data;
}

void VNDLPV4Write::LayerRleCryptBuffer(unsigned int key, unsigned int layerIndex, std::vector<unsigned char>& data) {
    CTB::scramble(key, layerIndex, data.data(), data.size());
}

}  // namespace VNDLPV4
