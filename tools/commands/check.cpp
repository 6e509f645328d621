#include "tools/base/failure.h"
#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/base/text.h"
#include "tools/commands/command.h"
#include "tools/commands/finding_pictures.h"
#include "tools/jobs/check_source.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <utility>

namespace vndlp::tools {

namespace {

using Json = nlohmann::ordered_json;

Json wholeOrNull(std::int64_t value) { return value < 0 ? Json(nullptr) : Json(value); }
Json numberOrNull(double value) { return std::isnan(value) ? Json(nullptr) : Json(value); }

/// The keys of every finding; null where one does not apply.
Json jsonOf(const CheckFinding& finding, const std::string& text) {
    const bool hasBox = finding.xPx[0] >= 0;
    const auto pair = [hasBox](const auto& values) {
        return hasBox ? Json::array({values[0], values[1]}) : Json(nullptr);
    };
    return {{"kind", nameOf(finding.kind)},
            {"severity", nameOf(finding.severity)},
            {"layer", wholeOrNull(finding.layer)},
            {"last_layer", wholeOrNull(finding.lastLayer)},
            {"pixels", wholeOrNull(finding.pixels)},
            {"area_mm2", numberOrNull(finding.areaMm2)},
            {"voxels", wholeOrNull(finding.voxels)},
            {"volume_ml", numberOrNull(finding.volumeMl)},
            {"x_px", pair(finding.xPx)},
            {"y_px", pair(finding.yPx)},
            {"centre_px", pair(finding.centrePx)},
            {"text", text}};
}

/// Parts between commas; an empty text has one empty part.
std::vector<std::string> splitAtCommas(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == ',') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::uint32_t parseKinds(const std::string& text) {
    std::uint32_t kinds = 0;
    for (const std::string& name : splitAtCommas(text)) {
        int kind = 0;
        while (kind < kCheckKinds && name != nameOf(static_cast<CheckKind>(kind))) ++kind;
        if (kind == kCheckKinds) {
            throw UsageFailure("--only: " + name +
                               " is no kind; there are island, trap, cup, empty, overhang, outside, peak, settings");
        }
        kinds |= 1U << static_cast<unsigned>(kind);
    }
    return kinds;
}

void parseJump(const std::string& text, CheckOptions& options) {
    const std::vector<std::string> parts = splitAtCommas(text);
    if (parts.size() == 2 && parseNumber(parts[0], options.jumpFactor) && parseNumber(parts[1], options.jumpCm2) &&
        options.jumpFactor >= 0 && options.jumpCm2 >= 0) {
        return;
    }
    throw UsageFailure("--area-jump: " + text + " is not FACTOR,CM2 such as 4,10");
}

class Check : public Command {
public:
    void describe(Syntax& syntax) override {
        constexpr long long kMostPixels = 1LL << 62;
        constexpr double kMostUm = 1e9;
        syntax.words("FILE", m_files, "slice files, SL1 jobs, folders or zips of layers");
        syntax.flag("--json", m_json, "as JSON");
        syntax.text("--only", m_only, "kinds to look for, such as island,cup");
        syntax.whole("--min-pixels", m_minPixels, 0, kMostPixels, "leave out findings of fewer pixels");
        syntax.text("--pictures", m_pictures, "folder for a picture of each finding; made if missing");
        syntax.whole("--threshold", m_threshold, 0, 255, "greys above it are lit; 15 without it");
        syntax.whole("--margin-px", m_margin, 0, kMostPixels, "width of the screen's margin; 1 without it, 0 for none");
        syntax.number("--overhang-um", m_overhang, 0, kMostUm,
                      "farthest step over the layer below; without it 200 or 4 layer heights");
        syntax.text("--area-jump", m_jump, "FACTOR,CM2: areas that grow by more than both; 4,10 without it");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file");
        syntax.text("--profile", m_profile, "printer profile, a JSON object of settings");
        syntax.texts("--set", m_assignments, "one setting, key=value, as for convert");
        syntax.threads(m_threads);
        syntax.footer(
            "Prints one line a finding, the worst first: islands, traps, cups, empty layers, overhangs, what is\n"
            "outside, peaks, settings. Exit code 3 when there are findings, 1 for a bad file.\n"
            "Example:\n  vndlp check tower.sl1 --only island,trap");
    }

    int run() override {
        if (!m_printer.empty()) {
            const Printer printer = findPrinter(m_printer);
            useConstants(printer);
            m_wished.take(printer.settings);
        }
        if (!m_profile.empty()) m_wished.take(readPrinter(m_profile, Origin::profile).settings);
        for (const std::string& assignment : m_assignments) m_wished.setOption(assignment);
        CheckOptions options;
        if (!m_only.empty()) options.kinds = parseKinds(m_only);
        if (!m_jump.empty()) parseJump(m_jump, options);
        options.minPixels = m_minPixels.value_or(options.minPixels);
        options.marginPx = m_margin.value_or(options.marginPx);
        options.overhangUm = m_overhang.value_or(options.overhangUm);
        options.threshold = static_cast<int>(m_threshold.value_or(options.threshold));
        options.keepPlaces = !m_pictures.empty();
        return forEachFile(m_files, [&](const std::string& file) { return checkOne(file, options); });
    }

private:
    int checkOne(const std::string& file, const CheckOptions& options) {
        const CheckSource source(file, m_wished, options.threshold);
        for (const std::string& note : source.notes()) printNote(note);
        JobCheck check(source.job(), options);
        ProgressBar bar("checking", source.layerCount());
        runOrdered<GreyImage, SourceLayer>(
            source.layerCount(), threadsOf(m_threads),
            [&](int index, GreyImage& scratch) { return source.readLayer(index, scratch); },
            [&](int index, SourceLayer&& layer) {
                source.addLayer(index, layer, check);
                bar.advanceTo(index + 1);
            });
        const std::vector<CheckFinding> findings = check.finish();
        if (m_json) {
            printJson(file, check, findings);
        } else {
            printLines(file, check, findings);
        }
        if (!m_pictures.empty()) drawFindings(source, check, findings, folderFor(file));
        return findings.empty() ? kSuccess : kFindings;
    }

    static void printLines(const std::string& file, const JobCheck& check, const std::vector<CheckFinding>& findings) {
        const std::string name = printable(file);
        for (const CheckFinding& finding : findings) {
            printResult(name + ": " + nameOf(finding.severity) + ": " + check.describe(finding) + "\n");
        }
        if (findings.empty()) printRemark(name + ": ok\n");
    }

    void printJson(const std::string& file, const JobCheck& check, const std::vector<CheckFinding>& findings) const {
        Json json = {{"file", utf8Of(file)}, {"findings", Json::array()}};
        for (const CheckFinding& finding : findings) {
            json["findings"].push_back(jsonOf(finding, check.describe(finding)));
        }
        printResult(json.dump(m_files.size() > 1 ? -1 : 2) + "\n");
    }

    /// Of several files each has a folder of its own.
    std::string folderFor(const std::string& file) const {
        namespace fs = std::filesystem;
        return m_files.size() == 1 ? m_pictures : (fs::path(m_pictures) / fs::path(file).stem()).string();
    }

    std::vector<std::string> m_files;
    bool m_json = false;
    std::string m_only;
    std::optional<long long> m_minPixels;
    std::string m_pictures;
    std::optional<long long> m_threshold;
    std::optional<long long> m_margin;
    std::optional<double> m_overhang;
    std::string m_jump;
    std::string m_printer;
    std::string m_profile;
    PrintSettings m_wished;
    std::vector<std::string> m_assignments;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeCheck() { return std::make_unique<Check>(); }

}  // namespace vndlp::tools
