#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/describe.h"
#include "tools/commands/moves.h"
#include "tools/commands/print_estimate.h"
#include "tools/jobs/layer_images.h"

#include <vndlp/print_time.h>

#include <cmath>
#include <cstdio>
#include <utility>

namespace vndlp::tools {

namespace {

struct ModelName {
    const char* name;
    EstimateModel model;
};
constexpr ModelName kModels[] = {
    {"general", EstimateModel::General}, {"M31", EstimateModel::M31},     {"M32", EstimateModel::M32},
    {"M33", EstimateModel::M33},         {"steps", EstimateModel::Steps},
};
constexpr const char* kMoves = "moves";

/// Machines that are estimated by models of their own name.
constexpr const char* kOwnModels[] = {"M31", "M32", "M33"};

const ModelName* findModel(const std::string& name) {
    for (const ModelName& row : kModels) {
        if (name == row.name) return &row;
    }
    return nullptr;
}

/// The machine's name as the table spells it.
std::string normalised(const std::string& machine) {
    CPrinterTime model;
    model.setMachineName(machine);
    return model.m_machineName;
}

/// What is taken where neither file nor options tell.
struct Fallback {
    const char* key;
    double value;
    const char* unit;
};
constexpr Fallback kFallbacks[] = {
    {"layer_height_mm", 0.05, " mm"},
    {"exposure_s", 2.5, " s"},
    {"bottom_exposure_s", 30, " s"},
    {"bottom_layers", 4, ""},
    {"light_off_s", 1, " s"},
    {"bottom_lift_mm", 6, " mm"},
    {"bottom_lift_speed", 60, " mm/min"},
    {"lift_mm", 6, " mm"},
    {"lift_speed", 80, " mm/min"},
    {"retract_speed", 150, " mm/min"},
};

/// A time, where it goes, and what made it.
struct Told {
    double seconds = 0;
    std::vector<std::pair<const char*, double>> parts;
    std::string model;
    std::string why;
};

class EstimateCommand : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice files, SL1 jobs, folders or zips of layers");
        syntax.text("--machine", m_machine, "machine of the table (`vndlp machines`); else the file's");
        syntax.choice("--model", m_model, {"general", "M31", "M32", "M33", "steps", kMoves},
                      "the model of the time; else the machine's own, moves for a machine that is not in the table");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file");
        syntax.text("--profile", m_profile, "printer profile, a JSON object of settings");
        syntax.texts("--set", m_assignments, "one setting, key=value, as for convert");
        syntax.choiceOrPlain("--salvage", m_salvage, {"blank", "previous"}, "blank",
                             "go on with a damaged file, layers that cannot be read counted as empty");
        syntax.threads(m_threads);
        syntax.flag("--json", m_json, "as JSON, seconds");
        syntax.footer("Example:\n  vndlp estimate tower.vndlp --machine M01");
    }

    int run() override {
        if (!m_printer.empty()) {
            const Printer printer = findPrinter(m_printer);
            useConstants(printer);
            m_settings.take(printer.settings);
        }
        if (!m_profile.empty()) m_settings.take(readPrinter(m_profile, Origin::profile).settings);
        for (const std::string& assignment : m_assignments) m_settings.setOption(assignment);
        if (!m_machine.empty()) m_settings.set("machine", m_machine, Origin::option, "--machine");
        return forEachFile(m_files, [this](const std::string& file) { return estimateOne(file); });
    }

private:
    int estimateOne(const std::string& path) const {
        Source source = openSource(path);
        const std::vector<SliceFinding> findings = findingsOf(source);
        requireSound(source, findings);
        const std::vector<LayerRow> rows = layerRowsOf(source, threadsOf(m_threads));
        for (const LayerRow& row : rows) {
            if (row.problem.empty()) continue;
            if (m_salvage.empty()) throw Failure(row.problem + "; --salvage goes on");
            printError(row.problem + "; it counts as empty");
        }
        source.settings.take(m_settings);
        const Told told = tell(source, rows);
        if (!m_json) {
            printResult(textOf(source, told));
            return kSuccess;
        }
        DescribeOptions options;
        options.threads = threadsOf(m_threads);
        options.totals = totalsOfRows(source, rows);
        Json json = describeSource(source, findings, options);
        Json& time = json["print_time"];
        time["estimate_s"] = numberOrNull(steady(told.seconds));
        time["model"] = told.model;
        time["machine"] = utf8Of(normalised(source.settings.text("machine")));
        time["why"] = told.why;
        time["parts"] = Json::object();
        for (const auto& [name, seconds] : told.parts) time["parts"][name] = steady(seconds);
        printResult(jsonText(json, m_files.size() > 1));
        return kSuccess;
    }

    void requireSound(const Source& source, const std::vector<SliceFinding>& findings) const {
        for (const SliceFinding& finding : findings) {
            if (finding.severity != SliceSeverity::error) continue;
            const std::string text = source.path + ": " + placeText(finding.layer, finding.offset, finding.text);
            if (m_salvage.empty()) throw Failure(text + "; --salvage goes on");
            printError(text);
        }
    }

    Told tell(Source& source, const std::vector<LayerRow>& rows) const {
        PrintSettings& s = source.settings;
        std::size_t assumed = 0;
        const auto assume = [&](const char* key, double value, const std::string& unit) {
            if (s.has(key)) return;
            s.set(key, value, Origin::assumed, source.path);
            ++assumed;
            if (verbosity() >= Verbosity::detailed) printNote(std::string(key) + " = " + s.text(key) + unit);
        };
        // the widths of layers count in some models only, and a file that has none has no lit pixels to speak of
        assume("display_width_mm", std::max(source.width, 1) * kAssumedPixelMm, " mm");
        assume("display_height_mm", std::max(source.height, 1) * kAssumedPixelMm, " mm");
        for (const Fallback& fallback : kFallbacks) assume(fallback.key, fallback.value, fallback.unit);
        if (assumed > 0 && verbosity() < Verbosity::detailed) {
            printNote(counted(assumed, "setting") + " assumed, -v lists them");
        }
        if (!source.warning.empty() && verbosity() >= Verbosity::detailed)
            printNote(source.path + ": " + source.warning);
        const std::string machine = normalised(s.text("machine"));
        Told told = choose(machine);
        if (told.model == kMoves) {
            const MovesSeconds moves = movesSeconds(s, source.layerCount, source.layerSettings);
            told.seconds = moves.total();
            told.parts = {{"exposure", moves.exposure}, {"lift", moves.lift}, {"delays", moves.delays}};
            return told;
        }
        runModel(source, rows, machine, told);
        return told;
    }

    Told choose(const std::string& machine) const {
        Told told;
        if (!m_model.empty()) {
            told.model = m_model;
            told.why = "as asked for";
        } else if (findModel(machine) != nullptr) {
            told.model = machine;
            told.why = "the machine's own";
        } else if (CPrinterTime().m_levelHeightMap.count(machine) != 0) {
            told.model = "general";
            told.why = "the machine is in the table";
        } else {
            told.model = kMoves;
            told.why = "the machine is not in the table";
        }
        return told;
    }

    static void runModel(const Source& source, const std::vector<LayerRow>& rows, const std::string& machine,
                         Told& told) {
        const PrintSettings& s = source.settings;
        EstimateInput job;
        job.model = findModel(told.model)->model;
        job.machineName = machine;
        job.exposureSeconds = s.number("exposure_s");
        job.bottomExposureSeconds = s.number("bottom_exposure_s");
        job.bottomLayerCount = static_cast<unsigned>(std::lround(s.number("bottom_layers")));
        job.lightOffDelaySeconds = s.number("light_off_s");
        job.liftHeightMm = s.number("lift_mm");
        job.liftSpeedMmPerMinute = s.number("lift_speed");
        job.retractSpeedMmPerMinute = s.number("retract_speed");
        job.layerCount = static_cast<unsigned>(source.layerCount);
        job.layerHeightMm = s.number("layer_height_mm");
        job.resolutionX = static_cast<unsigned>(source.width);
        job.resolutionY = static_cast<unsigned>(source.height);
        job.pixelWidthMm = s.number("display_width_mm") / std::max(source.width, 1);
        job.pixelHeightMm = s.number("display_height_mm") / std::max(source.height, 1);
        for (const LayerRow& row : rows) {
            const bool isCounted = row.facts.litPixels >= 0;
            const double area = isCounted
                                    ? static_cast<double>(row.facts.litPixels) * job.pixelWidthMm * job.pixelHeightMm
                                    : row.facts.areaMm2;
            job.layerAreasMm2.push_back(std::isfinite(area) ? area : 0);
        }
        std::string problem;
        const std::optional<Estimate> result = estimatePrintTime(job, problem);
        if (!result) throw Failure(source.path + ": " + problem);
        const EstimateBreakdown& parts = result->parts;
        told.seconds = result->totalSeconds;
        told.parts = {{"exposure", parts.exposure},
                      {"lift", parts.lift},
                      {"delays", parts.delays},
                      {"level", parts.levelTravel},
                      {"image", parts.image}};
    }

    static std::string textOf(const Source& source, const Told& told) {
        const std::string machine = normalised(source.settings.text("machine"));
        std::string text = printable(source.path) + ": " + duration(told.seconds) + "  (" +
                           counted(static_cast<unsigned>(source.layerCount), "layer") + ", machine " +
                           printable(machine.empty() ? "unknown" : machine) + ", model " + told.model + ": " +
                           told.why + ")\n";
        for (const auto& [name, seconds] : told.parts) {
            char row[96];
            std::snprintf(row, sizeof row, "  %-10s %22s  %5.1f %%\n", name, duration(seconds).c_str(),
                          told.seconds > 0 ? 100 * seconds / told.seconds : 0.0);
            text += row;
        }
        return text;
    }

    std::vector<std::string> m_files;
    std::string m_machine;
    std::string m_model;
    std::string m_printer;
    std::string m_profile;
    std::vector<std::string> m_assignments;
    std::string m_salvage;
    std::optional<long long> m_threads;
    bool m_json = false;
    PrintSettings m_settings;
};

class Machines : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.flag("--json", m_json, "as JSON");
        syntax.flag("--names", m_namesOnly, "the names alone, one a line");
        syntax.footer("Example:\n  vndlp machines");
    }

    int run() override {
        printResult(m_namesOnly ? names() : m_json ? json() : text());
        return kSuccess;
    }

private:
    static std::string names() {
        const CPrinterTime table;
        std::string text;
        for (const auto& row : table.m_levelHeightMap) text += row.first + "\n";
        for (const char* name : kOwnModels) text += std::string(name) + "\n";
        return text;
    }

    static std::string json() {
        CPrinterTime table;
        Json json = Json::array();
        for (const auto& [name, height] : table.m_levelHeightMap) {
            json.push_back({{"machine", name},
                            {"travelMm", height},
                            {"fullSpeed", table.m_fullSpeedMap[name] > 0},
                            {"motorSpeedMmPerSecond", table.m_motorSpeedMap[name]}});
        }
        return jsonText(json, false);
    }

    static std::string text() {
        CPrinterTime table;
        std::string text = "machine  travel mm  motor mm/s  full speed\n";
        for (const auto& [name, height] : table.m_levelHeightMap) {
            char row[96];
            std::snprintf(row, sizeof row, "%-7s  %9d  %10d  %s\n", name.c_str(), height, table.m_motorSpeedMap[name],
                          table.m_fullSpeedMap[name] > 0 ? "yes" : "no");
            text += row;
        }
        return text + "M31, M32 and M33 are not in the table: they have models of their own.\n";
    }

    bool m_json = false;
    bool m_namesOnly = false;
};

}  // namespace

std::unique_ptr<Command> makeEstimate() { return std::make_unique<EstimateCommand>(); }
std::unique_ptr<Command> makeMachines() { return std::make_unique<Machines>(); }

}  // namespace vndlp::tools
