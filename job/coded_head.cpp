/// Heads and layer tables of CTB and V4 files, which are built alike.

#include "job/model.h"

#include "ctb/record_fields.h"
#include "v4/record_fields.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vndlp::job {

namespace {

constexpr std::int64_t kCtbFirstPreview = CTB::kHeaderBytes;

/// What the header of either format says, and where the rest stands.
struct CodedHead {
    std::int64_t firstPreview = 0;
    const FieldSpecs* preview = nullptr;
    const FieldSpecs* parameters = nullptr;
    const FieldSpecs* slicerInfo = nullptr;
};

std::int64_t offsetOfField(const Model& model, const char* name) {
    const FieldPlace* place = model.field(name);
    return place == nullptr ? -1 : place->offset;
}

/// A record that the header says the place of.
void addPointedRecord(Model& model, const char* record, const FieldSpecs& fields, const char* pointer,
                      const char* what) {
    if (model.field(pointer) == nullptr) return;
    const std::int64_t offset = model.whole(pointer);
    const std::int64_t bytes = fixedBytes(fields);
    if (offset < model.records.front().bytes || !model.bytes.holds(offset, bytes)) {
        model.headFault(offsetOfField(model, pointer), std::string("the ") + what + " at offset " +
                                                           std::to_string(offset) + " does not lie within the file");
    }
    if (offset < model.bytes.size()) addRecord(model, record, fields, offset);
    model.parts.push_back({what, offset, bytes});
}

/// The two previews, one behind the other.
void addPreviews(Model& model, const CodedHead& head) {
    const char* const names[] = {"large", "small"};
    std::int64_t offset = head.firstPreview;
    for (std::size_t i = 0; i < std::size(names); ++i) {
        const std::string name = "PreView." + std::to_string(i);
        if (i == 1 && model.field("HeaderSettings.previewSmallOffset") != nullptr &&
            model.whole("HeaderSettings.previewSmallOffset") != offset) {
            model.headFault(offsetOfField(model, "HeaderSettings.previewSmallOffset"),
                            "the second preview is at offset " + std::to_string(offset) + ", by the header at " +
                                std::to_string(model.whole("HeaderSettings.previewSmallOffset")));
        }
        const std::int64_t data = addRecord(model, name, *head.preview, offset);
        const std::int64_t bytes = model.whole(name + ".imageSize");
        if (!model.records.back().isWhole || !model.bytes.holds(data, bytes)) {
            model.headFault(offset, std::string("the ") + (i == 0 ? "first" : "second") + " preview is not whole");
            return;
        }
        model.previews.push_back({names[i], PreviewCoding::repeatedRgb555, model.whole(name + ".resolutionX"),
                                  model.whole(name + ".resolutionY"), data, bytes});
        model.parts.push_back({i == 0 ? "first preview" : "second preview", offset, data + bytes - offset});
        offset = data + bytes;
    }
}

void checkScreen(Model& model) {
    SliceInfo& info = model.info;
    const bool isSensible = info.width > 0 && info.height > 0 && info.width <= CTB::kLongestImageSide &&
                            info.height <= CTB::kLongestImageSide &&
                            std::uint64_t{info.width} * info.height <= CTB::kMostLayerPixels;
    if (isSensible || model.field("HeaderSettings.resolutionY") == nullptr) return;
    model.headFault(offsetOfField(model, "HeaderSettings.resolutionX"),
                    "the resolution is " + std::to_string(info.width) + " x " + std::to_string(info.height));
}

void readCodedHead(Model& model, const CodedHead& head) {
    SliceInfo& info = model.info;
    info.width = model.whole("HeaderSettings.resolutionX");
    info.height = model.whole("HeaderSettings.resolutionY");
    info.layers = model.whole("HeaderSettings.layerCount");
    model.key = model.whole("HeaderSettings.encryptionKey");
    if (!model.records.front().isWhole) {
        model.headFault(model.bytes.size(), "the file ends within the header");
        return;
    }
    checkScreen(model);
    addPreviews(model, head);
    addPointedRecord(model, "PrintParameters", *head.parameters, "HeaderSettings.printParametersOffset",
                     "print parameters");
    addPointedRecord(model, "SlicerInfo", *head.slicerInfo, "HeaderSettings.slicerInfoOffset", "slicer information");
    model.tableAt = model.whole("HeaderSettings.layerDefOffset");
}

/// The machine name of a CTB file, which stands where the slicer information says.
void addMachineName(Model& model) {
    static const FieldSpec kMachineName{"machineName", "", FieldKind::chars, BigEndian, 0, false, false};
    const std::int64_t offset = model.whole("SlicerInfo.machineNameOffset");
    const std::int64_t bytes = model.whole("SlicerInfo.machineNameSize");
    if (model.field("SlicerInfo.machineNameSize") == nullptr) return;
    if (bytes > 0 && !model.bytes.holds(offset, bytes)) {
        model.headFault(offsetOfField(model, "SlicerInfo.machineNameOffset"),
                        "the machine name does not lie within the file");
        return;
    }
    const FieldPlace place{&kMachineName, offset, bytes};
    model.records.back().fields.push_back(place);
    model.fields.emplace("SlicerInfo.machineName", place);
    ++model.fieldCount;
    model.parts.push_back({"machine name", offset, bytes});
}

/// How many times the table of a CTB file stands in it: once for each level of anti-aliasing, where they fit.
std::int64_t tableCopies(const Model& model) {
    const std::int64_t levels = std::max<std::int64_t>(model.whole("HeaderSettings.antiAliasLevel"), 1);
    const std::int64_t bytes = levels * model.info.layers * static_cast<std::int64_t>(CTB::kLayerDefBytes);
    if (levels == 1 || !model.bytes.holds(model.tableAt, bytes)) return 1;
    unsigned char raw[4];
    const std::int64_t firstData = offsetInRecord(fieldsOf<CTB::LayerDef>(), "dataOffset");
    if (!model.bytes.read(model.tableAt + firstData, raw, sizeof raw).isOk()) return 1;
    return loadNumber<std::uint32_t>(raw, LittleEndian) >= model.tableAt + bytes ? levels : 1;
}

/// One entry of the layer table of either format.
struct EntryLayout {
    std::int64_t dataOffset;
    std::int64_t dataSize;
    std::int64_t extensionFlag;  ///< -1: none
    std::int64_t area;           ///< -1: none
    std::int64_t bytes;
    std::int64_t extension;  ///< bytes more where the flag is set
};

EntryLayout layoutOf(const FieldSpecs& fields) {
    std::int64_t extension = 0;
    for (const FieldSpec& field : fields) extension += field.isOptional ? field.size : 0;
    return {offsetInRecord(fields, "dataOffset"),
            offsetInRecord(fields, "dataSize"),
            offsetInRecord(fields, "extensionFlag"),
            offsetInRecord(fields, "word36"),
            fixedBytes(fields),
            extension};
}

std::uint32_t word(const unsigned char* entry, std::int64_t offset) {
    return offset < 0 ? 0 : loadNumber<std::uint32_t>(entry + offset, LittleEndian);
}

LayerPlace placeOf(const Model& model, const EntryLayout& layout, const unsigned char* entry, std::int64_t offset) {
    LayerPlace place;
    place.entry = offset;
    const std::int64_t data = word(entry, layout.dataOffset);
    const std::int64_t bytes = word(entry, layout.dataSize);
    const bool isV4 = model.info.format == SliceFormat::vndlpv4;
    place.begin = isV4 ? data : data - model.extendedBytes;
    place.data = place.begin + model.extendedBytes;
    place.dataBytes = isV4 ? bytes - model.extendedBytes : bytes;
    place.end = place.data + std::max<std::int64_t>(place.dataBytes, 0);
    place.area = word(entry, layout.area);
    place.isExtended = word(entry, layout.extensionFlag) != 0;
    return place;
}

}  // namespace

void readCtbHead(Model& model) {
    const std::int64_t end = addRecord(model, "HeaderSettings", fieldsOf<CTB::HeaderSettings>(), 0);
    model.parts.push_back({"header", 0, end});
    model.info.version = static_cast<int>(model.whole("HeaderSettings.version"));
    const bool isExtended = model.whole("HeaderSettings.version") >= CTB::kFirstExtendedVersion;
    model.extendedBytes = isExtended ? CTB::kLayerDefExBytes : 0;
    readCodedHead(model, {kCtbFirstPreview, &fieldsOf<CTB::PreView>(), &fieldsOf<CTB::PrintParameters>(),
                          &fieldsOf<CTB::SlicerInfo>()});
    if (model.field("SlicerInfo.machineNameOffset") != nullptr) addMachineName(model);
    model.layerRecords = {{"LayerDef", "", &fieldsOf<CTB::LayerDef>(), LayerRecordAt::entry}};
    if (isExtended) {
        model.layerRecords.push_back({"LayerDefEx", "", &fieldsOf<CTB::LayerDefEx>(), LayerRecordAt::begin});
    }
}

void readV4Head(Model& model) {
    const std::int64_t end = addRecord(model, "HeaderSettings", fieldsOf<VNDLPV4::HeaderSettings>(), 0);
    model.parts.push_back({"header", 0, end});
    model.info.version = static_cast<int>(model.whole("HeaderSettings.version"));
    model.extendedBytes = VNDLPV4::kLayerDefExBytes;
    const std::int64_t firstPreview = model.whole("HeaderSettings.previewLargeOffset");
    readCodedHead(model, {firstPreview, &fieldsOf<VNDLPV4::PreView>(), &fieldsOf<VNDLPV4::PrintParameters>(),
                          &fieldsOf<VNDLPV4::SlicerInfo>()});
    const FieldSpecs& extended = fieldsOf<VNDLPV4::LayerDefEx>();
    model.layerRecords = {{"LayerDef", "", &fieldsOf<VNDLPV4::LayerDef>(), LayerRecordAt::entry},
                          {"LayerDefEx", "", &extended, LayerRecordAt::begin},
                          {"LayerDefEx", "second.", &extended, LayerRecordAt::secondCopy}};
}

void locateTabledLayers(const Model& model, LayerTable& table) {
    const FieldSpecs& fields = *model.layerRecords.front().fields;
    const EntryLayout layout = layoutOf(fields);
    const std::int64_t room = std::max<std::int64_t>(model.bytes.size() - std::max<std::int64_t>(model.tableAt, 0), 0);
    // an entry takes its bytes, so the file bounds their number
    table.layers.reserve(static_cast<std::size_t>(std::min<std::int64_t>(model.info.layers, room / layout.bytes)));
    std::vector<unsigned char> entries;
    std::int64_t entriesAt = 0;
    std::int64_t at = model.tableAt;
    std::int64_t dataEnd = 0;
    bool isMixed = false;
    while (model.tableAt >= 0 && table.layers.size() < model.info.layers) {
        if (!model.bytes.holds(at, layout.bytes)) break;
        if (at + layout.bytes > entriesAt + static_cast<std::int64_t>(entries.size())) {
            entries.resize(static_cast<std::size_t>(
                std::min<std::int64_t>(static_cast<std::int64_t>(kPieceBytes), model.bytes.size() - at)));
            entriesAt = at;
            if (!model.bytes.read(at, entries.data(), entries.size()).isOk()) break;
        }
        const LayerPlace place = placeOf(model, layout, entries.data() + (at - entriesAt), at);
        if (place.isExtended && !model.bytes.holds(at, layout.bytes + layout.extension)) break;
        isMixed = isMixed || place.isExtended;
        at += layout.bytes + (place.isExtended ? layout.extension : 0);
        if (place.begin >= 0 && place.end <= model.bytes.size()) dataEnd = std::max(dataEnd, place.end);
        table.layers.push_back(place);
    }
    if (table.layers.size() < model.info.layers) {
        table.isWhole = false;
        table.brokenAt = std::max<std::int64_t>(at, 0);
        table.whatBroke = "the layer table has " + std::to_string(table.layers.size()) + " of " +
                          std::to_string(model.info.layers) + " entries";
    } else if (model.info.format == SliceFormat::ctb) {
        at = model.tableAt + tableCopies(model) * model.info.layers * layout.bytes;
    }
    table.entriesEnd = at;
    table.end = std::max(at, dataEnd);
    if (model.info.format == SliceFormat::vndlpv4) table.secondCopies = table.end;
    if (!isMixed) return;
    const std::uint64_t most = fields.size();
    const std::uint64_t least = static_cast<std::uint64_t>(
        std::count_if(fields.begin(), fields.end(), [](const FieldSpec& f) { return !f.isOptional; }));
    table.firstFields.push_back(0);
    for (const LayerPlace& layer : table.layers) {
        table.firstFields.push_back(table.firstFields.back() + (layer.isExtended ? most : least));
    }
}

}  // namespace vndlp::job
