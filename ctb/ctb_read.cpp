#include "ctb/open_file.h"
#include "ctb/record_fields.h"
#include "io/record_io.h"
#include "io/report.h"

#include <algorithm>
#include <utility>

namespace CTB {

namespace {

constexpr int kHeaderRead = 1;
constexpr int kNoFile = 0;
constexpr std::size_t kPreviewCount = 2;
/// Entries that are read however short the file is: it may hold those of the first level only.
constexpr unsigned long long kMaxRepeatedEntries = 8192;
/// Images behind a table that is read with them may overlap, but no more than this.
constexpr long long kMaxImagesPerFile = 4;

template <class Record>
std::vector<Record*> releaseAll(std::vector<std::unique_ptr<Record>>&& records) {
    std::vector<Record*> released;
    released.reserve(records.size());
    for (std::unique_ptr<Record>& record : records) released.push_back(record.release());
    return released;
}

}  // namespace

CTBRead::CTBRead() { m_file.setFileByteOrder(vndlp::LittleEndian); }

CTBRead::~CTBRead() = default;

int CTBRead::openDlpFile(std::string path, bool verify) {
    closeDlpFile();
    m_header.reset();
    m_layerDefExs.clear();
    return openVerified(m_file, std::move(path), verify);
}

int CTBRead::parseFile(bool /*ignored*/) {
    if (!m_file.isOpenFile()) return kNoFile;
    readHeader();
    return kHeaderRead;
}

int CTBRead::readHeader() {
    if (!m_file.isOpenFile()) return kDone;
    if (m_header == nullptr) m_header = std::make_unique<HeaderSettings>();
    *m_header = HeaderSettings(m_file);
    if (m_file.remaining() < kHeaderBytes) {
        vndlp::reportShort(m_file.fileName(), "the header", kHeaderBytes,
                           static_cast<unsigned long long>(m_file.remaining()));
    }
    vndlp::FileSource source(m_file, vndlp::LittleEndian, vndlp::LittleEndian, vndlp::Missing::keepsItsValue);
    vndlp::readRecord(source, *m_header);
    return kDone;
}

const HeaderSettings* CTBRead::headerSettings() const { return m_header.get(); }

/// Whether there is a file and a header that says where things are.
bool CTBRead::isReady(const char* what) {
    if (m_file.isOpenFile() && m_header != nullptr) return true;
    vndlp::report("error: %s cannot be read before a file is open and its header read\n", what);
    return false;
}

/// Bytes of the file from `offset` on; 0 for an offset outside it.
unsigned long long CTBRead::bytesFrom(long long offset) {
    const long long length = m_file.fileLength();
    return offset < 0 || offset > length ? 0 : static_cast<unsigned long long>(length - offset);
}

/// Moves to a record. \return bytes that are there of the `bytes` it should have, with an error line for fewer; it has
/// not moved for 0.
unsigned int CTBRead::seekTo(long long offset, unsigned int bytes, const char* what) {
    const unsigned long long held = bytesFrom(offset);
    if (held >= bytes && m_file.seek(offset, 0) >= 0) return bytes;
    vndlp::reportShort(m_file.fileName(), std::string(what) + " at offset " + std::to_string(offset), bytes, held);
    return held > 0 && m_file.seek(offset, 0) >= 0 ? static_cast<unsigned int>(held) : 0;
}

std::vector<PreView*> CTBRead::preViews() {
    if (!m_file.isOpenFile()) {
        vndlp::report("error: no file is open to read the previews from\n");
        return {};
    }
    std::vector<std::unique_ptr<PreView>> read;
    while (read.size() < kPreviewCount) read.push_back(std::make_unique<PreView>(m_file));
    long long offset = kHeaderBytes;
    for (const std::unique_ptr<PreView>& preView : read) {
        const unsigned int held = seekTo(offset, kPreViewBytes, "a preview");
        if (held > 0) preView->DeSerialization();
        if (held < kPreViewBytes) break;
        if (preView->imageData.size() < preView->imageSize) {
            vndlp::reportShort(m_file.fileName(), "the image of a preview", preView->imageSize,
                               preView->imageData.size());
            break;
        }
        offset = m_file.currentPosition();
    }
    return releaseAll(std::move(read));
}

PrintParameters CTBRead::printParameters() {
    constexpr const char* what = "the print parameters";
    PrintParameters parameters(m_file);
    if (isReady(what) && seekTo(m_header->printParametersOffset, kPrintParametersBytes, what) > 0) {
        parameters.DeSerialization();
    }
    return parameters;
}

SlicerInfo CTBRead::slicerInfo() {
    constexpr const char* what = "the slicer information";
    SlicerInfo info(m_file);
    if (isReady(what) && seekTo(m_header->slicerInfoOffset, kSlicerInfoBytes, what) > 0) info.DeSerialization();
    return info;
}

/// The table is repeated once per anti-aliasing level.
unsigned long long CTBRead::tableEntries() const {
    return static_cast<unsigned long long>(m_header->antiAliasLevel) * m_header->layerCount;
}

/// \param isWhole false, with an error line, when entries of the table are not in the file or cut off by its end.
std::vector<std::unique_ptr<LayerDef>> CTBRead::readTable(bool readData, bool& isWhole) {
    constexpr const char* what = "the layer table";
    std::vector<std::unique_ptr<LayerDef>> table;
    isWhole = isReady(what);
    if (!isWhole) return table;
    const unsigned long long declared = tableEntries();
    if (declared == 0) return table;
    const unsigned int firstHeld = seekTo(m_header->layerDefOffset, kLayerDefBytes, what);
    isWhole = firstHeld == kLayerDefBytes;
    if (firstHeld == 0) return table;
    const unsigned long long held = static_cast<unsigned long long>(m_file.remaining());
    const unsigned long long whole = held / kLayerDefBytes;
    const unsigned long long begun = (held + kLayerDefBytes - 1) / kLayerDefBytes;
    // the levels behind the first are read from whatever is there, or not there any more; with images even the entries
    // of the first are, so that the position does not bound them
    isWhole = m_header->layerCount <= whole && declared <= std::max(begun, kMaxRepeatedEntries);
    const auto most = static_cast<std::size_t>(isWhole ? declared : std::min(declared, begun));
    table.reserve(most);

    long long imageBytesLeft = kMaxImagesPerFile * m_file.fileLength();
    while (table.size() < most) {
        auto layer = std::make_unique<LayerDef>(m_file);
        layer->DeSerialization(readData && imageBytesLeft > 0);
        imageBytesLeft -= static_cast<long long>(layer->data.size());
        table.push_back(std::move(layer));
    }
    if (!isWhole && firstHeld == kLayerDefBytes) {
        vndlp::reportShort(m_file.fileName(), what, declared, std::min(declared, whole), "entries");
    }
    return table;
}

std::vector<LayerDef*> CTBRead::layerDef(bool readData) {
    bool isWhole = false;
    return releaseAll(readTable(readData, isWhole));
}

std::vector<LayerDefEx*> CTBRead::layerDefEx() {
    bool isWhole = false;
    const std::vector<std::unique_ptr<LayerDef>> table = readTable(false, isWhole);
    for (std::size_t i = 0; i < table.size(); ++i) {
        // every level takes its offsets from the first level's entries
        const std::size_t layer = i % m_header->layerCount;
        const long long offset = static_cast<long long>(table[layer]->dataOffset) - kLayerDefExBytes;
        const unsigned long long held = bytesFrom(offset);
        if (held > 0 && m_file.seek(offset, 0) >= 0) {
            auto extended = std::make_unique<LayerDefEx>(m_file);
            extended->DeSerialization();
            m_layerDefExs.push_back(extended.release());
        }
        if (held >= kLayerDefExBytes) continue;
        // a table cut short has been reported already
        if (isWhole) {
            vndlp::reportShort(m_file.fileName(), "the extended record of layer " + std::to_string(layer),
                               kLayerDefExBytes, held);
        }
        break;
    }
    return m_layerDefExs;
}

std::vector<unsigned char> CTBRead::readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex,
                                                   LayerDefEx* /*ex*/) {
    if (header == nullptr || layer == nullptr) {
        vndlp::report("error: the image of layer %d cannot be read without header and layer record\n", layerIndex);
        return {};
    }
    return layer->decodeCtbImage(header->resolutionX, header->resolutionY, static_cast<unsigned int>(layerIndex),
                                 header->encryptionKey);
}

void CTBRead::readLayerImage(LayerDef* layer, LayerDefEx* ex) {
    if (!m_file.isOpenFile() || layer == nullptr || ex == nullptr) {
        vndlp::report("error: a layer's image cannot be read without an open file and both its records\n");
        return;
    }
    if (seekTo(layer->dataOffset, kLayerDefExBytes, "the extended record of a layer") < kLayerDefExBytes) {
        layer->data.clear();
        return;
    }
    ex->setFileRead(m_file);
    ex->DeSerialization();
    layer->data = vndlp::readDeclared(m_file, layer->dataSize);
    if (layer->data.size() < layer->dataSize) {
        vndlp::reportShort(m_file.fileName(), "the image of a layer", layer->dataSize, layer->data.size());
    }
}

int CTBRead::closeDlpFile() { return m_file.isOpenFile() ? m_file.close() : kDone; }

}  // namespace CTB
