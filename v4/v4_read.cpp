#include <vndlp/ctb.h>
#include "ctb/encoded_data.h"
#include "ctb/image_limits.h"
#include "ctb/open_file.h"
#include "io/record_io.h"
#include "io/report.h"
#include "v4/record_fields.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace VNDLPV4 {

using CTB::kDone;
using CTB::kFailed;

namespace {

constexpr std::size_t kPreviewCount = 2;

template <class Record>
std::vector<Record*> pointersTo(const std::vector<std::unique_ptr<Record>>& records) {
    std::vector<Record*> pointers;
    pointers.reserve(records.size());
    for (const std::unique_ptr<Record>& record : records) pointers.push_back(record.get());
    return pointers;
}

/// Slicer information of which nothing has been read yet: no rest time is negative.
std::unique_ptr<SlicerInfo> unreadSlicerInfo() {
    auto info = std::make_unique<SlicerInfo>();
    info->word48 = 0xFFFFFFFF;
    info->restTimeAfterRetract = -1.0F;
    info->restTimeAfterLift2 = -1.0F;
    return info;
}

std::string layerText(int layerIndex) { return "the image of layer " + std::to_string(layerIndex); }

}  // namespace

VNDLPV4Read::VNDLPV4Read() { m_file.setFileByteOrder(vndlp::LittleEndian); }

VNDLPV4Read::~VNDLPV4Read() = default;

int VNDLPV4Read::openDlpFile(std::string path, bool verify) {
    closeDlpFile();
    m_header.reset();
    m_preViews.clear();
    m_printParameters.reset();
    m_slicerInfo.reset();
    m_layerDefs.clear();
    m_layerDefExs.clear();
    m_whole = true;
    return CTB::openVerified(m_file, std::move(path), verify);
}

int VNDLPV4Read::parseFile() {
    if (!m_file.isOpenFile()) {
        vndlp::report("error: file is not open\n");
        return kFailed;
    }
    readHeader();
    readPreviews();
    readPrintParameters();
    readSlicerInfo();
    readLayerDefs();
    readLayerDefExs();
    return kDone;
}

bool VNDLPV4Read::isWhole() const { return m_whole; }

/// Whether there is a file and a header that says where things are.
bool VNDLPV4Read::isReady(const char* what) {
    if (m_file.isOpenFile() && m_header != nullptr) return true;
    vndlp::report("error: %s cannot be read before a file is open and its header read\n", what);
    return false;
}

/// Reports the first thing missing only: what follows from it would be missing as well.
void VNDLPV4Read::noteShort(const std::string& what, unsigned long long declared, unsigned long long held,
                            const char* unit) {
    if (m_whole) vndlp::reportShort(m_file.fileName(), what, declared, held, unit);
    m_whole = false;
}

/// Moves to a record. \return whether some of its bytes are there; the first of a file that has fewer than `bytes` is
/// reported.
bool VNDLPV4Read::seekTo(long long offset, unsigned int bytes, const std::string& what) {
    const long long held = std::max(m_file.fileLength() - offset, 0LL);
    if (held < bytes) {
        noteShort(what + " at offset " + std::to_string(offset), bytes, static_cast<unsigned long long>(held));
    }
    return held > 0 && m_file.seek(offset, 0) >= 0;
}

int VNDLPV4Read::readHeader() {
    if (!m_file.isOpenFile()) {
        vndlp::report("error: no file is open to read the header from\n");
        return kFailed;
    }
    m_header = std::make_unique<HeaderSettings>();
    const long long held = m_file.remaining();
    m_header->DeSerialization(m_file);
    if (held < m_header->size()) noteShort("the header", m_header->size(), static_cast<unsigned long long>(held));
    return kDone;
}

int VNDLPV4Read::readPreviews() {
    if (!isReady("the previews")) return kFailed;
    m_preViews.clear();
    while (m_preViews.size() < kPreviewCount) m_preViews.push_back(std::make_unique<PreView>());
    long long offset = m_header->previewLargeOffset;
    for (std::size_t i = 0; i < kPreviewCount; ++i) {
        const std::string what = "preview " + std::to_string(i);
        if (!seekTo(offset, kPreViewBytes, what)) break;
        PreView& preView = *m_preViews[i];
        preView.DeSerialization(m_file);
        offset = m_file.currentPosition();
        if (preView.imageData.size() == preView.imageSize) continue;
        noteShort("the image of " + what, preView.imageSize, preView.imageData.size());
        break;
    }
    return kDone;
}

int VNDLPV4Read::readPrintParameters() {
    constexpr const char* what = "the print parameters";
    if (!isReady(what)) return kFailed;
    m_printParameters = std::make_unique<PrintParameters>();
    if (seekTo(m_header->printParametersOffset, kPrintParametersBytes, what))
        m_printParameters->DeSerialization(m_file);
    return kDone;
}

int VNDLPV4Read::readSlicerInfo() {
    constexpr const char* what = "the slicer information";
    if (!isReady(what)) return kFailed;
    m_slicerInfo = unreadSlicerInfo();
    if (!seekTo(m_header->slicerInfoOffset, kSlicerInfoBytes, what)) return kDone;
    m_slicerInfo->beginPosition = static_cast<unsigned int>(m_file.currentPosition());
    vndlp::FileSource source(m_file, vndlp::LittleEndian, vndlp::LittleEndian, vndlp::Missing::keepsItsValue);
    vndlp::readRecord(source, *m_slicerInfo);
    m_slicerInfo->endPosition = static_cast<unsigned int>(m_file.currentPosition());
    return kDone;
}

int VNDLPV4Read::readLayerDefs() {
    constexpr const char* what = "the layer table";
    if (!isReady(what)) return kFailed;
    m_layerDefs.clear();
    const unsigned int declared = m_header->layerCount;
    if (declared == 0 || !seekTo(m_header->layerDefOffset, kLayerDefBytes, what)) return kDone;
    // an entry has at least the bytes of the shorter form, so the file bounds their number
    m_layerDefs.reserve(static_cast<std::size_t>(std::min<long long>(declared, m_file.remaining() / kLayerDefBytes)));
    unsigned int whole = 0;
    while (whole < declared && m_file.remaining() > 0) {
        LayerDef& layer = *m_layerDefs.emplace_back(std::make_unique<LayerDef>());
        const long long held = m_file.remaining();
        layer.DeSerialization(m_file);
        layer.tableSize = kLayerDefExBytes;
        if (held >= layer.size()) ++whole;
    }
    if (whole < declared) noteShort(what, declared, whole, "entries");
    return kDone;
}

int VNDLPV4Read::readLayerDefExs() {
    if (!isReady("the extended layer records")) return kFailed;
    m_layerDefExs.clear();
    m_layerDefExs.reserve(m_layerDefs.size());
    for (const std::unique_ptr<LayerDef>& layer : m_layerDefs) {
        const std::string what = "the extended record of layer " + std::to_string(m_layerDefExs.size());
        auto& extended = m_layerDefExs.emplace_back(std::make_unique<LayerDefEx>());
        if (!seekTo(layer->dataOffset, kLayerDefExBytes, what)) continue;
        const auto held = static_cast<unsigned long long>(m_file.remaining());
        extended->DeSerialization(m_file);
        if (held < layer->dataSize) noteShort(what + " with its image", layer->dataSize, held);
    }
    return kDone;
}

const HeaderSettings* VNDLPV4Read::headerSettings() const { return m_header.get(); }

const PrintParameters* VNDLPV4Read::printParameters() const { return m_printParameters.get(); }

const SlicerInfo* VNDLPV4Read::slicerInfo() const { return m_slicerInfo.get(); }

std::vector<PreView*> VNDLPV4Read::preViews() { return pointersTo(m_preViews); }

std::vector<LayerDef*> VNDLPV4Read::layerDef() { return pointersTo(m_layerDefs); }

std::vector<LayerDefEx*> VNDLPV4Read::layerDefEx() { return pointersTo(m_layerDefExs); }

FileRead& VNDLPV4Read::getFileRead() { return m_file; }

int VNDLPV4Read::closeDlpFile() { return m_file.isOpenFile() ? m_file.close() : kDone; }

/// Hands the encoded data behind a layer's extended record to `take`, see `CTB::readPieces`.
/// \return false, with an error line, when the file does not hold all of them.
bool VNDLPV4Read::readCode(const HeaderSettings* header, const LayerDef* layer, int layerIndex, const TakePiece& take) {
    if (header == nullptr || layer == nullptr || !m_file.isOpenFile()) {
        vndlp::report("error: %s cannot be read without an open file, its header and the layer's record\n",
                      layerText(layerIndex).c_str());
        return false;
    }
    const unsigned int declared = layer->dataSize > kLayerDefExBytes ? layer->dataSize - kLayerDefExBytes : 0;
    if (declared == 0) return true;
    std::size_t held = 0;
    if (m_file.seek(static_cast<long long>(layer->dataOffset) + kLayerDefExBytes, 0) >= 0) {
        held = CTB::readPieces(m_file, declared, header->encryptionKey, static_cast<unsigned int>(layerIndex), take);
    }
    if (held == declared) return true;
    vndlp::reportShort(m_file.fileName(), layerText(layerIndex), declared, held);
    return false;
}

std::vector<unsigned char> VNDLPV4Read::readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex) {
    std::size_t count = 0;
    if (header != nullptr &&
        !CTB::countPixels("a layer", header->resolutionX, header->resolutionY, CTB::kMostLayerPixels, count)) {
        return {};
    }
    std::vector<unsigned char> pixels;
    CTB::makeBlack(pixels, count);
    decodeOver(header, layer, layerIndex, pixels.data(), pixels.size());
    return layer != nullptr ? pixels : std::vector<unsigned char>();
}

int VNDLPV4Read::readLayerImage(LayerDef* layer, int layerIndex) {
    std::size_t count = 0;
    if (m_header != nullptr &&
        !CTB::countPixels("a layer", m_header->resolutionX, m_header->resolutionY, CTB::kMostLayerPixels, count)) {
        return kFailed;
    }
    if (layer == nullptr) return decodeOver(m_header.get(), layer, layerIndex, nullptr, 0);
    CTB::makeBlack(layer->data, count);
    return decodeOver(m_header.get(), layer, layerIndex, layer->data.data(), count);
}

int VNDLPV4Read::readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex, unsigned char* pixels,
                                std::size_t size) {
    if (size > 0) std::memset(pixels, 0, size);
    return decodeOver(header, layer, layerIndex, pixels, size);
}

/// Decodes a layer into pixels that are all 0.
int VNDLPV4Read::decodeOver(const HeaderSettings* header, const LayerDef* layer, int layerIndex, unsigned char* pixels,
                            std::size_t size) {
    CTB::PixelDecoder decoder(pixels, size);
    const bool whole = readCode(header, layer, layerIndex, [&decoder](const unsigned char* encoded, std::size_t bytes) {
        return decoder.take(encoded, bytes);
    });
    return whole ? kDone : kFailed;
}

int VNDLPV4Read::readLayerImage_16k(const HeaderSettings* header, LayerDef* layer, int layerIndex,
                                    const RowSink& rows) {
    // whole, for whoever takes the rows may read from this file meanwhile
    std::vector<unsigned char> encoded;
    const bool whole = readCode(header, layer, layerIndex, [&encoded](const unsigned char* piece, std::size_t bytes) {
        encoded.insert(encoded.end(), piece, piece + bytes);
        return bytes;
    });
    if (header == nullptr || layer == nullptr || header->resolutionX == 0) return whole ? kDone : kFailed;
    std::vector<unsigned char> row(header->resolutionX);
    unsigned int next = 0;
    const auto hand = [&] {
        rows(next++, row.data());
        std::fill(row.begin(), row.end(), static_cast<unsigned char>(0));
    };
    CTB::takeRowRuns({encoded.data(), encoded.size(), 0, 0}, row.size(), header->resolutionY,
                     [&](std::size_t /*row*/, std::size_t column, std::size_t count, unsigned int grey) {
                         std::memset(row.data() + column, CTB::decodedGrey(grey), count);
                         if (column + count == row.size()) hand();
                     });
    while (next < header->resolutionY) hand();
    return whole ? kDone : kFailed;
}

std::vector<unsigned char> VNDLPV4Read::readLayerImage_16k(const HeaderSettings* header, LayerDef* layer,
                                                           int layerIndex) {
    return readLayerImage(header, layer, layerIndex);
}

int VNDLPV4Read::readLayerImage_16k(const HeaderSettings* header, LayerDef* layer, int layerIndex,
                                    unsigned char* pixels, std::size_t size) {
    return readLayerImage(header, layer, layerIndex, pixels, size);
}

void VNDLPV4Read::vectorToChar(std::vector<unsigned char> v, char* out) {
    if (!v.empty()) std::memcpy(out, v.data(), v.size());
}

}  // namespace VNDLPV4
