/// Where the pixels of a column change, found by comparing whole rows.

#pragma once

#include <cstddef>
#include <cstdint>

namespace vndlp {

/// Greys up to this value are background.
constexpr unsigned char kDarkestBackground = 15;

/// The grey of a pixel, 0 for background.
constexpr unsigned char litGrey(unsigned char pixel) { return pixel > kDarkestBackground ? pixel : 0; }

/// "From this row on the pixels of this column are of this grey" (0 is background), in one word: row in the upper half,
/// 24 bits of column, 8 of grey.
using ColumnChange = std::uint64_t;

constexpr unsigned kChangeColumnShift = 8;
constexpr unsigned kChangeRowShift = 32;
constexpr int kMostChangeColumns = 1 << 14;

constexpr ColumnChange columnChange(int row, int column, unsigned char grey) {
    return static_cast<ColumnChange>(row) << kChangeRowShift | static_cast<ColumnChange>(column) << kChangeColumnShift |
           grey;
}
constexpr std::uint32_t changeRow(ColumnChange change) { return static_cast<std::uint32_t>(change >> kChangeRowShift); }
constexpr std::size_t changeColumn(ColumnChange change) {
    return static_cast<std::uint32_t>(change) >> kChangeColumnShift;
}
constexpr unsigned char changeGrey(ColumnChange change) { return static_cast<unsigned char>(change); }

/// Part of a grey image: `columns` x `rows` pixels, `stride` bytes from one row to the next.
struct PixelArea {
    const unsigned char* pixels;
    std::ptrdiff_t stride;
    int columns;
    int rows;
};

/// Compares every row with the one above it, the first one with background, and notes what changes, row by row.
/// \param area     at most kMostChangeColumns wide.
/// \param changes  room for `capacity` changes, at least one a column.
/// \param count    receives the number of changes.
/// \param inColumn `columns` counters, to which each column's changes are added.
/// \return the rows that were compared: fewer than the area has when the next one's changes might not find room.
int findChanges(const PixelArea& area, ColumnChange* changes, std::size_t capacity, std::size_t& count,
                std::uint32_t* inColumn);

}  // namespace vndlp
