/// Integer arithmetic of the bead field: fixed point, truncating, and defined for every argument, because the field's
/// numbers come from the caller unchecked.

#pragma once

#include "io/wrapping.h"

#include <cmath>

namespace VNDLPV4 {

constexpr long long signedValue(unsigned long long value) { return static_cast<long long>(value); }
constexpr unsigned long long unsignedValue(long long value) { return static_cast<unsigned long long>(value); }

/// a + b, a - b and a * b modulo 2^64.
constexpr long long sum(long long a, long long b) {
    return signedValue(vndlp::wrappingSum(unsignedValue(a), unsignedValue(b)));
}
constexpr long long difference(long long a, long long b) {
    return signedValue(vndlp::wrappingDifference(unsignedValue(a), unsignedValue(b)));
}
constexpr long long product(long long a, long long b) {
    return signedValue(vndlp::wrappingProduct(unsignedValue(a), unsignedValue(b)));
}

/// a / b truncated toward zero; 0 for b = 0. The least value divided by -1 stays itself.
constexpr long long quotient(long long a, long long b) {
    if (b == 0) return 0;
    return b == -1 ? difference(0, a) : a / b;
}

/// A number as a 64-bit integer, truncated toward zero; the nearest one for what does not fit, 0 for NaN.
inline long long whole(double value) {
    constexpr double kLimit = 9223372036854775808.0;
    if (!(value >= -kLimit)) return std::isnan(value) ? 0 : signedValue(1ull << 63);
    return value < kLimit ? static_cast<long long>(value) : signedValue((1ull << 63) - 1);
}

}  // namespace VNDLPV4
