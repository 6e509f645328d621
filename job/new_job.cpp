#include "job/new_job.h"

#include "job/plan_changes.h"
#include "job/values.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

namespace vndlp::job {

const AlikeMembers kAlikeMembers[3] = {
    {"HeaderSettings.projectorType", "HeaderSettings.word6"},
    {"HeaderSettings.antiAliasLevel", "HeaderSettings.word9"},
    {"PrintParameters.lightOffDelay", "PrintParameters.lightOffDelay"},
};

namespace {

constexpr double kAssumedPixelMm = 0.05;
constexpr const char* kV4LightOff = "raw.PrintParameters.lightOffDelay";
constexpr const char* kBottomLightOff = "bottom_light_off_s";

/// What is assumed without a value.
constexpr std::pair<std::string_view, const char*> kFallbacks[] = {
    {"machine", "unknown"}, {"layer_height_mm", "0.05"}, {"exposure_s", "2.5"},    {"bottom_exposure_s", "30"},
    {"bottom_layers", "4"}, {"light_off_s", "1"},        {"bottom_lift_mm", "6"},  {"bottom_lift_speed", "60"},
    {"lift_mm", "6"},       {"lift_speed", "80"},        {"retract_speed", "150"}, {"bottom_pwm", "255"},
    {"pwm", "255"},
};

std::string fallbackOf(std::string_view key, std::uint32_t width, std::uint32_t height) {
    if (key == "display_width_mm") return sliceNumberText(width * kAssumedPixelMm);
    if (key == "display_height_mm") return sliceNumberText(height * kAssumedPixelMm);
    for (const auto& [name, value] : kFallbacks) {
        if (key == name) return value;
    }
    return {};
}

/// The value of another file; empty where it holds none.
std::string valueOf(const Model& like, const SettingRow& row) {
    if (row.key.type == SliceValueType::text) {
        std::string text;
        return readText(like, row, text).isOk() ? text : std::string();
    }
    double number = 0;
    if (!readNumber(like, row, -1, number).isOk()) return {};
    // 0 where nothing may be 0 stands for nothing
    return number == 0 && row.key.least > 0 ? std::string() : exactText(number);
}

void addAlike(SliceFormat format, const Model& like, std::vector<NewSetting>& settings) {
    for (const AlikeMembers& members : kAlikeMembers) {
        const bool isToCtb = format == SliceFormat::ctb;
        const FieldPlace* from = like.field(isToCtb ? members.v4 : members.ctb);
        FieldValue value;
        if (from == nullptr || !readField(like.bytes, *from, value).isOk()) continue;
        const bool isFloat = from->spec->kind == FieldKind::f32;
        settings.push_back({std::string("raw.") + (isToCtb ? members.ctb : members.v4),
                            isFloat ? exactText(value.number) : std::to_string(value.integer), false});
    }
}

}  // namespace

std::string exactText(double value) {
    char text[400];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    return error == std::errc() ? std::string(text, end) : "nan";
}

bool canHoldText(const SettingRow& row, SliceFormat format, const std::string& text) {
    const Place& where = row.place(format);
    if (where.field == nullptr || where.isFixed) return false;
    if (where.stored != Stored::version) return true;
    const FieldSpec word{"", "", FieldKind::u32, LittleEndian, 4, false, false};
    StoredValue stored;
    return storeSetting(row, where, word, format, text, Range::ofKey, stored).isOk();
}

std::vector<NewSetting> settingsOfNewJob(SliceFormat format, std::uint32_t width, std::uint32_t height,
                                         const Model* like) {
    std::vector<NewSetting> settings;
    std::string lightOff;
    for (std::size_t i = 0; i < settingCount(); ++i) {
        const SettingRow& row = settingRow(i);
        const std::string_view key = row.key.name;
        const Place& where = row.place(format);
        if (where.field == nullptr || where.isFixed || key == "resolution_x" || key == "resolution_y") continue;
        NewSetting setting{row.key.name, like == nullptr ? std::string() : valueOf(*like, row), false};
        if (row.key.type == SliceValueType::text && !canHoldText(row, format, setting.value)) setting.value.clear();
        if (setting.value.empty()) {
            setting.value = fallbackOf(key, width, height);
            setting.isAssumed = true;
        }
        if (key == "light_off_s") lightOff = setting.value;
        if (!setting.value.empty()) settings.push_back(std::move(setting));
    }
    const bool isBetweenCoded =
        like != nullptr && !like->isVendor() && format != SliceFormat::vndlp && format != SliceFormat::vnline;
    if (isBetweenCoded) {
        addAlike(format, *like, settings);
    } else if (format == SliceFormat::vndlpv4) {
        settings.push_back({kBottomLightOff, lightOff, false});
        settings.push_back({kV4LightOff, lightOff, false});
    }
    return settings;
}

SliceResult completeV4Waits(const std::vector<std::string>& given, bool hasCodedLike, Edits& edits) {
    const SettingRow& row = *findSetting("light_off_s");
    const Place& where = row.place(SliceFormat::vndlpv4);
    const FieldPlace* place = edits.model().field(where.field);
    const auto isGiven = [&given](const char* key) {
        return std::find(given.begin(), given.end(), key) != given.end();
    };
    if (hasCodedLike || !isGiven(row.key.name) || place == nullptr) return {};
    ByteList bytes;
    SliceResult result = edits.current(*place, bytes);
    const std::string value = settingText(row, where, *place->spec, bytes);
    ChangePlan plan;
    for (const char* key : {kBottomLightOff, kV4LightOff}) {
        if (result.isOk() && !isGiven(key)) result = planChange({key, value, {}}, edits, plan);
    }
    return result;
}

}  // namespace vndlp::job
