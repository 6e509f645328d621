#include "tools/drawings/outline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace vndlp::tools {

namespace {

constexpr int kHalfGrey = 128;

/// Black or white, but for what compression or a gamma curve may leave of them.
bool isHard(int grey) {
    constexpr int kSlack = 8;
    return grey < kSlack || grey > 255 - kSlack;
}

struct Point {
    double x = 0;
    double y = 0;
};

/// Directions along pixel edges in the image, whose rows go down; the next one is a turn to the left.
enum Direction : unsigned { kWest, kSouth, kEast, kNorth };

Direction leftOf(Direction d) { return static_cast<Direction>((d + 1) % 4); }
Direction rightOf(Direction d) { return static_cast<Direction>((d + 3) % 4); }

constexpr std::array<std::pair<int, int>, 4> kSteps = {{{-1, 0}, {0, 1}, {1, 0}, {0, -1}}};

/// One side of a pixel, walked along with the inside on the left.
struct Side {
    int x;  ///< where it begins, on the grid of pixel corners
    int y;
    Direction direction;
    std::uint8_t inside;   ///< grey of the pixel on the left
    std::uint8_t outside;  ///< grey of the pixel on the right
    bool endIsHard;        ///< the four pixels around its end are black or white

    /// How far the outline lies to the right of the side, in pixels: less than a half in both directions.
    double offset() const { return (inside + outside) / 255.0 - 1; }

    Point middle() const {
        const auto [dx, dy] = kSteps[direction];
        // the right of (dx, dy) is (-dy, dx) where y goes down
        return {x + dx * 0.5 - dy * offset(), y + dy * 0.5 + dx * offset()};
    }
};

/// The image with its black surroundings, and which sides were walked.
class Tracer {
public:
    explicit Tracer(const GreyImage& image)
        : m_pixels(image.pixels.data()),
          m_width(image.width),
          m_height(image.height),
          m_walked((static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) + 63) / 64) {}

    /// Calls `use` with every contour's sides. The first is an upper side, and a corner follows it.
    template <class Use>
    void run(Use use) {
        std::vector<Side> sides;
        const std::vector<unsigned char> black(static_cast<std::size_t>(m_width), 0);
        const unsigned char* above = black.data();
        for (int y = 0; y < m_height; ++y) {
            const unsigned char* row = m_pixels + index(0, y);
            for (int x = 0; x < m_width; ++x) {
                x += skipDull(row + x, above + x, m_width - x);
                // a contour has an upper side with its inside below somewhere, and its first one begins it
                if (x == m_width || !isLit(x, y) || isLit(x, y - 1) || isWalked(x, y)) continue;
                walk(x, y, sides);
                use(sides);
            }
            above = row;
        }
    }

private:
    /// Number of pixels, in steps of eight, among which none is lit below one that is not.
    static int skipDull(const unsigned char* row, const unsigned char* above, int count) {
        constexpr std::uint64_t kLit = 0x8080808080808080;
        static_assert(kHalfGrey == 0x80);
        int skipped = 0;
        for (std::uint64_t a = 0, b = 0; skipped + 8 <= count; skipped += 8) {
            std::memcpy(&a, row + skipped, 8);
            std::memcpy(&b, above + skipped, 8);
            if ((a & ~b & kLit) != 0) break;
        }
        return skipped;
    }

    int grey(int x, int y) const {
        if (x < 0 || y < 0 || x >= m_width || y >= m_height) return 0;
        return m_pixels[index(x, y)];
    }
    bool isLit(int x, int y) const { return grey(x, y) >= kHalfGrey; }
    std::size_t index(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
    }
    bool isWalked(int x, int y) const { return (m_walked[index(x, y) / 64] >> index(x, y) % 64 & 1) != 0; }
    void setWalked(int x, int y) { m_walked[index(x, y) / 64] |= std::uint64_t{1} << index(x, y) % 64; }

    /// The pixel to the left or right behind or ahead of a corner, for someone who comes to it in a direction.
    std::pair<int, int> pixelAt(int x, int y, Direction direction, bool left, bool ahead) const {
        const auto [dx, dy] = kSteps[direction];
        const auto [sx, sy] = kSteps[left ? leftOf(direction) : rightOf(direction)];
        // of the two pixels a step apart, the one whose number is smaller lies before the corner
        const int forward = ahead ? 1 : -1;
        const int px = x + ((dx * forward + sx) < 0 ? -1 : 0);
        const int py = y + ((dy * forward + sy) < 0 ? -1 : 0);
        return {px, py};
    }

    void walk(int pixelX, int pixelY, std::vector<Side>& sides) {
        sides.clear();
        const int startX = pixelX + 1;
        const int startY = pixelY;
        int x = startX;
        int y = startY;
        Direction direction = kWest;
        do {
            const auto [dx, dy] = kSteps[direction];
            const int nextX = x + dx;
            const int nextY = y + dy;
            const auto greyAt = [&](bool left, bool ahead) {
                const auto [px, py] = pixelAt(nextX, nextY, direction, left, ahead);
                return grey(px, py);
            };
            const int inside = greyAt(true, false);
            const int outside = greyAt(false, false);
            const int left = greyAt(true, true);
            const int right = greyAt(false, true);
            sides.push_back({x, y, direction, static_cast<std::uint8_t>(inside), static_cast<std::uint8_t>(outside),
                             isHard(inside) && isHard(outside) && isHard(left) && isHard(right)});
            if (direction == kWest) setWalked(nextX, nextY);
            x = nextX;
            y = nextY;
            const bool leftLit = left >= kHalfGrey;
            const bool rightLit = right >= kHalfGrey;
            // two lit pixels that touch by this corner only are one where the corner is brighter than half grey
            const bool joined = inside + outside + left + right > 2 * 255;
            if (leftLit && !rightLit) continue;
            direction = rightLit && (leftLit || joined) ? rightOf(direction) : leftOf(direction);
        } while (x != startX || y != startY || direction != kWest);
    }

    const unsigned char* m_pixels;
    int m_width;
    int m_height;
    std::vector<std::uint64_t> m_walked;  // upper sides, one bit a pixel
};

/// Where the lines along two sides that meet at a corner cross.
Point crossing(const Side& a, const Side& b) {
    const Side& upright = kSteps[a.direction].first == 0 ? a : b;
    const Side& level = kSteps[a.direction].first == 0 ? b : a;
    return {upright.middle().x, level.middle().y};
}

/// A closed contour's sides by number, the first behind the last.
class Contour {
public:
    explicit Contour(const std::vector<Side>& sides) : m_sides(sides) {}

    const Side& side(std::size_t i) const { return m_sides[i % m_sides.size()]; }
    const Side& before(std::size_t i) const { return side(i + m_sides.size() - 1); }

    bool turnsBehind(std::size_t i) const { return side(i).direction != side(i + 1).direction; }

    /// A side by itself between two turns into opposite directions.
    bool isStep(std::size_t i) const {
        const Direction direction = side(i).direction;
        return before(i).direction != direction && before(i).direction == side(i + 1).direction;
    }

    /// Whether the corner behind a side is one of the drawing. Between black and white pixels all are. Among greys, the
    /// corners of a step come from the raster: a slanted edge passes there.
    bool hasCornerBehind(std::size_t i) const {
        return turnsBehind(i) && (side(i).endIsHard || !(isStep(i) || isStep(i + 1)));
    }

    /// Whether the contour bends or turns behind a side without a corner: it goes through the sides' middles then.
    bool bendsBehind(std::size_t i) const {
        return turnsBehind(i) ? !hasCornerBehind(i) : side(i).offset() != side(i + 1).offset();
    }

private:
    const std::vector<Side>& m_sides;
};

/// The points of a contour, in pixels, rows down; the last is not the first. The middle of a side lies on the edge
/// where the edge is anti-aliased.
void placePoints(const std::vector<Side>& sides, std::vector<Point>& points) {
    points.clear();
    const Contour contour(sides);
    for (std::size_t i = 0; i < sides.size(); ++i) {
        if (contour.hasCornerBehind(i)) points.push_back(crossing(contour.side(i), contour.side(i + 1)));
        if (contour.bendsBehind(i) || contour.bendsBehind(i + 1)) points.push_back(contour.side(i + 1).middle());
    }
}

/// Square of a point's distance from the line between two others.
double distanceSquared(const Point& p, const Point& a, const Point& b) {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double length2 = dx * dx + dy * dy;
    const double along = length2 > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / length2, 0.0, 1.0) : 0.0;
    const double x = p.x - a.x - along * dx;
    const double y = p.y - a.y - along * dy;
    return x * x + y * y;
}

/// The point between two others that lies farthest from the line between them; `away` receives its distance squared.
std::size_t farthest(const std::vector<Point>& points, std::size_t first, std::size_t last, double& away) {
    std::size_t found = first;
    away = 0;
    for (std::size_t i = first + 1; i < last; ++i) {
        const double d = distanceSquared(points[i], points[first], points[last]);
        if (d > away) {
            away = d;
            found = i;
        }
    }
    return found;
}

/// Thins out a closed contour (Douglas-Peucker), the last point of which is the first.
std::vector<Point> simplify(const std::vector<Point>& points, double tolerance) {
    // bounds the work on contours of millions of points, which would be the square of their number
    constexpr std::size_t kLongestStretch = 4096;
    const std::size_t last = points.size() - 1;
    std::vector<bool> kept(points.size());
    kept[0] = kept[last] = true;
    std::vector<std::pair<std::size_t, std::size_t>> open;
    const auto addStretch = [&](std::size_t from, std::size_t to) {
        for (; to - from > kLongestStretch; from += kLongestStretch) {
            open.emplace_back(from, from + kLongestStretch);
            kept[from + kLongestStretch] = true;
        }
        open.emplace_back(from, to);
    };
    double away = 0;
    const std::size_t opposite = farthest(points, 0, last, away);
    kept[opposite] = true;
    addStretch(0, opposite);
    addStretch(opposite, last);
    while (!open.empty()) {
        const auto [from, to] = open.back();
        open.pop_back();
        const std::size_t split = farthest(points, from, to, away);
        if (away <= tolerance * tolerance) continue;
        kept[split] = true;
        open.emplace_back(from, split);
        open.emplace_back(split, to);
    }
    if (std::count(kept.begin(), kept.end(), true) < 4) {
        double awayBehind = 0;
        const std::size_t before = farthest(points, 0, opposite, away);
        const std::size_t behind = farthest(points, opposite, last, awayBehind);
        kept[away > awayBehind ? before : behind] = true;
    }
    std::vector<Point> result;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (kept[i]) result.push_back(points[i]);
    }
    return result;
}

Polyline rounded(const std::vector<Point>& points) {
    Polyline polyline;
    for (const Point& point : points) {
        const Vec3i p(static_cast<int>(std::lround(point.x)), static_cast<int>(std::lround(point.y)), 0);
        if (polyline.empty() || p.x != polyline.back().x || p.y != polyline.back().y) polyline.push_back(p);
    }
    return polyline;
}

}  // namespace

Polylines traceOutlines(const GreyImage& image, const OutlineScale& scale) {
    // what is left of a straight line after the arithmetic
    constexpr double kStraightUm = 1e-3;
    Polylines polylines;
    std::vector<Point> points;
    Tracer(image).run([&](const std::vector<Side>& sides) {
        placePoints(sides, points);
        for (Point& p : points) p = {p.x * scale.pixelWidthUm, (image.height - p.y) * scale.pixelHeightUm};
        points.push_back(points.front());
        Polyline polyline = rounded(simplify(points, std::max(scale.toleranceUm, kStraightUm)));
        if (isClosed(polyline)) polylines.push_back(std::move(polyline));
    });
    return polylines;
}

}  // namespace vndlp::tools
