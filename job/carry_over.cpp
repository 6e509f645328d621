#include "job/carry_over.h"

#include "job/new_job.h"
#include "job/skeleton.h"
#include "job/values.h"

#include <vndlp/ctb.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>
#include <utility>

namespace vndlp::job {

namespace {

/// Members that say how a file is laid out, or that follow from others: they say nothing of the job.
constexpr std::string_view kLayout[] = {
    "magic",       "version",     "versionCode", "headerText1", "layerCount",  "encryptionKey",
    "totalHeight", "floatField3", "word8",       "word12",      "resolutionX", "resolutionY",
    "area",        "count",       "tableSize",   "totalSize",   "positionZ",   "extensionFlag",
};
constexpr const char* kV4Area = "LayerDef.word36";

bool endsWith(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

bool isLayout(std::string_view member) {
    if (endsWith(member, "Offset") || endsWith(member, "Size")) return member != "enableBOffset";
    return std::find(std::begin(kLayout), std::end(kLayout), member) != std::end(kLayout);
}

/// Whether a file has the member for the job's sake; settings have it, too.
bool saysOfJob(const FieldSpec& spec, const std::string& name) {
    return !spec.isFixed && !isLayout(spec.name) && name != kV4Area;
}

/// Whether two members of one name are the same: records of one name may differ between formats.
bool isAlike(const FieldSpec& one, const FieldSpec& other) {
    return one.kind == other.kind && one.order == other.order && one.size == other.size && !other.isFixed;
}

bool isEmpty(const FieldSpec& spec, const FieldValue& value) {
    if (isText(spec.kind)) return value.text.empty();
    if (spec.kind == FieldKind::bytes) return value.text.find_first_not_of('0') == std::string::npos;
    return value.number == 0 && value.integer == 0;
}

std::string ofLayers(const std::string& name, std::size_t count) {
    return name + " of " + std::to_string(count) + (count == 1 ? " layer" : " layers");
}

bool arrives(const FieldSpec& spec, const FieldPlace* there) { return there != nullptr && isAlike(spec, *there->spec); }

/// Names what of a file a new one of another format does not hold.
class Loss {
public:
    Loss(const Model& from, const Model& to) : m_from(from), m_to(to) {
        for (std::size_t i = 0; i < settingCount(); ++i) {
            const SettingRow& row = settingRow(i);
            const Place& where = row.place(format());
            if (where.field != nullptr) m_settings.insert(memberName(m_from, where.field));
            if (where.copy != nullptr) m_settings.insert(where.copy);
            if (row.layerField(format()) != nullptr) m_settings.insert(row.layerField(format()));
        }
        const bool isToCoded = !to.isVendor() && !from.isVendor();
        for (const AlikeMembers& members : kAlikeMembers) {
            if (isToCoded) m_settings.insert(format() == SliceFormat::ctb ? members.ctb : members.v4);
        }
    }

    std::vector<std::string> names() {
        for (std::size_t i = 0; i < settingCount(); ++i) addSetting(settingRow(i));
        for (std::size_t i = 0; i < settingCount(); ++i) addLayerSetting(settingRow(i));
        addRawFields();
        addLayerFields();
        return std::move(m_names);
    }

private:
    [[nodiscard]] SliceFormat format() const { return m_from.info.format; }

    void addSetting(const SettingRow& row) {
        const std::string key = row.key.name;
        if (key == "resolution_x" || key == "resolution_y") return;
        const Place& target = row.place(m_to.info.format);
        if (row.key.type == SliceValueType::text) {
            std::string text;
            const bool isHeld = readText(m_from, row, text).isOk() && !text.empty();
            if (isHeld && !canHoldText(row, m_to.info.format, text)) m_names.push_back(key);
            return;
        }
        double value = 0;
        if (!readNumber(m_from, row, -1, value).isOk() || value == 0) return;
        double fixed = 0;
        const bool isFixedAlike = target.isFixed && m_to.number(target.field, fixed) && fixed == value;
        if (target.field == nullptr || (target.isFixed && !isFixedAlike)) m_names.push_back(key);
    }

    /// A setting that a layer has for itself, where the target has it for all.
    void addLayerSetting(const SettingRow& row) {
        if (row.layerField(format()) == nullptr || row.layerField(m_to.info.format) != nullptr) return;
        const std::string key = row.key.name;
        double ofFile = 0;
        double ofBottom = 0;
        double bottoms = 0;
        if (!readNumber(m_from, row, -1, ofFile).isOk()) ofFile = 0;
        const SettingRow* bottom = findSetting("bottom_" + key);
        if (bottom == nullptr || !readNumber(m_from, *bottom, -1, ofBottom).isOk()) ofBottom = ofFile;
        if (!readNumber(m_from, *findSetting("bottom_layers"), -1, bottoms).isOk()) bottoms = 0;
        std::size_t count = 0;
        for (std::uint32_t i = 0; i < m_from.layers().layers.size(); ++i) {
            double value = 0;
            if (!readNumber(m_from, row, i, value).isOk() || value == 0 || value == ofFile) continue;
            if (i >= bottoms || value != ofBottom) ++count;
        }
        if (count > 0) m_names.push_back(ofLayers(key, count));
    }

    void addRawFields() {
        // what the format's writers put there in every file says nothing of this job
        const ByteList fresh = freshHead(format(), m_from.info.width, m_from.info.height);
        SliceFile usual;
        const bool isUsual = usual.openMemory(fresh.data(), fresh.size()).isOk();
        double lightOff = 0;
        const bool waits = readNumber(m_from, *findSetting("light_off_s"), -1, lightOff).isOk();
        for (const RecordPlace& record : m_from.records) {
            for (const FieldPlace& place : record.fields) {
                const std::string name = record.name + "." + place.spec->name;
                FieldValue value;
                if (!isOfJob(*place.spec, name) || !readField(m_from.bytes, place, value).isOk()) continue;
                if (isEmpty(*place.spec, value)) continue;
                FieldValue other;
                const FieldPlace* there = isUsual ? usual.state()->model.field(name) : nullptr;
                const bool isSame = there != nullptr && readField(usual.state()->model.bytes, *there, other).isOk() &&
                                    other.number == value.number && other.text == value.text;
                if (arrives(*place.spec, m_to.field(name))) continue;
                // the V4 header's wait once more
                const bool isAgain = name == "PrintParameters.lightOffDelay" && waits && value.number == lightOff;
                if (!isSame && !isAgain) m_names.push_back("raw." + name);
            }
        }
    }

    [[nodiscard]] bool isOfJob(const FieldSpec& spec, const std::string& name) const {
        return saysOfJob(spec, name) && m_settings.count(name) == 0;
    }

    void addLayerFields() {
        const std::size_t layers = m_from.layers().layers.size();
        for (const LayerRecords& records : m_from.layerRecords) {
            if (records.memberPrefix[0] != '\0') continue;
            for (const FieldSpec& spec : *records.fields) {
                const std::string name = std::string(records.name) + "." + spec.name;
                const bool isAgain = spec.name.find('.') != std::string::npos;
                const std::optional<LayerField> field = findLayerField(m_from, name);
                if (isAgain || !field || !isOfJob(spec, name)) continue;
                if (const std::optional<LayerField> there = findLayerField(m_to, name)) {
                    if (isAlike(spec, *there->spec) && !spec.isOptional) continue;
                }
                std::size_t count = 0;
                for (std::uint32_t i = 0; i < layers; ++i) {
                    if (spec.isOptional && !m_from.layers().layers[i].isExtended) continue;
                    FieldValue value;
                    const bool isRead = readField(m_from.bytes, placeIn(m_from, *field, i), value).isOk();
                    count += isRead && !isEmpty(spec, value) ? 1 : 0;
                }
                if (count > 0) m_names.push_back("raw." + ofLayers(name, count));
            }
        }
        addHeights();
    }

    /// Layers that do not stand at their number times the thickness, where the target takes that for granted.
    void addHeights() {
        const std::optional<LayerField> field = findLayerField(m_from, "LayerDef.positionZ");
        if (!field || !m_to.isVendor()) return;
        std::size_t count = 0;
        for (std::uint32_t i = 0; i < m_from.layers().layers.size(); ++i) {
            FieldValue value;
            if (!readField(m_from.bytes, placeIn(m_from, *field, i), value).isOk()) continue;
            const double expected = (i + 1.0) * m_from.layerHeightMm;
            count += std::abs(value.number - expected) <= 1e-5 * std::max(1.0, expected) ? 0 : 1;
        }
        if (count > 0) m_names.push_back("raw." + ofLayers("LayerDef.positionZ", count));
    }

    const Model& m_from;
    const Model& m_to;
    std::set<std::string> m_settings;  // members that the table of settings speaks of
    std::vector<std::string> m_names;
};

SliceResult carryMember(const Model& from, const std::string& name, Edits& to) {
    const std::optional<LayerField> source = findLayerField(from, name);
    const std::vector<LayerField> targets = layerMembers(to.model(), name);
    if (!source || targets.empty()) return {};
    const std::size_t layers = std::min(from.layers().layers.size(), to.model().layers().layers.size());
    for (std::uint32_t i = 0; i < layers; ++i) {
        const FieldPlace place = placeIn(from, *source, i);
        ByteList bytes(static_cast<std::size_t>(place.bytes));
        // a layer that cannot be read keeps what the file's values say
        if (!from.bytes.read(place.offset, bytes.data(), bytes.size()).isOk()) continue;
        for (const LayerField& target : targets) {
            const FieldPlace at = placeIn(to.model(), target, i);
            ByteList held;
            SliceResult result = to.current(at, held);
            if (!result.isOk()) return result;
            if (held != bytes) to.replace(at.offset, at.bytes, bytes);
        }
    }
    return {};
}

bool isSettingOf(const Model& model, const std::string& name) {
    for (std::size_t i = 0; i < settingCount(); ++i) {
        const Place& where = settingRow(i).place(model.info.format);
        if (where.field != nullptr && (name == memberName(model, where.field))) return true;
        if (where.copy != nullptr && name == where.copy) return true;
    }
    return false;
}

}  // namespace

SliceResult carryRawFields(const Model& from, Edits& to) {
    SliceResult result;
    for (const RecordPlace& record : from.records) {
        for (const FieldPlace& place : record.fields) {
            const std::string name = record.name + "." + place.spec->name;
            const FieldPlace* there = to.model().field(name);
            if (!saysOfJob(*place.spec, name) || !arrives(*place.spec, there) || isText(place.spec->kind)) continue;
            if (isSettingOf(from, name) || isSettingOf(to.model(), name)) continue;
            ByteList bytes(static_cast<std::size_t>(place.bytes));
            if (!from.bytes.read(place.offset, bytes.data(), bytes.size()).isOk()) continue;
            if (result = to.set(*there, bytes); !result.isOk()) return result;
        }
    }
    return result;
}

SliceResult carryLayers(const Model& from, Edits& to) {
    if (from.isVendor() || to.model().isVendor()) return {};
    // the members have one name in both formats
    SliceResult result;
    for (const LayerRecords& records : from.layerRecords) {
        if (records.memberPrefix[0] != '\0') continue;
        for (const FieldSpec& spec : *records.fields) {
            const std::string name = std::string(records.name) + "." + spec.name;
            const bool isAgain = spec.name.find('.') != std::string::npos;
            if (isAgain || spec.isOptional || (!saysOfJob(spec, name) && spec.name != "positionZ")) continue;
            if (result = carryMember(from, name, to); !result.isOk()) return result;
        }
    }
    return result;
}

std::string notKeptText(const Model& from, const Model& to) {
    std::string text;
    for (const std::string& name : Loss(from, to).names()) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? text : "not kept in ." + formatName(to.info.format) + ": " + text;
}

std::vector<Picture> picturesOf(const SliceFile& file) {
    std::vector<Picture> pictures;
    SlicePreviewInfo info;
    for (std::uint32_t i = 0; file.previewInfo(i, info).isOk(); ++i) {
        Picture picture{info.width, info.height, {}};
        if (info.width == 0 || info.height == 0 || std::uint64_t{info.width} * info.height > CTB::kMostPreviewPixels) {
            continue;
        }
        picture.rgb.resize(std::size_t{3} * info.width * info.height);
        if (file.preview(i, picture.rgb.data(), 0, picture.rgb.size()).isOk()) pictures.push_back(std::move(picture));
    }
    if (!file.state()->model.isVendor()) std::reverse(pictures.begin(), pictures.end());
    return pictures;
}

std::size_t pictureFor(std::size_t preview, std::size_t pictures, bool isVendor) {
    if (isVendor) return std::min(preview, pictures - 1);
    return pictures > preview ? pictures - 1 - preview : 0;
}

}  // namespace vndlp::job
