#include <vndlp/calibration.h>

#include "v4/cell_index.h"
#include "v4/geometry_math.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

namespace VNDLPV4 {

namespace {

constexpr std::size_t kFamilies = 3;
constexpr unsigned kNoBead = 0xFFFFFFFF;
constexpr long long kWideningPixels = 5;
constexpr double kMaxBoxVolume = 1 << 27;
constexpr std::size_t kWordBits = 64;

double volume(const long long* min, const long long* max) {
    double triangles = 1;
    for (std::size_t d = 0; d < kFamilies; ++d)
        triangles *= static_cast<double>(max[d]) - static_cast<double>(min[d]) + 1;
    return triangles;
}

/// Calls `visit(i)` for the set bits of first <= i < end, in ascending order; `visit` may clear the bit it is given.
template <class Visit>
void forEachBit(const std::vector<unsigned long long>& words, std::size_t first, std::size_t end, Visit&& visit) {
    for (std::size_t begin = first; begin < end;) {
        const std::size_t base = begin / kWordBits * kWordBits;
        unsigned long long bits = words[begin / kWordBits] >> (begin - base) << (begin - base);
        if (end - base < kWordBits) bits &= (1ull << (end - base)) - 1;
        for (; bits != 0; bits &= bits - 1) visit(base + static_cast<std::size_t>(std::countr_zero(bits)));
        begin = base + kWordBits;
    }
}

}  // namespace

void LampBeadCal::bandsOf(long long x, long long y, long long* bands) const {
    const std::size_t families =
        std::min({kFamilies, m_edgeCount / std::size_t{2}, m_directions.size(), m_projMin.size()});
    for (std::size_t d = 0; d < families; ++d)
        bands[d] = quotient(difference(project({x, y}, d), m_projMin[d]), mbeaddesc.cstep);
}

/// Makes a box of the bands of two points and enters its key. \return false when the key was there.
bool LampBeadCal::enterBox(long long x0, long long y0, long long x1, long long y1) {
    bandsOf(x0, y0, m_startBands);
    bandsOf(x1, y1, m_endBands);
    for (std::size_t d = 0; d < kFamilies; ++d) {
        m_boxMin[d] = std::min(m_startBands[d], m_endBands[d]);
        m_boxMax[d] = std::max(m_startBands[d], m_endBands[d]);
    }
    const unsigned long long start = tripleKey(m_startBands[0], m_startBands[1], m_startBands[2]);
    const unsigned long long end = tripleKey(m_endBands[0], m_endBands[1], m_endBands[2]);
    return m_seenRuns.insert(combined(combined(0, hashed(signedValue(start))), hashed(signedValue(end)))).second;
}

/// Indexes what the screen can ask for and all triangles of beads, unless the index of the present table is there.
void LampBeadCal::refreshIndex() {
    std::shared_ptr<const CellMap::Table> table = m_workCellMap.share();
    if (m_index != nullptr && m_index->source == table) return;
    std::sort(m_registered.begin(), m_registered.end());
    Bands min{};
    Bands max{};
    if (!m_registered.empty()) min = max = m_registered.front();
    const auto extend = [&](const Bands& bands) {
        for (std::size_t d = 0; d < kFamilies; ++d) {
            min[d] = std::min(min[d], bands[d]);
            max[d] = std::max(max[d], bands[d]);
        }
    };
    for (const Bands& bands : m_registered) extend(bands);
    const Bands fieldMin = min;
    // bands grow or shrink steadily along x and along y, so the corners of the screen hold its extremes
    for (const long long x : {0LL, product(m_pixelsX, m_zoneW)}) {
        for (const long long y : {0LL, product(m_pixelsY, m_zoneH)}) {
            Bands corner{};
            bandsOf(x, y, corner.data());
            extend(corner);
        }
    }
    // an index has no negative bands
    for (std::size_t d = 0; d < kFamilies; ++d) min[d] = std::max(min[d], std::min(fieldMin[d], 0LL));
    m_index = std::make_shared<const CellIndex>(std::move(table), min, max);
    markAllPending();
}

void LampBeadCal::markAllPending() {
    if (m_index != nullptr) m_pending.assign(m_index->cells.size() / kWordBits + 1, ~0ull);
}

/// Calls `visit(bead, edge)` for every triangle of the box that has an entry, in ascending order of the bands.
///
/// A visit leaves the triangle's bead and the one across its edge used, so that a second one does nothing: such
/// triangles are left out until the next reset where the index allows it.
template <class Visit>
void LampBeadCal::visitBox(Visit&& visit) {
    refreshIndex();
    const Bands min{m_boxMin[0], m_boxMin[1], m_boxMin[2]};
    const Bands max{m_boxMax[0], m_boxMax[1], m_boxMax[2]};
    if (m_index->covers(min.data(), max.data())) {
        for (long long band0 = min[0]; band0 <= max[0]; ++band0) {
            const std::size_t first = m_index->firstCell[m_index->pairOf(band0, min[1])];
            const std::size_t end = m_index->firstCell[m_index->pairOf(band0, max[1]) + 1];
            forEachBit(m_pending, first, end, [&](std::size_t i) {
                const CellIndex::Cell cell = m_index->cells[i];
                if (cell.band2 < min[2] || cell.band2 > max[2]) return;
                m_band2 = cell.band2;
                m_pending[i / kWordBits] &= ~(1ull << i % kWordBits);
                visit(cell.bead, cell.edge);
            });
        }
        return;
    }
    const CellMap::Table& table = m_workCellMap.table();
    const auto lookUp = [&](unsigned long long key) {
        const auto entry = table.find(key);
        if (entry != table.end()) visit(entry->second.first, entry->second.second);
    };
    if (volume(min.data(), max.data()) > kMaxBoxVolume) {
        for (const Bands& bands : m_registered) {
            bool isInside = true;
            for (std::size_t d = 0; d < kFamilies; ++d) isInside = isInside && bands[d] >= min[d] && bands[d] <= max[d];
            m_band2 = bands[2];
            if (isInside) lookUp(tripleKey(bands[0], bands[1], bands[2]));
        }
        return;
    }
    // counting steps, as the greatest band may be the greatest number
    const auto steps = [&](std::size_t d) { return unsignedValue(difference(max[d], min[d])); };
    for (unsigned long long i = 0; i <= steps(0); ++i) {
        for (unsigned long long j = 0; j <= steps(1); ++j) {
            const unsigned long long seed =
                combined(combined(0, hashed(sum(min[0], signedValue(i)))), hashed(sum(min[1], signedValue(j))));
            for (unsigned long long k = 0; k <= steps(2); ++k) {
                m_band2 = sum(min[2], signedValue(k));
                lookUp(combined(seed, hashed(m_band2)));
            }
        }
    }
}

/// Marks a bead as used. \return true when it was not.
bool LampBeadCal::use(unsigned bead) {
    if (bead / 32 >= m_beadUsed.size() || bead >= m_beads.size()) return false;
    unsigned& word = m_beadUsed[bead / 32];
    const unsigned bit = 1u << bead % 32;
    if ((word & bit) != 0) return false;
    word |= bit;
    m_beads[bead].used = true;
    return true;
}

bool LampBeadCal::getsubzonedata(unsigned start, unsigned end, std::vector<unsigned char>& mask) {
    if (m_workCellMap.empty() || m_beads.empty() || end <= m_lastZoneEnd || m_pixelsX <= 0) return false;
    const long long width = m_pixelsX;
    const long long first = std::max(start, m_lastZoneEnd);
    m_lastZoneEnd = end;
    const long long startColumn = first % width;
    const long long endColumn = end % width != 0 ? end % width : width;
    const long long endRow = (end - endColumn) / width;
    const long long queriedColumn = startColumn > kWideningPixels ? startColumn - kWideningPixels : startColumn;
    unsigned count = 0;
    whereami(product(queriedColumn, m_zoneW), product((first - startColumn) / width, m_zoneH),
             product(endColumn, m_zoneW), product(endRow, m_zoneH), count, mask, false);
    return true;
}

bool LampBeadCal::whereami(long long x0, long long y0, long long x1, long long y1, unsigned& /*count*/,
                           std::vector<unsigned char>& mask, bool /*flag*/) {
    enterBox(x0, y0, x1, y1);
    visitBox([&](unsigned bead, unsigned short edge) {
        if (bead >= m_beads.size()) return;
        if (use(bead)) msetBit(mask, bead);
        const std::vector<unsigned>& neighbours = m_beads[bead].neighbours;
        if (edge >= m_edgeCount || edge >= neighbours.size()) return;
        const unsigned across = neighbours[edge];
        if (across == kNoBead || !use(across)) return;
        // the two beside the edge get their bits, but do not count as used
        if (edge < m_adjacentEdges.size()) {
            const auto [before, after] = m_adjacentEdges[edge];
            if (before < neighbours.size()) msetBit(mask, neighbours[before]);
            if (after < neighbours.size()) msetBit(mask, neighbours[after]);
        }
        msetBit(mask, across);
    });
    return true;
}

bool LampBeadCal::whereami(long long x0, long long y0, long long x1, long long y1, std::vector<unsigned>& beads) {
    if (!enterBox(x0, y0, x1, y1)) return false;
    visitBox([&](unsigned bead, unsigned short edge) {
        if (bead >= m_beadCount || bead >= m_beads.size()) return;
        if (use(bead)) beads.push_back(bead);
        const std::vector<unsigned>& neighbours = m_beads[bead].neighbours;
        if (edge >= m_edgeCount || edge >= neighbours.size()) return;
        const unsigned across = neighbours[edge];
        if (across < m_beadCount && use(across)) beads.push_back(across);
    });
    return true;
}

bool LampBeadCal::mgetBit(const std::vector<unsigned char>& mask, unsigned index) {
    if (index / 8 >= mask.size()) return true;
    return (mask[index / 8] >> (7 - index % 8) & 1) != 0;
}

void LampBeadCal::msetBit(std::vector<unsigned char>& mask, unsigned index) {
    if (index / 8 >= mask.size()) return;
    m_touchedByte = index / 8;
    m_touchedBit = index % 8;
    mask[m_touchedByte] = static_cast<unsigned char>(mask[m_touchedByte] | 0x80 >> m_touchedBit);
}

void LampBeadCal::msetBits(std::vector<unsigned char>& mask, unsigned from, unsigned to) {
    const unsigned long long bits = 8ull * mask.size();
    if (from > bits || to > bits || from / 8 > to / 8) return;
    for (unsigned long long i = from; i <= to && i < bits; ++i) {
        unsigned char& byte = mask[i / 8];
        byte = static_cast<unsigned char>(byte | 0x80 >> i % 8);
    }
}

unsigned long long LampBeadCal::hash_combine(long long& seed, unsigned long long& v) {
    const unsigned long long next = combined(unsignedValue(seed), hashed(signedValue(v)));
    seed = signedValue(next);
    return next;
}

unsigned long long LampBeadCal::hash_combine(unsigned long long& seed, unsigned& v) {
    return seed = combined(seed, 2ull * v);
}

unsigned long long LampBeadCal::hash_combine(unsigned long long& seed, long long v) {
    return seed = combined(seed, hashed(v));
}

unsigned long long LampBeadCal::hash_combine_float(unsigned long long& seed, float& v) {
    static_assert(sizeof m_hashedFloat == sizeof v && CHAR_BIT == 8);
    std::memcpy(&m_hashedFloat, &v, sizeof v);
    return hash_combine(seed, m_hashedFloat);
}

}  // namespace VNDLPV4
