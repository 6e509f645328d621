/// What is known of an open slice file: where every record, field, preview and layer stands in it.
///
/// Reading settings and raw fields, verifying, changing in place and repairing all go by these places.

#pragma once

#include "job/bytes.h"
#include "job/field_list.h"

#include <vndlp/calibration.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace vndlp::job {

/// A field of a record that stands in the file whole. Of texts the place of the characters.
struct FieldPlace {
    const FieldSpec* spec = nullptr;
    std::int64_t offset = 0;
    std::int64_t bytes = 0;
};

/// A record of the head.
struct RecordPlace {
    std::string name;  ///< "HeaderSettings", "PreView.0"
    std::int64_t offset = 0;
    std::int64_t bytes = 0;  ///< of what is there
    std::vector<FieldPlace> fields;
    bool isWhole = false;
};

enum class PreviewCoding { rgb565, repeatedRgb555 };

struct PreviewPlace {
    const char* name;
    PreviewCoding coding;
    std::uint32_t width;
    std::uint32_t height;
    std::int64_t offset;  ///< of pixels or encoded data
    std::int64_t bytes;
};

/// A stretch of the file that belongs to one thing.
struct Part {
    std::string name;
    std::int64_t offset;
    std::int64_t size;
};

/// Where a layer stands.
struct LayerPlace {
    std::int64_t entry = -1;  ///< of its entry in the layer table, or its area in the area table
    std::int64_t begin = 0;   ///< of the record in front of the encoded data: extended record, or area and count
    std::int64_t data = 0;    ///< of the encoded data
    std::int64_t dataBytes = 0;
    std::int64_t end = 0;     ///< behind all of it, the tag of vendor files included
    std::uint32_t count = 0;  ///< runs, polylines, vertices
    std::uint32_t area = 0;   ///< in front of the layer, or in its entry
    bool isMesh = false;      ///< of line files; layers of neither are taken for polylines
    bool isExtended = false;  ///< the entry of a V4 layer has its extension
};

/// Places of a record that every layer has.
enum class LayerRecordAt { entry, begin, secondCopy };

/// A record type that occurs once a layer.
struct LayerRecords {
    const char* name;          ///< "LayerDef"
    const char* memberPrefix;  ///< "second." for second copies, else empty
    const FieldSpecs* fields;
    LayerRecordAt at;
};

/// The places of the layers. Made when first asked for.
struct LayerTable {
    std::vector<LayerPlace> layers;
    std::int64_t end = 0;            ///< behind the last layer that was found
    std::int64_t entriesEnd = 0;     ///< behind the table of CTB and V4 files
    std::int64_t secondCopies = -1;  ///< of the extended records of V4 files
    bool isWhole = true;
    std::int64_t brokenAt = -1;  ///< where it broke off
    std::string whatBroke;
    std::vector<std::uint64_t> firstFields;  ///< of entries of several lengths: fields in front of each, and of all
};

/// What can be counted in a layer of pixels.
struct LayerCounts {
    std::uint64_t runs = 0;  ///< down the columns, of greys above `kLitThreshold`
    std::uint64_t lit = 0;   ///< pixels of such greys
};

/// What has been counted already: facts of a layer and the volume of the job are the same counting.
struct CountedLayers {
    std::mutex mutex;
    std::unordered_map<std::uint32_t, LayerCounts> counts;
};

/// Fields of LED beads that no thread needs at the moment.
struct BeadFields {
    std::mutex mutex;
    std::vector<std::unique_ptr<VNDLPV4::LampBeadCal>> unused;
};

struct Model {
    Bytes bytes;
    SliceInfo info;
    const MagicRow* magic = nullptr;
    EnumCheckSumType trailerKind = CHECKSUM_NONE;
    std::vector<RecordPlace> records;
    std::unordered_map<std::string, FieldPlace> fields;  ///< those of `records`, by "RECORD.member"
    std::uint64_t fieldCount = 0;                        ///< of all `records`
    std::vector<LayerRecords> layerRecords;
    std::vector<PreviewPlace> previews;
    std::vector<Part> parts;                 ///< of the head
    std::vector<SliceFinding> headFindings;  ///< what is wrong with it
    bool headIsWhole = true;
    std::int64_t headBrokeAt = -1;
    std::string whatBroke;
    std::uint32_t key = 0;           ///< of the scrambling
    std::int64_t extendedBytes = 0;  ///< of the record in front of a layer's encoded data
    std::int64_t tableAt = -1;       ///< of the layer table, or the area table
    std::int64_t layersAt = -1;      ///< of the first layer of vendor files; -1: not known
    double layerHeightMm = 0;        ///< NaN: unknown
    double pixelAreaMm2 = 0;         ///< NaN: unknown
    mutable BeadFields beadFields;
    mutable CountedLayers counted;

    /// Adds an error to the head's findings; the head counts as broken there if it is the first.
    void headFault(std::int64_t offset, std::string text);
    [[nodiscard]] const FieldPlace* field(const std::string& name) const;
    /// A number of the head. \return false where the file does not hold it.
    [[nodiscard]] bool number(const std::string& name, double& value) const;
    [[nodiscard]] std::uint32_t whole(const std::string& name) const;

    const LayerTable& layers() const;

    [[nodiscard]] bool isVendor() const {
        return info.format == SliceFormat::vndlp || info.format == SliceFormat::vnline;
    }

private:
    mutable std::once_flag m_located;
    mutable LayerTable m_layers;
};

/// Reads the value of a field that stands in the file.
[[nodiscard]] SliceResult readField(const Bytes& bytes, const FieldPlace& place, FieldValue& value);

/// Places the fields of a record one behind the other, as far as the file holds them, and adds it to the model.
/// \return where the record ends; where reading broke off when it is not whole.
std::int64_t addRecord(Model& model, std::string name, const FieldSpecs& fields, std::int64_t offset);

/// Finds out what stands where in the head. What cannot be read becomes a finding.
void readCtbHead(Model& model);
void readV4Head(Model& model);
void readVendorHead(Model& model, HeaderKind kind);

void locateTabledLayers(const Model& model, LayerTable& table);
void locateVendorLayers(const Model& model, LayerTable& table);

/// Finds where a layer of a vendor file ends.
/// \param area the area table's, of the layer behind; tells polylines from a mesh where both end at a tag.
/// \return false where none begins.
bool locateVendorLayer(const Model& model, std::int64_t offset, std::uint32_t index, LayerPlace& place);

}  // namespace vndlp::job

namespace vndlp {

struct SliceFile::State {
    std::string path;
    job::Model model;
};

}  // namespace vndlp
