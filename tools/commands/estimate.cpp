#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/print_estimate.h"
#include "tools/jobs/input.h"

#include <vndlp/print_time.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <utility>

namespace vndlp::tools {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kAssumedPixelMm = 0.05;

struct EstimateOptions {
    std::string file;
    std::string machine;  ///< empty: the file's
    std::string model;    ///< empty: the machine's own, else the general one
    std::vector<std::string> assignments;
    int threads = 0;
    bool json = false;
};

struct ModelName {
    const char* name;
    EstimateModel model;
};
constexpr ModelName kModels[] = {
    {"general", EstimateModel::General}, {"M31", EstimateModel::M31},     {"M32", EstimateModel::M32},
    {"M33", EstimateModel::M33},         {"steps", EstimateModel::Steps},
};

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

/// The wished model; without a wish the one that bears the machine's name, else the general one.
const ModelName& chooseModel(const EstimateOptions& options, const std::string& machine) {
    if (const ModelName* wished = findModel(options.model)) return *wished;
    const ModelName* own = findModel(machine);
    return own != nullptr ? *own : kModels[0];
}

std::vector<double> measureAreas(const Input& input, double pixelAreaMm2, int threads) {
    std::vector<double> areas;
    areas.reserve(static_cast<std::size_t>(input.layerCount));
    ProgressBar bar("measuring", input.layerCount);
    runOrdered<GreyImage, double>(
        input.layerCount, threads,
        [&](int index, GreyImage& scratch) {
            return input.countLitPixels(index, scratch);
        },
        [&](int index, double lit) {
            areas.push_back(lit * pixelAreaMm2);
            bar.advanceTo(index + 1);
        });
    return areas;
}

int estimate(const EstimateOptions& options) {
    Input input = openInput(options.file);
    PrintSettings& s = input.settings;
    for (const std::string& assignment : options.assignments) applyOption(assignment, s);
    for (const auto& [key, pixels] :
         {std::pair{"display_width_mm", input.width}, {"display_height_mm", input.height}}) {
        if (s.has(key)) continue;
        s.set(key, pixels * kAssumedPixelMm, Origin::assumed, options.file);
        input.notes.push_back(std::string(key) + " = " + s.text(key) + " mm, taking pixels of " +
                              shortNumber(kAssumedPixelMm) + " mm");
    }
    if (!options.machine.empty()) s.set("machine", options.machine, Origin::option, "--machine");
    const std::vector<std::string> assumed = s.assumeTheRest();
    input.notes.insert(input.notes.end(), assumed.begin(), assumed.end());

    EstimateInput job;
    job.machineName = s.text("machine");
    const std::string machine = normalised(job.machineName);
    const ModelName& model = chooseModel(options, machine);
    job.model = model.model;
    const bool known = CPrinterTime().m_levelHeightMap.count(machine) != 0;
    if (!known && findModel(machine) == nullptr && job.model != EstimateModel::Steps) {
        input.notes.push_back("machine \"" + printable(job.machineName) +
                              "\" is not in the table; its travel and speed are the built-in ones");
    }
    job.exposureSeconds = s.number("exposure_s");
    job.bottomExposureSeconds = s.number("bottom_exposure_s");
    job.bottomLayerCount = static_cast<unsigned>(s.whole("bottom_layers"));
    job.lightOffDelaySeconds = s.number("light_off_s");
    job.liftHeightMm = s.number("lift_mm");
    job.liftSpeedMmPerMinute = s.number("lift_speed");
    job.retractSpeedMmPerMinute = s.number("retract_speed");
    job.layerCount = static_cast<unsigned>(input.layerCount);
    job.layerHeightMm = s.number("layer_height_mm");
    job.resolutionX = static_cast<unsigned>(input.width);
    job.resolutionY = static_cast<unsigned>(input.height);
    job.pixelWidthMm = s.number("display_width_mm") / input.width;
    job.pixelHeightMm = s.number("display_height_mm") / input.height;
    if (job.model == EstimateModel::General || job.model == EstimateModel::M33) {
        job.layerAreasMm2 = measureAreas(input, job.pixelWidthMm * job.pixelHeightMm, options.threads);
    }
    for (const std::string& note : input.notes) printNote(note);

    std::string problem;
    const std::optional<Estimate> result = estimatePrintTime(job, problem);
    if (!result) throw Failure(options.file + ": " + problem);
    const EstimateBreakdown& parts = result->parts;
    const std::pair<const char*, double> rows[] = {{"exposure", parts.exposure},
                                                   {"lift", parts.lift},
                                                   {"delays", parts.delays},
                                                   {"level", parts.levelTravel},
                                                   {"image", parts.image}};
    if (options.json) {
        Json json = {{"file", options.file},
                     {"machine", machine},
                     {"model", model.name},
                     {"layerCount", input.layerCount},
                     {"totalSeconds", result->totalSeconds}};
        for (const auto& [name, seconds] : rows) json["parts"][name] = seconds;
        printResult(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
        return kSuccess;
    }
    std::string text = printable(options.file) + ": " + duration(result->totalSeconds) + "  (" + std::to_string(input.layerCount) +
                       " layers, machine " + printable(machine) + ", model " + model.name + ")\n";
    for (const auto& [name, seconds] : rows) {
        char row[96];
        std::snprintf(row, sizeof row, "  %-10s %22s  %5.1f %%\n", name, duration(seconds).c_str(),
                      result->totalSeconds > 0 ? 100 * seconds / result->totalSeconds : 0.0);
        text += row;
    }
    printResult(text);
    return kSuccess;
}

/// Machines that are estimated by models of their own name.
constexpr const char* kOwnModels[] = {"M31", "M32", "M33"};

int machines(bool asJson, bool namesOnly) {
    CPrinterTime table;
    if (namesOnly) {
        std::string names;
        for (const auto& row : table.m_levelHeightMap) names += row.first + "\n";
        for (const char* name : kOwnModels) names += std::string(name) + "\n";
        printResult(names);
        return kSuccess;
    }
    if (asJson) {
        Json json = Json::array();
        for (const auto& [name, height] : table.m_levelHeightMap) {
            json.push_back({{"machine", name},
                            {"travelMm", height},
                            {"fullSpeed", table.m_fullSpeedMap[name] > 0},
                            {"motorSpeedMmPerSecond", table.m_motorSpeedMap[name]}});
        }
        printResult(json.dump(2) + "\n");
        return kSuccess;
    }
    std::string text = "machine  travel mm  motor mm/s  full speed\n";
    for (const auto& [name, height] : table.m_levelHeightMap) {
        char row[96];
        std::snprintf(row, sizeof row, "%-7s  %9d  %10d  %s\n", name.c_str(), height, table.m_motorSpeedMap[name],
                      table.m_fullSpeedMap[name] > 0 ? "yes" : "no");
        text += row;
    }
    printResult(text + "M31, M32 and M33 are not in the table: they have models of their own.\n");
    return kSuccess;
}

class EstimateCommand : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice file, SL1 job, folder or zip of PNG layers");
        syntax.text("--machine", m_options.machine, "machine of the table (`vndlp machines`); else the file's");
        syntax.choice("--model", m_options.model, {"general", "M31", "M32", "M33", "steps"},
                      "the model of the time; else the machine's own");
        syntax.texts("--set", m_options.assignments, "one setting, key=value, as for convert");
        syntax.threads(m_threads);
        syntax.flag("--json", m_options.json, "as JSON, seconds");
        syntax.footer("Example:\n  vndlp estimate tower.vndlp --machine M01");
    }
    int run() override {
        m_options.threads = threadsOf(m_threads);
        return forEachFile(m_files, [this](const std::string& file) {
            m_options.file = file;
            return estimate(m_options);
        });
    }

private:
    EstimateOptions m_options;
    std::vector<std::string> m_files;
    std::optional<long long> m_threads;
};

class Machines : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.flag("--json", m_json, "as JSON");
        syntax.flag("--names", m_namesOnly, "the names alone, one a line");
        syntax.footer("Example:\n  vndlp machines");
    }
    int run() override { return machines(m_json, m_namesOnly); }

private:
    bool m_json = false;
    bool m_namesOnly = false;
};

}  // namespace

std::unique_ptr<Command> makeEstimate() { return std::make_unique<EstimateCommand>(); }
std::unique_ptr<Command> makeMachines() { return std::make_unique<Machines>(); }

}  // namespace vndlp::tools
