#include "ctb/layer_codec.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace CTB {

namespace {

constexpr std::uint64_t kEveryByte = 0x0101010101010101;
constexpr std::uint64_t kGreyBits = 0xFE * kEveryByte;  // the lowest bit of a pixel is not coded
constexpr std::ptrdiff_t kWord = sizeof(std::uint64_t);
constexpr std::ptrdiff_t kBlockWords = 8;
constexpr std::size_t kCodeBlock = 1u << 14;
constexpr std::size_t kShortestBlockFill = 16;

/// The forms a run's length takes: the first byte holds a mark and the highest bits, `moreBytes` follow.
struct LengthForm {
    unsigned int mark;
    unsigned int markMask;
    unsigned int moreBytes;
    std::size_t longest;
};
constexpr LengthForm kLengthForms[] = {
    {0x00, 0x80, 0, 0x7F},
    {0x80, 0xC0, 1, 0x3FFF},
    {0xC0, 0xE0, 2, 0x1FFFFF},
    {0xE0, 0xF0, 3, kLongestRun},
};

/// Differences between eight pixels and eight of the grey in `pattern`: a byte is 0 where they are equal.
std::uint64_t differences(const unsigned char* pixels, std::uint64_t pattern) {
    std::uint64_t word = 0;
    std::memcpy(&word, pixels, sizeof word);
    return (word ^ pattern) & kGreyBits;
}

/// Index of the first byte in memory that is not 0.
std::ptrdiff_t firstDifference(std::uint64_t differing) {
    constexpr bool little = std::endian::native == std::endian::little;
    return (little ? std::countr_zero(differing) : std::countl_zero(differing)) / 8;
}

/// Writes a length that takes more than one byte; nothing for one that no form holds.
unsigned char* putLongLength(std::size_t count, unsigned char* out) {
    for (const LengthForm& form : kLengthForms) {
        if (count > form.longest) continue;
        *out++ = static_cast<unsigned char>(form.mark | count >> 8 * form.moreBytes);
        for (unsigned int i = form.moreBytes; i > 0; --i) *out++ = static_cast<unsigned char>(count >> 8 * (i - 1));
        break;
    }
    return out;
}

void fillRun(unsigned char* pixels, std::size_t count, unsigned char value) {
    if (count >= kShortestBlockFill) {
        std::memset(pixels, value, count);
        return;
    }
    for (std::size_t i = 0; i < count; ++i) pixels[i] = value;
}

}  // namespace

bool RunReader::takeLength(std::size_t& count) {
    if (m_next == m_end) return false;
    const unsigned int first = *m_next++;
    for (const LengthForm& form : kLengthForms) {
        if ((first & form.markMask) != form.mark) continue;
        if (m_end - m_next < static_cast<std::ptrdiff_t>(form.moreBytes)) return false;
        count = first & ~form.markMask;
        for (unsigned int i = 0; i < form.moreBytes; ++i) count = count << 8 | *m_next++;
        return true;
    }
    return true;  // no form has a first byte of 0xF0 and above: one pixel
}

unsigned char* putRun(unsigned int grey, std::size_t count, unsigned char* out) {
    if (count == 1) {
        *out++ = static_cast<unsigned char>(grey);
        return out;
    }
    *out++ = static_cast<unsigned char>(grey | kRunFlag);
    if (count <= kLengthForms[0].longest) {
        *out++ = static_cast<unsigned char>(count);
        return out;
    }
    return putLongLength(count, out);
}

const unsigned char* endOfRun(const unsigned char* first, const unsigned char* end) {
    const std::uint64_t pattern = *first * kEveryByte;
    const unsigned char* next = first + 1;
    if (next != end && *next >> 1 != *first >> 1) return next;
    // most runs are a few pixels at an edge or thousands between edges: a word at a time, then a block, then words
    if (end - next >= kWord) {
        const std::uint64_t differing = differences(next, pattern);
        if (differing != 0) return next + firstDifference(differing);
        next += kWord;
    }
    while (end - next >= kBlockWords * kWord) {
        std::uint64_t differing = 0;
        for (std::ptrdiff_t i = 0; i < kBlockWords; ++i) differing |= differences(next + i * kWord, pattern);
        if (differing != 0) break;
        next += kBlockWords * kWord;
    }
    for (; end - next >= kWord; next += kWord) {
        const std::uint64_t differing = differences(next, pattern);
        if (differing != 0) return next + firstDifference(differing);
    }
    while (next != end && *next >> 1 == *first >> 1) ++next;
    return next;
}

void encodeRuns(const unsigned char* pixels, std::size_t size, std::vector<unsigned char>& code) {
    unsigned char block[kCodeBlock];
    const unsigned char* const full = block + sizeof block - kLongestRunCode;
    unsigned char* out = block;
    const unsigned char* const end = pixels + size;
    for (const unsigned char* next = pixels; next != end;) {
        const unsigned char* const runEnd = endOfRun(next, end);
        out = putRun(*next >> 1, static_cast<std::size_t>(runEnd - next), out);
        next = runEnd;
        if (out > full) {
            code.insert(code.end(), block, out);
            out = block;
        }
    }
    code.insert(code.end(), block, out);
}

std::size_t decodeRuns(const unsigned char* code, std::size_t codeSize, unsigned char* pixels, std::size_t pixelCount) {
    RunReader runs(code, codeSize);
    Run run{};
    std::size_t position = 0;
    while (position < pixelCount && runs.take(run)) {
        const std::size_t count = std::min(run.count, pixelCount - position);
        if (run.grey != 0) fillRun(pixels + position, count, static_cast<unsigned char>(run.grey << 1 | 1));
        position += count;
    }
    return position;
}

long long codedPixels(const unsigned char* code, std::size_t codeSize) {
    RunReader runs(code, codeSize);
    Run run{};
    long long pixels = 0;
    while (!runs.atEnd()) {
        if (!runs.take(run)) return -1;
        pixels += static_cast<long long>(run.count);
    }
    return pixels;
}

}  // namespace CTB
