#include "job/check_overhang.h"

#include <algorithm>
#include <cmath>

namespace vndlp {

Reach::Reach(double linePitch, double placePitch, double distance, std::uint32_t lines, std::uint32_t length) {
    const double square = distance * distance;
    for (std::uint32_t offset = 0; offset < lines; ++offset) {
        const double across = offset * linePitch;
        const double rest = square - across * across;
        if (rest < 0) break;
        const auto isNear = [&](double places) {
            return across * across + places * places * placePitch * placePitch <= square;
        };
        double places = std::min(std::floor(std::sqrt(rest) / placePitch), static_cast<double>(length));
        // the root and the quotient are rounded
        while (places > 0 && !isNear(places)) --places;
        while (places < length && isNear(places + 1)) ++places;
        m_halfWidths.push_back(static_cast<std::uint32_t>(places));
    }
    if (m_halfWidths.empty()) m_halfWidths.push_back(0);
}

void OverhangFinder::addCandidate(std::uint32_t index, const LabelledLine& layer, std::size_t lit, std::uint32_t from,
                                  std::uint32_t to) {
    from = std::max(from, layer.begin(lit));
    to = std::min(to, layer.ends[lit]);
    if (from < to) m_candidates.push_back({{index, from, to - 1}, layer.regions[lit]});
}

/// Takes what the lit segments of a line reach away from what is left of a candidate.
void OverhangFinder::subtractLine(const LabelledLine& line, std::uint32_t halfWidth) {
    const std::uint64_t reach = halfWidth;
    m_before.swap(m_left);
    m_left.clear();
    for (LitRun run : m_before) {
        // the first segment that ends, widened, behind the run's first place
        const std::uint32_t first = run.first > halfWidth ? run.first - halfWidth : 0;
        auto segment =
            static_cast<std::size_t>(std::upper_bound(line.ends.begin(), line.ends.end(), first) - line.ends.begin());
        bool isLeft = true;
        for (segment |= 1; segment < line.ends.size() && line.begin(segment) <= run.last + reach; segment += 2) {
            const std::uint32_t begin = line.begin(segment);
            const std::uint64_t end = line.ends[segment] + reach;
            if (begin > run.first + reach) m_left.push_back({run.line, run.first, begin - halfWidth - 1});
            isLeft = end <= run.last;
            if (!isLeft) break;
            run.first = std::max(run.first, static_cast<std::uint32_t>(end));
        }
        if (isLeft) m_left.push_back(run);
    }
}

const std::vector<LitRun>& OverhangFinder::find(const LabelledLines& below,
                                                const std::vector<std::uint8_t>& isSupported) {
    m_found.clear();
    for (const Candidate& candidate : m_candidates) {
        if (isSupported[candidate.region] == 0) continue;
        m_left.assign(1, candidate.run);
        const std::uint32_t index = candidate.run.line;
        // near lines first: they leave the least
        for (std::uint32_t offset = 1; offset <= m_reach.lines() && !m_left.empty(); ++offset) {
            if (offset <= index) subtractLine(below.line(index - offset), m_reach.halfWidth(offset));
            if (index + offset < below.lines()) subtractLine(below.line(index + offset), m_reach.halfWidth(offset));
        }
        m_found.insert(m_found.end(), m_left.begin(), m_left.end());
    }
    return m_found;
}

}  // namespace vndlp
