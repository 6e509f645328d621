#include "tools/base/settings.h"

#include "tools/base/failure.h"

#include <vndlp/slice_file.h>

#include <cstdio>

namespace vndlp::tools {

namespace {

const SliceKey& keyOf(const std::string& key, const std::string& where) {
    if (const SliceKey* found = findSliceKey(key)) return *found;
    std::vector<std::string> names;
    for (std::size_t i = 0; sliceKey(i) != nullptr; ++i) names.emplace_back(sliceKey(i)->name);
    const std::string nearest = nearestWord(key, names);
    throw UsageFailure(where + ": unknown setting \"" + key + "\"; " +
                       (nearest.empty() ? "`vndlp convert --help` lists them" : "did you mean " + nearest + "?"));
}

std::string unitText(const SliceKey& key) { return *key.unit == '\0' ? "" : std::string(" ") + key.unit; }

}  // namespace

bool isTextKey(const std::string& key, const std::string& where) {
    return keyOf(key, where).type == SliceValueType::text;
}

std::string settingsHelp() {
    std::string text = "Settings for --set, profiles and printers (later wins: job, printer, profile, --set):\n";
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        char row[256];
        std::snprintf(row, sizeof row, "  %-22s %-7s %s\n", key->name, key->unit, key->help);
        text += row;
    }
    return text;
}

void PrintSettings::set(const std::string& key, const std::string& text, Origin origin, const std::string& where) {
    const SliceKey& spec = keyOf(key, where);
    double number = 0;
    if (spec.type != SliceValueType::text) {
        if (!parseNumber(text, number)) throw UsageFailure(where + ": " + key + " = \"" + text + "\" is not a number");
        if (number < spec.least || number > spec.most) {
            throw UsageFailure(where + ": " + key + " = " + text + " is outside " + shortNumber(spec.least) + " to " +
                               shortNumber(spec.most) + unitText(spec));
        }
    }
    const auto present = m_values.find(key);
    if (present != m_values.end() && present->second.origin > origin) return;
    m_values[key] = {text, number, origin};
}

void PrintSettings::set(const std::string& key, double value, Origin origin, const std::string& where) {
    set(key, shortNumber(value), origin, where);
}

void PrintSettings::setOption(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    const std::string where = "--set " + assignment;
    if (equals == std::string::npos) throw UsageFailure(where + ": expected key=value");
    set(assignment.substr(0, equals), assignment.substr(equals + 1), Origin::option, where);
}

void PrintSettings::take(const PrintSettings& other) {
    for (const auto& [key, value] : other.m_values) {
        const auto present = m_values.find(key);
        if (present == m_values.end() || present->second.origin <= value.origin) m_values[key] = value;
    }
}

}  // namespace vndlp::tools
