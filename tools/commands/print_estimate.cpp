#include "print_estimate.h"

#include <vndlp/print_time.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <iterator>
#include <sstream>
#include <utility>

namespace vndlp::tools {

namespace {

constexpr double kLargestSetting = 1e9;  // keeps every sum far within a float
constexpr double kSecondsPerMinute = 60;
constexpr double kGeneralAreasPerMm2 = 1000;
constexpr double kM33AreasPerMm2 = 0.01;

// below it a motor stands still; M31 and M32 know no level below 1
constexpr double kSlowestMotor = 0.001;
constexpr double kLowestLevel = 1;

bool isSetting(double value) { return value >= 0 && value <= kLargestSetting; }

std::string readable(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

/// What is wrong with a job; empty when nothing is.
std::string problemOf(const EstimateInput& input) {
    const std::pair<const char*, double> settings[] = {{"motor speed", input.motorSpeedMmPerSecond},
                                                       {"exposure", input.exposureSeconds},
                                                       {"bottom exposure", input.bottomExposureSeconds},
                                                       {"light-off delay", input.lightOffDelaySeconds},
                                                       {"lift height", input.liftHeightMm},
                                                       {"lift speed", input.liftSpeedMmPerMinute},
                                                       {"retract speed", input.retractSpeedMmPerMinute},
                                                       {"layer height", input.layerHeightMm},
                                                       {"pixel width", input.pixelWidthMm},
                                                       {"pixel height", input.pixelHeightMm}};
    for (const auto& [name, value] : settings) {
        if (!isSetting(value)) return std::string(name) + ": expected 0 to 1e9, found " + readable(value);
    }
    for (std::size_t i = 0; i < input.layerAreasMm2.size(); ++i) {
        const double area = input.layerAreasMm2[i];
        if (!isSetting(area)) {
            return "area of layer " + std::to_string(i) + ": expected 0 to 1e9 mm^2, found " + readable(area);
        }
    }
    const std::pair<const char*, unsigned> counts[] = {{"layers", input.layerCount},
                                                       {"bottom layers", input.bottomLayerCount}};
    for (const auto& [name, count] : counts) {
        if (count > INT_MAX) return std::string(name) + ": expected at most 2147483647, found " + std::to_string(count);
    }
    const bool hasLevels = input.model == EstimateModel::M31 || input.model == EstimateModel::M32;
    const double slowest = hasLevels ? kLowestLevel : kSlowestMotor;
    if (input.motorSpeedMmPerSecond > 0 && input.motorSpeedMmPerSecond < slowest) {
        return "motor speed: expected at least " + readable(slowest) + " mm/s, found " +
               readable(input.motorSpeedMmPerSecond);
    }
    if (input.model == EstimateModel::M33 && input.layerAreasMm2.size() < input.layerCount) {
        return "areas: M33 needs one for each of " + std::to_string(input.layerCount) + " layers, found " +
               std::to_string(input.layerAreasMm2.size());
    }
    return {};
}

/// Which values a run keeps; those that feed another part are 0.
enum class Keep { All, OnlyFixed, Exposure, Lift, Delays, LevelTravel, Image };

bool keeps(Keep kept, Keep part) { return kept == Keep::All || kept == part; }

float asFloat(double value) { return static_cast<float>(value); }

CPrinterTime printerTime(const EstimateInput& input) {
    CPrinterTime job;
    job.setMachineName(input.machineName);
    if (input.motorSpeedMmPerSecond > 0) job.setMotorSpeed(asFloat(input.motorSpeedMmPerSecond));
    job.setExposure(asFloat(input.exposureSeconds));
    job.setFirstLayerExposure(asFloat(input.bottomExposureSeconds));
    job.setFirstLayerNum(static_cast<int>(input.bottomLayerCount));
    job.setLightOffDelay(asFloat(input.lightOffDelaySeconds));
    job.setLiftHeight(asFloat(input.liftHeightMm));
    job.setLayerCount(static_cast<int>(input.layerCount));
    job.setLayerHeight(asFloat(input.layerHeightMm));
    job.setResolution(asFloat(input.resolutionX), asFloat(input.resolutionY));
    job.setPixel(asFloat(input.pixelWidthMm), asFloat(input.pixelHeightMm));
    const double areasPerMm2 = input.model == EstimateModel::M33 ? kM33AreasPerMm2 : kGeneralAreasPerMm2;
    std::vector<double> areas = input.layerAreasMm2;
    for (double& area : areas) area *= areasPerMm2;
    job.setMaxAreaLineArea(std::move(areas));
    return job;
}

double runPrinterTime(const EstimateInput& input, CPrinterTime job, Keep kept) {
    if (!keeps(kept, Keep::Exposure)) {
        job.setExposure(0);
        job.setFirstLayerExposure(0);
    }
    if (!keeps(kept, Keep::Lift)) {
        job.setLiftHeight(0);
        job.setLayerHeight(0);
    }
    if (!keeps(kept, Keep::Delays)) {
        job.setLightOffDelay(0);
        job.setLayerExtraTime(0);
    }
    if (!keeps(kept, Keep::LevelTravel)) job.setLevelHeight(0);
    // the waits that areas cause in M33 are fixed: they hang on nothing else
    if (!keeps(kept, Keep::Image) && input.model != EstimateModel::M33) job.setMaxAreaLineArea({});
    switch (input.model) {
        case EstimateModel::M31: return job.calM31PrintTime();
        case EstimateModel::M32: return double{job.calM32PrintTime()};
        case EstimateModel::M33: return double{job.calM33PrintTime()};
        case EstimateModel::General:
        case EstimateModel::Steps: break;
    }
    return double{job.callPrinterTime()};
}

double runSteps(const EstimateInput& input, Keep kept) {
    float settings[VNDLP_TIME_SETTING_COUNT] = {};
    settings[VNDLP_TIME_FIRST_LAYER_NUM] = asFloat(input.bottomLayerCount);
    if (keeps(kept, Keep::Exposure)) {
        settings[VNDLP_TIME_FIRST_LAYER_EXPOSURE] = asFloat(input.bottomExposureSeconds);
        settings[VNDLP_TIME_EXPOSURE] = asFloat(input.exposureSeconds);
    }
    if (keeps(kept, Keep::Delays)) settings[VNDLP_TIME_LIGHT_OFF_DELAY] = asFloat(input.lightOffDelaySeconds);
    if (!keeps(kept, Keep::Lift)) return calPrintTime(settings, input.layerCount);
    settings[VNDLP_TIME_LIFT_HEIGHT] = asFloat(input.liftHeightMm);
    // lift and drop take equally long in either job, so their mean lifts at one speed and drops at the other
    double sum = 0;
    for (const double speedMmPerMinute : {input.liftSpeedMmPerMinute, input.retractSpeedMmPerMinute}) {
        settings[VNDLP_TIME_MOTOR_SPEED] = asFloat(speedMmPerMinute / kSecondsPerMinute);
        sum += calPrintTime(settings, input.layerCount);
    }
    return sum / 2;
}

/// Runs the estimator once for the total and once for each part.
template <class Run>
Estimate takeApart(const Run& run) {
    Estimate result;
    result.totalSeconds = run(Keep::All);
    const double fixed = run(Keep::OnlyFixed);
    EstimateBreakdown& parts = result.parts;
    parts.exposure = run(Keep::Exposure) - fixed;
    parts.lift = run(Keep::Lift) - fixed;
    parts.delays = run(Keep::Delays);
    parts.levelTravel = run(Keep::LevelTravel) - fixed;
    parts.image = run(Keep::Image) - fixed;
    double* const all[] = {&parts.exposure, &parts.lift, &parts.delays, &parts.levelTravel, &parts.image};
    double sum = 0;
    for (const double* part : all) sum += *part;
    double* const largest =
        *std::max_element(std::begin(all), std::end(all), [](const double* a, const double* b) { return *a < *b; });
    *largest += result.totalSeconds - sum;
    return result;
}

}  // namespace

std::optional<Estimate> estimatePrintTime(const EstimateInput& input, std::string& problem) {
    if (std::string found = problemOf(input); !found.empty()) {
        problem = std::move(found);
        return std::nullopt;
    }
    if (input.model == EstimateModel::Steps) return takeApart([&](Keep kept) { return runSteps(input, kept); });
    const CPrinterTime job = printerTime(input);
    return takeApart([&](Keep kept) { return runPrinterTime(input, job, kept); });
}

}  // namespace vndlp::tools
