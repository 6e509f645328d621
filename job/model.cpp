#include "job/model.h"

#include <utility>

namespace vndlp::job {

void Model::headFault(std::int64_t offset, std::string text) {
    if (headIsWhole) {
        headIsWhole = false;
        headBrokeAt = offset;
        whatBroke = text;
    }
    headFindings.push_back({SliceSeverity::error, offset, -1, std::move(text)});
}

const FieldPlace* Model::field(const std::string& name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? nullptr : &found->second;
}

bool Model::number(const std::string& name, double& value) const {
    const FieldPlace* place = field(name);
    FieldValue read;
    if (place == nullptr || isText(place->spec->kind) || !readField(bytes, *place, read).isOk()) return false;
    value = read.number;
    return true;
}

std::uint32_t Model::whole(const std::string& name) const {
    double value = 0;
    return number(name, value) && value >= 0 && value <= 4294967295.0 ? static_cast<std::uint32_t>(value) : 0;
}

const LayerTable& Model::layers() const {
    std::call_once(m_located,
                   [this] { isVendor() ? locateVendorLayers(*this, m_layers) : locateTabledLayers(*this, m_layers); });
    return m_layers;
}

SliceResult readField(const Bytes& bytes, const FieldPlace& place, FieldValue& value) {
    std::vector<unsigned char> raw(static_cast<std::size_t>(place.bytes));
    SliceResult result = bytes.read(place.offset, raw.data(), raw.size());
    if (result.isOk()) value = decodeField(*place.spec, raw.data(), raw.size());
    return result;
}

namespace {

/// Places a text behind the length in front of it. \return false where the file does not hold it.
bool placeText(const Bytes& bytes, const FieldSpec& field, std::int64_t offset, FieldPlace& place, std::int64_t& end) {
    unsigned char raw[4];
    if (!bytes.read(offset, raw, sizeof raw).isOk()) return false;
    const std::int64_t length = loadNumber<std::uint32_t>(raw, BigEndian);
    if (!bytes.holds(offset + 4, length)) return false;
    end = offset + 4 + length;
    // the zero byte counts with the characters, but is none of them
    const std::int64_t characters = field.kind == FieldKind::text8 && length > 0 ? length - 1 : length;
    place = {&field, offset + 4, characters};
    return true;
}

}  // namespace

std::int64_t addRecord(Model& model, std::string name, const FieldSpecs& fields, std::int64_t offset) {
    RecordPlace record;
    record.name = std::move(name);
    record.offset = offset;
    record.isWhole = true;
    std::int64_t at = offset;
    for (const FieldSpec& field : fields) {
        if (field.isOptional) continue;
        FieldPlace place{&field, at, field.size};
        std::int64_t end = at + field.size;
        record.isWhole =
            isText(field.kind) ? placeText(model.bytes, field, at, place, end) : model.bytes.holds(at, field.size);
        if (!record.isWhole) break;
        record.fields.push_back(place);
        model.fields.emplace(record.name + "." + field.name, place);
        at = end;
    }
    record.bytes = at - offset;
    model.fieldCount += record.fields.size();
    model.records.push_back(std::move(record));
    return at;
}

}  // namespace vndlp::job
