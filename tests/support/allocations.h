/// What a program allocates, the library in it included. Link `allocations.cpp` into the test.

#pragma once

#include <cstddef>

namespace vndlp::test {

struct Allocations {
    std::size_t total = 0;  ///< bytes asked for, whether released or not
    std::size_t largest = 0;
};

/// Forgets what was allocated before.
void countAllocations();
/// Since `countAllocations`.
Allocations allocations();
/// From the allocation on that comes behind `count` others none succeeds; all do for a negative count.
void failAllocationsAfter(long long count);

}  // namespace vndlp::test
