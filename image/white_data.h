/// The run builder behind every form of a layer's runs, and the rules both it and its callers state.

#pragma once

#include "vndlp/image.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vndlp {

/// Greys up to this value are background.
constexpr unsigned char kDarkestBackground = 15;

/// True when a pixel belongs to a run.
constexpr bool isLit(unsigned char grey) { return grey > kDarkestBackground; }

/// One run in whole pixels.
struct PixelRun {
    int x;
    int firstRow;
    int lastRowInclusive;
    unsigned char grey;
};

/// The fields of a packed run and the 48-bit number they make: first row 13 bits, last row 13, column 14, grey 8.
/// Higher bits of a field are dropped.
inline void packRun(unsigned firstRow, unsigned lastRow, unsigned x, unsigned grey, unsigned char* out) {
    out[0] = static_cast<unsigned char>(firstRow >> 5);
    out[1] = static_cast<unsigned char>((firstRow & 31) << 3 | (lastRow >> 10 & 7));
    out[2] = static_cast<unsigned char>(lastRow >> 2);
    out[3] = static_cast<unsigned char>((lastRow & 3) << 6 | (x >> 8 & 63));
    out[4] = static_cast<unsigned char>(x);
    out[5] = static_cast<unsigned char>(grey);
}

/// Calls `sink(PixelRun)` for every run of a grey image, ordered by column, then row.
///
/// Runs are vertical, but walking an image down its columns touches a new cache line with every pixel. So the image is
/// read in memory order, one strip of columns after the other: wherever a pixel differs from the one above it (after
/// background greys are made equal) a run ends or begins there, and that change is noted. The changes of a strip,
/// found row by row, are then sorted by column (a counting sort keeps the rows in order), and each column's changes
/// are its runs. The plain form, per column x:
///
///     for each row y: if lit: extend the open run if its grey is the same and it ended at y - 1,
///                             else close it and open one at y; at the end close the open run
class RunBuilder {
public:
    /// \param data width x height bytes, row-major, `stride` bytes from one row to the next (negative: bottom up).
    RunBuilder(const unsigned char* data, int width, int height, std::ptrdiff_t stride)
        : m_data(data), m_width(width), m_height(height), m_stride(stride) {}

    template <class Sink>
    void run(Sink&& sink) {
        for (int x = 0; x < m_width; x += kStripColumns) {
            const int columns = std::min(kStripColumns, m_width - x);
            findChanges(x, columns);
            sortByColumn(columns);
            emit(x, columns, sink);
        }
    }

private:
    // wide enough for long sequential reads, narrow enough for the changes of a noisy strip to stay small
    static constexpr int kStripColumns = 1024;
    static constexpr int kRowsAhead = 2;

    struct Change {
        std::int32_t row;
        std::uint16_t column;  // within the strip
        std::uint8_t grey;     // from this row on; 0 is background
    };
    struct SortedChange {
        std::int32_t row;
        std::uint8_t grey;
    };

    static std::uint8_t litGrey(unsigned char grey) { return isLit(grey) ? grey : std::uint8_t{0}; }

    void findChanges(int firstColumn, int columns) {
        m_changes.clear();
        m_ends.assign(static_cast<std::size_t>(columns) + 1, 0);
        static constexpr unsigned char background[kStripColumns] = {};
        const unsigned char* above = background;
        for (int y = 0; y < m_height; ++y) {
            const unsigned char* row = m_data + y * m_stride + firstColumn;
            if (y + kRowsAhead < m_height) prefetch(row + kRowsAhead * m_stride, columns);
            compareRows(above, row, columns, y);
            above = row;
        }
    }

    /// A strip's rows lie a whole image row apart, where no hardware looks ahead: without this half the time is
    /// waiting.
    static void prefetch([[maybe_unused]] const unsigned char* row, [[maybe_unused]] int columns) {
#if defined(__GNUC__)
        constexpr int kCacheLine = 64;
        for (int x = 0; x < columns; x += kCacheLine) __builtin_prefetch(row + x);
#endif
    }

    void compareRows(const unsigned char* above, const unsigned char* row, int columns, int y) {
        constexpr int kWord = 8;
        int x = 0;
        for (; x + kWord <= columns; x += kWord) {
            std::uint64_t upper = 0;
            std::uint64_t lower = 0;
            std::memcpy(&upper, above + x, kWord);
            std::memcpy(&lower, row + x, kWord);
            if (upper == lower) continue;
            for (int i = x; i < x + kWord; ++i) compare(above[i], row[i], i, y);
        }
        for (; x < columns; ++x) compare(above[x], row[x], x, y);
    }

    void compare(unsigned char above, unsigned char pixel, int column, int y) {
        const std::uint8_t grey = litGrey(pixel);
        if (grey == litGrey(above)) return;
        m_changes.push_back({y, static_cast<std::uint16_t>(column), grey});
        ++m_ends[static_cast<std::size_t>(column) + 1];
    }

    /// Afterwards column c's changes are those from m_ends[c - 1] (0 for the first) to m_ends[c].
    void sortByColumn(int columns) {
        for (int c = 0; c < columns; ++c)
            m_ends[static_cast<std::size_t>(c) + 1] += m_ends[static_cast<std::size_t>(c)];
        m_sorted.resize(m_changes.size());
        for (const Change& change : m_changes) m_sorted[m_ends[change.column]++] = {change.row, change.grey};
    }

    template <class Sink>
    void emit(int firstColumn, int columns, Sink&& sink) {
        std::size_t next = 0;
        for (int c = 0; c < columns; ++c) {
            SortedChange open{0, 0};
            for (; next < m_ends[static_cast<std::size_t>(c)]; ++next) {
                const SortedChange& change = m_sorted[next];
                if (open.grey != 0) sink(PixelRun{firstColumn + c, open.row, change.row - 1, open.grey});
                open = change;
            }
            if (open.grey != 0) sink(PixelRun{firstColumn + c, open.row, m_height - 1, open.grey});
        }
    }

    const unsigned char* m_data;
    int m_width;
    int m_height;
    std::ptrdiff_t m_stride;
    std::vector<Change> m_changes;
    std::vector<SortedChange> m_sorted;
    std::vector<std::size_t> m_ends;
};

}  // namespace vndlp
