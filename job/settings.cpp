#include "job/settings.h"

#include "io/decimal.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace vndlp::job {

namespace {

constexpr std::string_view kAnyHeader = "DlpHeader.";

const LayerRecords* layerRecordsOf(const Model& model, std::string_view name) {
    for (const LayerRecords& records : model.layerRecords) {
        if (records.memberPrefix[0] == '\0' && name == records.name) return &records;
    }
    return nullptr;
}

/// Places one field of a record that a layer has.
SliceResult placeInLayer(const Model& model, const LayerRecords& records, std::string_view member, std::uint32_t layer,
                         FieldPlace& place) {
    std::int64_t at = layerRecordAt(model, records, layer);
    const bool isExtended = at >= 0 && model.layers().layers[layer].isExtended;
    for (const FieldSpec& field : *records.fields) {
        if (at < 0 || (field.isOptional && !isExtended) || !model.bytes.holds(at, field.size)) break;
        if (field.name == member) {
            place = {&field, at, field.size};
            return done();
        }
        at += field.size;
    }
    return plain(SliceCode::absent);
}

std::uint64_t fieldsOfEach(const LayerRecords& records) {
    return static_cast<std::uint64_t>(std::count_if(records.fields->begin(), records.fields->end(),
                                                    [](const FieldSpec& field) { return !field.isOptional; }));
}

bool isNumberText(const std::string& text) {
    return !text.empty() && text.find_first_not_of("+-.0123456789eE") == std::string::npos &&
           text.find_first_of("0123456789") != std::string::npos;
}

std::string versionText(std::int64_t word) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string(word >> shift & 0xFF) + (shift > 0 ? "." : "");
    }
    return text;
}

}  // namespace

std::string memberName(const Model& model, const char* field) {
    const std::string_view name(field);
    if (name.substr(0, kAnyHeader.size()) != kAnyHeader) return field;
    // the header stands behind the head magic; a file without one has no such field either
    const std::string header = model.records.size() > 1 ? model.records[1].name : "";
    return header + "." + std::string(name.substr(kAnyHeader.size()));
}

std::int64_t layerRecordAt(const Model& model, const LayerRecords& records, std::uint32_t layer) {
    const LayerTable& table = model.layers();
    if (layer >= table.layers.size()) return -1;
    const LayerPlace& place = table.layers[layer];
    switch (records.at) {
        case LayerRecordAt::entry: return place.entry;
        case LayerRecordAt::begin: return place.begin;
        case LayerRecordAt::secondCopy: break;
    }
    return table.secondCopies < 0 ? -1 : table.secondCopies + layer * model.extendedBytes;
}

SliceResult placeOfSetting(const Model& model, const SettingRow& row, std::int64_t layer, FieldPlace& place) {
    const SliceFormat format = model.info.format;
    if (layer >= 0) {
        const char* name = row.layerField(format);
        if (name == nullptr) return plain(SliceCode::key);
        if (layer >= model.info.layers) return plain(SliceCode::index);
        const std::string_view field(name);
        const std::size_t point = field.find('.');
        const LayerRecords* records = layerRecordsOf(model, field.substr(0, point));
        if (records == nullptr) return plain(SliceCode::absent);
        return placeInLayer(model, *records, field.substr(point + 1), static_cast<std::uint32_t>(layer), place);
    }
    const Place& where = row.place(format);
    if (where.field == nullptr || where.isFixed) return plain(SliceCode::key);
    const FieldPlace* found = model.field(memberName(model, where.field));
    if (found == nullptr) return plain(SliceCode::absent);
    place = *found;
    return done();
}

SliceResult readNumber(const Model& model, const SettingRow& row, std::int64_t layer, double& value) {
    if (row.key.type == SliceValueType::text) return plain(SliceCode::key);
    FieldPlace place;
    SliceResult result = placeOfSetting(model, row, layer, place);
    FieldValue read;
    if (result.isOk()) result = readField(model.bytes, place, read);
    if (!result.isOk()) return result;
    const Place& where = row.place(model.info.format);
    double number = read.number;
    if (isText(place.spec->kind)) {
        if (!isNumberText(read.text)) return plain(SliceCode::absent);
        number = parseDecimal(read.text);
    } else if (layer < 0) {
        number = where.stored == Stored::flag ? (number != 0 ? 1 : 0) : number / where.perUnit;
    }
    if (!std::isfinite(number)) return plain(SliceCode::absent);
    value = number;
    return result;
}

SliceResult readText(const Model& model, const SettingRow& row, std::string& value) {
    if (row.key.type != SliceValueType::text) return plain(SliceCode::key);
    FieldPlace place;
    SliceResult result = placeOfSetting(model, row, -1, place);
    FieldValue read;
    if (result.isOk()) result = readField(model.bytes, place, read);
    if (!result.isOk()) return result;
    if (row.place(model.info.format).stored == Stored::version) {
        if (read.integer == 0) return plain(SliceCode::absent);
        read.text = versionText(read.integer);
    }
    value = std::move(read.text);
    return result;
}

bool placeTail(const Model& model, FieldPlace& place) {
    static const FieldSpec kTail{"magic", "", FieldKind::text8, BigEndian, 4, false, false};
    if (!model.isVendor() || model.magic == nullptr || !model.layers().isWhole) return false;
    unsigned char raw[4];
    const std::int64_t at = model.layers().end;
    if (!model.bytes.read(at, raw, sizeof raw).isOk()) return false;
    const std::int64_t length = loadNumber<std::uint32_t>(raw, BigEndian);
    if (length < 1 || !model.bytes.holds(at + 4, length)) return false;
    place = {&kTail, at + 4, length - 1};
    return true;
}

SliceResult placeOfRaw(const Model& model, std::uint64_t index, std::string& name, FieldPlace& place) {
    for (const RecordPlace& record : model.records) {
        if (index < record.fields.size()) {
            place = record.fields[static_cast<std::size_t>(index)];
            name = record.name + "." + place.spec->name;
            return done();
        }
        index -= record.fields.size();
    }
    const LayerTable& table = model.layers();
    for (const LayerRecords& records : model.layerRecords) {
        const bool isMixed = records.at == LayerRecordAt::entry && !table.firstFields.empty();
        const std::uint64_t each = fieldsOfEach(records);
        const std::uint64_t all = isMixed ? table.firstFields.back() : each * table.layers.size();
        if (index >= all) {
            index -= all;
            continue;
        }
        std::uint64_t layer = index / each;
        std::uint64_t member = index % each;
        if (isMixed) {
            const auto behind = std::upper_bound(table.firstFields.begin(), table.firstFields.end(), index);
            layer = static_cast<std::uint64_t>(behind - table.firstFields.begin()) - 1;
            member = index - table.firstFields[static_cast<std::size_t>(layer)];
        }
        const std::string& memberName = (*records.fields)[static_cast<std::size_t>(member)].name;
        name = std::string(records.name) + "." + std::to_string(layer) + "." + records.memberPrefix + memberName;
        return placeInLayer(model, records, memberName, static_cast<std::uint32_t>(layer), place);
    }
    if (index > 0 || !placeTail(model, place)) return plain(SliceCode::index);
    name = "Tail.magic";
    return done();
}

SliceResult placeOfRaw(const Model& model, const std::string& name, FieldPlace& place) {
    if (const FieldPlace* found = model.field(name)) {
        place = *found;
        return done();
    }
    if (name == "Tail.magic") return placeTail(model, place) ? done() : plain(SliceCode::absent);
    const std::size_t first = name.find('.');
    const std::size_t second = first == std::string::npos ? first : name.find('.', first + 1);
    if (second == std::string::npos || second - first < 2 || second - first > 11) return plain(SliceCode::absent);
    std::uint64_t layer = 0;
    for (std::size_t i = first + 1; i < second; ++i) {
        if (name[i] < '0' || name[i] > '9') return plain(SliceCode::absent);
        layer = layer * 10 + static_cast<unsigned>(name[i] - '0');
    }
    if (layer >= model.info.layers) return plain(SliceCode::absent);
    const std::string_view record = std::string_view(name).substr(0, first);
    const std::string_view member = std::string_view(name).substr(second + 1);
    for (const LayerRecords& records : model.layerRecords) {
        const std::string_view prefix(records.memberPrefix);
        if (record != records.name || member.substr(0, prefix.size()) != prefix) continue;
        SliceResult result =
            placeInLayer(model, records, member.substr(prefix.size()), static_cast<std::uint32_t>(layer), place);
        if (result.isOk()) return result;
    }
    return plain(SliceCode::absent);
}

}  // namespace vndlp::job
