#include <vndlp/calibration.h>

#include "v4/cell_index.h"
#include "v4/geometry_math.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace VNDLPV4 {

namespace {

constexpr int kMaxRampWidth = 65535;  // no screen is wider

/// (sine, cosine) of an angle in fixed point, all in single precision.
std::pair<long long, long long> fixedPoint(float angle, long long scale) {
    const auto factor = static_cast<float>(scale);
    return {whole(std::sin(angle) * factor), whole(std::cos(angle) * factor)};
}

GeoPoint turnedLeft(long long x, long long y, const std::pair<long long, long long>& sc, long long scale) {
    const auto [sine, cosine] = sc;
    return {difference(quotient(product(x, cosine), scale), quotient(product(y, sine), scale)),
            sum(quotient(product(x, sine), scale), quotient(product(y, cosine), scale))};
}

GeoPoint turnedRight(long long x, long long y, const std::pair<long long, long long>& sc, long long scale) {
    const auto [sine, cosine] = sc;
    return {sum(quotient(product(y, sine), scale), quotient(product(x, cosine), scale)),
            difference(quotient(product(y, cosine), scale), quotient(product(x, sine), scale))};
}

}  // namespace

void LampBeadCal::rotation_ccw(long long& x, long long& y, float angle) {
    if (m_scale == 0) return;
    std::tie(x, y) = turnedLeft(x, y, fixedPoint(angle, m_scale), m_scale);
}

void LampBeadCal::rotation_cw(long long& x, long long& y, float angle) {
    if (m_scale == 0) return;
    std::tie(x, y) = turnedRight(x, y, fixedPoint(angle, m_scale), m_scale);
}

void LampBeadCal::rotation_ccw(long long x, long long y, const std::pair<long long, long long>& sc,
                               std::pair<long long, long long>& out) {
    const auto [sine, cosine] = sc;
    out = {quotient(difference(product(x, cosine), product(y, sine)), m_scale),
           quotient(sum(product(x, sine), product(y, cosine)), m_scale)};
}

std::pair<long long, long long> LampBeadCal::rotation_ccw_init(long long x, long long y, long long,
                                                               std::pair<long long, long long>& sc) {
    return turnedLeft(x, y, sc, m_scale);
}

std::pair<long long, long long> LampBeadCal::rotation_ccw_withpair(long long x, long long y, float angle) {
    return turnedLeft(x, y, fixedPoint(angle, m_scale), m_scale);
}

void LampBeadCal::rotation_cw_withoffset(long long& x, long long& y, long long pivotX, long long pivotY, float angle) {
    if (m_scale == 0) return;
    const GeoPoint turned =
        turnedRight(difference(x, pivotX), difference(y, pivotY), fixedPoint(angle, m_scale), m_scale);
    x = sum(turned.first, pivotX);
    y = sum(turned.second, pivotY);
}

void LampBeadCal::setParam(int shiftX, int shiftY, int a, int w, int g) {
    m_paramShiftX = static_cast<unsigned>(shiftX);
    m_paramShiftY = static_cast<unsigned>(shiftY);
    m_paramAngle = a;
    m_paramWidth = std::clamp(w, 0, kMaxRampWidth);
    m_paramGrey = g;
    m_ramp.clear();
    for (int i = 0; i < m_paramWidth; ++i) {
        const long long steps = i < m_paramWidth / 2 ? i : m_paramWidth - i;
        m_ramp.push_back(static_cast<unsigned char>(steps * g));
    }
    const int half = m_pixelsX / 2;
    const float angle = half == 0 ? 0.0F : -static_cast<float>(a) / static_cast<float>(half);
    m_paramRotation = fixedPoint(angle, m_scale);
}

bool LampBeadCal::setParamandUse(int shiftX, int shiftY, int a, int w, int g, unsigned char* image,
                                 unsigned long long size) {
    setParam(shiftX, shiftY, a, w, g);
    if (image == nullptr || m_pixelsX <= 0 || m_ramp.empty() || m_beads.empty()) return false;
    const long long rows = static_cast<long long>(size / static_cast<unsigned long long>(m_pixelsX));
    for (const BeadDesc& bead : m_beads) {
        const std::size_t corners = bead.edgePixels.size();
        for (std::size_t k = 0; k < corners; ++k)
            darkenEdge(placedPixel(bead.edgePixels[k]), placedPixel(bead.edgePixels[(k + 1) % corners]), image, rows);
    }
    return true;
}

/// Where a corner of an outline goes: turned about the middle of the screen, then shifted.
GeoPoint LampBeadCal::placedPixel(const GeoPoint& pixel) const {
    const long long middleX = m_pixelsX / 2;
    const long long middleY = m_pixelsY / 2;
    const auto [x, y] =
        turnedLeft(difference(pixel.first, middleX), difference(pixel.second, middleY), m_paramRotation, m_scale);
    return {sum(sum(x, middleX), m_paramShiftX), sum(sum(y, middleY), m_paramShiftY)};
}

/// Lowers the pixels of a band along a segment. A pixel's place on the ramp is its distance across the segment, counted
/// from one side of the band.
void LampBeadCal::darkenEdge(const GeoPoint& from, const GeoPoint& to, unsigned char* image, long long rows) const {
    const auto fromX = static_cast<double>(from.first);
    const auto fromY = static_cast<double>(from.second);
    const double alongX = static_cast<double>(to.first) - fromX;
    const double alongY = static_cast<double>(to.second) - fromY;
    const double length = std::hypot(alongX, alongY);
    if (length == 0) return;
    const auto width = static_cast<double>(m_ramp.size());
    const auto clipped = [](double value, long long last) {
        return static_cast<long long>(std::clamp(value, 0.0, static_cast<double>(last)));
    };
    const double reach = width / 2 + 1;
    const long long firstRow = clipped(std::min(fromY, fromY + alongY) - reach, rows);
    const long long endRow = clipped(std::max(fromY, fromY + alongY) + reach, rows);
    const long long firstColumn = clipped(std::min(fromX, fromX + alongX) - reach, m_pixelsX);
    const long long endColumn = clipped(std::max(fromX, fromX + alongX) + reach, m_pixelsX);
    for (long long y = firstRow; y < endRow; ++y) {
        for (long long x = firstColumn; x < endColumn; ++x) {
            const double dx = static_cast<double>(x) - fromX;
            const double dy = static_cast<double>(y) - fromY;
            const double along = (dx * alongX + dy * alongY) / length;
            const double place = (dx * alongY - dy * alongX) / length + width / 2;
            if (along < 0 || along > length || place < 0 || place >= width) continue;
            unsigned char& pixel = image[y * m_pixelsX + x];
            const auto level = static_cast<unsigned char>(255 - m_ramp[static_cast<std::size_t>(place)]);
            pixel = std::min(pixel, level);
        }
    }
}

BeadDesc LampBeadCal::getbeaddata(long long x, long long y) {
    long long bands[3] = {};
    bandsOf(x, y, bands);
    const auto entry = m_cellMap.find(tripleKey(bands[0], bands[1], bands[2]));
    if (entry == m_cellMap.end() || entry->second.first >= m_beads.size()) return {};
    return m_beads[entry->second.first];
}

std::vector<std::vector<GeoPoint>> LampBeadCal::getLampMask() {
    std::vector<std::vector<GeoPoint>> outlines;
    outlines.reserve(m_beads.size());
    for (const BeadDesc& bead : m_beads) outlines.push_back(bead.edgePixels);
    return outlines;
}

bool LampBeadCal::doIntersect(std::vector<GeoSegment>& outline, Point p) {
    bool isInside = false;
    for (const auto& [from, to] : outline) {
        const Point a{static_cast<double>(from.first), static_cast<double>(from.second)};
        const Point b{static_cast<double>(to.first), static_cast<double>(to.second)};
        const double across = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        if (across == 0 && isPointOnSegment(p, a, b)) return true;
        // a segment owns its upper end point only, so that a ray through a corner crosses once
        if ((a.y > p.y) == (b.y > p.y)) continue;
        if ((across > 0) == (b.y > a.y)) isInside = !isInside;
    }
    return isInside;
}

bool LampBeadCal::isPointOnSegment(Point p, Point a, Point b) {
    return std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) && std::min(a.y, b.y) <= p.y &&
           p.y <= std::max(a.y, b.y);
}

}  // namespace VNDLPV4
