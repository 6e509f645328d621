/// The settings of a print as the program knows them, whatever file or option they come from.

#pragma once

#include "tools/base/text.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// Where a value comes from; of two origins the later one wins.
enum class Origin { assumed, job, profile, option };

/// One row of the table of settings.
struct SettingSpec {
    const char* key;
    const char* unit;  ///< empty for texts and plain numbers
    const char* help;
    bool isText;
    double min;
    double max;
    const char* fallback;  ///< what is assumed without a value; null: nothing can be
};

/// The table, in the order of the documentation.
const std::vector<SettingSpec>& settingSpecs();

/// Values by key, each with its origin.
class PrintSettings {
public:
    /// Sets a value from text unless one of a later origin stands already. Throws Failure, naming `where`, for an
    /// unknown key, a text that is no number, or a number out of the key's range.
    void set(const std::string& key, const std::string& text, Origin origin, const std::string& where);
    /// The same from a number.
    void set(const std::string& key, double value, Origin origin, const std::string& where);

    bool has(const std::string& key) const;
    Origin origin(const std::string& key) const;
    double number(const std::string& key) const;
    /// The value rounded to the nearest whole number.
    int whole(const std::string& key) const;
    std::string text(const std::string& key) const;

    /// Gives every key without a value its fallback. \return one sentence for each, "light_off_s = 1 s".
    std::vector<std::string> assumeTheRest();

private:
    struct Value {
        std::string text;
        double number;
        Origin origin;
    };
    std::map<std::string, Value> m_values;
};

/// The table as `--help` shows it.
std::string settingsHelp();

/// Sets what a printer's profile says: a JSON object of the table's keys. Throws Failure.
void applyProfile(const std::string& path, PrintSettings& settings);

/// Sets what "key=value" says. Throws Failure.
void applyOption(const std::string& assignment, PrintSettings& settings);

}  // namespace vndlp::tools
