#include "tools/base/printer.h"

#include "tools/base/failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t kMostPreviewSide = 65535;

[[noreturn]] void fail(const std::string& file, const std::string& what) { throw UsageFailure(file + ": " + what); }

std::string readText(const std::string& file) {
    if (fs::is_directory(file)) fail(file, reasonOf(EISDIR));
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) fail(file, "cannot be opened: " + reasonOf(errno));
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Json parseObject(const std::string& file) {
    const std::string text = readText(file);
    try {
        Json json = Json::parse(text);
        if (!json.is_object()) fail(file, "line 1: is no JSON object of settings");
        return json;
    } catch (const Json::parse_error& error) {
        const std::size_t before = std::min(error.byte > 0 ? error.byte - 1 : 0, text.size());
        const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(before), '\n');
        fail(file, "line " + std::to_string(line) + ": is no JSON");
    }
}

std::uint32_t wholeNumber(const std::string& file, const std::string& key, const Json& value, std::uint64_t most) {
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= most) return value.get<std::uint32_t>();
    fail(file, key + " = " + value.dump() + " is no whole number from 0 to " + std::to_string(most));
}

void readConstants(const std::string& file, const Json& value, Printer& printer) {
    if (!value.is_object()) fail(file, "ctb_constants is no object of km, ks, lm and ls");
    CTB::ScramblingConstants constants = CTB::scramblingConstants();
    const std::pair<const char*, unsigned int*> members[] = {
        {"km", &constants.km}, {"ks", &constants.ks}, {"lm", &constants.lm}, {"ls", &constants.ls}};
    for (const auto& [name, member] : members) {
        if (!value.contains(name)) fail(file, std::string("ctb_constants: ") + name + " is missing");
        *member = wholeNumber(file, std::string("ctb_constants.") + name, value[name], UINT32_MAX);
    }
    if (value.size() != std::size(members)) fail(file, "ctb_constants has others than km, ks, lm and ls");
    printer.constants = constants;
}

void readPreviews(const std::string& file, const Json& value, Printer& printer) {
    const auto isSize = [](const Json& size) {
        return size.is_array() && size.size() == 2 && size[0].is_number_unsigned() && size[1].is_number_unsigned();
    };
    if (!value.is_array() || !std::all_of(value.begin(), value.end(), isSize)) {
        fail(file, "previews is no list of [width, height]");
    }
    for (const Json& size : value) {
        printer.previews.emplace_back(wholeNumber(file, "previews", size[0], kMostPreviewSide),
                                      wholeNumber(file, "previews", size[1], kMostPreviewSide));
    }
}

void readSetting(const std::string& file, const std::string& key, const Json& value, Origin origin, Printer& printer) {
    if (value.is_string()) {
        printer.settings.set(key, value.get<std::string>(), origin, file);
    } else if (value.is_number()) {
        printer.settings.set(key, value.get<double>(), origin, file);
    } else if (value.is_boolean()) {
        printer.settings.set(key, value.get<bool>() ? 1.0 : 0.0, origin, file);
    } else {
        fail(file, key + " is neither text nor number");
    }
}

}  // namespace

Printer readPrinter(const std::string& file, Origin origin) {
    Printer printer;
    printer.name = file;
    const Json json = parseObject(file);
    for (const auto& [key, value] : json.items()) {
        // "layers" are single layers' settings, which belong to one job
        if (key == "comment" || key == "name" || key == "layers") continue;
        if (key == "mirror") {
            const std::string text = value.is_string() ? value.get<std::string>() : "";
            if (text != "x" && text != "y" && text != "xy") fail(file, "mirror is none of x, y and xy");
            printer.mirror = text;
        } else if (key == "ctb_constants") {
            readConstants(file, value, printer);
        } else if (key == "ctb_key") {
            printer.key = wholeNumber(file, key, value, UINT32_MAX);
        } else if (key == "previews") {
            readPreviews(file, value, printer);
        } else {
            readSetting(file, key, value, origin, printer);
        }
    }
    return printer;
}

std::string printersFolder() {
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && *config == '/') return std::string(config) + "/vndlp/printers";
    const char* const home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.config/vndlp/printers";
}

std::vector<std::string> printerNames() {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const fs::directory_entry& item : fs::directory_iterator(printersFolder(), ignored)) {
        if (item.path().extension() == ".json") names.push_back(item.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Printer findPrinter(const std::string& nameOrFile) {
    const bool isFile = nameOrFile.find('/') != std::string::npos || nameOrFile.ends_with(".json");
    const std::string file = isFile ? nameOrFile : printersFolder() + "/" + nameOrFile + ".json";
    std::error_code ignored;
    if (!isFile && !fs::exists(file, ignored)) {
        const std::string nearest = nearestWord(nameOrFile, printerNames());
        throw UsageFailure("--printer " + nameOrFile + ": no such printer" +
                           (nearest.empty() ? "; `vndlp printers` lists them" : "; did you mean " + nearest + "?"));
    }
    Printer printer = readPrinter(file, Origin::printer);
    printer.name = nameOrFile;
    return printer;
}

void useConstants(const Printer& printer) {
    if (printer.constants) CTB::setScramblingConstants(*printer.constants);
}

}  // namespace vndlp::tools
