#include "tools/drawings/polylines.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace vndlp::tools {

namespace {

/// Twice the area a closed polyline encloses, positive where it runs counter-clockwise (y up).
double doubleSignedArea(const Polyline& p) {
    double sum = 0;
    for (std::size_t i = 1; i < p.size(); ++i) {
        // from the first point, so that large coordinates keep their precision
        const double x0 = static_cast<double>(p[i - 1].x) - p[0].x;
        const double y0 = static_cast<double>(p[i - 1].y) - p[0].y;
        sum += x0 * (static_cast<double>(p[i].y) - p[0].y) - (static_cast<double>(p[i].x) - p[0].x) * y0;
    }
    return sum;
}

Box boundsOf(const Polyline& polyline) {
    Box box;
    for (const Vec3i& point : polyline) box.add(point.x, point.y);
    return box;
}

/// Whether a ray from a point to the right crosses the polyline an odd number of times.
bool isInside(double x, double y, const Polyline& p) {
    bool inside = false;
    for (std::size_t i = 1; i < p.size(); ++i) {
        const Vec3i& a = p[i - 1];
        const Vec3i& b = p[i];
        if ((a.y > y) == (b.y > y)) continue;
        inside ^= x < a.x + (y - a.y) * (static_cast<double>(b.x) - a.x) / (static_cast<double>(b.y) - a.y);
    }
    return inside;
}

}  // namespace

SliceShapes shapesOf(const Polylines& polylines) {
    SliceShapes shapes;
    for (const Polyline& polyline : polylines) {
        for (const Vec3i& point : polyline) shapes.points.insert(shapes.points.end(), {point.x, point.y});
        shapes.pathEnds.push_back(static_cast<std::uint32_t>(shapes.points.size() / 2));
    }
    return shapes;
}

Polylines polylinesOf(const SliceShapes& shapes) {
    Polylines polylines;
    std::size_t point = 0;
    for (const std::uint32_t end : shapes.pathEnds) {
        Polyline polyline;
        for (; point < end; ++point) polyline.push_back({shapes.points[2 * point], shapes.points[2 * point + 1], 0});
        polylines.push_back(std::move(polyline));
    }
    return polylines;
}

bool isClosed(const Polyline& p) { return p.size() > 2 && p.front().x == p.back().x && p.front().y == p.back().y; }

void Box::add(double x, double y) {
    if (isEmpty()) {
        *this = {x, y, x, y};
        return;
    }
    minX = std::min(minX, x);
    minY = std::min(minY, y);
    maxX = std::max(maxX, x);
    maxY = std::max(maxY, y);
}

void Box::add(const Box& other) {
    if (other.isEmpty()) return;
    add(other.minX, other.minY);
    add(other.maxX, other.maxY);
}

bool Box::contains(const Box& other) const {
    return other.isEmpty() || (minX <= other.minX && minY <= other.minY && maxX >= other.maxX && maxY >= other.maxY);
}

Box boundsOf(const Polylines& polylines) {
    Box box;
    for (const Polyline& polyline : polylines) {
        for (const Vec3i& point : polyline) box.add(point.x, point.y);
    }
    return box;
}

double areaBetween(const Polylines& polylines) {
    struct Contour {
        const Polyline* polyline;
        Box box;
    };
    std::vector<Contour> contours;
    for (const Polyline& polyline : polylines) {
        if (isClosed(polyline)) contours.push_back({&polyline, boundsOf(polyline)});
    }
    // whatever contains a contour begins to its left
    std::sort(contours.begin(), contours.end(),
              [](const Contour& a, const Contour& b) { return a.box.minX < b.box.minX; });
    double doubled = 0;
    for (auto contour = contours.begin(); contour != contours.end(); ++contour) {
        // the middle of a side: corners touch other contours more often
        const Vec3i& a = (*contour->polyline)[0];
        const Vec3i& b = (*contour->polyline)[1];
        const double x = (static_cast<double>(a.x) + b.x) / 2;
        const double y = (static_cast<double>(a.y) + b.y) / 2;
        bool isHole = false;
        for (auto other = contours.begin(); other != contours.end() && other->box.minX <= contour->box.minX; ++other) {
            if (other == contour || !other->box.contains(contour->box)) continue;
            isHole ^= isInside(x, y, *other->polyline);
        }
        const double own = std::fabs(doubleSignedArea(*contour->polyline));
        doubled += isHole ? -own : own;
    }
    return std::max(doubled, 0.0) / 2;
}

GreyImage paint(const Polylines& polylines, const Box& box, int width, int height) {
    GreyImage image{width, height, {}};
    const auto columns = static_cast<std::size_t>(width);
    const auto rows = static_cast<std::size_t>(height);
    image.pixels.assign(columns * rows, 0);
    const double perX = width / (box.maxX - box.minX);
    const double perY = height / (box.maxY - box.minY);
    // every crossing of a row's middle turns the rest of the row over
    for (const Polyline& p : polylines) {
        if (!isClosed(p)) continue;
        for (std::size_t i = 1; i < p.size(); ++i) {
            // in pixels, rows downward
            const double x0 = (p[i - 1].x - box.minX) * perX;
            const double y0 = (box.maxY - p[i - 1].y) * perY;
            const double x1 = (p[i].x - box.minX) * perX;
            const double y1 = (box.maxY - p[i].y) * perY;
            // rows whose middle lies between the two ends
            const auto rowAt = [height](double y) {
                return static_cast<std::size_t>(std::clamp(std::ceil(y - 0.5), 0.0, static_cast<double>(height)));
            };
            for (std::size_t row = rowAt(std::min(y0, y1)); row < rowAt(std::max(y0, y1)); ++row) {
                const double middle = static_cast<double>(row) + 0.5;
                const double column = std::ceil(x0 + (middle - y0) * (x1 - x0) / (y1 - y0) - 0.5);
                if (column >= width) continue;
                image.pixels[row * columns + static_cast<std::size_t>(std::max(column, 0.0))] ^= 255;
            }
        }
    }
    for (std::size_t row = 0; row < rows; ++row) {
        unsigned char* pixels = image.pixels.data() + row * columns;
        for (std::size_t x = 1; x < columns; ++x) pixels[x] ^= pixels[x - 1];
    }
    return image;
}

}  // namespace vndlp::tools
