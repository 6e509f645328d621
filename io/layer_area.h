/// The layer area value every writer stores.

#pragma once

#include <cmath>
#include <cstdint>

namespace vndlp {

/// The stored value of a layer's area: a thousandth of what the caller gives, rounded to the nearest whole number,
/// halves away from zero, its low 32 bits. No number, or one beyond 64 bits, gives 0.
inline std::uint32_t storedLayerArea(double area) {
    const double rounded = std::round(area / 1000);
    if (!(std::fabs(rounded) < 9.0e18)) return 0;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(rounded));
}

}  // namespace vndlp
