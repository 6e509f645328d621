#include <vndlp/formats.h>
#include "ctb/open_file.h"
#include "ctb/scramble.h"
#include "io/report.h"
#include "io/seal.h"
#include "io/section_writer.h"
#include "v4/record_fields.h"

#include <utility>

namespace VNDLPV4 {

using CTB::kDone;
using CTB::kFailed;

VNDLPV4Write::VNDLPV4Write()
    : m_sections(std::make_unique<vndlp::SectionWriter>(m_file)),
      m_header(std::make_shared<HeaderSettings>()),
      m_printParameters(std::make_shared<PrintParameters>()),
      m_slicerInfo(std::make_shared<SlicerInfo>()) {
    m_file.setFileByteOrder(vndlp::LittleEndian);
}

VNDLPV4Write::~VNDLPV4Write() = default;

int VNDLPV4Write::openDlpFile(std::string path, bool verify) {
    close();
    m_sections->reset();
    const CTB::Result result = CTB::openVerified(m_file, std::move(path), verify);
    if (result == kDone) vndlp::keepSum(m_file);
    return result;
}

int VNDLPV4Write::changeDlpFile(std::string path, bool verify) { return openDlpFile(std::move(path), verify); }

std::shared_ptr<HeaderSettings> VNDLPV4Write::headerSettings() { return m_header; }

std::shared_ptr<PrintParameters> VNDLPV4Write::printParameters() { return m_printParameters; }

std::shared_ptr<SlicerInfo> VNDLPV4Write::slicerInfo() { return m_slicerInfo; }

std::vector<std::shared_ptr<PreView>>* VNDLPV4Write::preViews() { return &m_preViews; }

std::vector<std::shared_ptr<LayerDef>>& VNDLPV4Write::layerDef() { return m_layerDefs; }

std::vector<std::shared_ptr<LayerDefEx>>& VNDLPV4Write::layerDefEx() { return m_layerDefExs; }

bool VNDLPV4Write::isExtended() const { return m_header->version >= kFirstExtendedVersion; }

/// Bytes of a table entry, which are those of the first.
unsigned int VNDLPV4Write::entrySize() const { return m_layerDefs.empty() ? 0 : m_layerDefs.front()->size(); }

bool VNDLPV4Write::haveLayers() {
    if (!m_sections->areThere(m_layerDefs, m_layerDefs.size(), "layer")) return false;
    for (std::size_t i = 0; i < m_layerDefs.size(); ++i) {
        if (m_layerDefs[i]->dataSize >= kLayerDefExBytes) continue;
        vndlp::report("error: %s: layer %zu declares %u bytes, its extended record alone has %u\n",
                      m_file.fileName().c_str(), i, m_layerDefs[i]->dataSize, kLayerDefExBytes);
        return false;
    }
    return !isExtended() || m_sections->areThere(m_layerDefExs, m_layerDefs.size(), "layer", "has no extended record");
}

bool VNDLPV4Write::layersFit(unsigned long long tableOffset) {
    return m_sections->layersFit(tableOffset, m_header->layerCount, entrySize(), m_layerDefs, 0);
}

/// The offsets take every entry of the table for one like the first.
void VNDLPV4Write::warnOfOtherEntries() {
    for (std::size_t i = 0; i < m_layerDefs.size(); ++i) {
        if (m_layerDefs[i]->size() == entrySize()) continue;
        vndlp::report("warning: %s: the table entry of layer %zu has %u bytes, that of layer 0 has %u\n",
                      m_file.fileName().c_str(), i, m_layerDefs[i]->size(), entrySize());
        return;
    }
}

// the signature is the exported one: NOLINTNEXTLINE(performance-unnecessary-value-param)
int VNDLPV4Write::encode(std::string /*unused*/) {
    // what writing forces is what the checks below are about
    m_header->version = kV4Version;
    if (!m_sections->isReady("the file") || !m_sections->areThere(m_preViews, m_preViews.size(), "preview") ||
        !haveLayers()) {
        return kFailed;
    }
    const vndlp::SectionOffsets offsets(m_header->size(), m_preViews, kPrintParametersBytes, kSlicerInfoBytes);
    if (!layersFit(offsets.layerTable)) return kFailed;
    m_sections->warn(m_preViews.size(), m_header->layerCount, m_layerDefs.size());

    int result = writeHeader();
    result |= writePreviews();
    result |= writePrintParameters();
    offsets.storeIn(*m_header);
    result |= writeSlicerInfo();
    result |= writeLayerDefs();
    result |= writeLayerDefExs();
    const long long end = m_file.currentPosition();
    m_file.seek(0, 0, false);
    result |= writeHeader();
    const bool sealed = writeTail() == 0;
    m_file.seek(end, 0, false);
    // a file of a text that is no magic has no trailer to miss
    const bool hasTrailer = vndlp::findMagic(m_header->headerText1) != nullptr;
    return sealed || (!hasTrailer && !m_file.failed()) ? result : kFailed;
}

int VNDLPV4Write::writeHeader() { return CTB::resultOf(m_sections->write("the header", *m_header)); }

int VNDLPV4Write::writePreviews() {
    return CTB::resultOf(m_sections->isReady("the previews") &&
                         m_sections->areThere(m_preViews, m_preViews.size(), "preview") &&
                         m_sections->writePreviews(m_preViews, m_header->size()));
}

int VNDLPV4Write::writePrintParameters() {
    return CTB::resultOf(m_sections->write("the print parameters", *m_printParameters));
}

int VNDLPV4Write::writeSlicerInfo() {
    return CTB::resultOf(m_sections->write("the slicer information", *m_slicerInfo));
}

int VNDLPV4Write::writeLayerDefs() {
    if (!m_sections->isReady("the layers") || !haveLayers() || !layersFit(m_header->layerDefOffset)) return kFailed;
    warnOfOtherEntries();
    m_sections->writeTable(m_layerDefs, m_header->layerDefOffset + m_header->layerCount * entrySize(), 0);
    return CTB::resultOf(m_sections->writeImages(m_layerDefs, kLayerDefExBytes, [this](std::size_t i) {
        if (isExtended()) m_sections->put(*m_layerDefExs[i]);
    }));
}

int VNDLPV4Write::writeLayerDefExs() {
    if (!m_sections->isReady("the extended layer records") ||
        !m_sections->areThere(m_layerDefExs, m_layerDefExs.size(), "extended record")) {
        return kFailed;
    }
    for (const auto& extended : m_layerDefExs) m_sections->put(*extended);
    return kDone;
}

int VNDLPV4Write::writeTail() {
    if (!m_file.isOpenFile()) {
        vndlp::report("Error: no dlp file open\n");
        return kFailed;
    }
    // the trailer is appended to what the system has of the file
    m_file.flush();
    if (!m_sections->isComplete()) return kFailed;
    const int code = vndlp::appendKeptSum(m_file);
    if (code != 0) vndlp::report("error: write dlp file checksum, ret:%d\n", code);
    return code;
}

int VNDLPV4Write::close() { return CTB::resultOf(m_sections->close()); }

std::vector<unsigned char> VNDLPV4Write::LayerRleCrypt(unsigned int key, unsigned int layerIndex,
                                                       std::vector<unsigned char> data) {
    LayerRleCryptBuffer(key, layerIndex, data);
    return data;
}

void VNDLPV4Write::LayerRleCryptBuffer(unsigned int key, unsigned int layerIndex, std::vector<unsigned char>& data) {
    CTB::scramble(key, layerIndex, data.data(), data.size());
}

}  // namespace VNDLPV4
