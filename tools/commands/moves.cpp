#include "tools/commands/moves.h"

#include <algorithm>
#include <cmath>

namespace vndlp::tools {

namespace {

double moveSeconds(double mm, double mmPerMinute) {
    constexpr double kSecondsPerMinute = 60;
    return mm > 0 && mmPerMinute > 0 ? mm / mmPerMinute * kSecondsPerMinute : 0;
}

void addLayer(const PrintSettings& file, const PrintSettings& own, bool isBottom, MovesSeconds& sum) {
    const auto setting = [&](const char* key, const char* bottomKey = nullptr) {
        if (own.has(key)) return std::max(own.number(key), 0.0);
        if (isBottom && bottomKey != nullptr && file.has(bottomKey)) return std::max(file.number(bottomKey), 0.0);
        return std::max(file.numberOr(key, 0), 0.0);
    };
    sum.exposure += std::round(setting("exposure_s", "bottom_exposure_s") * 10) / 10;
    sum.delays += setting("light_off_s", "bottom_light_off_s");
    for (const char* rest : {"rest_before_lift_s", "rest_after_lift_s", "rest_after_lift2_s", "rest_after_retract_s"}) {
        sum.delays += setting(rest);
    }
    const double lift = setting("lift_mm", "bottom_lift_mm");
    const double lift2 = setting("lift2_mm", "bottom_lift2_mm");
    const double retract2 = std::min(setting("retract2_mm"), lift + lift2);
    sum.lift += moveSeconds(lift, setting("lift_speed", "bottom_lift_speed"));
    sum.lift += moveSeconds(lift2, setting("lift2_speed", "bottom_lift2_speed"));
    sum.lift += moveSeconds(lift + lift2 - retract2, setting("retract_speed"));
    sum.lift += moveSeconds(retract2, setting("retract2_speed"));
}

}  // namespace

MovesSeconds movesSeconds(const PrintSettings& settings, int layerCount,
                          const std::function<PrintSettings(int)>& layerSettings) {
    MovesSeconds sum;
    const double bottomLayers = settings.numberOr("bottom_layers", 0);
    for (int i = 0; i < layerCount; ++i) addLayer(settings, layerSettings(i), i < bottomLayers, sum);
    return sum;
}

}  // namespace vndlp::tools
