#include "job/skeleton.h"

#include "ctb/preview_codec.h"
#include "ctb/record_fields.h"
#include "v4/record_fields.h"

#include <vndlp/calibration.h>

#include <algorithm>
#include <string>
#include <utility>

namespace vndlp::job {

namespace {

constexpr unsigned kFrontEndVersion = 3;
constexpr unsigned kLineVersion = 2;
constexpr unsigned kProjectorType = 1;
constexpr unsigned kAntiAliasLevel = 1;
constexpr unsigned kSlicerVersion = 0x01090000;
constexpr float kLightOffDelay = 4.0F;
constexpr std::size_t kBackUseBytes = 64;
constexpr std::size_t kParameterNumbers = 11;
constexpr std::size_t kSlicingNumberBytes = 20;  // behind the texts of the slicing settings
constexpr std::size_t kImageParamBytes = 8;
constexpr unsigned kFullPower = 255;
/// The screen the bead field lies behind.
constexpr std::uint32_t kBeadScreenWidth = 15120;
constexpr std::uint32_t kBeadScreenHeight = 6230;

/// Appends what vendor files are made of, big-endian.
class VendorBytes {
public:
    explicit VendorBytes(ByteList& bytes) : m_bytes(bytes) {}
    void u16(unsigned value) { number(static_cast<std::uint16_t>(value)); }
    void u32(std::uint32_t value) { number(value); }
    void text(std::string_view characters) {
        u32(static_cast<std::uint32_t>(characters.size() + 1));
        m_bytes.insert(m_bytes.end(), characters.begin(), characters.end());
        m_bytes.push_back(0);
    }
    void zeros(std::size_t count) { m_bytes.insert(m_bytes.end(), count, 0); }
    void tag() { u16(kSplitTag); }

private:
    template <class Number>
    void number(Number value) {
        const auto raw = storedNumber(value, BigEndian);
        m_bytes.insert(m_bytes.end(), raw.begin(), raw.end());
    }

    ByteList& m_bytes;
};

ByteList vendorHead(SliceFormat format, std::uint32_t width, std::uint32_t height) {
    const bool isLine = format == SliceFormat::vnline;
    ByteList bytes;
    VendorBytes out(bytes);
    out.text(findMagic(isLine ? kLineHeader : kV2Header)->magic);
    out.u16(isLine ? kLineVersion : kFrontEndVersion);
    out.text("");
    out.u16(0);
    out.u16(width);
    out.u16(height);
    out.zeros(kBackUseBytes);
    for (const unsigned side : {116u, 290u, 290u}) {
        out.zeros(std::size_t{2} * side * side);
        out.tag();
    }
    // a head without these texts cannot be read
    for (int i = 0; i < 3; ++i) {
        out.u32(2);
        out.u16('0');
    }
    out.zeros(2 * (kParameterNumbers - 2));
    out.u16(kFullPower);
    out.u16(kFullPower);
    if (!isLine) {
        out.tag();  // of the area table
        const std::string slicer = "vndlp " VNDLP_VERSION;
        out.text(slicer);
        out.text("");
        out.zeros(kSlicingNumberBytes);
    } else {
        out.zeros(kImageParamBytes);
    }
    out.tag();
    return bytes;
}

template <class Record>
void append(Record record, ByteList& bytes) {
    MemorySink sink(bytes, LittleEndian);
    writeRecord(sink, record);
}

template <class PreView>
void appendPreview(std::uint32_t width, std::uint32_t height, ByteList& bytes) {
    const ByteList black(std::size_t{width} * height * CTB::kPreviewPixelBytes);
    const ByteList code = CTB::encodePreview(black.data(), black.size());
    PreView record;
    record.resolutionX = width;
    record.resolutionY = height;
    record.imageOffset = static_cast<unsigned>(bytes.size() + PreView::size());
    record.imageSize = static_cast<unsigned>(code.size());
    append(record, bytes);
    bytes.insert(bytes.end(), code.begin(), code.end());
}

/// Previews, print parameters and slicer information behind a header, which is written again with their places.
template <class PreView, class Header, class Parameters, class Info, class Place>
ByteList codedHead(Header header, const Parameters& parameters, Info info, Place&& place) {
    ByteList first;
    append(header, first);
    ByteList bytes = first;
    header.previewLargeOffset = static_cast<unsigned>(bytes.size());
    appendPreview<PreView>(400, 300, bytes);
    header.previewSmallOffset = static_cast<unsigned>(bytes.size());
    appendPreview<PreView>(200, 125, bytes);
    header.printParametersOffset = static_cast<unsigned>(bytes.size());
    append(parameters, bytes);
    header.slicerInfoOffset = static_cast<unsigned>(bytes.size());
    place(info, static_cast<unsigned>(bytes.size() + Info::size()));
    append(info, bytes);
    header.layerDefOffset = static_cast<unsigned>(bytes.size());
    first.clear();
    append(header, first);
    std::copy(first.begin(), first.end(), bytes.begin());
    return bytes;
}

ByteList ctbHead(std::uint32_t width, std::uint32_t height) {
    CTB::HeaderSettings header;
    header.magic = CTB::kMagic;
    header.version = kFrontEndVersion;
    header.resolutionX = width;
    header.resolutionY = height;
    header.projectorType = kProjectorType;
    header.printParametersSize = CTB::PrintParameters::size();
    header.antiAliasLevel = kAntiAliasLevel;
    header.slicerInfoSize = CTB::SlicerInfo::size();
    CTB::PrintParameters parameters;
    parameters.lightOffDelay = kLightOffDelay;
    CTB::SlicerInfo info;
    info.slicerVersion = kSlicerVersion;
    return codedHead<CTB::PreView>(header, parameters, info,
                                   [](CTB::SlicerInfo& i, unsigned end) { i.machineNameOffset = end; });
}

ByteList v4Head(std::uint32_t width, std::uint32_t height) {
    VNDLPV4::HeaderSettings header;
    header.headerText1 = VNDLPV4::kV4HeaderText;
    header.resolutionX = static_cast<unsigned short>(width);
    header.resolutionY = static_cast<unsigned short>(height);
    header.word6 = kProjectorType;
    header.word8 = VNDLPV4::PrintParameters::size();
    header.word9 = kAntiAliasLevel;
    header.word12 = VNDLPV4::SlicerInfo::size();
    VNDLPV4::SlicerInfo info;
    info.word48 = kSlicerVersion;
    return codedHead<VNDLPV4::PreView>(header, VNDLPV4::PrintParameters(), info,
                                       [](VNDLPV4::SlicerInfo& /*info*/, unsigned /*end*/) {});
}

SliceResult openBytes(const ByteList& bytes, SliceFile& file) { return file.openMemory(bytes.data(), bytes.size()); }

/// Overwrites a number of a record in memory.
void put(const Model& model, const char* name, std::uint32_t value, Edits& edits) {
    const FieldPlace* place = model.field(name);
    if (place == nullptr) return;
    ByteList bytes;
    if (place->bytes == 2) {
        const auto raw = storedNumber(static_cast<std::uint16_t>(value), place->spec->order);
        bytes.assign(raw.begin(), raw.end());
    } else {
        const auto raw = storedNumber(value, place->spec->order);
        bytes.assign(raw.begin(), raw.end());
    }
    edits.replace(place->offset, place->bytes, std::move(bytes));
}

float floatAt(const Model& model, const char* name) {
    double value = 0;
    return model.number(name, value) ? static_cast<float>(value) : 0;
}

void putFloat(const Model& model, const char* name, float value, Edits& edits) {
    const FieldPlace* place = model.field(name);
    if (place == nullptr) return;
    const auto raw = storedNumber(value, place->spec->order);
    edits.replace(place->offset, place->bytes, {raw.begin(), raw.end()});
}

struct HeightNames {
    const char* total;
    const char* layer;
};
HeightNames heightNames(SliceFormat format) {
    return format == SliceFormat::ctb ? HeightNames{"HeaderSettings.totalHeight", "HeaderSettings.layerHeight"}
                                      : HeightNames{"HeaderSettings.floatField3", "HeaderSettings.floatField4"};
}

/// The records of one layer.
struct LayerRecord {
    ByteList entry;
    ByteList record;
    ByteList second;
};

/// Makes the layers' records, as the format's writers do or like those of a file.
class RecordMaker {
public:
    RecordMaker(const Model& head, const Model* like, const SkeletonPlan& plan)
        : m_like(like),
          m_plan(plan),
          m_isCtb(plan.format == SliceFormat::ctb),
          m_isExtended(head.extendedBytes > 0),
          m_hasBeads(!m_isCtb && hasBeads()) {
        const HeightNames names = heightNames(plan.format);
        m_layerHeight = floatAt(head, names.layer);
        m_bottomLayers = head.whole(m_isCtb ? "HeaderSettings.bottomLayerCount" : "HeaderSettings.word0");
        m_exposure = floatAt(head, m_isCtb ? "HeaderSettings.exposureTime" : "HeaderSettings.tailFloat0");
        m_bottomExposure = floatAt(head, m_isCtb ? "HeaderSettings.bottomExposureTime" : "HeaderSettings.tailFloat1");
        m_lightOff = floatAt(head, m_isCtb ? "HeaderSettings.lightOffDelay" : "PrintParameters.lightOffDelay");
        m_liftHeight = floatAt(head, "PrintParameters.liftHeight");
        m_liftSpeed = floatAt(head, "PrintParameters.liftSpeed");
        m_retractSpeed = floatAt(head, "PrintParameters.retractSpeed");
        m_lightPwm = floatAt(head, m_isCtb ? "HeaderSettings.lightPwm" : "HeaderSettings.shortField0");
    }

    [[nodiscard]] SliceResult make(std::uint32_t index, LayerRecord& layer) const {
        layer = {};
        const std::uint32_t from = m_plan.from[index];
        if (m_like != nullptr && from != kNoLayer && from < m_like->layers().layers.size()) {
            return copy(index, from, layer);
        }
        m_isCtb ? makeCtb(index, layer) : makeV4(index, layer);
        return {};
    }

private:
    bool hasBeads() const {
        if (m_like != nullptr) {
            const auto& layers = m_like->layers().layers;
            return std::any_of(layers.begin(), layers.end(), [](const LayerPlace& l) { return l.isExtended; });
        }
        return m_plan.width == kBeadScreenWidth && m_plan.height == kBeadScreenHeight;
    }

    template <class Entry>
    void fill(std::uint32_t index, Entry& entry) const {
        entry.positionZ = static_cast<float>(index + 1) * m_layerHeight;
        entry.exposureTime = index < m_bottomLayers ? m_bottomExposure : m_exposure;
        entry.lightOffDelay = m_lightOff;
        entry.tableSize = m_isCtb ? CTB::kLayerDefExBytes : VNDLPV4::kLayerDefExBytes;
    }
    template <class Record>
    void fillMoves(Record& record) const {
        record.liftHeight = m_liftHeight;
        record.liftSpeed = m_liftSpeed;
        record.retractSpeed = m_retractSpeed;
        record.lightPwm = m_lightPwm;
    }

    void makeCtb(std::uint32_t index, LayerRecord& layer) const {
        CTB::LayerDef entry;
        fill(index, entry);
        append(entry, layer.entry);
        if (!m_isExtended) return;
        CTB::LayerDefEx record;
        record.layerDef = entry;
        record.totalSize = CTB::kLayerDefExBytes;
        fillMoves(record);
        append(record, layer.record);
    }

    void makeV4(std::uint32_t index, LayerRecord& layer) const {
        VNDLPV4::LayerDef entry;
        fill(index, entry);
        entry.dataSize = VNDLPV4::kLayerDefExBytes;
        if (m_hasBeads) entry.setBeadMask(ByteList(VNDLPV4::kPrinterMaskBytes));
        append(entry, layer.entry);
        VNDLPV4::LayerDefEx record;
        fillMoves(record);
        append(record, layer.record);
        layer.second = layer.record;
    }

    SliceResult copy(std::uint32_t index, std::uint32_t from, LayerRecord& layer) const {
        const LayerPlace& place = m_like->layers().layers[from];
        const FieldSpecs& fields = *m_like->layerRecords.front().fields;
        std::int64_t entryBytes = job::fixedBytes(fields);
        if (place.isExtended) entryBytes += static_cast<std::int64_t>(VNDLPV4::kLayerExtensionBytes);
        SliceResult result = read(place.entry, entryBytes, layer.entry);
        // a record that cannot be read is made anew
        if (!result.isOk()) return result;
        // entries have one length in a file
        if (m_hasBeads && !place.isExtended) {
            layer.entry[static_cast<std::size_t>(offsetInRecord(fields, "extensionFlag"))] = 1;
            layer.entry.resize(layer.entry.size() + VNDLPV4::kLayerExtensionBytes);
        }
        LayerRecord made;
        m_isCtb ? makeCtb(index, made) : makeV4(index, made);
        if (m_isExtended && !read(place.begin, m_like->extendedBytes, layer.record).isOk()) layer.record = made.record;
        const std::int64_t second = m_isCtb ? -1 : m_like->layers().secondCopies + from * m_like->extendedBytes;
        if (!m_isCtb && (second < 0 || !read(second, m_like->extendedBytes, layer.second).isOk())) {
            layer.second = layer.record;
        }
        moveHeight(index, from, layer);
        return result;
    }

    SliceResult read(std::int64_t offset, std::int64_t size, ByteList& bytes) const {
        bytes.resize(static_cast<std::size_t>(size));
        return m_like->bytes.read(offset, bytes.data(), bytes.size());
    }

    /// A layer that stood at its number times the thickness stands at its new number times that.
    void moveHeight(std::uint32_t index, std::uint32_t from, LayerRecord& layer) const {
        if (index == from) return;
        const auto was = storedNumber(static_cast<float>(from + 1) * m_layerHeight, LittleEndian);
        const auto is = storedNumber(static_cast<float>(index + 1) * m_layerHeight, LittleEndian);
        for (ByteList* bytes : {&layer.entry, &layer.record}) {
            const bool hasHeight = bytes == &layer.entry || m_isCtb;
            if (hasHeight && bytes->size() >= 4 && std::equal(was.begin(), was.end(), bytes->begin())) {
                std::copy(is.begin(), is.end(), bytes->begin());
            }
        }
    }

    const Model* m_like;
    const SkeletonPlan& m_plan;
    bool m_isCtb;
    bool m_isExtended;
    bool m_hasBeads;
    float m_layerHeight = 0;
    std::uint32_t m_bottomLayers = 0;
    float m_exposure = 0;
    float m_bottomExposure = 0;
    float m_lightOff = 0;
    float m_liftHeight = 0;
    float m_liftSpeed = 0;
    float m_retractSpeed = 0;
    float m_lightPwm = 0;
};

void store32(ByteList& bytes, std::size_t offset, std::uint32_t value) {
    const auto raw = storedNumber(value, LittleEndian);
    std::copy(raw.begin(), raw.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

SliceResult appendCoded(const Model& head, const SkeletonPlan& plan, const Model* like, ByteList& bytes) {
    const RecordMaker maker(head, like, plan);
    const bool isCtb = plan.format == SliceFormat::ctb;
    const FieldSpecs& fields = isCtb ? fieldsOf<CTB::LayerDef>() : fieldsOf<VNDLPV4::LayerDef>();
    const auto dataOffset = static_cast<std::size_t>(offsetInRecord(fields, "dataOffset"));
    const auto dataSize = static_cast<std::size_t>(offsetInRecord(fields, "dataSize"));
    std::vector<LayerRecord> layers(plan.from.size());
    std::size_t at = bytes.size();
    for (std::uint32_t i = 0; i < layers.size(); ++i) {
        SliceResult result = maker.make(i, layers[i]);
        if (!result.isOk()) return result;
        at += layers[i].entry.size();
    }
    for (LayerRecord& layer : layers) {
        store32(layer.entry, dataOffset, static_cast<std::uint32_t>(isCtb ? at + layer.record.size() : at));
        store32(layer.entry, dataSize, static_cast<std::uint32_t>(isCtb ? 0 : layer.record.size()));
        at += layer.record.size();
        bytes.insert(bytes.end(), layer.entry.begin(), layer.entry.end());
    }
    for (const LayerRecord& layer : layers) bytes.insert(bytes.end(), layer.record.begin(), layer.record.end());
    for (const LayerRecord& layer : layers) bytes.insert(bytes.end(), layer.second.begin(), layer.second.end());
    return {};
}

void appendVendor(int headerKind, const SkeletonPlan& plan, ByteList& bytes) {
    VendorBytes out(bytes);
    for (std::size_t i = 0; i < plan.from.size(); ++i) {
        if (hasAreaTable(headerKind)) out.u32(0);
        out.u32(0);
        out.tag();
    }
}

/// Gives a head another number of layers.
SliceResult setLayers(std::uint32_t layers, ByteList& head) {
    SliceFile file;
    SliceResult result = openBytes(head, file);
    if (!result.isOk()) return result;
    const Model& model = file.state()->model;
    Edits edits(model);
    if (model.isVendor()) {
        put(model, memberName(model, "DlpHeader.layerCount").c_str(), layers, edits);
        if (model.tableAt >= 0 || hasAreaTable(model.info.headerKind)) {
            const std::int64_t had = std::int64_t{kAreaBytes} * model.info.layers;
            ByteList table(std::size_t{kAreaBytes} * layers);
            const bool isLine = model.info.headerKind == kLineHeader;
            // line files without layers have neither table nor tag
            if (isLine && model.info.layers == 0 && layers > 0) table.insert(table.end(), {0x0D, 0x0A});
            edits.replace(model.tableAt, had, std::move(table));
        }
    } else {
        put(model, "HeaderSettings.layerCount", layers, edits);
        const HeightNames names = heightNames(model.info.format);
        const float height = floatAt(model, names.layer);
        const bool isProduct = floatAt(model, names.total) == static_cast<float>(model.info.layers) * height;
        if (isProduct && layers != model.info.layers) {
            putFloat(model, names.total, static_cast<float>(layers) * height, edits);
        }
    }
    head = applied(edits, head);
    return result;
}

}  // namespace

ByteList freshHead(SliceFormat format, std::uint32_t width, std::uint32_t height) {
    if (format == SliceFormat::ctb) return ctbHead(width, height);
    return format == SliceFormat::vndlpv4 ? v4Head(width, height) : vendorHead(format, width, height);
}

SliceResult likeHead(const SliceFile& like, const SkeletonPlan& plan, ByteList& head) {
    const Model& model = like.state()->model;
    const std::int64_t end = model.isVendor() ? model.layersAt : model.tableAt;
    if (end <= 0 || !model.bytes.holds(0, end)) {
        return damaged(model.headBrokeAt, model.whatBroke.empty() ? "its head cannot be read" : model.whatBroke);
    }
    for (const Part& part : model.parts) {
        if (part.offset + part.size > end) {
            return damaged(part.offset, "the " + part.name + " stands behind the layer table");
        }
    }
    head.resize(static_cast<std::size_t>(end));
    SliceResult result = model.bytes.read(0, head.data(), head.size());
    if (!result.isOk() || (plan.width == model.info.width && plan.height == model.info.height)) return result;
    Edits edits(model);
    const bool isVendor = model.isVendor();
    put(model, memberName(model, isVendor ? "DlpHeader.resolution_x" : "HeaderSettings.resolutionX").c_str(),
        plan.width, edits);
    put(model, memberName(model, isVendor ? "DlpHeader.resolution_y" : "HeaderSettings.resolutionY").c_str(),
        plan.height, edits);
    head = applied(edits, head);
    return result;
}

SliceResult appendLayers(const SkeletonPlan& plan, const SliceFile* like, ByteList& bytes) {
    SliceResult result = setLayers(static_cast<std::uint32_t>(plan.from.size()), bytes);
    if (!result.isOk()) return result;
    SliceFile file;
    const ByteList head = bytes;
    if (result = openBytes(head, file); !result.isOk()) return result;
    const Model& model = file.state()->model;
    if (model.isVendor()) {
        appendVendor(model.info.headerKind, plan, bytes);
        return result;
    }
    return appendCoded(model, plan, like == nullptr ? nullptr : &like->state()->model, bytes);
}

SkeletonParts takeApart(const Model& skeleton, const ByteList& bytes) {
    SkeletonParts parts;
    const auto part = [&bytes](std::int64_t from, std::int64_t to) {
        return ByteList(bytes.begin() + from, bytes.begin() + to);
    };
    const auto size = static_cast<std::int64_t>(bytes.size());
    const std::int64_t layers = skeleton.info.layers;
    if (skeleton.isVendor()) {
        parts.head = part(0, skeleton.layersAt);
        parts.tableAt = skeleton.tableAt;
        return parts;
    }
    const LayerTable& table = skeleton.layers();
    parts.recordBytes = skeleton.extendedBytes;
    parts.head = part(0, skeleton.tableAt);
    if (table.layers.empty()) return parts;
    const std::int64_t records = table.layers.front().begin;
    parts.entryBytes = (records - skeleton.tableAt) / layers;
    parts.entries = part(skeleton.tableAt, records);
    const std::int64_t seconds = records + layers * parts.recordBytes;
    parts.records = part(records, seconds);
    parts.seconds = part(seconds, size);
    return parts;
}

}  // namespace vndlp::job
