#include <vndlp/job_check.h>

#include <algorithm>
#include <cmath>

namespace vndlp {

namespace {

/// A side of an outline that crosses the centres of some rows.
struct Side {
    std::uint32_t firstRow;  ///< from the top
    std::uint32_t lastRow;   ///< inclusive
    const Vec3i* low;
    const Vec3i* high;

    double crossing(double y) const {
        const double share = (y - low->y) / (static_cast<double>(high->y) - low->y);
        return low->x + share * (static_cast<double>(high->x) - low->x);
    }
};

bool isClosed(const std::vector<Vec3i>& polyline) {
    return polyline.size() > 2 && polyline.front().x == polyline.back().x && polyline.front().y == polyline.back().y;
}

/// The pixels along one side of the screen, from the origin of the coordinates.
struct Axis {
    std::uint32_t count;
    double pitchUm;

    double centre(double index) const { return (index + 0.5) * pitchUm; }
    /// The first pixel whose centre is not below a coordinate; `count` when there is none.
    std::uint32_t firstFrom(double um) const {
        double index = std::clamp(std::ceil(um / pitchUm - 0.5), 0.0, static_cast<double>(count));
        // the quotient is rounded
        while (index > 0 && centre(index - 1) >= um) --index;
        while (index < count && centre(index) < um) ++index;
        return static_cast<std::uint32_t>(index);
    }
};

std::vector<Side> sidesOf(const std::vector<std::vector<Vec3i>>& polylines, const Axis& rows) {
    std::vector<Side> sides;
    for (const std::vector<Vec3i>& polyline : polylines) {
        if (!isClosed(polyline)) continue;
        for (std::size_t i = 1; i < polyline.size(); ++i) {
            const Vec3i* low = &polyline[i - 1];
            const Vec3i* high = &polyline[i];
            if (low->y > high->y) std::swap(low, high);
            // counted from below
            const std::uint32_t first = rows.firstFrom(low->y);
            const std::uint32_t end = rows.firstFrom(high->y);
            if (first < end) sides.push_back({rows.count - end, rows.count - 1 - first, low, high});
        }
    }
    std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) { return a.firstRow < b.firstRow; });
    return sides;
}

/// Appends the runs between the first and the second crossing, the third and the fourth, and so on.
void appendRow(std::uint32_t row, const std::vector<double>& crossings, const Axis& columns,
               std::vector<LitRun>& runs) {
    std::size_t first = runs.size();
    for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
        const std::uint32_t begin = columns.firstFrom(crossings[i]);
        const std::uint32_t end = columns.firstFrom(crossings[i + 1]);
        if (begin >= end) continue;
        if (runs.size() > first && runs.back().last + 1 == begin) {
            runs.back().last = end - 1;
        } else {
            runs.push_back({row, begin, end - 1});
        }
    }
}

}  // namespace

std::vector<LitRun> litRunsOfPolylines(const std::vector<std::vector<Vec3i>>& polylines, std::uint32_t width,
                                       std::uint32_t height, double pixelXUm, double pixelYUm) {
    const Axis columns{width, pixelXUm};
    const Axis rows{height, pixelYUm};
    const std::vector<Side> sides = sidesOf(polylines, rows);
    // row by row, with the sides that cross it: outlines of many long sides cross far more often than they have points
    std::vector<LitRun> runs;
    std::vector<const Side*> active;
    std::vector<double> crossings;
    auto next = sides.begin();
    for (std::uint32_t row = 0; row < height && (next != sides.end() || !active.empty()); ++row) {
        for (; next != sides.end() && next->firstRow == row; ++next) active.push_back(&*next);
        const double y = rows.centre(height - 1 - row);
        crossings.clear();
        for (const Side* side : active) crossings.push_back(side->crossing(y));
        // an even number: a closed outline crosses a row as often upward as downward
        std::sort(crossings.begin(), crossings.end());
        appendRow(row, crossings, columns, runs);
        active.erase(
            std::remove_if(active.begin(), active.end(), [row](const Side* side) { return side->lastRow == row; }),
            active.end());
    }
    return runs;
}

}  // namespace vndlp
