#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/formats/slice_file.h"
#include "tools/jobs/input.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace vndlp::tools {

namespace {

using Json = nlohmann::ordered_json;

struct InfoOptions {
    std::string file;
    bool json = false;
    bool layers = false;
};

Json fieldsToJson(const std::vector<Field>& fields) {
    Json json = Json::object();
    for (const Field& field : fields) json[field.key] = field.value;
    return json;
}

Json layerToJson(int index, const LayerFacts& facts, bool hasImages) {
    Json json = {{"index", index}, {"offset", facts.offset}, {"size", facts.size}};
    if (hasImages) json["litPixels"] = facts.litPixels;
    if (facts.runs) json[hasImages ? "runs" : "polylines"] = *facts.runs;
    if (facts.area) json["area"] = *facts.area;
    for (const Field& field : facts.fields) json[field.key] = field.value;
    return json;
}

Json describeAsJson(const InfoOptions& options, SliceFile& file) {
    const Trailer trailer = file.trailer();
    Json json = {{"file", options.file},
                 {"format", file.format()},
                 {"version", file.version()},
                 {"resolution", {{"x", file.width()}, {"y", file.height()}}},
                 {"layerCount", file.layerCount()},
                 {"header", fieldsToJson(file.header())},
                 {"parameters", fieldsToJson(file.parameters())}};
    json["volumeMl"] = file.volumeMl() ? Json(*file.volumeMl()) : Json();
    json["previews"] = Json::array();
    for (const Preview& preview : file.previews()) {
        json["previews"].push_back({{"name", preview.name},
                                    {"width", preview.image.width},
                                    {"height", preview.image.height},
                                    {"blank", isBlank(preview.image)}});
    }
    json["sections"] = Json::array();
    for (const Section& section : file.sections()) {
        json["sections"].push_back({{"name", section.name}, {"offset", section.offset}, {"size", section.size}});
    }
    json["trailer"] = {{"kind", trailer.kind}, {"matches", trailer.present ? Json(trailer.matches) : Json()}};
    if (!options.layers) return json;
    json["layers"] = Json::array();
    for (int i = 0; i < file.layerCount(); ++i) {
        json["layers"].push_back(layerToJson(i, file.layerFacts(i), file.hasImages()));
    }
    return json;
}

std::string row(const std::string& label, const std::string& value) {
    char text[512];
    std::snprintf(text, sizeof text, "  %-22s %s\n", label.c_str(), printable(value).c_str());
    return text;
}

std::string trailerText(const Trailer& trailer) {
    if (!trailer.present) return "none (this format carries none)";
    return trailer.kind + (trailer.matches ? ", matches" : ", DOES NOT MATCH");
}

void printLayerTable(SliceFile& file) {
    const std::vector<Field> own = file.layerCount() > 0 ? file.layerFacts(0).fields : std::vector<Field>();
    char text[256];
    std::snprintf(text, sizeof text, "\nlayers\n  %6s %12s %12s %10s %12s %12s", "layer", "offset", "bytes",
                  file.hasImages() ? "runs" : "polylines", "lit pixels", "area");
    std::string head = text;
    for (const Field& field : own) {
        std::snprintf(text, sizeof text, " %14s", field.key.c_str());
        head += text;
    }
    printResult(head + "\n");
    for (int i = 0; i < file.layerCount(); ++i) {
        const LayerFacts facts = file.layerFacts(i);
        std::snprintf(text, sizeof text, "  %6d %12lld %12lld %10s %12s %12s", i, facts.offset, facts.size,
                      facts.runs ? std::to_string(*facts.runs).c_str() : "-",
                      file.hasImages() ? std::to_string(facts.litPixels).c_str() : "-",
                      facts.area ? std::to_string(*facts.area).c_str() : "-");
        std::string line = text;
        for (const Field& field : facts.fields) {
            std::snprintf(text, sizeof text, " %14s", field.text.c_str());
            line += text;
        }
        printResult(line + "\n");
    }
}

void describeAsText(const InfoOptions& options, SliceFile& file) {
    std::error_code ignored;
    std::string text = printable(options.file) + "\n";
    text += row("format", file.format() + ", version " + std::to_string(file.version()));
    text += row("size", groupedNumber(std::filesystem::file_size(options.file, ignored)) + " bytes");
    text += row("screen", std::to_string(file.width()) + " x " + std::to_string(file.height()) + " px");
    text += row("layers", std::to_string(file.layerCount()));
    if (const std::optional<double> volume = file.volumeMl()) text += row("volume", shortNumber(*volume, 3) + " ml");
    text += row("trailer", trailerText(file.trailer()));
    for (const Preview& preview : file.previews()) {
        text += row("preview", preview.name + ", " + std::to_string(preview.image.width) + " x " +
                                   std::to_string(preview.image.height) + (isBlank(preview.image) ? ", blank" : ""));
    }
    text += "\nheader\n";
    for (const Field& field : file.header()) text += row(field.key, field.text);
    text += "\nparameters\n";
    for (const Field& field : file.parameters()) text += row(field.key, field.text);
    text += "\nsections\n";
    for (const Section& section : file.sections()) {
        text += row(section.name, "offset " + std::to_string(section.offset) + ", " +
                                      humanBytes(static_cast<unsigned long long>(section.size)));
    }
    printResult(text);
    if (options.layers) printLayerTable(file);
}

int info(const InfoOptions& options) {
    const std::unique_ptr<SliceFile> file = openSliceFile(options.file);
    if (options.json) {
        // a name that is no UTF-8 must not break the document
        printResult(describeAsJson(options, *file).dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    } else {
        describeAsText(options, *file);
    }
    return kSuccess;
}

class Info : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice files");
        syntax.flag("--json", m_options.json, "as JSON, values as stored");
        syntax.flag("--layers", m_options.layers, "a table of the layers as well");
        syntax.footer("Example:\n  vndlp info tower.vndlp --layers");
    }
    int run() override {
        return forEachFile(m_files, [this](const std::string& file) {
            m_options.file = file;
            return info(m_options);
        });
    }

private:
    InfoOptions m_options;
    std::vector<std::string> m_files;
};

}  // namespace

std::unique_ptr<Command> makeInfo() { return std::make_unique<Info>(); }

}  // namespace vndlp::tools
