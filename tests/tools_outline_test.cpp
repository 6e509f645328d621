// Tracing grey layers: contours worked out by hand, and what must hold for every image.

#include "tools/drawings/outline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <utility>

namespace vndlp::tools {
namespace {

using Points = std::vector<std::pair<int, int>>;

/// An image from rows of characters: '.' is 0, '#' is 255, a digit d is d tenths of 255.
GreyImage imageOf(const std::vector<std::string>& rows) {
    GreyImage image{static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), {}};
    for (const std::string& row : rows) {
        for (const char c : row) {
            image.pixels.push_back(c == '#'   ? 255
                                   : c == '.' ? 0
                                              : static_cast<unsigned char>(std::lround((c - '0') * 25.5)));
        }
    }
    return image;
}

/// Pixels of 100 x 100 micrometres.
Polylines trace(const std::vector<std::string>& rows, double tolerance = 0) {
    return traceOutlines(imageOf(rows), {100, 100, tolerance});
}

Points pointsOf(const Polyline& polyline) {
    Points points;
    for (const Vec3i& p : polyline) points.emplace_back(p.x, p.y);
    return points;
}

/// In square micrometres, positive where the polyline runs counter-clockwise.
double signedArea(const Polyline& p) {
    double doubled = 0;
    for (std::size_t i = 1; i < p.size(); ++i) {
        doubled += static_cast<double>(p[i - 1].x) * p[i].y - static_cast<double>(p[i].x) * p[i - 1].y;
    }
    return doubled / 2;
}

TEST(Outline, HasTheCornersOfWhatIsLit) {
    // from the lower left corner of the image, counter-clockwise
    const std::pair<std::vector<std::string>, Points> cases[] = {
        {{".....", ".###.", ".###.", ".....", "....."}, {{100, 400}, {100, 200}, {400, 200}, {400, 400}, {100, 400}}},
        {{"...", ".#.", "..."}, {{100, 200}, {100, 100}, {200, 100}, {200, 200}, {100, 200}}},
        {{"##", "##"}, {{0, 200}, {0, 0}, {200, 0}, {200, 200}, {0, 200}}},
        // anti-aliased: a plate from 1.7 to 3.4 pixels, over the whole height
        {{".3#4.", ".3#4.", ".3#4."}, {{170, 300}, {170, 0}, {340, 0}, {340, 300}, {170, 300}}},
    };
    for (const auto& [rows, points] : cases) {
        const Polylines outlines = trace(rows);
        ASSERT_EQ(outlines.size(), 1U);
        EXPECT_EQ(pointsOf(outlines[0]), points);
    }
    // a left column that is beyond half grey
    EXPECT_EQ(pointsOf(trace({".8#.", ".8#."}).at(0))[0].first, 120);
    // pixels need not be square
    EXPECT_EQ(pointsOf(traceOutlines(imageOf({"#"}), {40, 70, 0}).at(0)),
              (Points{{0, 70}, {0, 0}, {40, 0}, {40, 70}, {0, 70}}));
}

TEST(Outline, HolesRunClockwiseAndCornersPart) {
    // signed areas in pixels
    const std::pair<std::vector<std::string>, std::vector<double>> cases[] = {
        {{"...", "..."}, {}},
        {{"444", "444"}, {}},  // below half grey
        {{".....", ".###.", ".###.", ".....", "....."}, {6}},
        {{"#####", "#...#", "#.#.#", "#...#", "#####"}, {25, 1, -9}},  // the hole is found at its lower side
        {{"#.", ".#"}, {1, 1}},
        {{".#", "#."}, {1, 1}},
        {{"####", "#.##", "##.#", "####"}, {16, -2}},  // holes are joined through their corners
    };
    for (const auto& [rows, expected] : cases) {
        const Polylines outlines = trace(rows);
        std::vector<double> areas;
        for (const Polyline& outline : outlines) areas.push_back(signedArea(outline) / (100 * 100));
        EXPECT_EQ(areas, expected);
        EXPECT_EQ(areaBetween(outlines), 100 * 100 * std::accumulate(areas.begin(), areas.end(), 0.0));
    }
}

TEST(Outline, ToleranceBoundsTheError) {
    // a staircase of single pixels, whose inner and outer corners lie 71 micrometres apart
    std::vector<std::string> rows;
    for (std::size_t i = 0; i < 20; ++i) rows.push_back(std::string(i + 1, '#') + std::string(20 - i, '.'));
    const Polyline exact = trace(rows).at(0);
    EXPECT_EQ(exact.size(), 43U) << "every step, and the first point again";
    std::size_t before = exact.size();
    for (const double tolerance : {30.0, 60.0, 80.0, 500.0}) {
        const Polyline thin = trace(rows, tolerance).at(0);
        EXPECT_LE(thin.size(), before);
        before = thin.size();
        for (const Vec3i& p : exact) {
            double nearest = 1e9;
            for (std::size_t i = 1; i < thin.size(); ++i) {
                const double dx = thin[i].x - thin[i - 1].x;
                const double dy = thin[i].y - thin[i - 1].y;
                const double px = p.x - thin[i - 1].x;
                const double py = p.y - thin[i - 1].y;
                const double along = std::clamp((px * dx + py * dy) / (dx * dx + dy * dy), 0.0, 1.0);
                nearest = std::min(nearest, std::hypot(px - along * dx, py - along * dy));
            }
            EXPECT_LE(nearest, tolerance);
        }
    }
    EXPECT_LE(before, 6U);
}

TEST(Outline, PaintedOutlinesGiveTheImageBack) {
    std::mt19937 random(7);
    for (const int greys : {2, 256}) {
        for (int round = 0; round < 200; ++round) {
            GreyImage image{1 + static_cast<int>(random() % 30), 1 + static_cast<int>(random() % 30), {}};
            for (int i = 0; i < image.width * image.height; ++i) {
                const auto value = static_cast<int>(random() % static_cast<unsigned>(greys));
                image.pixels.push_back(static_cast<unsigned char>(greys == 2 ? value * 255 : value));
            }
            const Polylines outlines = traceOutlines(image, {1000, 1000, 0});
            double area = 0;
            for (const Polyline& outline : outlines) {
                EXPECT_TRUE(isClosed(outline));
                area += signedArea(outline);
            }
            EXPECT_NEAR(areaBetween(outlines), area, 1) << "outer contours and holes have their directions";
            const GreyImage back =
                paint(outlines, {0, 0, image.width * 1000.0, image.height * 1000.0}, image.width, image.height);
            for (std::size_t i = 0; i < image.pixels.size(); ++i) {
                ASSERT_EQ(back.pixels[i] >= 128, image.pixels[i] >= 128) << greys << ", " << round << ", pixel " << i;
            }
        }
    }
}

}  // namespace
}  // namespace vndlp::tools
