/// The sections of a file whose records hold 32-bit offsets: where they go, whether they can be written, and whether
/// they were. CTB and V4 files are laid out by it.

#pragma once

#include <vndlp/streams.h>
#include "io/record_io.h"
#include "io/record_layout.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace vndlp {

/// Bytes of a preview's record, in front of its image.
constexpr unsigned int kPreviewRecordBytes = 32;
/// Previews that the offsets of a file account for.
constexpr std::size_t kMaxLocatedPreviews = 2;

/// Where the sections in front of the layers begin.
struct SectionOffsets {
    unsigned long long firstPreview;
    unsigned long long secondPreview;
    unsigned long long printParameters;
    unsigned long long slicerInfo;
    unsigned long long layerTable;

    /// A missing preview counts as an image of 0 bytes.
    template <class PreViews>
    SectionOffsets(unsigned int headerBytes, const PreViews& preViews, unsigned int printParametersBytes,
                   unsigned long long slicerInfoBytes)
        : firstPreview(headerBytes) {
        const auto imageSize = [&preViews](std::size_t i) { return i < preViews.size() ? preViews[i]->imageSize : 0; };
        secondPreview = firstPreview + kPreviewRecordBytes + imageSize(0);
        printParameters = secondPreview + kPreviewRecordBytes + imageSize(1);
        slicerInfo = printParameters + printParametersBytes;
        layerTable = slicerInfo + slicerInfoBytes;
    }

    template <class Header>
    void storeIn(Header& header) const {
        header.previewLargeOffset = static_cast<unsigned int>(firstPreview);
        header.previewSmallOffset = static_cast<unsigned int>(secondPreview);
        header.printParametersOffset = static_cast<unsigned int>(printParameters);
        header.slicerInfoOffset = static_cast<unsigned int>(slicerInfo);
        header.layerDefOffset = static_cast<unsigned int>(layerTable);
    }
};

/// Writes sections to a file of its owner's. Every failure is reported in one error line; `complete` lets only the
/// first of a file that could not be written pass.
class SectionWriter {
public:
    explicit SectionWriter(FileWrite& file) : m_file(file) {}

    /// Forgets what was reported about the file before.
    void reset() { m_isReported = false; }
    /// \param what is to be written. \return whether a file is open for it.
    bool isReady(const char* what);
    /// Whether the first `count` records are there; the error line is "`record` 3 `lack`".
    template <class Records>
    bool areThere(const Records& records, std::size_t count, const char* record, const char* lack = "is missing") {
        const auto found = std::find(records.begin(), records.end(), nullptr) - records.begin();
        return static_cast<std::size_t>(found) >= count || isThere(static_cast<std::size_t>(found), record, lack);
    }
    /// Whether the offsets reach the end of the layers.
    /// \param tableOffset  of the layer table, which takes the room of `layerCount` entries or of its own, if more.
    /// \param bytesInFront of every image that its `dataSize` does not count.
    template <class Layers>
    bool layersFit(unsigned long long tableOffset, unsigned int layerCount, unsigned int entryBytes,
                   const Layers& layers, unsigned int bytesInFront) {
        unsigned long long end = tableOffset + std::max<unsigned long long>(layerCount, layers.size()) * entryBytes;
        for (const auto& layer : layers) end += bytesInFront + layer->dataSize;
        return isReached(end);
    }
    /// Warns of previews that no offset accounts for, and of a layer count that is not that of the table.
    void warn(std::size_t preViews, unsigned int layerCount, std::size_t layers);

    /// Writes a record.
    /// \return false when no file is open.
    template <class Record>
    bool write(const char* what, Record& record) {
        if (!isReady(what)) return false;
        put(record);
        return true;
    }
    template <class Record>
    void put(Record& record) {
        if constexpr (requires { record.setFileWrite(m_file); }) {
            record.setFileWrite(m_file);
            record.Serialization();
        } else {
            record.Serialization(m_file);
        }
    }
    /// Writes all records, one behind the other, and the images of the previews among them, whose offsets are set.
    /// \return false when an image is shorter than its record says.
    template <class PreViews>
    bool writePreviews(PreViews& preViews, unsigned int headerBytes) {
        unsigned int offset = headerBytes;
        bool isComplete = true;
        for (std::size_t i = 0; i < preViews.size(); ++i) {
            offset += kPreviewRecordBytes;
            if (i < kMaxLocatedPreviews) preViews[i]->imageOffset = offset;
            offset += preViews[i]->imageSize;
            put(*preViews[i]);
            isComplete = isComplete && preViews[i]->imageData.size() >= preViews[i]->imageSize;
        }
        return isComplete;
    }
    /// Sets the offsets of the layers' data and writes their table in one piece.
    /// \param dataOffset   where the first layer's bytes begin.
    /// \param bytesInFront as at `layersFit`.
    template <class Layers>
    void writeTable(Layers& layers, unsigned int dataOffset, unsigned int bytesInFront) {
        std::vector<unsigned char> table;
        MemorySink sink(table, LittleEndian);
        for (const auto& layer : layers) {
            layer->dataOffset = dataOffset + bytesInFront;
            dataOffset = layer->dataOffset + layer->dataSize;
            if constexpr (requires { layer->setFileWrite(m_file); }) layer->setFileWrite(m_file);
            writeRecord(sink, *layer);
        }
        m_file.writeBytes(table.data(), table.size());
    }
    /// Writes the image of every layer, as many bytes as its record says.
    /// \param ownBytes of `dataSize` that `writeFront(i)` writes in front of an image.
    /// \return false, with an error line for the first, when images are shorter.
    template <class Layers, class WriteFront>
    bool writeImages(const Layers& layers, unsigned int ownBytes, WriteFront&& writeFront) {
        bool isComplete = true;
        for (std::size_t i = 0; i < layers.size() && !m_file.failed(); ++i) {
            writeFront(i);
            const auto& image = layers[i]->data;
            const unsigned int declared = layers[i]->dataSize - ownBytes;
            if (writeDeclared(m_file, image.data(), image.size(), declared)) continue;
            if (isComplete) {
                reportShort(m_file.fileName(), "the image of layer " + std::to_string(i), declared, image.size());
            }
            isComplete = false;
        }
        return isComplete;
    }

    /// Whether everything given to the file so far could be written.
    bool isComplete();
    /// Closes the file. \return the same; true when none is open.
    bool close();

private:
    bool isThere(std::size_t index, const char* record, const char* lack);
    bool isReached(unsigned long long end);

    FileWrite& m_file;
    bool m_isReported = false;
};

}  // namespace vndlp
