#include "image/column_runs.h"

#include <algorithm>

#if defined(VNDLP_HAVE_HIGHWAY)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/column_runs.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>
#endif

#ifndef VNDLP_IMAGE_COLUMN_RUNS_ONCE
#define VNDLP_IMAGE_COLUMN_RUNS_ONCE

namespace vndlp {
namespace {

/// One pixel after the other. What may be a begin or an end is written in any case and kept if it is one: where every
/// pixel differs from the next, a branch is guessed wrong too often.
template <class Row>
void comparePixels(const unsigned char* column, int from, int to, ColumnRuns<Row>& runs) {
    unsigned char above = litGrey(column[from - 1]);
    unsigned char grey = litGrey(column[from]);
    for (int row = from; row < to; ++row) {
        const unsigned char below = litGrey(column[row + 1]);
        runs.firstRows[runs.begun] = static_cast<Row>(row);
        runs.greys[runs.begun] = grey;
        runs.begun += grey != 0 && grey != above ? 1 : 0;
        runs.lastRows[runs.ended] = static_cast<Row>(row);
        runs.ended += grey != 0 && grey != below ? 1 : 0;
        above = grey;
        grey = below;
    }
}

constexpr int kTile = 16;

/// Copies square by square, `copyTile(rows, stride, columns, columnStride)` a whole one, so that what has been fetched
/// from memory is used up before it has to make room.
template <class CopyTile>
void copyTiles(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride, CopyTile&& copyTile) {
    const int wholeRows = area.rows / kTile * kTile;
    const int wholeColumns = area.columns / kTile * kTile;
    for (int y = 0; y < wholeRows; y += kTile) {
#if defined(__GNUC__)
        // rows lie too far apart for the processor to look ahead by itself
        for (int row = y + 2 * kTile; row < std::min(y + 3 * kTile, area.rows); ++row) {
            __builtin_prefetch(area.pixels + row * area.stride);
            __builtin_prefetch(area.pixels + row * area.stride + area.columns - 1);
        }
#endif
        for (int c = 0; c < wholeColumns; c += kTile) {
            copyTile(area.pixels + y * area.stride + c, area.stride, columns + c * columnStride + y, columnStride);
        }
    }
    for (int y = 0; y < area.rows; ++y) {
        for (int c = y < wholeRows ? wholeColumns : 0; c < area.columns; ++c) {
            columns[c * columnStride + y] = area.pixels[y * area.stride + c];
        }
    }
}

void copyPixels(const unsigned char* rows, std::ptrdiff_t stride, unsigned char* columns, std::ptrdiff_t columnStride) {
    for (int c = 0; c < kTile; ++c) {
        for (int r = 0; r < kTile; ++r) columns[c * columnStride + r] = rows[r * stride + c];
    }
}

constexpr int kGroup = 8;

/// The places of the set bits of every byte, lowest first, 0 behind them.
struct SetBits {
    alignas(kGroup) std::uint8_t places[256][kGroup] = {};

    constexpr SetBits() {
        for (unsigned bits = 0; bits < 256; ++bits) {
            std::uint8_t* next = places[bits];
            for (unsigned place = 0; place < kGroup; ++place) {
                if ((bits >> place & 1) != 0) *next++ = static_cast<std::uint8_t>(place);
            }
        }
    }
};
[[maybe_unused]] constexpr SetBits kSetBits;

}  // namespace
}  // namespace vndlp

#endif

#if defined(VNDLP_HAVE_HIGHWAY)

HWY_BEFORE_NAMESPACE();
namespace vndlp::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

void copyColumns(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride) {
    copyTiles(area, columns, columnStride, copyPixels);
}

template <class Row>
void comparePieces(const unsigned char* column, int from, int to, ColumnRuns<Row>& runs) {
    comparePixels(column, from, to, runs);
}

#else

HWY_INLINE void transposeTile(const unsigned char* rows, std::ptrdiff_t stride, unsigned char* columns,
                              std::ptrdiff_t columnStride) {
    const hn::FixedTag<std::uint8_t, kTile> tag;
    hn::Vec<decltype(tag)> lines[kTile];
    for (int r = 0; r < kTile; ++r) lines[r] = hn::LoadU(tag, rows + r * stride);
    // each round moves the highest bit of a pixel's row to the lowest place: after four, rows are columns
    for (int round = 0; round < 4; ++round) {
        hn::Vec<decltype(tag)> mixed[kTile];
        constexpr std::size_t half = kTile / 2;
        for (std::size_t i = 0; i < half; ++i) {
            mixed[2 * i] = hn::InterleaveLower(tag, lines[i], lines[i + half]);
            mixed[2 * i + 1] = hn::InterleaveUpper(tag, lines[i], lines[i + half]);
        }
        std::copy(mixed, mixed + kTile, lines);
    }
    for (int c = 0; c < kTile; ++c) hn::StoreU(lines[c], tag, columns + c * columnStride);
}

void copyColumns(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride) {
    copyTiles(area, columns, columnStride,
              [](const unsigned char* rows, std::ptrdiff_t stride, unsigned char* out, std::ptrdiff_t outStride)
                  HWY_ATTR { transposeTile(rows, stride, out, outStride); });
}

/// A bit for each pixel of a piece, the first one's lowest.
struct PieceBits {
    std::uint64_t begins = 0;
    std::uint64_t ends = 0;
};

HWY_INLINE PieceBits compareNeighbours(const unsigned char* piece) {
    const hn::CappedTag<std::uint8_t, kColumnPiece> tag;
    const auto darkest = hn::Set(tag, kLitThreshold);
    PieceBits bits;
    for (std::size_t i = 0; i < kColumnPiece; i += hn::Lanes(tag)) {
        const auto above = hn::Max(hn::LoadU(tag, piece + i - 1), darkest);
        const auto grey = hn::Max(hn::LoadU(tag, piece + i), darkest);
        const auto below = hn::Max(hn::LoadU(tag, piece + i + 1), darkest);
        const auto lit = hn::Ne(grey, darkest);
        std::uint64_t begins = 0;
        std::uint64_t ends = 0;
        hn::StoreMaskBits(tag, hn::And(lit, hn::Ne(grey, above)), reinterpret_cast<std::uint8_t*>(&begins));
        hn::StoreMaskBits(tag, hn::And(lit, hn::Ne(grey, below)), reinterpret_cast<std::uint8_t*>(&ends));
        bits.begins |= begins << i;
        bits.ends |= ends << i;
    }
    return bits;
}

HWY_INLINE void storeRows(std::int32_t firstRow, const std::uint8_t* places, std::uint32_t* rows) {
    const hn::CappedTag<std::int32_t, kGroup> tag;
    const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
    for (std::size_t i = 0; i < kGroup; i += hn::Lanes(tag)) {
        const auto row = hn::Add(hn::PromoteTo(tag, hn::Load(bytes, places + i)), hn::Set(tag, firstRow));
        hn::StoreU(row, tag, reinterpret_cast<std::int32_t*>(rows) + i);
    }
}

HWY_INLINE void storeRows(std::int32_t firstRow, const std::uint8_t* places, float* rows) {
    const hn::CappedTag<float, kGroup> tag;
    const hn::RebindToSigned<decltype(tag)> whole;
    const hn::Rebind<std::uint8_t, decltype(tag)> bytes;
    for (std::size_t i = 0; i < kGroup; i += hn::Lanes(tag)) {
        const auto row = hn::Add(hn::PromoteTo(whole, hn::Load(bytes, places + i)), hn::Set(whole, firstRow));
        hn::StoreU(hn::ConvertTo(tag, row), tag, rows + i);
    }
}

template <class Row>
HWY_INLINE void comparePieces(const unsigned char* column, int from, int to, ColumnRuns<Row>& runs) {
    const hn::Full64<std::uint8_t> group;
    std::size_t begun = runs.begun;
    std::size_t ended = runs.ended;
    for (int piece = from; piece < to; piece += kColumnPiece) {
        PieceBits bits = compareNeighbours(column + piece);
        for (int row = piece; row < piece + kColumnPiece; row += kGroup) {
            const std::uint8_t* const begins = kSetBits.places[bits.begins & 0xFF];
            const std::uint8_t* const ends = kSetBits.places[bits.ends & 0xFF];
            storeRows(row, begins, runs.firstRows + begun);
            storeRows(row, ends, runs.lastRows + ended);
            const auto greys = hn::TableLookupBytes(hn::LoadU(group, column + row), hn::Load(group, begins));
            hn::StoreU(greys, group, runs.greys + begun);
            begun += hwy::PopCount(bits.begins & 0xFF);
            ended += hwy::PopCount(bits.ends & 0xFF);
            bits.begins >>= kGroup;
            bits.ends >>= kGroup;
        }
    }
    runs.begun = begun;
    runs.ended = ended;
}

#endif

// a table of targets cannot hold templates
void findRows(const unsigned char* column, int from, int to, ColumnRuns<float>& runs) {
    comparePieces(column, from, to, runs);
}
void findWholeRows(const unsigned char* column, int from, int to, ColumnRuns<std::uint32_t>& runs) {
    comparePieces(column, from, to, runs);
}

}  // namespace
}  // namespace vndlp::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vndlp {

namespace {
HWY_EXPORT(copyColumns);
HWY_EXPORT(findRows);
HWY_EXPORT(findWholeRows);
}  // namespace

void copyColumns(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride) {
    HWY_DYNAMIC_DISPATCH(copyColumns)(area, columns, columnStride);
}
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<float>& runs) {
    HWY_DYNAMIC_DISPATCH(findRows)(column, from, to, runs);
}
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<std::uint32_t>& runs) {
    HWY_DYNAMIC_DISPATCH(findWholeRows)(column, from, to, runs);
}

}  // namespace vndlp
#endif

#else

namespace vndlp {

void copyColumns(const PixelArea& area, unsigned char* columns, std::ptrdiff_t columnStride) {
    copyTiles(area, columns, columnStride, copyPixels);
}
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<float>& runs) {
    comparePixels(column, from, to, runs);
}
void findColumnRuns(const unsigned char* column, int from, int to, ColumnRuns<std::uint32_t>& runs) {
    comparePixels(column, from, to, runs);
}

}  // namespace vndlp

#endif
