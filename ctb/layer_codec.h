/// The run-length encoding of layer images, on plain memory.
///
/// The encoded data are a sequence of runs of one seven-bit grey (a pixel's byte shifted right by one) each:
///
/// | pixels n               | bytes                                                                            |
/// |------------------------|----------------------------------------------------------------------------------|
/// | 1                      | grey                                                                             |
/// | 2 to 0x7F              | 0x80 or grey; n                                                                  |
/// | 0x80 to 0x3FFF         | 0x80 or grey; 0x80 or (n >> 8); n and 0xFF                                       |
/// | 0x4000 to 0x1FFFFF     | 0x80 or grey; 0xC0 or (n >> 16); two more bytes of n, the higher first           |
/// | 0x200000 to 0x0FFFFFFF | 0x80 or grey; 0xE0 or (n >> 24); three more bytes of n, the highest first        |
/// | more                   | 0x80 or grey, and no length: kept, though no reader can tell it from another run |

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace CTB {

/// Bytes of the longest encoded run.
constexpr std::size_t kMaxRunBytes = 5;
/// Pixels of the longest run that is encoded with its length.
constexpr std::size_t kMaxRun = 0x0FFFFFFF;
/// Pixels of the longest run whose length takes one byte.
constexpr std::size_t kMaxShortRun = 0x7F;
/// Set in the first byte of a run of more than one pixel.
constexpr unsigned int kRunFlag = 0x80;

/// Single pixels that a decoder takes at once.
constexpr std::size_t kSingles = 8;

/// Pixels of one grey; encoded data may hold runs of none.
struct Run {
    unsigned int grey;
    std::size_t count;
};

/// A cursor over encoded data.
class RunReader {
public:
    RunReader(const unsigned char* encoded, std::size_t size) : m_next(encoded), m_end(encoded + size) {}

    /// \return false at the end of the data, also when it cuts a run off, which is not taken then.
    bool take(Run& run) {
        if (m_next == m_end) return false;
        const unsigned char* const first = m_next;
        const unsigned int value = *m_next++;
        run = {value & ~kRunFlag, 1};
        if ((value & kRunFlag) == 0 || takeLength(run.count)) return true;
        m_next = first;
        return false;
    }

    /// Bytes that have not been taken.
    [[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(m_end - m_next); }

    /// Takes the next kSingles runs if all are of one pixel, and writes those pixels as `decodeRuns` has them.
    bool takeSingles(unsigned char* pixels) {
        constexpr std::uint64_t everyByte = 0x0101010101010101;
        std::uint64_t greys = 0;
        if (m_end - m_next < static_cast<std::ptrdiff_t>(kSingles)) return false;
        std::memcpy(&greys, m_next, kSingles);
        if ((greys & kRunFlag * everyByte) != 0) return false;
        // eight `decodedGrey` in one word: a grey has seven bits, so that adding 0x7F sets bit 7 of every byte but
        // those of 0 and carries into no other byte
        const std::uint64_t lit = (greys + 0x7F * everyByte) >> 7 & everyByte;
        const std::uint64_t decoded = greys << 1 | lit;
        std::memcpy(pixels, &decoded, kSingles);
        m_next += kSingles;
        return true;
    }

private:
    /// In the header, so that loops keep the cursor in registers.
    bool takeLength(std::size_t& count) {
        if (m_next == m_end) return false;
        const unsigned int first = *m_next++;
        if (first <= kMaxShortRun) {
            count = first;
            return true;
        }
        // no length begins with 0xF0 or above: one pixel
        const int more = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 0;
        if (m_end - m_next < more) return false;
        if (more > 0) count = first & (0x7Fu >> more);
        for (int i = 0; i < more; ++i) count = count << 8 | *m_next++;
        return true;
    }

    const unsigned char* m_next;
    const unsigned char* m_end;
};

/// What becomes of a run longer than any that is encoded with its length.
enum class EndlessRun {
    asItIs,  ///< encoded without its length
    split,   ///< encoded as several
};

/// Encodes pixels that come in pieces; a run goes on from one piece to the next.
class RunEncoder {
public:
    /// Appends to `encoded`.
    RunEncoder(std::vector<unsigned char>& encoded, EndlessRun endless) : m_encoded(encoded), m_endless(endless) {}
    RunEncoder(const RunEncoder&) = delete;
    RunEncoder& operator=(const RunEncoder&) = delete;

    void add(const unsigned char* pixels, std::size_t size);
    /// Call behind the last piece; leaves little unused room.
    void finish();

private:
    void flush(std::size_t expected);

    std::vector<unsigned char>& m_encoded;
    EndlessRun m_endless;
    Run m_open{0, 0};
    unsigned char m_block[1u << 14];
    unsigned char* m_out = m_block;
};

/// Writes one encoded run.
/// \param grey  seven bits.
/// \param count pixels, at least 1.
/// \param out   room for `kMaxRunBytes` bytes.
/// \return the end of what was written.
unsigned char* putRun(unsigned int grey, std::size_t count, unsigned char* out);

/// Makes `pixels` an image of `count` black pixels; a large one comes on large pages, which the system hands out much
/// faster.
void makeBlack(std::vector<unsigned char>& pixels, std::size_t count);

/// Decodes into pixels that are all 0 before: black runs are passed over. Ends with the encoded data or the pixels,
/// whichever comes first; a run that is cut off is left out. A grey g comes back as (g << 1) or 1, 0 as 0.
/// \return the number of pixels the runs cover, up to `pixelCount`.
std::size_t decodeRuns(RunReader& runs, unsigned char* pixels, std::size_t pixelCount);

/// What runs add up to.
struct RunTotals {
    long long runs = 0;
    long long pixels = 0;
    long long litPixels = 0;  ///< those above `vndlp::kLitThreshold` when decoded
};

/// Adds up the runs that are left, without decoding them.
void addUp(RunReader& runs, RunTotals& totals);

/// The grey of a pixel that was stored in seven bits.
constexpr unsigned char decodedGrey(unsigned int grey) {
    return static_cast<unsigned char>(grey == 0 ? 0 : grey << 1 | 1);
}

/// Cuts runs at the ends of rows and calls `take(row, column, count, grey)` with the parts.
template <class Take>
class RowCutter {
public:
    RowCutter(std::size_t width, std::size_t height, Take& take)
        : m_width(width), m_height(width == 0 ? 0 : height), m_take(take) {}

    /// \return false once all rows are complete.
    bool take(const Run& run) {
        for (std::size_t left = run.count; left > 0 && m_row < m_height;) {
            const std::size_t count = std::min(left, m_width - m_column);
            m_take(m_row, m_column, count, run.grey);
            left -= count;
            m_column += count;
            if (m_column < m_width) break;
            m_column = 0;
            ++m_row;
        }
        return m_row < m_height;
    }
    /// Pixels taken so far.
    [[nodiscard]] std::size_t position() const { return m_row * m_width + m_column; }

private:
    std::size_t m_width;
    std::size_t m_height;
    Take& m_take;
    std::size_t m_row = 0;
    std::size_t m_column = 0;
};

}  // namespace CTB
