/// Unsigned arithmetic that is meant to wrap, for hashes and scrambling. The one place where checks for overflow look
/// away: elsewhere an unsigned number that wraps is a fault.

#pragma once

#if defined(__clang__)
#define VNDLP_MAY_WRAP __attribute__((no_sanitize("unsigned-integer-overflow")))
#else
#define VNDLP_MAY_WRAP
#endif

namespace vndlp {

/// \name a + b, a - b and a * b modulo 2^32 or 2^64, for `unsigned int` and longer.
/// \{
template <class Unsigned>
VNDLP_MAY_WRAP constexpr Unsigned wrappingSum(Unsigned a, Unsigned b) {
    return a + b;
}
template <class Unsigned>
VNDLP_MAY_WRAP constexpr Unsigned wrappingDifference(Unsigned a, Unsigned b) {
    return a - b;
}
template <class Unsigned>
VNDLP_MAY_WRAP constexpr Unsigned wrappingProduct(Unsigned a, Unsigned b) {
    return a * b;
}
/// \}

}  // namespace vndlp
