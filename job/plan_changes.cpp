#include "job/plan_changes.h"

#include "ctb/record_fields.h"
#include "job/values.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>

namespace vndlp::job {

namespace {

constexpr std::string_view kRaw = "raw.";

/// Settings of bottom layers whose layers hold them where the others hold another setting.
struct BottomKey {
    std::string_view bottom;
    std::string_view other;
};
constexpr BottomKey kBottomKeys[] = {
    {"bottom_exposure_s", "exposure_s"},
    {"bottom_light_off_s", "light_off_s"},
    {"bottom_lift_mm", "lift_mm"},
    {"bottom_lift_speed", "lift_speed"},
    {"bottom_lift2_mm", "lift2_mm"},
    {"bottom_lift2_speed", "lift2_speed"},
    {"bottom_pwm", "pwm"},
};

/// Members that tell readers what the file is: another value makes it another file, or none.
constexpr std::string_view kKeptMembers[] = {"magic", "headerText1", "encryptionKey", "extensionFlag"};

SliceResult noKey(std::string text) { return failure(SliceCode::key, std::move(text)); }

ByteList floatBytes(float value, BYTEORDER order) {
    const auto raw = storedNumber(value, order);
    return {raw.begin(), raw.end()};
}

std::string layersText(const std::vector<std::uint32_t>& layers, const char* whatOne, const char* whatMany) {
    const bool isOne = layers.size() == 1;
    return (isOne ? "layer " : "layers ") + layerListText(layers) + (isOne ? whatOne : whatMany);
}

class Planner {
public:
    Planner(const SliceChange& change, Edits& edits, ChangePlan& plan, Range range)
        : m_change(change), m_edits(edits), m_model(edits.model()), m_plan(plan), m_range(range) {}

    SliceResult run() {
        const std::string& key = m_change.key;
        if (key.compare(0, kRaw.size(), kRaw) == 0) return planRaw(key.substr(kRaw.size()));
        m_row = findSetting(key);
        if (m_row == nullptr) return noKey("unknown setting \"" + key + "\"");
        if (key == "resolution_x" || key == "resolution_y") {
            return noKey(key + " is that of the layers, which stay as they are");
        }
        return m_change.layers.empty() ? planFile() : planLayers();
    }

private:
    SliceFormat format() const { return m_model.info.format; }

    SliceResult planRaw(const std::string& name) {
        FieldPlace place;
        if (!m_change.layers.empty()) return failure(SliceCode::index, m_change.key + " names its layer itself");
        if (SliceResult result = placeOfRaw(m_model, name, place); !result.isOk()) {
            return result.code == SliceCode::absent ? noKey("the file has no field " + name) : result;
        }
        const std::string& member = place.spec->name;
        if (place.spec->isFixed) return noKey(m_change.key + ": the format fixes its value");
        for (const std::string_view kept : kKeptMembers) {
            if (member == kept) return noKey(m_change.key + " tells how the file is read, and stays");
        }
        StoredValue stored;
        SliceResult result = storeRaw(m_change.key, *place.spec, place.bytes, m_change.value, stored);
        ByteList was;
        if (result.isOk()) result = m_edits.current(place, was);
        if (!result.isOk() || was == stored.bytes) return result;
        note(stored);
        m_plan.changed.push_back({m_change.key, {}, rawText(*place.spec, was), stored.text});
        if (result = setTwins(name, was, stored.bytes); !result.isOk()) return result;
        return setField(place, stored.bytes);
    }

    /// What a record of a layer says stands in another record once more, which follows where it says the same.
    SliceResult setTwins(const std::string& name, const ByteList& was, const ByteList& is) {
        const std::size_t point = name.find('.');
        const std::size_t next = name.find('.', point + 1);
        if (next == std::string::npos) return {};
        const std::string number = name.substr(point + 1, next - point - 1);
        if (number.find_first_not_of("0123456789") != std::string::npos) return {};
        const std::string record = name.substr(0, point);
        const std::string member = name.substr(0, point) + name.substr(next);
        std::vector<LayerField> twins = layerMembers(m_model, member);
        if (!twins.empty()) twins.erase(twins.begin());
        if (record == "AreaTable") twins = layerMembers(m_model, "Layer.area");
        if (member == "Layer.area") twins = layerMembers(m_model, "AreaTable.area");
        SliceResult result;
        for (const LayerField& twin : twins) {
            const FieldPlace at = placeIn(m_model, twin, static_cast<std::uint32_t>(std::stoul(number)));
            ByteList bytes;
            if (result.isOk()) result = m_edits.current(at, bytes);
            if (result.isOk() && bytes == was) m_edits.replace(at.offset, at.bytes, is);
        }
        return result;
    }

    /// The file's value, its copies, and the layers that hold it.
    SliceResult planFile() {
        const std::string key = m_row->key.name;
        const Place& where = m_row->place(format());
        if (where.field == nullptr) {
            if (m_row->layerField(format()) != nullptr) return noKey(key + " is a setting of single layers here");
            return noKey("." + formatName(format()) + " files have no place for " + key);
        }
        if (where.isFixed) return noKey("the ." + formatName(format()) + " format fixes " + key);
        const FieldPlace* place = m_model.field(memberName(m_model, where.field));
        if (place == nullptr) return noKey("this kind of ." + formatName(format()) + " file has no place for " + key);
        StoredValue stored;
        SliceResult result = storeSetting(*m_row, where, *place->spec, format(), m_change.value, m_range, stored);
        ByteList was;
        if (result.isOk()) result = m_edits.current(*place, was);
        if (!result.isOk()) return result;
        const std::string before = settingText(*m_row, where, *place->spec, was);
        // another spelling of the same value stays
        const bool isSame = was == stored.bytes || (where.stored != Stored::text && before == stored.text &&
                                                    place->spec->kind != FieldKind::f32);
        note(stored);
        if (isSame) return result;
        if (result = planFollowers(key, *place, was, stored); !result.isOk()) return result;
        m_plan.changed.push_back({key, {}, before, stored.text});
        result = setField(*place, stored.bytes);
        const FieldPlace* copy = where.copy == nullptr ? nullptr : m_model.field(where.copy);
        if (!result.isOk() || copy == nullptr) return result;
        StoredValue again;
        result = storeSetting(*m_row, where, *copy->spec, format(), m_change.value, m_range, again);
        return result.isOk() ? setField(*copy, again.bytes) : result;
    }

    SliceResult planFollowers(const std::string& key, const FieldPlace& place, const ByteList& was,
                              const StoredValue& stored) {
        if (key == "layer_height_mm") return moveHeights(place, was, stored);
        if (key == "bottom_layers") return changeSides(place, was, stored);
        for (const BottomKey& pair : kBottomKeys) {
            if (key == pair.bottom) return changeLayers(std::string(pair.other), stored.text, true);
        }
        return changeLayers(key, stored.text, false);
    }

    std::uint32_t bottomLayers() const {
        FieldPlace place;
        FieldValue value;
        const bool isHeld = placeOfSetting(m_model, *findSetting("bottom_layers"), -1, place).isOk() &&
                            m_edits.value(place, value).isOk() && value.integer > 0;
        return isHeld ? static_cast<std::uint32_t>(std::min<std::int64_t>(value.integer, m_model.info.layers)) : 0;
    }

    /// The value of a setting as layers of the file would hold it; empty without.
    ByteList layerBytesOf(const std::string& key, const FieldSpec& field) const {
        const SettingRow* row = findSetting(key);
        FieldPlace place;
        ByteList bytes;
        StoredValue stored;
        if (row == nullptr || !placeOfSetting(m_model, *row, -1, place).isOk() ||
            !m_edits.current(place, bytes).isOk()) {
            return {};
        }
        if (place.spec->kind == field.kind) return bytes;
        const std::string text = settingText(*row, row->place(format()), *place.spec, bytes);
        return storeSetting(*row, layerPlace(), field, format(), text, Range::ofField, stored).isOk() ? stored.bytes
                                                                                                      : ByteList();
    }

    static const Place& layerPlace() {
        static constexpr Place place{"", 1, Stored::number, false, nullptr};
        return place;
    }

    /// Layers that held the file's value take the new one. Bottom layers may hold the setting of their own instead: of
    /// exposures a layer's side tells which one where both are equal, of others the normal one counts then.
    /// \param key    the one that layers have.
    /// \param bottom whether the file's value is that of bottom layers.
    SliceResult changeLayers(const std::string& key, const std::string& text, bool bottom) {
        const SettingRow& row = *findSetting(key);
        const char* name = row.layerField(format());
        const std::vector<LayerField> members =
            name == nullptr ? std::vector<LayerField>() : layerMembers(m_model, name);
        if (members.empty()) return {};
        const FieldSpec& field = *members.front().spec;
        StoredValue stored;
        SliceResult result = storeSetting(row, layerPlace(), field, format(), text, m_range, stored);
        const ByteList own = layerBytesOf(m_row->key.name, field);
        const ByteList others = layerBytesOf(bottom ? key : bottomKeyOf(key), field);
        const bool hasSides = key == "exposure_s";
        const bool areEqual = own == others;
        const std::uint32_t bottoms = bottomLayers();
        std::vector<std::uint32_t> kept;
        for (std::uint32_t i = 0; i < m_model.layers().layers.size(); ++i) {
            const bool isBottom = i < bottoms;
            const bool isCandidate = bottom ? isBottom && (hasSides || !areEqual) : !(hasSides && isBottom && areEqual);
            for (const LayerField& member : members) {
                const FieldPlace place = placeIn(m_model, member, i);
                ByteList bytes;
                if (result.isOk()) result = m_edits.current(place, bytes);
                if (!result.isOk()) return result;
                const bool follows = isCandidate && bytes == own;
                if (follows) m_edits.replace(place.offset, place.bytes, stored.bytes);
                const bool isOwn = !follows && (bottom ? isBottom && bytes != others : !(isBottom && bytes == others));
                if (isOwn && &member == &members.front()) kept.push_back(i);
            }
        }
        if (!kept.empty()) {
            m_plan.kept.push_back(m_change.key + ": " +
                                  layersText(kept, " keeps a value of its own", " keep values of their own"));
        }
        return result;
    }

    static std::string bottomKeyOf(std::string_view key) {
        for (const BottomKey& pair : kBottomKeys) {
            if (key == pair.other) return std::string(pair.bottom);
        }
        return {};
    }

    /// The print's height, and every layer that stood at its number times the old thickness.
    SliceResult moveHeights(const FieldPlace& place, const ByteList& was, const StoredValue& stored) {
        if (place.spec->kind != FieldKind::f32) return {};
        const auto old = loadNumber<float>(was.data(), place.spec->order);
        const auto now = loadNumber<float>(stored.bytes.data(), place.spec->order);
        const char* total = format() == SliceFormat::ctb ? "HeaderSettings.totalHeight" : "HeaderSettings.floatField3";
        if (const FieldPlace* height = m_model.field(total)) {
            m_edits.replace(height->offset, height->bytes,
                            floatBytes(static_cast<float>(m_model.info.layers) * now, height->spec->order));
        }
        std::vector<std::uint32_t> kept;
        const std::vector<LayerField> members = layerMembers(m_model, "LayerDef.positionZ");
        SliceResult result;
        for (std::uint32_t i = 0; i < m_model.layers().layers.size(); ++i) {
            for (const LayerField& member : members) {
                const FieldPlace z = placeIn(m_model, member, i);
                ByteList bytes;
                result = m_edits.current(z, bytes);
                if (!result.isOk()) return result;
                const float number = static_cast<float>(i + 1);
                const auto wide = [i](float height) { return static_cast<float>((i + 1.0) * shortestDouble(height)); };
                if (bytes == floatBytes(number * old, z.spec->order)) {
                    m_edits.replace(z.offset, z.bytes, floatBytes(number * now, z.spec->order));
                } else if (bytes == floatBytes(wide(old), z.spec->order)) {
                    m_edits.replace(z.offset, z.bytes, floatBytes(wide(now), z.spec->order));
                } else if (&member == &members.front()) {
                    kept.push_back(i);
                }
            }
        }
        if (!kept.empty()) {
            m_plan.kept.push_back("layer_height_mm: " +
                                  layersText(kept, " keeps a height of its own", " keep heights of their own"));
        }
        return result;
    }

    /// Layers that become bottom layers, or no longer are, take the other exposure where they held the one.
    SliceResult changeSides(const FieldPlace& place, const ByteList& was, const StoredValue& stored) {
        const auto countOf = [&](const ByteList& bytes) {
            const std::int64_t count = decodeField(*place.spec, bytes.data(), bytes.size()).integer;
            return static_cast<std::uint32_t>(std::clamp<std::int64_t>(count, 0, m_model.info.layers));
        };
        const std::uint32_t before = countOf(was);
        const std::uint32_t after = countOf(stored.bytes);
        const std::vector<LayerField> members = layerMembers(m_model, "LayerDef.exposureTime");
        if (members.empty()) return {};
        const FieldSpec& field = *members.front().spec;
        const ByteList bottom = layerBytesOf("bottom_exposure_s", field);
        const ByteList other = layerBytesOf("exposure_s", field);
        const ByteList& from = after > before ? other : bottom;
        const ByteList& to = after > before ? bottom : other;
        const std::uint32_t end = std::min<std::uint32_t>(std::max(before, after),
                                                          static_cast<std::uint32_t>(m_model.layers().layers.size()));
        for (std::uint32_t i = std::min(before, after); i < end; ++i) {
            for (const LayerField& member : members) {
                const FieldPlace at = placeIn(m_model, member, i);
                ByteList bytes;
                if (SliceResult result = m_edits.current(at, bytes); !result.isOk()) return result;
                if (bytes == from) m_edits.replace(at.offset, at.bytes, to);
            }
        }
        return {};
    }

    /// Single layers; the file's value stays.
    SliceResult planLayers() {
        const std::string key = m_row->key.name;
        std::vector<std::uint32_t> layers;
        const char* name = m_row->layerField(format());
        if (name == nullptr) {
            return failure(SliceCode::index,
                           "." + formatName(format()) + " files have no " + key + " of single layers");
        }
        const std::vector<LayerField> members = layerMembers(m_model, name);
        if (members.empty()) {
            return failure(SliceCode::index, "this file has no " + key + " of single layers");
        }
        SliceResult result = sliceLayers(m_change.layers, m_model.info.layers, layers);
        StoredValue stored;
        const FieldSpec& field = *members.front().spec;
        if (result.isOk())
            result = storeSetting(*m_row, layerPlace(), field, format(), m_change.value, m_range, stored);
        if (!result.isOk()) return result;
        std::map<std::string, std::vector<std::uint32_t>> changed;  // by the value before
        for (const std::uint32_t layer : layers) {
            for (const LayerField& member : members) {
                const FieldPlace place = placeIn(m_model, member, layer);
                ByteList was;
                if (result = m_edits.current(place, was); !result.isOk()) return result;
                if (was == stored.bytes) continue;
                if (&member == &members.front())
                    changed[settingText(*m_row, layerPlace(), field, was)].push_back(layer);
                m_edits.replace(place.offset, place.bytes, stored.bytes);
            }
        }
        note(stored);
        for (const auto& [before, numbers] : changed) {
            m_plan.changed.push_back({key, layerListText(numbers), before, stored.text});
        }
        return result;
    }

    SliceResult setField(const FieldPlace& place, const ByteList& bytes) {
        if (place.spec->kind != FieldKind::chars) return m_edits.set(place, bytes);
        // a name whose place and length another record tells; one that was empty stood nowhere
        const FieldPlace* size = m_model.field("SlicerInfo.machineNameSize");
        const FieldPlace* pointer = m_model.field("SlicerInfo.machineNameOffset");
        FieldPlace at = place;
        if (place.bytes == 0) {
            at.offset = std::int64_t{m_model.whole("HeaderSettings.slicerInfoOffset")} + CTB::kSlicerInfoBytes;
            const auto offset = storedNumber(static_cast<std::uint32_t>(at.offset), pointer->spec->order);
            m_edits.replace(pointer->offset, pointer->bytes, {offset.begin(), offset.end()});
        }
        const auto length = storedNumber(static_cast<std::uint32_t>(bytes.size()), size->spec->order);
        m_edits.replace(size->offset, size->bytes, {length.begin(), length.end()});
        return m_edits.set(at, bytes);
    }

    void note(const StoredValue& stored) {
        if (!stored.isRounded) return;
        m_plan.roundings.push_back(m_change.key + " " + m_change.value + " is stored as " + stored.text);
    }

    const SliceChange& m_change;
    Edits& m_edits;
    const Model& m_model;
    ChangePlan& m_plan;
    Range m_range;
    const SettingRow* m_row = nullptr;
};

SliceResult badLayers(const std::string& text, const std::string& why) {
    return failure(SliceCode::index, "layers \"" + text + "\": " + why);
}

/// One of the ranges: "3", "3-", "3-7", "last", "3-last", each with "/step".
bool parseRange(std::string_view text, std::uint64_t layers, std::uint64_t& first, std::uint64_t& last,
                std::uint64_t& step) {
    const auto number = [&](std::string_view part, std::uint64_t& value) {
        if (part == "last") {
            value = layers - 1;
            return true;
        }
        const auto [stopped, error] = std::from_chars(part.data(), part.data() + part.size(), value);
        return error == std::errc() && stopped == part.data() + part.size();
    };
    step = 1;
    if (const std::size_t slash = text.find('/'); slash != std::string_view::npos) {
        if (!number(text.substr(slash + 1), step) || text.substr(slash + 1) == "last" || step == 0) return false;
        text = text.substr(0, slash);
    }
    const std::size_t dash = text.find('-');
    if (!number(text.substr(0, dash), first)) return false;
    last = first;
    if (dash == std::string_view::npos) return true;
    last = layers - 1;
    return dash + 1 == text.size() || number(text.substr(dash + 1), last);
}

}  // namespace

SliceResult planChange(const SliceChange& change, Edits& edits, ChangePlan& plan, bool isFromFile) {
    return Planner(change, edits, plan, isFromFile ? Range::ofField : Range::ofKey).run();
}

SliceResult planChanges(const std::vector<SliceChange>& changes, Edits& edits, ChangePlan& plan) {
    SliceResult result;
    for (const SliceChange& change : changes) {
        if (result.isOk()) result = planChange(change, edits, plan);
    }
    return result.isOk() ? edits.moveOffsets() : result;
}

}  // namespace vndlp::job

namespace vndlp {

SliceResult sliceLayers(const std::string& text, std::uint32_t layers, std::vector<std::uint32_t>& numbers) {
    std::vector<bool> isChosen(layers);
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::uint64_t step = 1;
        if (layers == 0 || !job::parseRange(std::string_view(text).substr(at, comma - at), layers, first, last, step)) {
            return job::badLayers(text, "expected numbers and ranges such as 0-99,150");
        }
        if (first >= layers || last >= layers) {
            return job::badLayers(text, "the file has layers 0 to " + std::to_string(layers - 1));
        }
        if (first > last) return job::badLayers(text, "a range ends before it begins");
        for (std::uint64_t i = first; i <= last; i += step) isChosen[static_cast<std::size_t>(i)] = true;
        at = comma + 1;
    }
    numbers.clear();
    for (std::uint32_t i = 0; i < layers; ++i) {
        if (isChosen[i]) numbers.push_back(i);
    }
    return {};
}

}  // namespace vndlp
