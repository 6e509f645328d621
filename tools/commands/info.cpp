#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/describe.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>

namespace vndlp::tools {

namespace {

std::string row(const std::string& label, const std::string& value) {
    constexpr std::size_t kLabelColumns = 22;
    const std::string blanks(label.size() < kLabelColumns ? kLabelColumns - label.size() : 0, ' ');
    return "  " + printable(label) + blanks + " " + printable(value) + "\n";
}

std::string withUnit(const std::string& value, const char* unit) { return *unit == '\0' ? value : value + " " + unit; }

std::string rawValue(const SliceRawField& field) {
    if (field.type == SliceValueType::text) return field.text;
    const std::string value = field.type == SliceValueType::integer ? std::to_string(field.integer)
                              : std::isfinite(field.number)         ? shortNumber(field.number, 6)
                                                                    : "no number";
    return withUnit(value, field.unit);
}

std::string trailerText(const Source& source) {
    SliceTrailer trailer;
    require(source.path, source.file->trailer(trailer));
    const std::string kind = trailer.kind == SliceTrailerKind::xorSum ? "xor" : "crc32";
    char sums[96];
    std::snprintf(sums, sizeof sums, " (stored %08x, computed %08x)", trailer.stored, trailer.computed);
    switch (trailer.state) {
        case SliceTrailerState::none: return "none (this format carries none)";
        case SliceTrailerState::ok: return kind + ", matches";
        case SliceTrailerState::missing: return kind + ", MISSING";
        case SliceTrailerState::wrong: break;
    }
    return kind + ", DOES NOT MATCH" + sums;
}

std::string sizeText(double x, double y, const char* unit) {
    return std::isfinite(x) && std::isfinite(y) ? shortNumber(x, 3) + " x " + shortNumber(y, 3) + " " + unit : "-";
}

/// Screen, print and time in one glance.
std::string summaryText(const Source& source, int threads) {
    const Geometry geometry = geometryOf(source);
    std::string text = printable(source.path) + "\n";
    std::string format = formatName(source);
    if (!source.isJob()) {
        const SliceInfo& info = source.file->info();
        format += ", version " + std::to_string(info.version);
        if (info.headerKind != 0) format += ", header kind " + std::to_string(info.headerKind);
    }
    text += row("format", format);
    text += row("size", groupedNumber(source.bytes) + " bytes");
    text += row("screen", std::to_string(source.width) + " x " + std::to_string(source.height) + " px, " +
                              sizeText(geometry.sizeXMm, geometry.sizeYMm, "mm"));
    text += row("pixel", sizeText(geometry.pixelXUm, geometry.pixelYUm, "um"));
    text += row("layers", std::to_string(source.layerCount));
    if (source.settings.has("layer_height_mm")) {
        const double height = source.settings.number("layer_height_mm");
        text += row("print height", shortNumber(height * source.layerCount, 4) + " mm (" +
                                        std::to_string(source.layerCount) + " x " + shortNumber(height, 4) + " mm)");
    }
    const Totals totals = totalsOf(source, threads);
    if (std::isfinite(totals.volumeMl)) {
        text += row("volume", shortNumber(totals.volumeMl, 3) + " ml, from the layers' areas");
    }
    if (std::isfinite(totals.fileS)) text += row("print time", duration(totals.fileS) + ", as the file says");
    if (std::isfinite(totals.estimateS)) {
        text += row("estimated time", duration(totals.estimateS) + ", model " + totals.model);
    }
    if (!source.isJob()) text += row("trailer", trailerText(source));
    return text;
}

std::string previewsText(const Source& source) {
    std::string text;
    if (source.isJob()) {
        for (const ColourImage& picture : source.readPictures()) {
            text += row("preview", std::to_string(picture.width) + " x " + std::to_string(picture.height));
        }
        return text;
    }
    for (std::uint32_t i = 0; i < source.file->info().previews; ++i) {
        SlicePreviewInfo info;
        if (!source.file->previewInfo(i, info).isOk()) continue;
        text += row("preview", info.name + ", " + std::to_string(info.width) + " x " + std::to_string(info.height) +
                                   (info.isBlank ? ", blank" : ""));
    }
    return text;
}

std::string settingsText(const PrintSettings& settings) {
    std::string text = "\nsettings\n";
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        if (settings.has(key->name)) text += row(key->name, withUnit(settings.text(key->name), key->unit));
    }
    return text;
}

/// Fields of records that are not repeated.
std::string recordsText(const SliceFile& file) {
    std::string text = "\nrecords\n";
    SliceRawField field;
    for (std::uint64_t i = 0; file.raw(i, field).isOk(); ++i) {
        const std::size_t dot = field.name.find('.');
        const char next = dot + 1 < field.name.size() ? field.name[dot + 1] : '\0';
        if (next >= '0' && next <= '9') continue;
        text += row(field.name, rawValue(field) + (field.isFixed ? " (fixed by the format)" : ""));
    }
    return text;
}

class Table {
public:
    explicit Table(std::vector<std::string> headings) : m_headings(std::move(headings)) {}

    std::string head() const { return line(m_headings); }
    std::string line(const std::vector<std::string>& cells) const {
        std::string text;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            constexpr std::size_t kLeast = 8;
            const std::size_t columns = std::max(m_headings[i].size(), kLeast);
            const std::size_t blanks = cells[i].size() < columns ? columns - cells[i].size() : 0;
            text += (i == 0 ? "" : " ") + std::string(blanks, ' ') + cells[i];
        }
        return text + "\n";
    }

private:
    std::vector<std::string> m_headings;
};

std::string cell(std::int64_t value) { return value < 0 ? "-" : std::to_string(value); }
std::string cell(double value, int decimals) { return std::isfinite(value) ? shortNumber(value, decimals) : "-"; }

/// A heading of a layer's setting, with its unit: `exposure_s` has it in its name, a speed has not.
std::string headingOf(const SliceKey& key) {
    return key.name + std::string(std::string(key.unit) == "mm/min" ? "_mm_min" : "");
}

/// What a layer of a line file is made of.
std::string kindOf(const Source& source, int index) {
    try {
        const SliceShapes shapes = source.readShapes(index);
        if (shapes.kind == SliceLayers::mesh) return "mesh";
        return shapes.pathEnds.empty() ? "empty" : "polylines";
    } catch (const Failure&) {
        return "damaged";
    }
}

void printLayerTable(const Source& source, int threads) {
    const std::vector<LayerRow> rows = layerRowsOf(source, threads);
    const bool hasImages = source.kind == SliceLayers::images;
    std::vector<const SliceKey*> own;
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        const bool isHeld =
            std::any_of(rows.begin(), rows.end(), [&](const LayerRow& r) { return r.settings.has(key->name); });
        if (isHeld) own.push_back(key);
    }
    std::vector<std::string> headings = {"layer", "z_mm", "offset", "bytes", hasImages ? "runs" : "polylines"};
    headings.emplace_back(hasImages ? "lit_px" : "kind");
    headings.emplace_back("area_mm2");
    for (const SliceKey* key : own) headings.push_back(headingOf(*key));
    const Table table(headings);
    printResult("\n" + table.head());
    int index = 0;
    for (const LayerRow& r : rows) {
        std::vector<std::string> cells = {std::to_string(index), cell(r.facts.zMm, 4), cell(r.facts.offset),
                                          cell(r.facts.bytes), cell(r.facts.runs)};
        cells.push_back(hasImages ? cell(r.facts.litPixels) : kindOf(source, index));
        cells.push_back(cell(r.facts.areaMm2, 4));
        for (const SliceKey* key : own) {
            cells.push_back(r.settings.has(key->name) ? shortNumber(r.settings.number(key->name), 4) : "-");
        }
        printResult(table.line(cells));
        ++index;
    }
}

Json profileOf(const Source& source) {
    Json json = {{"comment", utf8Of("settings of " + source.path)}};
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        if (!source.settings.has(key->name)) continue;
        const bool isText = key->type == SliceValueType::text;
        const double number = source.settings.number(key->name);
        if (!isText && (number < key->least || number > key->most)) continue;  // would be refused
        json[key->name] = isText ? Json(utf8Of(source.settings.text(key->name))) : Json(number);
    }
    return json;
}

class Info : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice files, SL1 jobs, folders or zips of layers");
        syntax.flag("--json", m_json, "as JSON, one object a file");
        syntax.flag("--layers", m_layers, "a table of the layers as well");
        syntax.flag("--profile", m_profile, "only the settings, as `--profile` reads them");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file, for its scrambling constants");
        syntax.threads(m_threads);
        syntax.footer("Example:\n  vndlp info tower.vndlp --layers");
    }

    int run() override {
        if (m_profile && m_files.size() > 1) throw UsageFailure("--profile: one file at a time");
        if (!m_printer.empty()) useConstants(findPrinter(m_printer));
        return forEachFile(m_files, [this](const std::string& file) { return infoOne(file); });
    }

private:
    int infoOne(const std::string& path) const {
        const Source source = openSource(path);
        const int threads = threadsOf(m_threads);
        const std::vector<SliceFinding> findings = findingsOf(source);
        if (m_profile) {
            printResult(jsonText(profileOf(source), false));
        } else if (m_json) {
            DescribeOptions options;
            options.layers = m_layers;
            options.threads = threads;
            printResult(jsonText(describeSource(source, findings, options), m_files.size() > 1));
        } else {
            printText(source, findings, threads);
        }
        const bool isBad = std::any_of(findings.begin(), findings.end(),
                                       [](const SliceFinding& f) { return f.severity == SliceSeverity::error; });
        return isBad ? kBadFile : kSuccess;
    }

    void printText(const Source& source, const std::vector<SliceFinding>& findings, int threads) const {
        std::string text = summaryText(source, threads) + previewsText(source);
        for (const SliceFinding& finding : findings) {
            text += row("finding", placeText(finding.layer, finding.offset, finding.text));
        }
        text += settingsText(source.settings);
        if (!source.isJob()) text += recordsText(*source.file);
        printResult(text);
        if (m_layers) printLayerTable(source, threads);
    }

    std::vector<std::string> m_files;
    bool m_json = false;
    bool m_layers = false;
    bool m_profile = false;
    std::string m_printer;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeInfo() { return std::make_unique<Info>(); }

}  // namespace vndlp::tools
