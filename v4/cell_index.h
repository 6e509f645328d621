/// Keys of triangles, and the index that answers "which triangles of this box have a bead" without asking for each.

#pragma once

#include <vndlp/calibration.h>

#include "io/wrapping.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace VNDLPV4 {

/// One step of a key: mixes the hashed value `h` into `seed`.
constexpr unsigned long long combined(unsigned long long seed, unsigned long long h) {
    using vndlp::wrappingSum;
    return seed ^ wrappingSum(wrappingSum(seed >> 2, h), wrappingSum(seed << 6, 0x9e3779b97f4a7c15ull));
}

/// What is mixed in for a 64-bit value.
constexpr unsigned long long hashed(long long value) {
    const auto bits = static_cast<unsigned long long>(value);
    return bits >> 32 ^ (bits & 0xFFFFFFFF) * 2;
}

/// Key of a triple, as of a triangle's three bands.
constexpr unsigned long long tripleKey(long long b0, long long b1, long long b2) {
    return combined(combined(combined(0, hashed(b0)), hashed(b1)), hashed(b2));
}

using Bands = std::array<long long, 3>;

/// All triangles of a box of bands for which a cell table has an entry, in ascending order of their bands.
///
/// The mixing of keys is weak: within a printer's field dozens of triangles outside every bead have the key of some
/// bead's triangle and are found as that one. So the index is made from what the table answers for every triangle of
/// the box, not from the triangles that were entered. The plain form of the answer is
///
///     for each a, b, c of the box: entry = table.find(tripleKey(a, b, c))
struct CellIndex {
    struct Cell {
        std::int32_t band2;
        std::uint16_t edge;
        std::uint32_t bead;
    };

    /// Indexes the triangles of `min` to `max`, both inclusive. The index is `usable` unless the box has negative
    /// bands or too many pairs of first bands for the number of entries.
    CellIndex(std::shared_ptr<const CellMap::Table> table, const Bands& min, const Bands& max);

    bool covers(const long long* min, const long long* max) const;
    std::size_t pairOf(long long band0, long long band1) const {
        return static_cast<std::size_t>(band0 - m_min[0]) * m_rowLength + static_cast<std::size_t>(band1 - m_min[1]);
    }

    std::shared_ptr<const CellMap::Table> source;
    std::vector<std::uint32_t> firstCell;  ///< per pair of first bands where its cells begin, and one end
    std::vector<Cell> cells;

private:
    struct Entry {
        CellMap::Key key;
        CellMap::Cell cell;
    };

    void addPair(long long band0, long long band1, const std::vector<Entry>& entries, unsigned blockBits);

    Bands m_min;
    Bands m_max;
    std::size_t m_rowLength = 0;
    bool m_usable = false;
};

}  // namespace VNDLPV4
