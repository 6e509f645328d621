#include "image/row_changes.h"

#include <cstring>

#if defined(VNDLP_HAVE_HIGHWAY)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/row_changes.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>
#endif

#ifndef VNDLP_IMAGE_ROW_CHANGES_ONCE
#define VNDLP_IMAGE_ROW_CHANGES_ONCE

namespace vndlp {
namespace {

/// Receives the changes of one call.
struct Changes {
    RowChange* next;
    std::uint32_t* inColumn;

    void add(int column, unsigned char grey) {
        *next++ = changeAt(static_cast<std::uint32_t>(column), grey);
        ++inColumn[column];
    }
    void compare(const unsigned char* above, const unsigned char* pixels, int column) {
        const unsigned char grey = litGrey(pixels[column]);
        if (grey != litGrey(above[column])) add(column, grey);
    }
};

/// Calls `compareRow(above, pixels, changes)` for every row whose changes find room.
template <class CompareRow>
int compareRows(const PixelArea& area, RowChange* first, std::size_t capacity, std::uint32_t* rowEnds,
                std::uint32_t* inColumn, CompareRow&& compareRow) {
    Changes changes{first, inColumn};
    const RowChange* const end = first + capacity;
    static constexpr unsigned char background[kMaxChangeColumns] = {};
    const unsigned char* above = background;
    for (int row = 0; row < area.rows; ++row) {
        if (end - changes.next < area.columns) return row;
        const unsigned char* const pixels = area.pixels + row * area.stride;
        compareRow(above, pixels, changes);
        rowEnds[row] = static_cast<std::uint32_t>(changes.next - first);
        above = pixels;
    }
    return area.rows;
}

}  // namespace
}  // namespace vndlp

#endif

#if defined(VNDLP_HAVE_HIGHWAY)

HWY_BEFORE_NAMESPACE();
namespace vndlp::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// A bit for each of the 64 columns in which two rows differ, the first column's lowest.
HWY_INLINE std::uint64_t changedColumns(const unsigned char* above, const unsigned char* pixels) {
    const hn::CappedTag<std::uint8_t, 64> tag;
    const auto darkest = hn::Set(tag, kLitThreshold);
    std::uint64_t changed = 0;
    for (std::size_t i = 0; i < 64; i += hn::Lanes(tag)) {
        const auto upper = hn::Max(hn::LoadU(tag, above + i), darkest);
        const auto lower = hn::Max(hn::LoadU(tag, pixels + i), darkest);
        std::uint64_t bits = 0;
        hn::StoreMaskBits(tag, hn::Ne(upper, lower), reinterpret_cast<std::uint8_t*>(&bits));
        changed |= bits << i;
    }
    return changed;
}

/// Most of a layer is like the row above it: compared in steps of this many bytes.
constexpr int kBlock = 128;

HWY_INLINE bool equalBlocks(const unsigned char* above, const unsigned char* pixels) {
    const hn::CappedTag<std::uint8_t, kBlock> tag;
    auto differing = hn::Zero(tag);
    for (std::size_t i = 0; i < kBlock; i += hn::Lanes(tag)) {
        differing = hn::Or(differing, hn::Xor(hn::LoadU(tag, above + i), hn::LoadU(tag, pixels + i)));
    }
    return hn::AllTrue(tag, hn::Eq(differing, hn::Zero(tag)));
}

int findChanges(const PixelArea& area, RowChange* changes, std::size_t capacity, std::uint32_t* rowEnds,
                std::uint32_t* inColumn) {
    return compareRows(
        area, changes, capacity, rowEnds, inColumn,
        [columns = area.columns](const unsigned char* above, const unsigned char* pixels, Changes& to) HWY_ATTR {
            int x = 0;
            for (; x + kBlock <= columns; x += kBlock) {
                if (HWY_LIKELY(equalBlocks(above + x, pixels + x))) continue;
                for (int part = x; part < x + kBlock; part += 64) {
                    for (std::uint64_t changed = changedColumns(above + part, pixels + part); changed != 0;
                         changed &= changed - 1) {
                        const int column = part + static_cast<int>(hwy::Num0BitsBelowLS1Bit_Nonzero64(changed));
                        to.add(column, litGrey(pixels[column]));
                    }
                }
            }
            for (; x < columns; ++x) to.compare(above, pixels, x);
        });
}

}  // namespace
}  // namespace vndlp::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vndlp {

namespace {
HWY_EXPORT(findChanges);
}

int findChanges(const PixelArea& area, RowChange* changes, std::size_t capacity, std::uint32_t* rowEnds,
                std::uint32_t* inColumn) {
    return HWY_DYNAMIC_DISPATCH(findChanges)(area, changes, capacity, rowEnds, inColumn);
}

}  // namespace vndlp
#endif

#else

namespace vndlp {

int findChanges(const PixelArea& area, RowChange* changes, std::size_t capacity, std::uint32_t* rowEnds,
                std::uint32_t* inColumn) {
    constexpr int kWord = 8;
    return compareRows(area, changes, capacity, rowEnds, inColumn,
                       [columns = area.columns](const unsigned char* above, const unsigned char* pixels, Changes& to) {
                           int x = 0;
                           for (; x + kWord <= columns; x += kWord) {
                               if (std::memcmp(above + x, pixels + x, kWord) == 0) continue;
                               for (int i = x; i < x + kWord; ++i) to.compare(above, pixels, i);
                           }
                           for (; x < columns; ++x) to.compare(above, pixels, x);
                       });
}

}  // namespace vndlp

#endif
