/// Heads and layers of the vendor container, found by reading one part behind the other.

#include "job/model.h"

#include "vndlp/record_fields.h"

#include <vndlp/container.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace vndlp::job {

namespace {

constexpr std::uint32_t kRunBytes = kPackedRunBytes;
constexpr std::uint32_t kPointBytes = 8;  // also of a vertex

/// The fields of a record without those of records embedded in it, which have a place of their own.
template <class Record>
const FieldSpecs& ownFields() {
    static const FieldSpecs list = [] {
        FieldSpecs fields = fieldsOf<Record>();
        fields.erase(std::remove_if(fields.begin(), fields.end(),
                                    [](const FieldSpec& f) { return f.name.find('.') != std::string::npos; }),
                     fields.end());
        return fields;
    }();
    return list;
}

FieldSpec text8(const char* name) { return {name, "", FieldKind::text8, BigEndian, 4, false, false}; }
FieldSpec u32(const char* name, const char* unit = "") {
    return {name, unit, FieldKind::u32, BigEndian, 4, false, false};
}

const FieldSpecs& magicFields() {
    static const FieldSpecs list = {text8("magic")};
    return list;
}
const FieldSpecs& areaFields() {
    static const FieldSpecs list = {u32("area", "0.001 mm2")};
    return list;
}
const FieldSpecs& layerFields(bool withArea) {
    static const FieldSpecs counted = {u32("count")};
    static const FieldSpecs measured = {u32("area", "0.001 mm2"), u32("count")};
    return withArea ? measured : counted;
}

struct PreviewSize {
    const char* name;
    std::uint32_t width;
    std::uint32_t height;
};

/// The parts of a header behind the magic, in file order.
struct HeaderShape {
    HeaderKind kind;
    const char* record;
    const FieldSpecs& (*fields)();
    bool hasBackUse;
    bool previewsFirst;
    std::array<PreviewSize, 3> previews;  ///< a width of 0: none
};

const HeaderShape kShapes[] = {
    {kV1Header,
     "DlpV1Header",
     ownFields<DlpV1Header>,
     false,
     false,
     {{{"small", 116, 116}, {"large", 290, 290}, {"", 0, 0}}}},
    {kV2Header,
     "DlpV2Header",
     ownFields<DlpV2Header>,
     true,
     false,
     {{{"small", 116, 116}, {"middle", 290, 290}, {"large", 290, 290}}}},
    {kV3Header,
     "DlpV3Header",
     ownFields<DlpV3Header>,
     false,
     true,
     {{{"small", 116, 116}, {"second", 212, 182}, {"third", 212, 182}}}},
    {kLineHeader,
     "DlpV2LineHeader",
     ownFields<DlpV2LineHeader>,
     true,
     false,
     {{{"small", 116, 116}, {"middle", 290, 290}, {"large", 290, 290}}}},
};

/// Reads a head part by part. After a part that the file does not hold, no more is read.
class HeadReader {
public:
    HeadReader(Model& model, const HeaderShape& shape) : m_model(model), m_shape(shape) {}

    void read() {
        record("Head", magicFields(), "head magic", "the head magic is missing");
        if (m_shape.previewsFirst) previews();
        record(m_shape.record, m_shape.fields(), "header", "the header cannot be read");
        if (m_shape.hasBackUse)
            record("VndlpBackUse", fieldsOf<VndlpBackUse>(), "back use", "the header cannot be read");
        if (!m_shape.previewsFirst) previews();
        takeHeader();
        record("DlpParameters", fieldsOf<DlpParameters>(), "parameters", "the parameters cannot be read");
        if (hasAreaTable(m_shape.kind)) areaTable();
        if (m_shape.kind == kV2Header && m_model.info.version >= kFirstSettingsVersion) {
            record("DlpSliceBasicParameters", fieldsOf<DlpSliceBasicParameters>(), "slicing settings",
                   "the slicing settings cannot be read");
            tag("the slicing settings do not end where they should");
        }
        if (m_shape.kind == kLineHeader) {
            record("DlpImageParam", fieldsOf<DlpImageParam>(), "image parameters",
                   "the image parameters cannot be read");
            tag("the image parameters do not end where they should");
        }
        if (m_at >= 0) m_model.layersAt = m_at;
    }

private:
    void record(const char* name, const FieldSpecs& fields, const char* part, const char* fault) {
        if (m_at < 0) return;
        const std::int64_t begin = m_at;
        m_at = addRecord(m_model, name, fields, begin);
        m_model.parts.push_back({part, begin, m_at - begin});
        if (m_model.records.back().isWhole) return;
        stop(m_at, fault);
    }

    void previews() {
        for (const PreviewSize& size : m_shape.previews) {
            if (m_at < 0 || size.width == 0) return;
            const std::int64_t bytes = std::int64_t{2} * size.width * size.height;
            if (!m_model.bytes.holds(m_at, bytes)) {
                stop(m_at, std::string("the file ends within the ") + size.name + " preview");
                return;
            }
            m_model.previews.push_back({size.name, PreviewCoding::rgb565, size.width, size.height, m_at, bytes});
            m_model.parts.push_back({std::string(size.name) + " preview", m_at, bytes + kSplitTagBytes});
            m_at += bytes;
            tag("the preview pictures do not end where they should");
        }
    }

    void tag(const char* fault) {
        unsigned char bytes[kSplitTagBytes];
        if (m_at < 0) return;
        if (!m_model.bytes.read(m_at, bytes, sizeof bytes).isOk()) {
            stop(m_at, fault);
            return;
        }
        // what follows may be sound all the same
        if (bytes[0] != kSplitTag >> 8 || bytes[1] != (kSplitTag & 0xFF)) m_model.headFault(m_at, fault);
        m_at += kSplitTagBytes;
    }

    void takeHeader() {
        const std::string record = std::string(m_shape.record) + ".";
        SliceInfo& info = m_model.info;
        info.layers = m_model.whole(record + "layerCount");
        info.width = m_model.whole(record + "resolution_x");
        info.height = m_model.whole(record + "resolution_y");
        const bool hasVersion = m_model.field(record + "versionCode") != nullptr;
        info.version = hasVersion ? static_cast<int>(m_model.whole(record + "versionCode")) : info.headerKind;
        const FieldPlace* count = m_model.field(record + "layerCount");
        const FieldPlace* height = m_model.field(record + "resolution_y");
        if (count != nullptr && info.layers > m_model.bytes.size() / kRunBytes) {
            m_model.headFault(count->offset, "the layer count is more than a file of this size can hold");
        }
        if (height != nullptr && (info.width == 0 || info.height == 0)) {
            m_model.headFault(height->offset - 2, "the screen's resolution is 0");
        }
    }

    void areaTable() {
        const FieldPlace* texts[] = {m_model.field("DlpParameters.platformX"), m_model.field("DlpParameters.platformY"),
                                     m_model.field("DlpParameters.thickness")};
        for (const FieldPlace* text : texts) {
            if (text != nullptr && text->bytes == 0) {
                m_model.headFault(text->offset, "the platform's size or the layer thickness is missing");
            }
        }
        if (m_at < 0) return;
        const std::int64_t bytes = std::int64_t{kAreaBytes} * m_model.info.layers;
        m_model.tableAt = m_at;
        m_model.parts.push_back({"layer area table", m_at, bytes + kSplitTagBytes});
        if (!m_model.bytes.holds(m_at, bytes)) {
            stop(m_at, "the file ends within the layer area table");
            return;
        }
        m_at += bytes;
        // files of lines without layers have neither table nor tag
        if (bytes > 0 || m_shape.kind != kLineHeader) tag("the layer area table does not end where it should");
    }

    void stop(std::int64_t offset, std::string text) {
        m_model.headFault(offset, std::move(text));
        m_at = -1;
    }

    Model& m_model;
    const HeaderShape& m_shape;
    std::int64_t m_at = 0;  // -1: nothing more can be read
};

/// Reads numbers that lie one behind the other, with skips, from pieces of the file.
class Walker {
public:
    Walker(const Bytes& bytes, std::int64_t at) : m_bytes(bytes), m_at(at) {}

    [[nodiscard]] std::int64_t at() const { return m_at; }
    bool skip(std::int64_t count) {
        if (!m_bytes.holds(m_at, count)) return false;
        m_at += count;
        return true;
    }
    bool word(std::uint32_t& value) {
        unsigned char raw[4];
        if (!take(raw, sizeof raw)) return false;
        value = loadNumber<std::uint32_t>(raw, BigEndian);
        return true;
    }
    bool tag() {
        unsigned char raw[kSplitTagBytes];
        return take(raw, sizeof raw) && raw[0] == kSplitTag >> 8 && raw[1] == (kSplitTag & 0xFF);
    }

private:
    bool take(unsigned char* to, std::size_t size) {
        const auto bytes = static_cast<std::int64_t>(size);
        if (!m_bytes.holds(m_at, bytes)) return false;
        if (m_at < m_pieceAt || m_at + bytes > m_pieceAt + static_cast<std::int64_t>(m_held)) {
            m_held = static_cast<std::size_t>(
                std::min<std::int64_t>(static_cast<std::int64_t>(sizeof m_piece), m_bytes.size() - m_at));
            m_pieceAt = m_at;
            if (!m_bytes.read(m_at, m_piece, m_held).isOk()) {
                m_held = 0;
                return false;
            }
        }
        std::memcpy(to, m_piece + (m_at - m_pieceAt), size);
        m_at += bytes;
        return true;
    }

    const Bytes& m_bytes;
    std::int64_t m_at;
    std::int64_t m_pieceAt = 0;
    std::size_t m_held = 0;
    unsigned char m_piece[4096];
};

/// Area and count in front of a layer. \return false where the file does not hold them.
bool readLayerHead(Walker& walker, const Model& model, LayerPlace& place) {
    place.begin = walker.at();
    if (hasAreaTable(model.info.headerKind) && !walker.word(place.area)) return false;
    if (!walker.word(place.count)) return false;
    place.data = walker.at();
    return true;
}

bool endLayer(Walker& walker, LayerPlace& place) {
    place.dataBytes = walker.at() - place.data;
    if (!walker.tag()) return false;
    place.end = walker.at();
    return true;
}

bool walkPolylines(Walker& walker, LayerPlace& place) {
    for (std::uint32_t i = 0; i < place.count; ++i) {
        std::uint32_t points = 0;
        if (!walker.word(points) || !walker.skip(std::int64_t{points} * kPointBytes)) return false;
    }
    return endLayer(walker, place);
}

/// Whether what should follow a layer does: the next layer's area as the table has it, or the tail.
bool isFollowed(const Model& model, std::int64_t offset, std::uint32_t index) {
    unsigned char raw[4];
    if (!model.bytes.read(offset, raw, sizeof raw).isOk()) return false;
    const auto found = loadNumber<std::uint32_t>(raw, BigEndian);
    if (index + 1 >= model.info.layers) return found == model.magic->tailMagic.size() + 1;
    unsigned char area[4];
    return model.bytes.read(model.tableAt + std::int64_t{kAreaBytes} * (index + 1), area, sizeof area).isOk() &&
           found == loadNumber<std::uint32_t>(area, BigEndian);
}

/// Lines: polylines where the layer ends as such, else a mesh. Where it ends as both, what follows decides.
bool locateShapes(const Model& model, std::int64_t offset, std::uint32_t index, LayerPlace& place) {
    Walker walker(model.bytes, offset);
    LayerPlace mesh;
    if (!readLayerHead(walker, model, mesh)) return false;
    mesh.isMesh = true;
    place = mesh;
    place.isMesh = false;
    const bool arePaths = walkPolylines(walker, place);
    if (mesh.count == 0 || (arePaths && isFollowed(model, place.end, index))) return arePaths;
    Walker meshWalker(model.bytes, mesh.data);
    const bool isMesh = meshWalker.skip(std::int64_t{mesh.count} * kPointBytes) && endLayer(meshWalker, mesh);
    if (isMesh && (!arePaths || isFollowed(model, mesh.end, index))) place = mesh;
    return arePaths || isMesh;
}

}  // namespace

void readVendorHead(Model& model, HeaderKind kind) {
    const auto* shape =
        std::find_if(std::begin(kShapes), std::end(kShapes), [kind](const HeaderShape& s) { return s.kind == kind; });
    model.info.headerKind = kind;
    HeadReader(model, *shape).read();
    if (hasAreaTable(kind)) {
        model.layerRecords = {{"AreaTable", "", &areaFields(), LayerRecordAt::entry},
                              {"Layer", "", &layerFields(true), LayerRecordAt::begin}};
    } else {
        model.layerRecords = {{"Layer", "", &layerFields(false), LayerRecordAt::begin}};
    }
}

bool locateVendorLayer(const Model& model, std::int64_t offset, std::uint32_t index, LayerPlace& place) {
    if (model.tableAt >= 0) place.entry = model.tableAt + std::int64_t{kAreaBytes} * index;
    const std::int64_t entry = place.entry;
    if (model.info.format == SliceFormat::vnline) {
        const bool isFound = locateShapes(model, offset, index, place);
        place.entry = entry;
        return isFound;
    }
    Walker walker(model.bytes, offset);
    return readLayerHead(walker, model, place) && walker.skip(std::int64_t{place.count} * kRunBytes) &&
           endLayer(walker, place);
}

void locateVendorLayers(const Model& model, LayerTable& table) {
    std::int64_t at = model.layersAt;
    table.end = std::max<std::int64_t>(at, 0);
    for (std::uint32_t i = 0; i < model.info.layers; ++i) {
        LayerPlace place;
        if (at < 0 || !locateVendorLayer(model, at, i, place)) {
            table.isWhole = false;
            table.brokenAt = at;
            table.whatBroke = model.info.format == SliceFormat::vnline
                                  ? "ends where its counts say neither as polylines nor as a mesh; nothing behind it "
                                    "can be checked"
                                  : "does not end where its run count says; nothing behind it can be checked";
            return;
        }
        at = place.end;
        table.end = at;
        table.layers.push_back(place);
    }
}

}  // namespace vndlp::job
