/// The scrambled code of a layer in a file, read piece by piece: what is decoded has just been read, and a long code
/// takes no more memory than a short one.

#pragma once

#include <vndlp/streams.h>
#include "ctb/layer_codec.h"
#include "ctb/scramble.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace CTB {

/// Calls `take(code, size)` with one unscrambled piece after the other. It returns how many bytes it has used; the
/// others, fewer than `kLongestRunCode`, come again in front of the next piece. \param file     stands at the code's
/// first byte; ends up behind what was read. \param declared bytes of the code. \return bytes that were there.
template <class Take>
std::size_t readPieces(vndlp::FileRead& file, unsigned int declared, std::uint32_t key, std::uint32_t layerIndex,
                       Take&& take) {
    constexpr std::size_t pieceBytes = std::size_t{1} << 16;
    static_assert(pieceBytes % kScrambledWord == 0);
    const auto held = static_cast<std::size_t>(std::clamp<long long>(file.remaining(), 0, declared));
    std::vector<unsigned char> piece(std::min(held, pieceBytes) + kLongestRunCode);
    std::size_t done = 0;
    std::size_t kept = 0;
    while (done < held) {
        unsigned char* const next = piece.data() + kept;
        const std::size_t size = file.readBytes(next, std::min(held - done, pieceBytes));
        if (size == 0) break;
        scramble(key, layerIndex, next, size, done);
        done += size;
        const std::size_t used = take(static_cast<const unsigned char*>(piece.data()), kept + size);
        kept = kept + size - used;
        std::memmove(piece.data(), piece.data() + used, kept);
        if (done % pieceBytes != 0) break;  // the end, or a file that cannot be read on
    }
    return done;
}

/// Decodes pieces of a code into pixels that are all 0, as `decodeRuns` a whole one.
class PixelDecoder {
public:
    PixelDecoder(unsigned char* pixels, std::size_t size) : m_pixels(pixels), m_size(size) {}

    /// \return the bytes used: all of them when the pixels are complete.
    std::size_t take(const unsigned char* code, std::size_t codeSize) {
        RunReader runs(code, codeSize);
        m_position += decodeRuns(runs, m_pixels + m_position, m_size - m_position);
        return m_position == m_size ? codeSize : codeSize - runs.left();
    }

private:
    unsigned char* m_pixels;
    std::size_t m_size;
    std::size_t m_position = 0;
};

}  // namespace CTB
