#include "job/edits.h"

#include "ctb/scramble.h"
#include "io/running_sum.h"
#include "io/xor_sum.h"
#include "job/layer_data.h"
#include "job/verify.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace vndlp::job {

namespace {

/// Longest stretch in front of the last moved text that is summed in memory.
constexpr std::int64_t kMostInMemory = std::int64_t{1} << 26;

std::uint32_t crcOf(std::uint32_t crc, const unsigned char* data, std::size_t size) {
    return CheckSum::instance().makeCrc(crc, const_cast<unsigned char*>(data), static_cast<unsigned>(size));
}

/// The bytes of a field with what belongs to it in the file: of texts the length in front and the zero behind.
struct Stretch {
    std::int64_t offset;
    std::int64_t size;
};

SliceResult stretchOf(const Model& model, const FieldPlace& place, Stretch& stretch) {
    const FieldKind kind = place.spec->kind;
    stretch = {place.offset, place.bytes};
    if (kind != FieldKind::text8 && kind != FieldKind::text16) return done();
    unsigned char raw[4];
    SliceResult result = model.bytes.read(place.offset - 4, raw, sizeof raw);
    stretch = {place.offset - 4, 4 + std::int64_t{loadNumber<std::uint32_t>(raw, BigEndian)}};
    return result;
}

ByteList wrapped(FieldKind kind, const ByteList& characters) {
    if (kind != FieldKind::text8 && kind != FieldKind::text16) return characters;
    const auto length = static_cast<std::uint32_t>(characters.size() + (kind == FieldKind::text8 ? 1 : 0));
    const auto front = storedNumber(length, BigEndian);
    ByteList bytes(front.begin(), front.end());
    bytes.insert(bytes.end(), characters.begin(), characters.end());
    if (kind == FieldKind::text8) bytes.push_back(0);
    return bytes;
}

const char* const kPointers[] = {
    "HeaderSettings.previewLargeOffset",
    "HeaderSettings.previewSmallOffset",
    "HeaderSettings.layerDefOffset",
    "HeaderSettings.printParametersOffset",
    "HeaderSettings.slicerInfoOffset",
    "PreView.0.imageOffset",
    "PreView.1.imageOffset",
    "SlicerInfo.machineNameOffset",
};
const char* const kLayerPointers[] = {"LayerDef.dataOffset", "LayerDefEx.layerDef.dataOffset"};

/// The sum that a file's trailer holds, over bytes as they come.
class TrailerSum {
public:
    explicit TrailerSum(EnumCheckSumType kind) : m_kind(kind) {}
    void add(unsigned char* data, std::size_t size) {
        m_value = m_kind == CHECKSUM_XOR ? continueXor(m_value, data, size) : crcOf(m_value, data, size);
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

/// The trailer of the edited file from the sum of the file as it was, without summing the layers again.
class NewTrailer {
public:
    NewTrailer(const Edits& edits, std::uint32_t old) : m_edits(edits), m_model(edits.model()), m_old(old) {}

    [[nodiscard]] SliceResult compute(std::uint32_t& sum) {
        return m_model.trailerKind == CHECKSUM_XOR ? computeXor(sum) : computeCrc(sum);
    }

private:
    [[nodiscard]] std::int64_t summed() const { return m_model.bytes.size() - kTrailerBytes; }

    SliceResult old(std::int64_t offset, std::int64_t size, ByteList& bytes) const {
        bytes.resize(static_cast<std::size_t>(size));
        return m_model.bytes.read(offset, bytes.data(), bytes.size());
    }

    SliceResult computeXor(std::uint32_t& sum) {
        SliceResult result;
        auto all = static_cast<unsigned char>(m_old);
        for (const auto& [offset, edit] : m_edits.all()) {
            ByteList was;
            if (result.isOk()) result = old(offset, edit.size, was);
            if (!result.isOk()) return result;
            all = static_cast<unsigned char>(all ^ xorOf(was.data(), was.size()) ^
                                             xorOf(edit.bytes.data(), edit.bytes.size()));
        }
        sum = continueXor(0, &all, 1);
        return result;
    }

    /// Sums are linear. The file is a head up to the last stretch that changes its length, and a tail that only moves.
    SliceResult computeCrc(std::uint32_t& sum) {
        std::int64_t headEnd = 0;
        for (const auto& [offset, edit] : m_edits.all()) {
            if (edit.size != static_cast<std::int64_t>(edit.bytes.size())) headEnd = offset + edit.size;
        }
        if (headEnd > kMostInMemory) return failure(SliceCode::damaged, "its head has no end", headEnd);
        ByteList head;
        SliceResult result = old(0, headEnd, head);
        if (!result.isOk()) return result;
        const auto tailBytes = static_cast<unsigned long long>(summed() - headEnd);
        std::uint32_t tail = m_old ^ crcBeforeZeros(crcOf(0, head.data(), head.size()), tailBytes);
        ByteList newHead;
        std::int64_t at = 0;
        for (const auto& [offset, edit] : m_edits.all()) {
            if (offset < headEnd) {
                newHead.insert(newHead.end(), head.begin() + at, head.begin() + offset);
                newHead.insert(newHead.end(), edit.bytes.begin(), edit.bytes.end());
                at = offset + edit.size;
                continue;
            }
            ByteList difference;
            if (result = old(offset, edit.size, difference); !result.isOk()) return result;
            for (std::size_t i = 0; i < difference.size(); ++i) {
                difference[i] = static_cast<unsigned char>(difference[i] ^ edit.bytes[i]);
            }
            tail ^= crcBeforeZeros(crcOf(0, difference.data(), difference.size()),
                                   static_cast<unsigned long long>(summed() - offset - edit.size));
        }
        newHead.insert(newHead.end(), head.begin() + at, head.end());
        sum = crcBeforeZeros(crcOf(0, newHead.data(), newHead.size()), tailBytes) ^ tail;
        return result;
    }

    const Edits& m_edits;
    const Model& m_model;
    std::uint32_t m_old;
};

/// Copies stretches of the file as it was.
class Copier {
public:
    /// \param sum of the bytes that are copied or skipped; null: none is needed, and the system may copy by itself.
    Copier(const SliceFile& file, NewFile& out, const SliceListener& listener, TrailerSum* sum)
        : m_bytes(file.state()->model.bytes), m_out(out), m_listener(listener), m_sum(sum) {
        if (!file.path().empty() && sum == nullptr) m_stream.reset(platform::openFile(file.path().c_str(), "rb"));
        if (m_stream == nullptr) return;
        // the name may be another file's by now
        const bool isSame =
            platform::seek(m_stream.get(), 0, SEEK_END) == 0 && platform::tell(m_stream.get()) == m_bytes.size();
        if (!isSame) m_stream.reset();
    }

    [[nodiscard]] SliceResult copy(std::int64_t from, std::int64_t size, std::int64_t to) {
        constexpr std::int64_t kStep = std::int64_t{1} << 26;
        for (std::int64_t done = 0; done < size; done += kStep) {
            const std::int64_t now = std::min(kStep, size - done);
            if (SliceResult result = copyOne(from + done, now, to + done); !result.isOk()) return result;
            SliceResult result = tellProgress(m_listener, static_cast<std::uint64_t>(from + done + now),
                                              static_cast<std::uint64_t>(m_bytes.size()));
            if (!result.isOk()) return result;
        }
        return {};
    }

    /// Bytes that are replaced.
    [[nodiscard]] SliceResult skip(std::int64_t from, std::int64_t size) {
        if (m_sum == nullptr) return {};
        return forEachPiece(m_bytes, from, size, kPieceBytes,
                            [this](unsigned char* data, std::size_t bytes, std::int64_t /*at*/) {
                                m_sum->add(data, bytes);
                                return done();
                            });
    }

private:
    SliceResult copyOne(std::int64_t from, std::int64_t size, std::int64_t to) {
        if (m_stream != nullptr) return m_out.copy(m_stream.get(), from, size, to) ? done() : outputFailure(m_out);
        return forEachPiece(m_bytes, from, size, kPieceBytes,
                            [&](unsigned char* data, std::size_t bytes, std::int64_t at) {
                                if (m_sum != nullptr) m_sum->add(data, bytes);
                                return m_out.write(to + at, data, bytes) ? done() : outputFailure(m_out);
                            });
    }

    const Bytes& m_bytes;
    NewFile& m_out;
    const SliceListener& m_listener;
    TrailerSum* m_sum;
    platform::File m_stream;
};

/// Copies the file up to its trailer, all but the layers' encoded data where they are scrambled anew.
SliceResult copyAll(const SliceFile& file, const Edits& edits, std::optional<std::uint32_t> key, NewFile& out,
                    const SliceListener& listener, TrailerSum* sum) {
    const Model& model = edits.model();
    Copier copier(file, out, listener, sum);
    std::int64_t at = 0;
    std::int64_t shift = 0;
    auto edit = edits.all().begin();
    // edits of another length lie in front of the layers
    const auto copyTo = [&](std::int64_t end) {
        SliceResult result;
        for (; result.isOk() && edit != edits.all().end() && edit->first < end; ++edit) {
            const auto size = static_cast<std::int64_t>(edit->second.bytes.size());
            if (size == edit->second.size) continue;
            result = copier.copy(at, edit->first - at, at + shift);
            if (result.isOk()) result = copier.skip(edit->first, edit->second.size);
            at = edit->first + edit->second.size;
            if (result.isOk() &&
                !out.write(edit->first + shift, edit->second.bytes.data(), edit->second.bytes.size())) {
                result = outputFailure(out);
            }
            shift += size - edit->second.size;
        }
        if (result.isOk() && at < end) result = copier.copy(at, end - at, at + shift);
        at = std::max(at, end);
        return result;
    };
    SliceResult result;
    if (key) {
        std::vector<std::pair<std::int64_t, std::uint32_t>> order;
        const std::vector<LayerPlace>& layers = model.layers().layers;
        for (std::uint32_t i = 0; i < layers.size(); ++i) order.emplace_back(layers[i].data, i);
        std::sort(order.begin(), order.end());
        ByteList data;
        for (const auto& [begin, layer] : order) {
            result = copyTo(begin);
            if (result.isOk()) result = readData(model, layer, layers[layer], data);
            if (!result.isOk()) return result;
            CTB::scramble(*key, layer, data.data(), data.size());
            if (!out.write(begin + shift, data.data(), data.size())) return outputFailure(out);
            at = begin + static_cast<std::int64_t>(data.size());
        }
    }
    return copyTo(model.bytes.size() - (sum == nullptr ? 0 : kTrailerBytes));
}

/// Writes the edits that keep their stretch's length into the copy.
SliceResult writeInPlace(const Edits& edits, NewFile& out) {
    std::int64_t shift = 0;
    for (const auto& [offset, edit] : edits.all()) {
        const auto size = static_cast<std::int64_t>(edit.bytes.size());
        if (size == edit.size && !out.write(offset + shift, edit.bytes.data(), edit.bytes.size())) {
            return outputFailure(out);
        }
        shift += size - edit.size;
    }
    return {};
}

}  // namespace

SliceResult outputFailure(const NewFile& out) {
    SliceResult result = failure(SliceCode::file, std::strerror(out.error()));
    result.systemCode = out.error();
    return result;
}

SliceResult tell(const SliceListener& listener, const SliceFinding& finding) {
    const bool goesOn = listener.note == nullptr || listener.note(listener.context, finding) == 0;
    return goesOn ? done() : plain(SliceCode::stopped);
}

SliceResult tellNote(const SliceListener& listener, std::string text) {
    return tell(listener, {SliceSeverity::note, -1, -1, std::move(text)});
}

SliceResult tellProgress(const SliceListener& listener, std::uint64_t done, std::uint64_t all) {
    const bool goesOn = listener.progress == nullptr || listener.progress(listener.context, done, all) == 0;
    return goesOn ? job::done() : plain(SliceCode::stopped);
}

std::optional<LayerField> findLayerField(const Model& model, const std::string& name) {
    const std::size_t point = name.find('.');
    for (const LayerRecords& records : model.layerRecords) {
        const std::string prefix(records.memberPrefix);
        if (name.compare(0, point, records.name) != 0 || name.compare(point + 1, prefix.size(), prefix) != 0) continue;
        LayerField field{&records, nullptr, 0};
        const std::string member = name.substr(point + 1 + prefix.size());
        for (const FieldSpec& spec : *records.fields) {
            if (spec.name == member) {
                field.spec = &spec;
                return field;
            }
            field.offset += spec.size;
        }
    }
    return std::nullopt;
}

FieldPlace placeIn(const Model& model, const LayerField& field, std::uint32_t layer) {
    return {field.spec, layerRecordAt(model, *field.records, layer) + field.offset, field.spec->size};
}

std::vector<LayerField> layerMembers(const Model& model, const std::string& name) {
    std::vector<LayerField> members;
    const std::size_t point = name.find('.');
    const std::string again =
        (name.compare(0, point, "LayerDef") == 0 ? "LayerDefEx.layerDef" : "LayerDefEx.second") + name.substr(point);
    for (const std::string& each : {name, again}) {
        const std::optional<LayerField> field = findLayerField(model, each);
        if (field && (model.info.layers == 0 || placeIn(model, *field, 0).offset >= 0)) members.push_back(*field);
    }
    return members;
}

SliceResult Edits::current(const FieldPlace& place, ByteList& bytes) const {
    Stretch stretch{};
    SliceResult result = stretchOf(m_model, place, stretch);
    if (!result.isOk()) return result;
    const auto found = m_edits.find(stretch.offset);
    if (found == m_edits.end()) {
        bytes.resize(static_cast<std::size_t>(place.bytes));
        return m_model.bytes.read(place.offset, bytes.data(), bytes.size());
    }
    const ByteList& edited = found->second.bytes;
    const FieldKind kind = place.spec->kind;
    const std::ptrdiff_t front = kind == FieldKind::text8 || kind == FieldKind::text16 ? 4 : 0;
    bytes.assign(edited.begin() + front, edited.end() - (kind == FieldKind::text8 ? 1 : 0));
    return result;
}

SliceResult Edits::value(const FieldPlace& place, FieldValue& value) const {
    ByteList bytes;
    SliceResult result = current(place, bytes);
    if (result.isOk()) value = decodeField(*place.spec, bytes.data(), bytes.size());
    return result;
}

SliceResult Edits::set(const FieldPlace& place, const ByteList& bytes) {
    Stretch stretch{};
    SliceResult result = stretchOf(m_model, place, stretch);
    if (result.isOk()) replace(stretch.offset, stretch.size, wrapped(place.spec->kind, bytes));
    return result;
}

void Edits::replace(std::int64_t offset, std::int64_t size, ByteList bytes) {
    m_edits[offset] = {size, std::move(bytes)};
}

std::int64_t Edits::growth() const {
    std::int64_t growth = 0;
    for (const auto& [offset, edit] : m_edits) growth += static_cast<std::int64_t>(edit.bytes.size()) - edit.size;
    return growth;
}

SliceResult Edits::movePointer(const FieldPlace& place, const std::vector<Move>& moves) {
    FieldValue pointed;
    SliceResult result = value(place, pointed);
    if (!result.isOk()) return result;
    const bool isOfName = place.spec->name == "machineNameOffset";
    std::int64_t moved = pointed.integer;
    for (const Move& move : moves) {
        // what stood where a text is put that was empty moves, the text does not
        const bool isBehind =
            move.end < pointed.integer || (move.end == pointed.integer && (!isOfName || move.size > 0));
        if (isBehind) moved += move.growth;
    }
    if (moved > 0xFFFFFFFF) return failure(SliceCode::value, "the file would be larger than its offsets reach");
    const auto bytes = storedNumber(static_cast<std::uint32_t>(moved), place.spec->order);
    if (moved != pointed.integer) replace(place.offset, 4, {bytes.begin(), bytes.end()});
    return result;
}

SliceResult Edits::moveOffsets() {
    std::vector<Move> moves;
    for (const auto& [offset, edit] : m_edits) {
        const std::int64_t growth = static_cast<std::int64_t>(edit.bytes.size()) - edit.size;
        if (growth != 0) moves.push_back({offset + edit.size, edit.size, growth});
    }
    if (moves.empty() || m_model.isVendor()) return {};
    SliceResult result;
    for (const char* name : kPointers) {
        const FieldPlace* place = m_model.field(name);
        if (place != nullptr && result.isOk()) result = movePointer(*place, moves);
    }
    for (const char* name : kLayerPointers) {
        const std::optional<LayerField> field = findLayerField(m_model, name);
        for (std::uint32_t i = 0; field && result.isOk() && i < m_model.layers().layers.size(); ++i) {
            result = movePointer(placeIn(m_model, *field, i), moves);
        }
    }
    return result.isOk() ? movePointersOfLevels(moves) : result;
}

/// CTB files may repeat their table for every level of anti-aliasing.
SliceResult Edits::movePointersOfLevels(const std::vector<Move>& moves) {
    const std::optional<LayerField> field = findLayerField(m_model, "LayerDef.dataOffset");
    const LayerTable& table = m_model.layers();
    if (m_model.info.format != SliceFormat::ctb || !field || table.layers.empty()) return {};
    const std::int64_t entry = job::fixedBytes(*field->records->fields);
    const std::int64_t levels = m_model.tableAt + entry * static_cast<std::int64_t>(table.layers.size());
    SliceResult result;
    for (std::int64_t at = levels; result.isOk() && at + entry <= table.entriesEnd; at += entry) {
        result = movePointer({field->spec, at + field->offset, field->spec->size}, moves);
    }
    return result;
}

ByteList applied(const Edits& edits, const ByteList& file) {
    ByteList bytes;
    std::ptrdiff_t at = 0;
    for (const auto& [offset, edit] : edits.all()) {
        bytes.insert(bytes.end(), file.begin() + at, file.begin() + offset);
        bytes.insert(bytes.end(), edit.bytes.begin(), edit.bytes.end());
        at = static_cast<std::ptrdiff_t>(offset + edit.size);
    }
    bytes.insert(bytes.end(), file.begin() + at, file.end());
    return bytes;
}

SliceResult writeEdited(const SliceFile& file, const Edits& edits, std::optional<std::uint32_t> key, NewFile& out,
                        const SliceListener& listener) {
    const Model& model = edits.model();
    const bool hasTrailer = model.trailerKind != CHECKSUM_NONE;
    const std::int64_t summed = model.bytes.size() - kTrailerBytes;
    if (hasTrailer && summed < structureEnd(model)) {
        return damaged(model.bytes.size(), "the checksum trailer is missing");
    }
    // one pass over the file holds it against its trailer and copies it
    TrailerSum old(model.trailerKind);
    SliceResult result = copyAll(file, edits, key, out, listener, hasTrailer ? &old : nullptr);
    if (result.isOk()) result = writeInPlace(edits, out);
    if (!result.isOk() || !hasTrailer) return result;
    unsigned char stored[kTrailerBytes];
    if (result = model.bytes.read(summed, stored, sizeof stored); !result.isOk()) return result;
    if (!old.agrees(loadNumber<std::uint32_t>(stored, BigEndian))) {
        return damaged(summed,
                       "the checksum trailer does not match the file: it was changed, cut short or never finished");
    }
    std::uint32_t sum = 0;
    if (result = NewTrailer(edits, old.value()).compute(sum); !result.isOk()) return result;
    const auto trailer = storedNumber(sum, BigEndian);
    const std::int64_t at = model.bytes.size() + edits.growth() - kTrailerBytes;
    return out.write(at, trailer.data(), trailer.size()) ? result : outputFailure(out);
}

}  // namespace vndlp::job
