/// Columns of an image, copied out, and their runs, found by comparing each pixel with its neighbours.

#pragma once

#include "image/row_changes.h"

#include <cstddef>
#include <cstdint>

namespace vndlp {

/// Copies an area so that the pixels of a column lie one behind the other.
/// \param columns receives the columns, `columnStride` bytes from one to the next.
void copyColumns(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride);

/// Pixels of a column that are looked at in one go; columns are padded with background to whole such pieces.
constexpr int kColumnPiece = 64;

/// Runs of a column in the order of their rows. The last one may still be open: begun, but not ended.
/// \param Row float or std::uint32_t; rows are below 2^24.
template <class Row>
struct ColumnRuns {
    static constexpr int kMaxPixels = 2 * kColumnPiece;
    static constexpr std::size_t kRoom = kMaxPixels + 8;  // an open run, and what vectors write behind the last one

    Row firstRows[kRoom];
    Row lastRows[kRoom];
    unsigned char greys[kRoom];
    std::size_t begun = 0;
    std::size_t ended = 0;

    /// Forgets all but the open run.
    void dropEnded() {
        if (begun > ended) {
            firstRows[0] = firstRows[ended];
            greys[0] = greys[ended];
        }
        begun -= ended;
        ended = 0;
    }
};

/// Adds what begins and ends in part of a column.
/// \param column the first row's pixel; the pixel before it and all from the last row's to the end of its piece are
///               background.
/// \param from   the part's first row; it ends before row `to`. Both are whole pieces, at most
///               `ColumnRuns::kMaxPixels` apart.
/// \param runs   of the part before, its ended runs dropped.
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<float>& runs);
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<std::uint32_t>& runs);

}  // namespace vndlp
