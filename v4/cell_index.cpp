#include "v4/cell_index.h"

#include <algorithm>
#include <utility>

namespace VNDLPV4 {

namespace {

// bands below this are hashed as twice their value, which is what lets a key be solved for its last band
constexpr long long kBandLimit = 1ll << 30;
constexpr double kPairsPerEntry = 64;
constexpr double kPairsAllowance = 1 << 20;

double length(long long first, long long last) { return static_cast<double>(last) - static_cast<double>(first) + 1; }

bool isIndexable(const CellMap::Table& table, const Bands& min, const Bands& max) {
    for (std::size_t d = 0; d < min.size(); ++d) {
        if (min[d] < 0 || max[d] < min[d] || max[d] >= kBandLimit) return false;
    }
    const double pairs = length(min[0], max[0]) * length(min[1], max[1]);
    return table.size() < UINT32_MAX / 8 &&
           pairs <= kPairsPerEntry * static_cast<double>(table.size()) + kPairsAllowance;
}

/// The least s with 2^s > value.
unsigned bitWidth(unsigned long long value) {
    unsigned bits = 0;
    while (value >> bits != 0) ++bits;
    return bits;
}

}  // namespace

CellIndex::CellIndex(std::shared_ptr<const CellMap::Table> table, const Bands& min, const Bands& max)
    : source(std::move(table)), m_min(min), m_max(max), m_usable(isIndexable(*source, min, max)) {
    if (!m_usable) return;
    std::vector<Entry> entries;
    entries.reserve(source->size());
    for (const auto& [key, cell] : *source) entries.push_back({key, cell});
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });

    m_rowLength = static_cast<std::size_t>(max[1] - min[1] + 1);
    const unsigned blockBits = bitWidth(2 * static_cast<unsigned long long>(max[2] - min[2]) + 1);
    firstCell.reserve(static_cast<std::size_t>(max[0] - min[0] + 1) * m_rowLength + 1);
    for (long long band0 = min[0]; band0 <= max[0]; ++band0) {
        for (long long band1 = min[1]; band1 <= max[1]; ++band1) addPair(band0, band1, entries, blockBits);
    }
    firstCell.push_back(static_cast<std::uint32_t>(cells.size()));
}

/// A key is seed ^ (mixed + 2 * band2) for the seed of the first two bands. The sums for all third bands of the box
/// fill a short interval, so they share their upper bits, up to one carry; and so do the keys, which are those sums
/// XOR the seed. Of the sorted entries only the one or two blocks with these upper bits are looked at, and each key in
/// them is solved for its third band.
void CellIndex::addPair(long long band0, long long band1, const std::vector<Entry>& entries, unsigned blockBits) {
    firstCell.push_back(static_cast<std::uint32_t>(cells.size()));
    const unsigned long long seed = combined(combined(0, hashed(band0)), hashed(band1));
    const unsigned long long mixed = combined(seed, 0) ^ seed;
    const unsigned long long firstBlock = vndlp::wrappingSum(mixed, hashed(m_min[2])) >> blockBits;
    const unsigned long long lastBlock = vndlp::wrappingSum(mixed, hashed(m_max[2])) >> blockBits;
    const unsigned long long allBlocks = ~0ull >> blockBits;
    const auto firstOfPair = static_cast<std::ptrdiff_t>(cells.size());
    for (unsigned long long block = firstBlock;; block = (block + 1) & allBlocks) {
        const unsigned long long upper = block ^ (seed >> blockBits);
        auto entry = std::lower_bound(entries.begin(), entries.end(), upper << blockBits,
                                      [](const Entry& e, unsigned long long key) { return e.key < key; });
        for (; entry != entries.end() && entry->key >> blockBits == upper; ++entry) {
            const unsigned long long twice = vndlp::wrappingDifference(entry->key ^ seed, mixed);
            if (twice % 2 != 0 || twice < hashed(m_min[2]) || twice > hashed(m_max[2])) continue;
            cells.push_back({static_cast<std::int32_t>(twice / 2), entry->cell.second, entry->cell.first});
        }
        if (block == lastBlock) break;
    }
    std::sort(cells.begin() + firstOfPair, cells.end(), [](const Cell& a, const Cell& b) { return a.band2 < b.band2; });
}

bool CellIndex::covers(const long long* min, const long long* max) const {
    if (!m_usable) return false;
    for (std::size_t d = 0; d < m_min.size(); ++d) {
        if (min[d] < m_min[d] || max[d] > m_max[d]) return false;
    }
    return true;
}

}  // namespace VNDLPV4
