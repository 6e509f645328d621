#include <vndlp/print_time.h>
#include "io/report.h"
#include "printtime/truncate.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace vndlp {

namespace {

constexpr double kStepMm = 0.000625;
constexpr double kStepsPerSecond2 = 80000;
constexpr double kRestSeconds = 1.0;
// no printer comes near; a count read from a damaged file must not keep a caller waiting
constexpr unsigned kMostPrintedLayers = 100000;

bool isUsable(float value) { return value > 0 && std::isfinite(value); }

/// Time of one move of the build plate; 0 (no move) when either value is not above 0 or not finite.
double moveTime(float distanceMm, float speedMmPerSecond) {
    if (!isUsable(distanceMm) || !isUsable(speedMmPerSecond)) return 0;
    const double steps = distanceMm / kStepMm;
    const double stepsPerSecond = speedMmPerSecond / kStepMm;
    // steps to gain full speed and lose it again
    const double rampSteps = stepsPerSecond * stepsPerSecond / kStepsPerSecond2;
    if (steps < rampSteps) return 2 * std::sqrt(steps / kStepsPerSecond2);
    return steps / stepsPerSecond + stepsPerSecond / kStepsPerSecond2;
}

struct LayerEstimate {
    double exposure;
    double lightOff;
    double lift;
    double drop;

    [[nodiscard]] double total() const { return exposure + lightOff + kRestSeconds + lift + drop; }
};

void printLayer(unsigned layer, const LayerEstimate& time) {
    report("layer %u : exposure %.2f s, light off %.2f s, rest %.2f s, lift %.3f s, drop %.3f s, total %.3f s\n", layer,
           time.exposure, time.lightOff, kRestSeconds, time.lift, time.drop, time.total());
}

void printTotal(double seconds) {
    const double whole = std::floor(seconds);
    const auto hours = static_cast<int>(std::min(std::floor(whole / 3600), double{INT_MAX}));
    const auto secondsOfHour = static_cast<int>(std::fmod(whole, 3600));
    report("total hour : %.2d h %.2d min %.2d s\n", hours, secondsOfHour / 60, secondsOfHour % 60);
}

/// The six settings, those that cannot be used made 0.
struct Settings {
    float values[VNDLP_TIME_SETTING_COUNT];

    explicit Settings(const float* given) {
        std::transform(given, given + VNDLP_TIME_SETTING_COUNT, values,
                       [](float value) { return isUsable(value) ? value : 0.0F; });
    }
    float operator[](int setting) const { return values[setting]; }

    [[nodiscard]] LayerEstimate layer(int exposureSetting) const {
        const double move = moveTime((*this)[VNDLP_TIME_LIFT_HEIGHT], (*this)[VNDLP_TIME_MOTOR_SPEED]);
        return {(*this)[exposureSetting], (*this)[VNDLP_TIME_LIGHT_OFF_DELAY], move, move};
    }
};

/// Prints layers that have nothing changed between them, and so one estimate, and sums them up.
double sumOfLayers(unsigned first, unsigned end, const LayerEstimate& each) {
    for (unsigned layer = first; layer < std::min(end, kMostPrintedLayers); ++layer) printLayer(layer, each);
    return (end - first) * each.total();
}

}  // namespace

}  // namespace vndlp

double calPrintTime(float* settings, unsigned int layerCount) {
    using namespace vndlp;
    if (settings == nullptr) return 0;
    const Settings job(settings);
    const unsigned bottomLayers = std::min(truncatedToUnsigned(job[VNDLP_TIME_FIRST_LAYER_NUM]), layerCount);
    const double total = sumOfLayers(0, bottomLayers, job.layer(VNDLP_TIME_FIRST_LAYER_EXPOSURE)) +
                         sumOfLayers(bottomLayers, layerCount, job.layer(VNDLP_TIME_EXPOSURE));
    printTotal(total);
    return total;
}
