#include "ctb/open_file.h"
#include "ctb/record_fields.h"
#include "ctb/record_io.h"
#include "ctb/scramble.h"
#include "io/report.h"

#include <algorithm>
#include <utility>

namespace CTB {

namespace {

constexpr unsigned long long kBytesReached = 0xFFFFFFFF;  // by a 32-bit offset

template <class Record>
void deleteAll(std::vector<Record*>& records) {
    for (const Record* record : records) delete record;
}

/// Points a record at the file and writes it.
template <class Record>
void writeRecord(Record& record, FileWrite& file) {
    record.setFileWrite(file);
    record.Serialization();
}

/// Index of the first null entry; the number of entries when there is none.
template <class Record>
std::size_t firstNull(const std::vector<Record*>& records) {
    return static_cast<std::size_t>(std::find(records.begin(), records.end(), nullptr) - records.begin());
}

}  // namespace

CTBWrite::CTBWrite()
    : m_header(std::make_unique<HeaderSettings>()),
      m_printParameters(std::make_unique<PrintParameters>()),
      m_slicerInfo(std::make_unique<SlicerInfo>()) {
    m_file.setFileByteOrder(vndlp::LittleEndian);
}

CTBWrite::~CTBWrite() {
    deleteAll(m_preViews);
    deleteAll(m_layerDefs);
    deleteAll(m_layerDefExs);
}

int CTBWrite::openDlpFile(std::string path, bool verify) {
    close();
    m_failureReported = false;
    return openVerified(m_file, std::move(path), verify);
}

HeaderSettings* CTBWrite::headerSettings() { return m_header.get(); }

std::vector<PreView*>* CTBWrite::preViews() { return &m_preViews; }

PrintParameters* CTBWrite::printParameters() { return m_printParameters.get(); }

SlicerInfo* CTBWrite::slicerInfo() { return m_slicerInfo.get(); }

std::vector<LayerDef*>& CTBWrite::layerDef() { return m_layerDefs; }

std::vector<LayerDefEx*>& CTBWrite::layerDefEx() { return m_layerDefExs; }

bool CTBWrite::isReady(const char* step) {
    if (m_file.isOpenFile()) return true;
    vndlp::report("error: no file is open to write %s to\n", step);
    return false;
}

bool CTBWrite::isExtended() const { return m_header->version >= kFirstExtendedVersion; }

bool CTBWrite::havePreviews() {
    const std::size_t missing = firstNull(m_preViews);
    if (missing == m_preViews.size()) return true;
    vndlp::report("error: %s: preview %zu is missing\n", m_file.fileName().c_str(), missing);
    return false;
}

bool CTBWrite::haveLayers() {
    const std::size_t missing = firstNull(m_layerDefs);
    if (missing < m_layerDefs.size()) {
        vndlp::report("error: %s: layer %zu is missing\n", m_file.fileName().c_str(), missing);
        return false;
    }
    const std::size_t bare = firstNull(m_layerDefExs);
    if (isExtended() && bare < m_layerDefs.size()) {
        vndlp::report("error: %s: layer %zu has no extended record\n", m_file.fileName().c_str(), bare);
        return false;
    }
    return true;
}

/// The table takes the room its header asks for in the offsets, and the room of its entries in the file.
bool CTBWrite::layersFit(unsigned long long tableOffset) {
    const auto layers = std::max<unsigned long long>(m_header->layerCount, m_layerDefs.size());
    unsigned long long end = tableOffset + layers * kLayerDefBytes;
    for (const LayerDef* layer : m_layerDefs) end += (isExtended() ? kLayerDefExBytes : 0) + layer->dataSize;
    if (end <= kBytesReached) return true;
    vndlp::report("error: %s: the file would have %llu bytes, its offsets reach %llu\n", m_file.fileName().c_str(), end,
                  kBytesReached);
    return false;
}

unsigned long long CTBWrite::layerTableOffset() const {
    return kHeaderBytes + 2ull * kPreViewBytes + m_preViews[0]->imageSize + m_preViews[1]->imageSize +
           kPrintParametersBytes + kSlicerInfoBytes + m_slicerInfo->machineNameSize;
}

void CTBWrite::setOffsets() {
    m_header->previewLargeOffset = kHeaderBytes;
    m_header->previewSmallOffset = kPreViewBytes + m_header->previewLargeOffset + m_preViews[0]->imageSize;
    m_header->printParametersOffset = kPreViewBytes + m_header->previewSmallOffset + m_preViews[1]->imageSize;
    m_header->slicerInfoOffset = kPrintParametersBytes + m_header->printParametersOffset;
    m_slicerInfo->machineNameOffset = kSlicerInfoBytes + m_header->slicerInfoOffset;
    m_header->layerDefOffset = kSlicerInfoBytes + m_header->slicerInfoOffset + m_slicerInfo->machineNameSize;
}

int CTBWrite::encode() {
    if (!isReady("the file") || !havePreviews() || !haveLayers()) return kFailed;
    if (m_preViews.size() < 2) {
        vndlp::report("error: %s: two previews are needed, %zu are there\n", m_file.fileName().c_str(),
                      m_preViews.size());
        return kFailed;
    }
    if (!layersFit(layerTableOffset())) return kFailed;
    if (m_preViews.size() > 2) {
        vndlp::report("warning: %s: %zu previews are written, the offsets account for two\n", m_file.fileName().c_str(),
                      m_preViews.size());
    }
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
    m_header->seekBegin();
    result |= writeHeader();
    m_file.flush();
    return result | incompleteFileResult();
}

int CTBWrite::writeHeader() {
    if (!isReady("the header")) return kFailed;
    writeRecord(*m_header, m_file);
    return kDone;
}

int CTBWrite::writePreviews() {
    if (!isReady("the previews") || !havePreviews()) return kFailed;
    if (!m_preViews.empty()) m_preViews[0]->imageOffset = kHeaderBytes + kPreViewBytes;
    if (m_preViews.size() > 1) {
        m_preViews[1]->imageOffset = kHeaderBytes + 2 * kPreViewBytes + m_preViews[0]->imageSize;
    }
    Result result = kDone;
    for (PreView* preView : m_preViews) {
        writeRecord(*preView, m_file);
        if (preView->imageData.size() < preView->imageSize) result = kFailed;
    }
    return result;
}

int CTBWrite::writePrintParameters() {
    if (!isReady("the print parameters")) return kFailed;
    writeRecord(*m_printParameters, m_file);
    return kDone;
}

int CTBWrite::writeSlicerInfo() {
    if (!isReady("the slicer information")) return kFailed;
    writeRecord(*m_slicerInfo, m_file);
    return m_slicerInfo->machineName.size() < m_slicerInfo->machineNameSize ? kFailed : kDone;
}

int CTBWrite::writeLayerDefs() {
    if (!isReady("the layers") || !haveLayers() || !layersFit(m_header->layerDefOffset)) return kFailed;
    writeLayerTable();
    return writeLayerCodes() ? kDone : kFailed;
}

void CTBWrite::writeLayerTable() {
    unsigned int position = m_header->layerDefOffset + kLayerDefBytes * m_header->layerCount;
    for (LayerDef* layer : m_layerDefs) {
        if (isExtended()) position += kLayerDefExBytes;
        layer->dataOffset = position;
        position += layer->dataSize;
        writeRecord(*layer, m_file);
    }
}

bool CTBWrite::writeLayerCodes() {
    bool whole = true;
    for (std::size_t i = 0; i < m_layerDefs.size() && !m_file.failed(); ++i) {
        const LayerDef& layer = *m_layerDefs[i];
        if (isExtended()) {
            m_layerDefExs[i]->layerDef.dataOffset = layer.dataOffset;
            writeRecord(*m_layerDefExs[i], m_file);
        }
        if (writeDeclared(m_file, layer.data.data(), layer.data.size(), layer.dataSize)) continue;
        if (whole) {
            reportShort(m_file.fileName(), "the image of layer " + std::to_string(i), layer.dataSize,
                        layer.data.size());
        }
        whole = false;
    }
    return whole;
}

int CTBWrite::writeLayerDefExs() {
    if (!isReady("the extended layer records")) return kFailed;
    const std::size_t missing = firstNull(m_layerDefExs);
    if (missing < m_layerDefExs.size()) {
        vndlp::report("error: %s: extended record %zu is missing\n", m_file.fileName().c_str(), missing);
        return kFailed;
    }
    for (LayerDefEx* extended : m_layerDefExs) writeRecord(*extended, m_file);
    return kDone;
}

int CTBWrite::incompleteFileResult() {
    if (!m_file.failed()) return kDone;
    if (!m_failureReported) vndlp::reportIncompleteFile(m_file.fileName().c_str(), m_file.failureCode());
    m_failureReported = true;
    return kFailed;
}

int CTBWrite::close() {
    if (!m_file.isOpenFile()) return kDone;
    m_file.close();
    return incompleteFileResult();
}

std::vector<unsigned char> CTBWrite::LayerRleCrypt(unsigned int key, unsigned int layerIndex,
                                                   std::vector<unsigned char> data) {
    LayerRleCryptBuffer(key, layerIndex, data);
    return data;
}

void CTBWrite::LayerRleCryptBuffer(unsigned int key, unsigned int layerIndex, std::vector<unsigned char>& data) {
    scramble(key, layerIndex, data.data(), data.size());
}

}  // namespace CTB
