#include "ctb/open_file.h"
#include "ctb/record_fields.h"
#include "ctb/scramble.h"
#include "io/report.h"
#include "io/section_writer.h"

#include <utility>

namespace CTB {

namespace {

template <class Record>
void deleteAll(std::vector<Record*>& records) {
    for (const Record* record : records) delete record;
}

}  // namespace

CTBWrite::CTBWrite()
    : m_sections(std::make_unique<vndlp::SectionWriter>(m_file)),
      m_header(std::make_unique<HeaderSettings>()),
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
    m_sections->reset();
    return openVerified(m_file, std::move(path), verify);
}

HeaderSettings* CTBWrite::headerSettings() { return m_header.get(); }

std::vector<PreView*>* CTBWrite::preViews() { return &m_preViews; }

PrintParameters* CTBWrite::printParameters() { return m_printParameters.get(); }

SlicerInfo* CTBWrite::slicerInfo() { return m_slicerInfo.get(); }

std::vector<LayerDef*>& CTBWrite::layerDef() { return m_layerDefs; }

std::vector<LayerDefEx*>& CTBWrite::layerDefEx() { return m_layerDefExs; }

/// Bytes in front of every image: its extended record, in files that have them.
unsigned int CTBWrite::bytesInFront() const {
    return m_header->version >= kFirstExtendedVersion ? kLayerDefExBytes : 0;
}

bool CTBWrite::haveLayers() {
    return m_sections->areThere(m_layerDefs, m_layerDefs.size(), "layer") &&
           (bytesInFront() == 0 ||
            m_sections->areThere(m_layerDefExs, m_layerDefs.size(), "layer", "has no extended record"));
}

bool CTBWrite::layersFit(unsigned long long tableOffset) {
    return m_sections->layersFit(tableOffset, m_header->layerCount, kLayerDefBytes, m_layerDefs, bytesInFront());
}

int CTBWrite::encode() {
    if (!m_sections->isReady("the file") || !m_sections->areThere(m_preViews, m_preViews.size(), "preview") ||
        !haveLayers()) {
        return kFailed;
    }
    if (m_preViews.size() < vndlp::kMaxLocatedPreviews) {
        vndlp::report("error: %s: two previews are needed, %zu are there\n", m_file.fileName().c_str(),
                      m_preViews.size());
        return kFailed;
    }
    const vndlp::SectionOffsets offsets(kHeaderBytes, m_preViews, kPrintParametersBytes,
                                        kSlicerInfoBytes + 0ull + m_slicerInfo->machineNameSize);
    if (!layersFit(offsets.layerTable)) return kFailed;
    m_sections->warn(m_preViews.size(), m_header->layerCount, m_layerDefs.size());

    int result = writeHeader();
    result |= writePreviews();
    result |= writePrintParameters();
    offsets.storeIn(*m_header);
    m_slicerInfo->machineNameOffset = m_header->slicerInfoOffset + kSlicerInfoBytes;
    result |= writeSlicerInfo();
    result |= writeLayerDefs();
    m_header->seekBegin();
    result |= writeHeader();
    m_file.flush();
    return result | resultOf(m_sections->isComplete());
}

int CTBWrite::writeHeader() { return resultOf(m_sections->write("the header", *m_header)); }

int CTBWrite::writePreviews() {
    return resultOf(m_sections->isReady("the previews") &&
                    m_sections->areThere(m_preViews, m_preViews.size(), "preview") &&
                    m_sections->writePreviews(m_preViews, kHeaderBytes));
}

int CTBWrite::writePrintParameters() { return resultOf(m_sections->write("the print parameters", *m_printParameters)); }

int CTBWrite::writeSlicerInfo() {
    return resultOf(m_sections->write("the slicer information", *m_slicerInfo) &&
                    m_slicerInfo->machineName.size() >= m_slicerInfo->machineNameSize);
}

int CTBWrite::writeLayerDefs() {
    if (!m_sections->isReady("the layers") || !haveLayers() || !layersFit(m_header->layerDefOffset)) return kFailed;
    m_sections->writeTable(m_layerDefs, m_header->layerDefOffset + kLayerDefBytes * m_header->layerCount,
                           bytesInFront());
    return resultOf(m_sections->writeImages(m_layerDefs, 0, [this](std::size_t i) {
        if (bytesInFront() == 0) return;
        m_layerDefExs[i]->layerDef.dataOffset = m_layerDefs[i]->dataOffset;
        m_sections->put(*m_layerDefExs[i]);
    }));
}

int CTBWrite::writeLayerDefExs() {
    if (!m_sections->isReady("the extended layer records") ||
        !m_sections->areThere(m_layerDefExs, m_layerDefExs.size(), "extended record")) {
        return kFailed;
    }
    for (LayerDefEx* extended : m_layerDefExs) m_sections->put(*extended);
    return kDone;
}

int CTBWrite::close() { return resultOf(m_sections->close()); }

std::vector<unsigned char> CTBWrite::LayerRleCrypt(unsigned int key, unsigned int layerIndex,
                                                   std::vector<unsigned char> data) {
    LayerRleCryptBuffer(key, layerIndex, data);
    return data;
}

void CTBWrite::LayerRleCryptBuffer(unsigned int key, unsigned int layerIndex, std::vector<unsigned char>& data) {
    scramble(key, layerIndex, data.data(), data.size());
}

}  // namespace CTB
