#include <vndlp/calibration.h>

#include "io/report.h"
#include "v4/cell_index.h"
#include "v4/geometry_math.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace VNDLPV4 {

using vndlp::report;

namespace {

constexpr float kCellMapLoad = 0.25F;
constexpr std::size_t kFamilies = 3;
constexpr unsigned short kOutlineEdges = 6;

/// The nearest int of a float, truncated; the limits and 0 for what has none.
int truncated(float value) {
    return static_cast<int>(
        std::clamp<long long>(whole(value), std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

/// A bead's band on a family, in single precision; 0 for a band without width.
long long roundedBand(long long offset, long long width) {
    if (width == 0) return 0;
    const float band = static_cast<float>(offset) / static_cast<float>(width);
    return std::fabs(band) < 9.0e18F ? std::llroundf(band) : 0;
}

/// A column's shift in geometry units. The product is one of a 64-bit integer and a float, so it is a float.
long long columnShift(const std::vector<float>& shifts, unsigned long long column, long long radius) {
    return shifts.empty() ? 0 : whole(static_cast<float>(radius) * shifts[column % shifts.size()]);
}

GeoPoint middle(const GeoSegment& segment) {
    return {quotient(sum(segment.first.first, segment.second.first), 2),
            quotient(sum(segment.first.second, segment.second.second), 2)};
}

unsigned long long edgeKey(const GeoSegment& segment) {
    const auto [x1, y1] = segment.first;
    const auto [x2, y2] = segment.second;
    unsigned long long key = 0;
    for (const long long value : {std::min(x1, x2), std::max(x1, x2), std::min(y1, y2), std::max(y1, y2)})
        key = combined(key, hashed(value));
    return key;
}

}  // namespace

CellMap::CellMap() : m_table(std::make_shared<Table>()) { m_table->max_load_factor(kCellMapLoad); }

CellMap::Table& CellMap::own() {
    if (m_table.use_count() != 1) {
        m_table = std::make_shared<Table>(*m_table);
        return *m_table;
    }
    // The map that gave up its share may have read the entries in another thread: counting once more waits for it, as
    // use_count does not.
    std::shared_ptr<Table>(m_table).reset();
    return *m_table;
}

LampBeadCal::LampBeadCal() : m_pi(std::acos(-1.0)) {}

LampBeadCal::LampBeadCal(const LampBeadCal&) = default;
LampBeadCal& LampBeadCal::operator=(const LampBeadCal&) = default;
LampBeadCal::~LampBeadCal() = default;

void LampBeadCal::preinit(float extentX, float extentY, unsigned short pixelsX, unsigned short pixelsY,
                          std::vector<float> offsetX, std::vector<float> offsetY, unsigned long long columnCount,
                          std::vector<unsigned>& beadsPerColumn, long long scale, long long radius, bool skipShapes,
                          unsigned angleStep, unsigned angleBase) {
    m_extentX = truncated(extentX);
    m_extentY = truncated(extentY);
    m_pixelsX = pixelsX;
    m_pixelsY = pixelsY;
    m_offsetX = std::move(offsetX);
    m_offsetY = std::move(offsetY);
    m_columnCount = columnCount;
    m_beadsPerColumn = beadsPerColumn;
    m_scale = scale;
    m_radius = radius;
    m_angleStep = static_cast<float>(angleStep * m_pi / 180);
    m_angleBase = static_cast<float>(angleBase * m_pi / 180);
    computeDirections(angleStep);
    if (!skipShapes) computeColumnShapes();
    if (m_pixelsX != 0) m_zoneW = m_extentX / m_pixelsX;
    if (m_pixelsY != 0) m_zoneH = m_extentY / m_pixelsY;
}

void LampBeadCal::computeDirections(unsigned angleStep) {
    m_directions.resize(m_edgeCount);
    const int distinct = m_edgeCount % 2 != 0 ? m_edgeCount : m_edgeCount / 2;
    const long long step = 180 - static_cast<long long>(angleStep);
    for (int k = 0; k < m_edgeCount; ++k) {
        // in double precision, but from the base's single precision: a right angle's sine stays just below 1
        const double angle = m_angleBase - static_cast<double>(k % distinct * step) * m_pi / 180;
        const auto scale = static_cast<double>(m_scale);
        auto& [sine, cosine] = m_directions[static_cast<std::size_t>(k)];
        sine = whole(std::sin(angle) * scale);
        cosine = whole(std::cos(angle) * scale);
        if (m_printBuild) report("cos angle is %lld sin angle is %lld\n", cosine, sine);
    }
}

void LampBeadCal::computeColumnShapes() {
    const auto radius = static_cast<double>(m_radius);
    const long long h = whole(radius * std::sqrt(3.0) / 2);
    mbeaddesc.cstep = h;
    m_columnShapes.clear();
    for (unsigned long long column = 0; column < m_columnCount; ++column) {
        const long long shiftX = columnShift(m_offsetX, column, m_radius);
        const auto shiftY = static_cast<double>(columnShift(m_offsetY, column, m_radius));
        const auto y = [&](double t) { return whole((1.5 * static_cast<double>(column) + t) * radius - shiftY); };
        // odd columns stand half a hexagon further on
        const long long left = difference(column % 2 != 0 ? 0 : difference(0, h), shiftX);
        const long long mid = sum(left, h);
        const long long right = sum(mid, h);
        const GeoPoint corners[] = {{left, y(1)},  {left, y(0)},  {mid, y(-0.5)},
                                    {right, y(0)}, {right, y(1)}, {mid, y(1.5)}};
        std::vector<GeoSegment>& outline = m_columnShapes.emplace_back();
        for (std::size_t k = 0; k < std::size(corners); ++k)
            outline.emplace_back(corners[k], corners[(k + 1) % std::size(corners)]);
    }
}

void LampBeadCal::initLampBeadCal(long long scale, long long extentX, long long extentY, unsigned pixelsX,
                                  unsigned pixelsY, unsigned columnCount, std::vector<unsigned>& beadsPerColumn,
                                  std::vector<float> offsetX, std::vector<float> offsetY, unsigned short edgeCount,
                                  long long radius, unsigned angleStep, unsigned angleBase) {
    if (m_printBuild) report("init\n");
    if (m_initialised) return;
    m_initialised = true;
    m_beadCount = 0;
    m_lastZoneEnd = 0;
    // the size this object had so far
    if (m_printBuild) report("pw %d ph %d \n", m_pixelsX, m_pixelsY);
    m_edgeCount = edgeCount;
    m_radius = radius;
    m_directions.resize(edgeCount);
    preinit(static_cast<float>(extentX), static_cast<float>(extentY), static_cast<unsigned short>(pixelsX),
            static_cast<unsigned short>(pixelsY), std::move(offsetX), std::move(offsetY), columnCount, beadsPerColumn,
            scale, radius, false, angleStep, angleBase);
    m_cellMap.max_load_factor(kCellMapLoad);
    measureField();
    for (unsigned long long column = 0; column < m_columnCount; ++column) {
        const unsigned rows = beadsInColumn(column);
        for (m_row = 0; m_row < rows; ++m_row) buildBead(column);
    }
    m_beadCount = static_cast<unsigned>(m_beads.size());
    m_maskBytes = static_cast<unsigned>(std::ceil(m_beadCount * 0.125));
    reset();
    // here rather than at the first query, so that copies share it
    refreshIndex();
}

unsigned LampBeadCal::beadsInColumn(unsigned long long column) const {
    return m_beadsPerColumn.empty() ? 0 : m_beadsPerColumn[column % m_beadsPerColumn.size()];
}

GeoSegment LampBeadCal::edgeOf(unsigned long long column, unsigned row, unsigned edge) const {
    GeoSegment segment = m_columnShapes[column][edge];
    const long long shift = product(product(2, mbeaddesc.cstep), row);
    segment.first.first = sum(segment.first.first, shift);
    segment.second.first = sum(segment.second.first, shift);
    return segment;
}

long long LampBeadCal::project(const GeoPoint& point, std::size_t direction) const {
    const auto [sine, cosine] = m_directions[direction];
    return quotient(sum(product(point.first, sine), product(point.second, cosine)), m_scale);
}

void LampBeadCal::measureField() {
    m_projMin.assign(m_edgeCount, std::numeric_limits<long long>::max());
    m_projMax.assign(m_edgeCount, std::numeric_limits<long long>::min());
    const unsigned short edges = std::min(m_edgeCount, kOutlineEdges);
    for (unsigned long long column = 0; column < m_columnCount; ++column) {
        const unsigned rows = beadsInColumn(column);
        for (m_row = 0; m_row < rows; ++m_row) {
            for (m_edge = 0; m_edge < edges; ++m_edge) {
                const GeoSegment segment = edgeOf(column, m_row, m_edge);
                const long long first = project(segment.first, m_edge);
                const long long second = project(segment.second, m_edge);
                m_projMin[m_edge] = std::min({m_projMin[m_edge], first, second});
                m_projMax[m_edge] = std::max(m_projMax[m_edge], second);
            }
        }
    }
}

void LampBeadCal::buildBead(unsigned long long column) {
    BeadDesc& bead = m_beads.emplace_back();
    bead.id = static_cast<unsigned>(m_beads.size() - 1);
    bead.row = m_row;
    bead.neighbours.assign(m_edgeCount, 0);
    bead.maxX = std::numeric_limits<long long>::min();
    const unsigned short edges = std::min(m_edgeCount, kOutlineEdges);
    for (m_edge = 0; m_edge < edges; ++m_edge) {
        const GeoSegment segment = edgeOf(column, m_row, m_edge);
        buildEdge(bead, segment);
        if (m_printBuild)
            report("edge is %lld %lld %lld %lld\n", segment.first.first, segment.first.second, segment.second.first,
                   segment.second.second);
        pairEdge(bead.id, segment);
    }
    bead.centreX = quotient(bead.centreX, m_edgeCount);
    bead.centreY = quotient(bead.centreY, m_edgeCount);
    registerCells();
}

void LampBeadCal::buildEdge(BeadDesc& bead, const GeoSegment& segment) {
    const auto& [from, to] = segment;
    bead.edgeOffsets.push_back(quotient(sum(project(from, m_edge), project(to, m_edge)), 2));
    bead.centreX = sum(bead.centreX, from.first);
    bead.centreY = sum(bead.centreY, from.second);
    bead.edgeMidpoints.push_back(middle(segment));
    bead.edgePixels.emplace_back(quotient(from.first, m_zoneW), quotient(from.second, m_zoneH));
    bead.maxX = std::max(bead.maxX, to.first);
    const double angle = std::atan2(static_cast<double>(difference(to.second, from.second)),
                                    static_cast<double>(difference(to.first, from.first)));
    const auto scale = static_cast<double>(m_scale);
    bead.edgeDirections.emplace_back(whole(std::sin(angle) * scale), whole(std::cos(angle) * scale));
}

void LampBeadCal::pairEdge(unsigned bead, const GeoSegment& segment) {
    const auto [entry, isNew] = m_edgeMap.try_emplace(edgeKey(segment), bead, m_edge);
    if (isNew) return;
    const auto [other, otherEdge] = entry->second;
    m_beads[other].neighbours[otherEdge] = bead;
    m_beads[bead].neighbours[m_edge] = other;
    if (m_printBuild)
        report("bead %d neighbor %d is bead %d, bead %d neighbor %d is bead %d\n", static_cast<int>(other),
               static_cast<int>(otherEdge), static_cast<int>(bead), static_cast<int>(bead), static_cast<int>(m_edge),
               static_cast<int>(other));
}

void LampBeadCal::registerCells() {
    std::vector<long long> bands(kFamilies, 0);
    const std::vector<long long>& offsets = m_beads.back().edgeOffsets;
    for (std::size_t k = 0; k < std::min<std::size_t>(m_edgeCount / 2u, offsets.size()); ++k) {
        const long long band = roundedBand(difference(offsets[k], m_projMin[k]), mbeaddesc.cstep);
        if (k < kFamilies) bands[k] = band;
        if (m_printBuild) report("mbeaddesc.cstep %lld tempval %lld\r\n", mbeaddesc.cstep, band);
    }
    unsigned long long counter = 0;
    processLoops(kFamilies, bands, counter, {});
}

void LampBeadCal::processLoops(unsigned dims, const std::vector<long long>& base, unsigned long long& counter,
                               const std::vector<std::pair<long long, long long>>& offsets) {
    if (m_beads.empty() || dims == 0 || base.size() < dims) return;
    const auto range = [&](std::size_t d) {
        return d < offsets.size() ? offsets[d] : std::pair<long long, long long>(0, 1);
    };
    std::vector<long long> offset(dims);
    for (std::size_t d = 0; d < dims; ++d) {
        offset[d] = range(d).first;
        if (range(d).second < offset[d]) return;
    }
    const std::vector<long long> outside[] = {{0, 1, 0}, {1, 0, 1}};
    const unsigned bead = m_beads.back().id;
    std::vector<unsigned long long> siblings(m_edgeCount, 0);
    std::vector<unsigned long long> entered;
    for (std::size_t d = dims;;) {
        if (offset != outside[0] && offset != outside[1]) {
            unsigned long long key = 0;
            for (std::size_t i = 0; i < dims; ++i) key = combined(key, hashed(sum(base[i], offset[i])));
            const unsigned short edge = counter < m_cellEdges.size() ? m_cellEdges[counter] : m_edgeCount;
            if (m_cellMap.emplace(key, {bead, edge}).second) {
                ++counter;
                entered.push_back(key);
                if (edge < siblings.size()) siblings[edge] = key;
                if (dims == kFamilies)
                    m_registered.push_back({sum(base[0], offset[0]), sum(base[1], offset[1]), sum(base[2], offset[2])});
            }
        }
        // the last dimension turns fastest
        for (d = dims; d > 0 && offset[d - 1] == range(d - 1).second; --d) offset[d - 1] = range(d - 1).first;
        if (d == 0) break;
        ++offset[d - 1];
    }
    for (const unsigned long long key : entered) m_cellSiblings[key] = siblings;
}

void LampBeadCal::reset() {
    m_workCellMap = m_cellMap;
    m_beadUsed.assign((m_beads.size() + 31) / 32, 0);
    for (BeadDesc& bead : m_beads) bead.used = false;
    m_seenRuns.clear();
    m_lastZoneEnd = 0;
    markAllPending();
    ++m_generation;
}

void initPrinterBeadField(LampBeadCal& field) {
    constexpr double kBeadPitch = 82046.51162790698;  // between the centres of neighbours
    std::vector<unsigned> beadsPerColumn{29, 28};
    field.reset();
    if (field.m_initialised) return;
    field.initLampBeadCal(10000, 2116800, 1183700, 15120, 6230, 19, beadsPerColumn,
                          {static_cast<float>(std::sqrt(3.0))}, {1.1F}, 6, std::llround(kBeadPitch / std::sqrt(3.0)),
                          120, 90);
}

void LampBeadCal::initGrids() {}
void LampBeadCal::removefromgrid(long long, long long) {}
void LampBeadCal::initLampBeadCal(unsigned, unsigned, unsigned, unsigned, unsigned, std::vector<unsigned>&) {}
bool LampBeadCal::whereami(long long, long long, long long, long long, std::pair<unsigned, unsigned>&) { return false; }
bool LampBeadCal::whereami(unsigned, unsigned, unsigned&, std::vector<unsigned char>&, bool) { return false; }
bool LampBeadCal::getsubzonedata(unsigned, unsigned, std::pair<unsigned, unsigned>&) { return false; }
bool LampBeadCal::isingrid(long long&, long long, long long) { return true; }

}  // namespace VNDLPV4
