/// The settings that this program puts beside a job's layers: `vndlp.json` in archives, `settings.json` in folders.

#pragma once

#include "tools/jobs/archive.h"

#include <map>
#include <string>

namespace vndlp::tools {

constexpr const char* kArchiveSettingsName = "vndlp.json";
constexpr const char* kFolderSettingsName = "settings.json";

/// Values as texts, by key; those of single layers by the layer's number.
struct HeldSettings {
    std::map<std::string, std::string> file;
    std::map<int, std::map<std::string, std::string>> layers;
};

/// Reads the settings beside a job's layers, what stands in the file but is no text or number left out; none where there
/// is no such file. Throws Failure for one that is no JSON object.
HeldSettings readSettingsFile(const Archive& archive);

/// The text of such a file: a JSON object of the settings, and "layers", an object of objects, where there are some.
std::string settingsText(const HeldSettings& held);

}  // namespace vndlp::tools
