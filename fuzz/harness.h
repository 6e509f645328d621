/// What every fuzz target is made of: a target defines `run`, `harness.cpp` does the rest. Standard output, where the
/// library's messages go, is silenced.
///
/// A target fails when it crashes, when a `require` does not hold, when it takes more than 5 s of processor time, and,
/// under the address sanitizer, when the memory in use exceeds `kFreeBytes` and `kBytesPerInputByte` for each byte of
/// input.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vndlp::fuzz {

using Bytes = std::vector<unsigned char>;

/// What any reader may use, whatever the input: fixed pictures, tables of 65535 layers, buffers.
constexpr std::size_t kFreeBytes = std::size_t{4} << 20;
/// Records in memory are larger than in a file, and vectors grow by doubling.
constexpr std::size_t kBytesPerInputByte = 16;

/// Tries one input; never empty.
void run(const Bytes& input);

/// Lets the input use this much more, such as the pixels of an image that is asked for; less with a negative count.
void allowBytes(long long count);

inline void require(bool holds, int line = __builtin_LINE()) {
    if (holds) return;
    std::fprintf(stderr, "what line %d requires does not hold\n", line);
    std::abort();
}

}  // namespace vndlp::fuzz
