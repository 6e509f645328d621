/// The time of a print as the sum of its exposures, waits and moves: for machines that no table knows.

#pragma once

#include "tools/base/settings.h"

#include <functional>

namespace vndlp::tools {

/// Where the time goes, seconds.
struct MovesSeconds {
    double exposure = 0;
    double lift = 0;
    double delays = 0;

    double total() const { return exposure + lift + delays; }
};

/// Adds up, for every layer, its exposure to 0.1 s, light-off, rests, and both stages of lift and retract as distance
/// over speed. Bottom layers take the bottom values where there are some; values of a layer's own win.
/// \param layerSettings those of a layer alone.
MovesSeconds movesSeconds(const PrintSettings& settings, int layerCount,
                          const std::function<PrintSettings(int)>& layerSettings);

}  // namespace vndlp::tools
