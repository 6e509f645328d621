#include "ctb/scramble.h"

#include "ctb/scramble_constants.h"
#include "io/wrapping.h"

#include <bit>
#include <cstring>

namespace CTB {

namespace {

using vndlp::wrappingDifference;
using vndlp::wrappingProduct;
using vndlp::wrappingSum;

/// The word whose bytes in memory are those of `value`, least significant first.
constexpr std::uint32_t littleEndian(std::uint32_t value) {
    if constexpr (std::endian::native == std::endian::little) return value;
    return value >> 24 | (value >> 8 & 0xFF00) | (value << 8 & 0xFF0000) | value << 24;
}

ScramblingConstants constants = kBuiltConstants;

}  // namespace

void setScramblingConstants(const ScramblingConstants& values) { constants = values; }

ScramblingConstants scramblingConstants() { return constants; }

bool areScramblingConstantsIllustrative() {
    const ScramblingConstants& from = kIllustrativeConstants;
    return constants.km == from.km && constants.ks == from.ks && constants.lm == from.lm && constants.ls == from.ls;
}

void scramble(std::uint32_t key, std::uint32_t layerIndex, unsigned char* data, std::size_t size, std::size_t offset) {
    constexpr std::size_t kWord = kScrambledWord;
    if (key == 0) return;
    const std::uint32_t step = wrappingDifference(wrappingProduct(key, constants.km), constants.ks);
    std::uint32_t state = wrappingDifference(wrappingProduct(layerIndex, constants.lm), constants.ls);
    state = wrappingProduct(state, step);
    state = wrappingSum(state, wrappingProduct(static_cast<std::uint32_t>(offset / kWord), step));
    const std::size_t words = size / kWord;
    for (std::size_t i = 0; i < words; ++i) {
        std::uint32_t word = 0;
        std::memcpy(&word, data + i * kWord, kWord);
        word ^= littleEndian(state);
        std::memcpy(data + i * kWord, &word, kWord);
        state = wrappingSum(state, step);
    }
    for (std::size_t i = words * kWord; i < size; ++i) {
        data[i] = static_cast<unsigned char>(data[i] ^ state);
        state >>= 8;
    }
}

}  // namespace CTB
