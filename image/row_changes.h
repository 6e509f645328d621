/// Where the pixels of a column change, found by comparing whole rows.

#pragma once

#include <vndlp/formats.h>

#include <cstddef>
#include <cstdint>

namespace vndlp {

/// The grey of a pixel, 0 for background.
constexpr unsigned char litGrey(unsigned char pixel) { return pixel > kLitThreshold ? pixel : 0; }

/// "From here on the pixels of this column are of this grey" (0 is background), as noted row by row: the column in the
/// upper 24 bits, 8 of grey. Half the memory of a structure, which is what noting and sorting wait for.
using RowChange = std::uint32_t;
/// The same, of a known column, with the row in the upper 24 bits.
using ColumnChange = std::uint32_t;

constexpr unsigned kChangePlaceShift = 8;
constexpr int kMaxChangeColumns = 1 << 14;
constexpr int kMaxChangeRows = 1 << 24;

/// A change at a column or row.
constexpr std::uint32_t changeAt(std::uint32_t place, unsigned char grey) { return place << kChangePlaceShift | grey; }
constexpr std::uint32_t changePlace(std::uint32_t change) { return change >> kChangePlaceShift; }
constexpr unsigned char changeGrey(std::uint32_t change) { return static_cast<unsigned char>(change); }

/// Part of a grey image: `columns` x `rows` pixels, `stride` bytes from one row to the next.
struct PixelArea {
    const unsigned char* pixels;
    std::ptrdiff_t stride;
    int columns;
    int rows;
};

/// Compares every row with the one above it, the first one with background, and notes what changes, row by row.
/// \param area     at most kMaxChangeColumns wide.
/// \param changes  room for `capacity` changes, at least one a column.
/// \param rowEnds  receives for every row that was compared where its changes end.
/// \param inColumn `columns` counters, to which each column's changes are added.
/// \return the rows that were compared: fewer than the area has when the next one's changes might not find room.
int findChanges(const PixelArea& area, RowChange* changes, std::size_t capacity, std::uint32_t* rowEnds,
                std::uint32_t* inColumn);

}  // namespace vndlp
