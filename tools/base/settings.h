/// The settings of a print as the program knows them, whatever file or option they come from. Keys, units and ranges are
/// the library's.

#pragma once

#include "tools/base/text.h"

#include <map>
#include <string>
#include <vector>

namespace vndlp::tools {

/// Where a value comes from; of two origins the later one wins.
enum class Origin { assumed, job, printer, profile, option };

/// Values by key, each with its origin.
class PrintSettings {
public:
    struct Value {
        std::string text;  ///< as it was given
        double number;     ///< of keys that are no texts
        Origin origin;
    };

    /// Sets a value from text unless one of a later origin stands already. Throws UsageFailure, naming `where`, for an
    /// unknown key, a text that is no number, or a number out of the key's range.
    void set(const std::string& key, const std::string& text, Origin origin, const std::string& where);
    /// The same from a number.
    void set(const std::string& key, double value, Origin origin, const std::string& where);
    /// Sets what "key=value" says. Throws UsageFailure.
    void setOption(const std::string& assignment);
    /// Sets a value that a slice file holds, whatever its range.
    void hold(const std::string& key, const std::string& text, double number) {
        m_values[key] = {text, number, Origin::job};
    }
    /// Takes every value of another one unless one of a later origin stands already.
    void take(const PrintSettings& other);
    void forget(const std::string& key) { m_values.erase(key); }

    bool has(const std::string& key) const { return m_values.count(key) != 0; }
    Origin origin(const std::string& key) const { return m_values.at(key).origin; }
    double number(const std::string& key) const { return m_values.at(key).number; }
    double numberOr(const std::string& key, double other) const { return has(key) ? number(key) : other; }
    std::string text(const std::string& key) const { return has(key) ? m_values.at(key).text : ""; }
    const std::map<std::string, Value>& values() const { return m_values; }

private:
    std::map<std::string, Value> m_values;
};

/// Whether a key's values are texts. Throws UsageFailure, naming `where`, for an unknown key.
bool isTextKey(const std::string& key, const std::string& where);

/// The keys as `--help` shows them.
std::string settingsHelp();

}  // namespace vndlp::tools
