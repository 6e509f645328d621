#include "tools/base/settings.h"

#include "tools/base/failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace vndlp::tools {

namespace {

constexpr double kMax16 = 65535;
constexpr double kMaxMm = 1e6;

const SettingSpec& specOf(const std::string& key, const std::string& where) {
    const std::vector<SettingSpec>& specs = settingSpecs();
    const auto found = std::find_if(specs.begin(), specs.end(), [&](const SettingSpec& s) { return key == s.key; });
    if (found != specs.end()) return *found;
    throw UsageFailure(where + ": unknown setting \"" + printable(key) + "\"; `vndlp convert --help` lists them");
}

}  // namespace

const std::vector<SettingSpec>& settingSpecs() {
    static const std::vector<SettingSpec> specs = {
        {"machine", "", "the printer's name, as its firmware expects it", true, 0, 0, "unknown"},
        {"resolution_x", "px", "screen width", false, 1, kMax16, nullptr},
        {"resolution_y", "px", "screen height", false, 1, kMax16, nullptr},
        {"display_width_mm", "mm", "width of the screen", false, 1e-3, kMaxMm, nullptr},
        {"display_height_mm", "mm", "height of the screen", false, 1e-3, kMaxMm, nullptr},
        {"machine_height_mm", "mm", "build height", false, 0, 4e6, "0"},
        {"layer_height_mm", "mm", "layer thickness", false, 1e-4, 100, "0.05"},
        {"exposure_s", "s", "exposure of a layer", false, 0, kMax16 / 10, "2.5"},
        {"bottom_exposure_s", "s", "exposure of a bottom layer", false, 0, kMax16, "30"},
        {"bottom_layers", "", "number of bottom layers", false, 0, kMax16, "4"},
        {"light_off_s", "s", "wait with the light off after a layer", false, 0, kMax16, "1"},
        {"bottom_lift_mm", "mm", "lift after a bottom layer", false, 0, kMax16, "6"},
        {"bottom_lift_speed", "mm/min", "speed of that lift", false, 0, kMax16, "60"},
        {"lift_mm", "mm", "lift after a layer", false, 0, kMax16, "6"},
        {"lift_speed", "mm/min", "speed of that lift", false, 0, kMax16, "80"},
        {"retract_speed", "mm/min", "speed of the way back", false, 0, kMax16, "150"},
        {"bottom_pwm", "", "light power of the bottom layers, 0 to 255", false, 0, 255, "255"},
        {"pwm", "", "light power, 0 to 255", false, 0, 255, "255"},
        {"anti_aliasing", "", "1 when grey levels smooth the edges", false, 0, 1, "0"},
        {"min_grey", "", "darkest grey of the anti-aliasing", false, 0, 255, "0"},
        {"max_grey", "", "brightest grey of the anti-aliasing", false, 0, 255, "0"},
        {"resin", "", "the resin's name", true, 0, 0, ""},
        {"resin_ml", "ml", "resin the job uses", false, 0, 1e6, "0"},
        {"resin_g", "g", "the same by weight", false, 0, 1e6, "0"},
        {"print_time_s", "s", "estimated print time", false, 0, 4294967295.0, "0"},
    };
    return specs;
}

std::string settingsHelp() {
    std::string text = "Settings for --set and profiles (later wins: job, profile, --set):\n";
    for (const SettingSpec& spec : settingSpecs()) {
        char row[256];
        std::snprintf(row, sizeof row, "  %-20s %-8s %s%s%s\n", spec.key, spec.unit, spec.help,
                      spec.fallback != nullptr && spec.fallback[0] != '\0' ? "; else " : "",
                      spec.fallback != nullptr ? spec.fallback : "");
        text += row;
    }
    return text;
}

void PrintSettings::set(const std::string& key, const std::string& text, Origin origin, const std::string& where) {
    const SettingSpec& spec = specOf(key, where);
    double number = 0;
    if (!spec.isText && !parseNumber(text, number)) {
        throw UsageFailure(where + ": " + key + " = \"" + printable(text) + "\" is not a number");
    }
    if (!spec.isText && (number < spec.min || number > spec.max)) {
        throw UsageFailure(where + ": " + key + " = " + text + " is outside " + shortNumber(spec.min) + " to " +
                      shortNumber(spec.max) + (spec.unit[0] != '\0' ? std::string(" ") + spec.unit : ""));
    }
    const auto present = m_values.find(key);
    if (present != m_values.end() && present->second.origin > origin) return;
    m_values[key] = {text, number, origin};
}

void PrintSettings::set(const std::string& key, double value, Origin origin, const std::string& where) {
    set(key, shortNumber(value), origin, where);
}

bool PrintSettings::has(const std::string& key) const { return m_values.count(key) != 0; }

Origin PrintSettings::origin(const std::string& key) const { return m_values.at(key).origin; }

double PrintSettings::number(const std::string& key) const { return m_values.at(key).number; }

int PrintSettings::whole(const std::string& key) const { return static_cast<int>(std::lround(number(key))); }

std::string PrintSettings::text(const std::string& key) const { return m_values.at(key).text; }

std::vector<std::string> PrintSettings::assumeTheRest() {
    std::vector<std::string> sentences;
    for (const SettingSpec& spec : settingSpecs()) {
        if (has(spec.key) || spec.fallback == nullptr) continue;
        set(spec.key, spec.fallback, Origin::assumed, "built-in value");
        if (spec.fallback[0] == '\0' || std::string(spec.fallback) == "0") continue;
        sentences.push_back(std::string(spec.key) + " = " + spec.fallback +
                            (spec.unit[0] != '\0' ? std::string(" ") + spec.unit : ""));
    }
    return sentences;
}

void applyProfile(const std::string& path, PrintSettings& settings) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw UsageFailure(path + ": the profile cannot be opened");
    const nlohmann::json profile = nlohmann::json::parse(file, nullptr, false);
    if (!profile.is_object()) throw UsageFailure(path + ": the profile is not a JSON object of settings");
    for (const auto& [key, value] : profile.items()) {
        if (value.is_string()) {
            settings.set(key, value.get<std::string>(), Origin::profile, path);
        } else if (value.is_number()) {
            settings.set(key, value.get<double>(), Origin::profile, path);
        } else if (value.is_boolean()) {
            settings.set(key, value.get<bool>() ? 1.0 : 0.0, Origin::profile, path);
        } else {
            throw UsageFailure(path + ": " + printable(key) + " is neither text nor number");
        }
    }
}

void applyOption(const std::string& assignment, PrintSettings& settings) {
    const std::size_t equals = assignment.find('=');
    const std::string where = "--set " + printable(assignment);
    if (equals == std::string::npos) throw UsageFailure(where + ": expected key=value");
    settings.set(assignment.substr(0, equals), assignment.substr(equals + 1), Origin::option, where);
}

}  // namespace vndlp::tools
