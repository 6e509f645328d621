/// The encoded, scrambled data of a layer in a file or in memory, unscrambled piece by piece: what is decoded has just
/// been read, and long data take no more memory than short.

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

/// Calls `take(piece, size)` with one unscrambled piece of the encoded data after the other. It returns how many bytes
/// it has used; the others, fewer than `kMaxRunBytes`, come again in front of the next piece.
/// \param read  `read(to, size)` copies the next bytes of the data and returns their number.
/// \param bytes of the data.
/// \return bytes that were there.
template <class Read, class Take>
std::size_t unscramblePieces(Read&& read, std::size_t bytes, std::uint32_t key, std::uint32_t layerIndex, Take&& take) {
    constexpr std::size_t pieceBytes = std::size_t{1} << 16;
    static_assert(pieceBytes % kScrambledWord == 0);
    std::vector<unsigned char> piece(std::min(bytes, pieceBytes) + kMaxRunBytes);
    std::size_t done = 0;
    std::size_t kept = 0;
    while (done < bytes) {
        unsigned char* const next = piece.data() + kept;
        const std::size_t size = read(next, std::min(bytes - done, pieceBytes));
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

/// The same from a file, which stands at the first byte and ends up behind what was read.
/// \param declared bytes of the data.
template <class Take>
std::size_t readPieces(vndlp::FileRead& file, unsigned int declared, std::uint32_t key, std::uint32_t layerIndex,
                       Take&& take) {
    const auto held = static_cast<std::size_t>(std::clamp<long long>(file.remaining(), 0, declared));
    return unscramblePieces([&file](unsigned char* to, std::size_t size) { return file.readBytes(to, size); }, held,
                            key, layerIndex, take);
}

/// A layer's encoded data in memory, as a file holds them.
struct EncodedLayer {
    const unsigned char* data;
    std::size_t size;
    std::uint32_t key;  ///< 0: not scrambled
    std::uint32_t layerIndex;
};

/// The same from memory, which stays as it is.
template <class Take>
void takePieces(const EncodedLayer& layer, Take&& take) {
    if (layer.key == 0) {
        take(layer.data, layer.size);
        return;
    }
    const unsigned char* from = layer.data;
    const auto copy = [&from](unsigned char* to, std::size_t size) {
        std::memcpy(to, from, size);
        from += size;
        return size;
    };
    unscramblePieces(copy, layer.size, layer.key, layer.layerIndex, take);
}

/// Decodes pieces of encoded data into pixels that are all 0, as `decodeRuns` does with the whole.
class PixelDecoder {
public:
    PixelDecoder(unsigned char* pixels, std::size_t size) : m_pixels(pixels), m_size(size) {}

    /// \return the bytes used: all of them when the pixels are complete.
    std::size_t take(const unsigned char* data, std::size_t size) {
        RunReader runs(data, size);
        m_position += decodeRuns(runs, m_pixels + m_position, m_size - m_position);
        return m_position == m_size ? size : size - runs.left();
    }
    /// Pixels decoded so far.
    [[nodiscard]] std::size_t position() const { return m_position; }

private:
    unsigned char* m_pixels;
    std::size_t m_size;
    std::size_t m_position = 0;
};

/// Adds up the runs of pieces of encoded data.
class RunCounter {
public:
    std::size_t take(const unsigned char* data, std::size_t size) {
        RunReader runs(data, size);
        addUp(runs, m_totals);
        m_cutOff = runs.left();
        return size - m_cutOff;
    }
    [[nodiscard]] const RunTotals& totals() const { return m_totals; }
    /// Whether the data end within a run.
    [[nodiscard]] bool isCutOff() const { return m_cutOff != 0; }

private:
    RunTotals m_totals;
    std::size_t m_cutOff = 0;
};

/// Calls `take(row, column, count, grey)` for the parts of a layer's runs that lie in one row each, dark ones included,
/// in the order of the pixels; runs beyond the image are left out.
/// \param grey of seven bits, see `decodedGrey`.
/// \return the pixels covered, up to width x height.
template <class Take>
std::size_t takeRowRuns(const EncodedLayer& layer, std::size_t width, std::size_t height, Take&& take) {
    RowCutter cutter(width, height, take);
    takePieces(layer, [&cutter](const unsigned char* data, std::size_t size) {
        RunReader runs(data, size);
        for (Run run{}; runs.take(run);) {
            if (!cutter.take(run)) return size;
        }
        return size - runs.left();
    });
    return cutter.position();
}

}  // namespace CTB
