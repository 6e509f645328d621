/// The one way from a floating-point value to an unsigned number in the print-time estimates.

#pragma once

#include <limits>

namespace vndlp {

/// Drops the fraction. What an unsigned int cannot hold, where the language leaves the plain conversion undefined,
/// becomes the nearest value that it can; not a number becomes 0.
inline unsigned truncatedToUnsigned(double value) {
    constexpr unsigned kLargest = std::numeric_limits<unsigned>::max();
    if (!(value > 0)) return 0;
    return value < kLargest ? static_cast<unsigned>(value) : kLargest;
}

}  // namespace vndlp
