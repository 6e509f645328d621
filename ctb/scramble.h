/// The scrambling of encoded layers.

#pragma once

#include <cstddef>
#include <cstdint>

namespace CTB {

/// Scrambles or, the operation being its own inverse, unscrambles a layer's encoded data in place. A key of 0 changes
/// nothing.
///
/// With the four constants and unsigned 32-bit arithmetic:
///
///     step  = key * km - ks
///     state = (layerIndex * lm - ls) * step
///     for each four bytes: XOR them with state, least significant byte first; state += step
///
/// \param offset of `data` in the encoded layer, where that comes in pieces: whole words.
void scramble(std::uint32_t key, std::uint32_t layerIndex, unsigned char* data, std::size_t size,
              std::size_t offset = 0);

constexpr std::size_t kScrambledWord = sizeof(std::uint32_t);

}  // namespace CTB
