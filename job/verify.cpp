#include "job/verify.h"

#include "ctb/record_fields.h"
#include "io/xor_sum.h"
#include "job/layer_data.h"
#include "job/settings.h"

#include <vndlp/calibration.h>
#include <vndlp/v4.h>

#include <algorithm>
#include <cstring>

namespace vndlp::job {

namespace {

SliceResult stopped() { return plain(SliceCode::stopped); }

std::string tailMagic(const Model& model) { return std::string(model.magic->tailMagic); }

std::int64_t tailBytes(const Model& model) { return static_cast<std::int64_t>(model.magic->tailMagic.size()) + 5; }

/// Sums bytes as the file's trailer does.
class Sum {
public:
    explicit Sum(EnumCheckSumType kind) : m_kind(kind) {}
    void add(unsigned char* data, std::size_t size) {
        m_value = m_kind == CHECKSUM_XOR ? continueXor(m_value, data, size)
                                         : CheckSum::instance().makeCrc(m_value, data, static_cast<unsigned>(size));
    }
    [[nodiscard]] std::uint32_t value() const { return m_value; }
    /// A sum by XOR agrees where the bytes were taken as signed or as unsigned.
    [[nodiscard]] bool agrees(std::uint32_t stored) const {
        return stored == m_value || (m_kind == CHECKSUM_XOR && stored == (m_value & 0xFF));
    }

private:
    EnumCheckSumType m_kind;
    std::uint32_t m_value = 0;
};

SliceResult readStored(const Bytes& bytes, std::int64_t offset, std::uint32_t& stored) {
    unsigned char raw[kTrailerBytes];
    SliceResult result = bytes.read(offset, raw, sizeof raw);
    if (result.isOk()) stored = loadNumber<std::uint32_t>(raw, BigEndian);
    return result;
}

SliceResult addBytes(const Model& model, std::int64_t from, std::int64_t to, const ProgressSink& progress, Sum& sum) {
    return forEachPiece(
        model.bytes, from, to - from, kPieceBytes, [&](unsigned char* data, std::size_t size, std::int64_t done) {
            sum.add(data, size);
            const bool goesOn =
                progress(static_cast<std::uint64_t>(from + done), static_cast<std::uint64_t>(model.bytes.size()));
            return goesOn ? job::done() : stopped();
        });
}

const char* kindText(EnumCheckSumType kind) { return kind == CHECKSUM_XOR ? "xor" : "crc32"; }

/// Whether the file ends before a trailer could begin. Where the layers of a vendor file cannot be walked through, its
/// tail tells: it stands right in front of the trailer.
bool isTrailerMissing(const Model& model, std::int64_t end) {
    const std::int64_t size = model.bytes.size();
    if (end >= 0) return size < end + kTrailerBytes;
    std::string found(static_cast<std::size_t>(model.isVendor() ? tailBytes(model) : 0), '\0');
    const std::int64_t at = size - kTrailerBytes - static_cast<std::int64_t>(found.size());
    return found.empty() || !model.bytes.read(at, found.data(), found.size()).isOk() ||
           found.substr(4, found.size() - 5) != tailMagic(model);
}

/// Collects findings and remembers whether to go on.
class Teller {
public:
    explicit Teller(const FindingSink& tell) : m_tell(tell) {}
    void error(std::int64_t offset, std::int64_t layer, std::string text) {
        if (m_goesOn) m_goesOn = m_tell({SliceSeverity::error, offset, layer, std::move(text)});
    }
    void warning(std::int64_t offset, std::int64_t layer, std::string text) {
        if (m_goesOn) m_goesOn = m_tell({SliceSeverity::warning, offset, layer, std::move(text)});
    }
    [[nodiscard]] SliceResult result() const { return m_goesOn ? done() : stopped(); }

private:
    const FindingSink& m_tell;
    bool m_goesOn = true;
};

void tellOverlaps(std::vector<Part> parts, Teller& tell) {
    std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.offset < b.offset; });
    const Part* before = nullptr;  // the one that reaches farthest so far
    for (const Part& part : parts) {
        if (part.size <= 0) continue;
        if (before != nullptr && part.offset < before->offset + before->size) {
            tell.error(part.offset, -1, "the " + part.name + " and the " + before->name + " overlap");
        }
        if (before == nullptr || part.offset + part.size > before->offset + before->size) before = &part;
    }
}

/// Layers that the end of the file cuts off.
struct CutOff {
    std::size_t count = 0;
    std::size_t first = 0;
    std::size_t last = 0;
};

CutOff layersCutOff(const Model& model) {
    const std::vector<LayerPlace>& layers = model.layers().layers;
    CutOff cut;
    for (std::size_t i = 0; i < layers.size(); ++i) {
        if (layers[i].begin < 0 || layers[i].end <= model.bytes.size()) continue;
        if (cut.count++ == 0) cut.first = i;
        cut.last = i;
    }
    return cut;
}

/// The table and the layers of CTB and V4 files: they may stand anywhere, but not on one another.
void tellTabled(const Model& model, Teller& tell) {
    const LayerTable& table = model.layers();
    std::vector<Part> parts = model.parts;
    std::int64_t end = table.entriesEnd;
    parts.push_back({"layer table", model.tableAt, end - model.tableAt});
    if (!table.isWhole) {
        tell.error(table.brokenAt, -1, table.whatBroke);
    } else if (!table.layers.empty()) {
        const LayerPlace& first = table.layers.front();
        if (first.begin >= 0) parts.push_back({"layers", first.begin, table.end - first.begin});
    }
    tellOverlaps(std::move(parts), tell);
    if (const CutOff cut = layersCutOff(model); cut.count > 0) {
        const bool areInRow = cut.count == cut.last - cut.first + 1;
        const std::string which = cut.count == 1 ? "layer " + std::to_string(cut.first)
                                  : areInRow ? "layers " + std::to_string(cut.first) + " to " + std::to_string(cut.last)
                                             : std::to_string(cut.count) + " layers";
        tell.error(model.bytes.size(), -1,
                   "the file ends here; " + which + " of " + std::to_string(model.info.layers) +
                       (cut.count == 1 ? " is" : " are") + " not whole");
    }
    for (std::size_t i = 0; i < table.layers.size(); ++i) {
        const LayerPlace& layer = table.layers[i];
        if (layer.begin < 0 || layer.dataBytes < 0 || layer.end > model.bytes.size()) continue;
        if (layer.begin < end) {
            tell.error(layer.entry + 12, static_cast<std::int64_t>(i), "its data overlap what stands before them");
        }
        end = std::max(end, layer.end);
    }
}

void tellVendor(const Model& model, Teller& tell) {
    const LayerTable& table = model.layers();
    if (!table.isWhole) {
        if (table.brokenAt >= 0) {
            tell.error(table.brokenAt, static_cast<std::int64_t>(table.layers.size()), table.whatBroke);
        }
        return;
    }
    FieldPlace tail;
    FieldValue found;
    unsigned char closing = 0;
    const bool isThere = placeTail(model, tail) && readField(model.bytes, tail, found).isOk() &&
                         model.bytes.read(tail.offset + tail.bytes, &closing, 1).isOk() && closing == 0;
    if (!isThere || found.text != tailMagic(model)) {
        tell.error(table.end, -1, "the tail magic \"" + tailMagic(model) + "\" is missing");
    }
}

/// Bytes behind the last record, or missing there.
void tellEnd(const Model& model, Teller& tell) {
    const std::int64_t end = structureEnd(model);
    if (end < 0 || (!model.isVendor() && layersCutOff(model).count > 0)) return;
    const std::int64_t left = model.bytes.size() - end - (model.trailerKind == CHECKSUM_NONE ? 0 : kTrailerBytes);
    const char* last = model.isVendor()                        ? "tail magic"
                       : model.info.format == SliceFormat::ctb ? "last layer"
                                                               : "last record";
    if (left > 0) tell.error(end, -1, std::to_string(left) + " bytes are left over behind the " + last);
    if (end > model.bytes.size()) tell.error(model.bytes.size(), -1, "the file ends too early");
}

void tellTrailer(const SliceTrailer& trailer, const Model& model, Teller& tell) {
    const std::int64_t size = model.bytes.size();
    if (trailer.state == SliceTrailerState::missing) tell.error(size, -1, "the checksum trailer is missing");
    if (trailer.state != SliceTrailerState::wrong) return;
    const std::string kind = kindText(model.trailerKind);
    if (trailer.soundAt >= 0) {
        tell.error(trailer.soundAt + kTrailerBytes, -1,
                   "the " + kind + " trailer in front of them matches the file: they were added behind its end");
    } else {
        tell.error(size - kTrailerBytes, -1,
                   "the " + kind + " trailer does not match the file: it was changed, cut short or never finished");
    }
}

void checkExtended(const Model& model, std::uint32_t index, const LayerPlace& layer, Teller& tell) {
    unsigned char record[CTB::kLayerDefExBytes];
    unsigned char entry[CTB::kLayerDefBytes];
    constexpr std::size_t compared = 20;  // height, times and place; what follows may differ
    if (!model.bytes.read(layer.begin, record, sizeof record).isOk() ||
        !model.bytes.read(layer.entry, entry, sizeof entry).isOk()) {
        return;
    }
    if (std::memcmp(record, entry, compared) != 0) {
        tell.error(layer.begin, index, "its extended record differs from its entry in the layer table");
    }
    const auto total = loadNumber<std::uint32_t>(record + CTB::kLayerDefBytes, LittleEndian);
    const std::int64_t expected = CTB::kLayerDefExBytes + layer.dataBytes;
    if (total != expected) {
        tell.error(layer.begin + CTB::kLayerDefBytes, index,
                   "its total size is " + std::to_string(total) + ", record and data have " + std::to_string(expected));
    }
}

void checkSecondCopy(const Model& model, std::uint32_t index, const LayerPlace& layer, Teller& tell) {
    const std::int64_t copy = layerRecordAt(model, model.layerRecords.back(), index);
    std::vector<unsigned char> first(static_cast<std::size_t>(model.extendedBytes));
    std::vector<unsigned char> second(first.size());
    if (!model.bytes.read(layer.begin, first.data(), first.size()).isOk()) return;
    if (!model.bytes.read(copy, second.data(), second.size()).isOk()) {
        tell.error(copy, index, "the second copy of its extended record is missing");
    } else if (first != second) {
        tell.error(copy, index, "the second copy of its extended record differs from the first");
    }
}

/// Bead fields take long to make, so one that is made is kept for the next layer.
std::unique_ptr<VNDLPV4::LampBeadCal> takeBeadField(BeadFields& fields) {
    {
        const std::lock_guard<std::mutex> lock(fields.mutex);
        if (!fields.unused.empty()) {
            auto field = std::move(fields.unused.back());
            fields.unused.pop_back();
            return field;
        }
    }
    auto field = std::make_unique<VNDLPV4::LampBeadCal>();
    field->m_printBuild = false;
    VNDLPV4::initPrinterBeadField(*field);
    return field;
}

void checkBeads(const Model& model, std::uint32_t index, const LayerPlace& layer, Teller& tell) {
    std::vector<unsigned char> mask;
    std::vector<unsigned char> data;
    if (!readBeads(model, layer, mask).isOk() || mask.empty() || !readData(model, index, layer, data).isOk()) return;
    auto field = takeBeadField(model.beadFields);
    const bool isRight = mask == VNDLPV4::LayerDef::beadMaskOfCode(data, model.info.width, *field);
    {
        const std::lock_guard<std::mutex> lock(model.beadFields.mutex);
        model.beadFields.unused.push_back(std::move(field));
    }
    // masks are those of a field of beads, and printers of another field may be
    if (!isRight) tell.warning(layer.entry + 40, index, "its bead mask is not that of its image");
}

void checkArea(const Model& model, std::uint32_t index, const LayerPlace& layer, Teller& tell) {
    unsigned char raw[kAreaBytes];
    if (!model.bytes.read(layer.entry, raw, sizeof raw).isOk()) return;
    const auto area = loadNumber<std::uint32_t>(raw, BigEndian);
    if (area == layer.area) return;
    tell.error(layer.begin, index,
               "its area is " + std::to_string(layer.area) + ", the area table says " + std::to_string(area));
}

}  // namespace

std::int64_t structureEnd(const Model& model) {
    const LayerTable& table = model.layers();
    if (!table.isWhole || (model.isVendor() && model.layersAt < 0)) return -1;
    if (model.isVendor()) return table.end + tailBytes(model);
    if (model.info.format == SliceFormat::ctb) return table.end;
    return table.secondCopies + static_cast<std::int64_t>(table.layers.size()) * model.extendedBytes;
}

SliceResult readTrailer(const Model& model, SliceTrailer& trailer, const ProgressSink& progress) {
    trailer = {};
    if (model.trailerKind == CHECKSUM_NONE) return done();
    trailer.kind = model.trailerKind == CHECKSUM_XOR ? SliceTrailerKind::xorSum : SliceTrailerKind::crc32;
    const std::int64_t end = structureEnd(model);
    const std::int64_t size = model.bytes.size();
    const std::int64_t summed = std::max<std::int64_t>(size - kTrailerBytes, 0);
    Sum sum(model.trailerKind);
    std::int64_t from = 0;
    std::int64_t soundAt = -1;
    if (end > 0 && end + kTrailerBytes < size) {
        // of junk behind a sound file: its trailer stands where the structure ends
        std::uint32_t stored = 0;
        SliceResult result = addBytes(model, 0, end, progress, sum);
        if (result.isOk()) result = readStored(model.bytes, end, stored);
        if (!result.isOk()) return result;
        if (sum.agrees(stored)) soundAt = end;
        from = end;
    }
    if (isTrailerMissing(model, end)) {
        trailer.state = SliceTrailerState::missing;
        SliceResult result = addBytes(model, from, size, progress, sum);
        trailer.computed = sum.value();
        return result;
    }
    SliceResult result = addBytes(model, from, summed, progress, sum);
    if (result.isOk()) result = readStored(model.bytes, summed, trailer.stored);
    if (!result.isOk()) return result;
    trailer.computed = sum.value();
    trailer.state = sum.agrees(trailer.stored) ? SliceTrailerState::ok : SliceTrailerState::wrong;
    if (trailer.state == SliceTrailerState::wrong) trailer.soundAt = soundAt;
    return result;
}

SliceResult verifyLayout(const Model& model, const FindingSink& tell) {
    Teller teller(tell);
    for (const SliceFinding& finding : model.headFindings) teller.error(finding.offset, finding.layer, finding.text);
    model.isVendor() ? tellVendor(model, teller) : tellTabled(model, teller);
    tellEnd(model, teller);
    SliceResult result = teller.result();
    for (std::uint32_t i = 0; result.isOk() && i < model.layers().layers.size(); ++i) {
        result = verifyCopies(model, i, tell);
    }
    return result;
}

SliceResult verifyCopies(const Model& model, std::uint32_t index, const FindingSink& tell) {
    Teller teller(tell);
    LayerPlace layer;
    SliceResult result = placeOfLayer(model, index, layer);
    if (!result.isOk()) return result.code == SliceCode::damaged ? done() : result;
    if (model.isVendor() && layer.entry >= 0) checkArea(model, index, layer, teller);
    if (model.info.format == SliceFormat::ctb && model.extendedBytes > 0) checkExtended(model, index, layer, teller);
    if (model.info.format == SliceFormat::vndlpv4) checkSecondCopy(model, index, layer, teller);
    return teller.result();
}

SliceResult verifyStructure(const Model& model, const FindingSink& tell, const ProgressSink& progress) {
    if (SliceResult result = verifyLayout(model, tell); !result.isOk()) return result;
    Teller teller(tell);
    SliceTrailer trailer;
    SliceResult result = readTrailer(model, trailer, progress);
    if (!result.isOk()) return result;
    tellTrailer(trailer, model, teller);
    return teller.result();
}

SliceResult verifyLayer(const Model& model, std::uint32_t index, const FindingSink& tell) {
    Teller teller(tell);
    // layers whose places are not known are told of with the structure
    if (index < model.info.layers && index >= model.layers().layers.size()) return done();
    LayerPlace layer;
    SliceResult result = placeOfLayer(model, index, layer);
    if (result.isOk()) {
        result = checkData(model, index, layer);
        if (result.isOk() && layer.isExtended) checkBeads(model, index, layer, teller);
    }
    if (result.code != SliceCode::damaged) return result.isOk() ? teller.result() : result;
    teller.error(result.offset, index, std::move(result.text));
    return teller.result();
}

}  // namespace vndlp::job
