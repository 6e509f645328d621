#include "tools/jobs/settings_file.h"

#include "tools/base/failure.h"
#include "tools/base/settings.h"
#include "tools/jobs/job_layers.h"

#include <nlohmann/json.hpp>
#include <vector>

namespace vndlp::tools {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kLayers = "layers";

std::map<std::string, std::string> textsOf(const Json& object) {
    std::map<std::string, std::string> texts;
    for (const auto& [key, value] : object.items()) {
        if (value.is_string()) texts[key] = value.get<std::string>();
        if (value.is_number()) texts[key] = shortNumber(value.get<double>(), 9);
    }
    texts.erase("comment");
    texts.erase("name");
    return texts;
}

Json jsonOf(const std::map<std::string, std::string>& texts) {
    Json object = Json::object();
    for (const auto& [key, text] : texts) {
        double number = 0;
        const bool isText = isTextKey(key, key) || !parseNumber(text, number);
        object[key] = isText ? Json(utf8Of(text)) : Json(number);
    }
    return object;
}

}  // namespace

HeldSettings readSettingsFile(const Archive& archive) {
    HeldSettings held;
    for (const JobFile& file : listJobFiles(archive)) {
        if (file.name != kArchiveSettingsName && file.name != kFolderSettingsName) continue;
        std::vector<unsigned char> bytes;
        archive.readEntry(file.entry, bytes);
        const Json json = Json::parse(bytes, nullptr, false);
        if (!json.is_object()) throw Failure(archive.label(file.entry) + ": is no JSON object of settings");
        held.file = textsOf(json);
        if (!json.contains(kLayers) || !json[kLayers].is_object()) continue;
        for (const auto& [layer, values] : json[kLayers].items()) {
            double number = 0;
            if (values.is_object() && parseNumber(layer, number) && number >= 0 && number < 1e6) {
                held.layers[static_cast<int>(number)] = textsOf(values);
            }
        }
    }
    return held;
}

std::string settingsText(const HeldSettings& held) {
    Json json = jsonOf(held.file);
    if (!held.layers.empty()) {
        Json layers = Json::object();
        for (const auto& [layer, values] : held.layers) layers[std::to_string(layer)] = jsonOf(values);
        json[kLayers] = std::move(layers);
    }
    return json.dump(2) + "\n";
}

}  // namespace vndlp::tools
