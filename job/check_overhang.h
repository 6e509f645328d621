/// Lit pixels that have nothing lit near enough in the layer below.

#pragma once

#include "job/check_layer.h"

#include <cstdint>
#include <vector>

namespace vndlp {

/// How far a lit pixel reaches: a disc (an ellipse where pixels are not square), line by line.
class Reach {
public:
    /// \param linePitch, placePitch from one line, and one place in a line, to the next; um.
    /// \param distance centres at most this far apart are near enough, um.
    Reach(double linePitch, double placePitch, double distance, std::uint32_t lines, std::uint32_t length);

    /// Lines above and below that are reached.
    std::uint32_t lines() const { return static_cast<std::uint32_t>(m_halfWidths.size()) - 1; }
    /// Places to both sides that are reached in a line `offset` lines away.
    std::uint32_t halfWidth(std::uint32_t offset) const { return m_halfWidths[offset]; }

private:
    std::vector<std::uint32_t> m_halfWidths;
};

/// Collects the overhanging pixels of one layer. Along its own line a pixel is compared as lines are walked, which
/// leaves little; what is left is compared with the other lines in reach.
class OverhangFinder {
public:
    explicit OverhangFinder(Reach reach) : m_reach(std::move(reach)) {}

    void begin() { m_candidates.clear(); }

    /// Takes what is left of a lit segment above an unlit one of the line below it.
    void addLine(std::uint32_t index, const LabelledLine& layer, std::size_t lit, const LabelledLine& below,
                 std::size_t unlit) {
        // lit neighbours reach into the unlit segment from both of its ends, but not from the edge of the image
        const std::uint64_t reach = m_reach.halfWidth(0);
        const std::uint64_t from = unlit == 0 ? 0 : below.begin(unlit) + reach;
        const std::uint32_t to = below.ends[unlit];
        const std::uint32_t reached = unlit + 1 == below.ends.size() ? 0 : m_reach.halfWidth(0);
        if (from + reached >= to) return;
        addCandidate(index, layer, lit, static_cast<std::uint32_t>(from), to - reached);
    }

    /// \param isSupported of each region of the layer: 0, or 1 where something is lit right below it.
    /// \return the overhanging runs, by line and place.
    const std::vector<LitRun>& find(const LabelledLines& below, const std::vector<std::uint8_t>& isSupported);

private:
    struct Candidate {
        LitRun run;
        std::uint32_t region;
    };
    void addCandidate(std::uint32_t index, const LabelledLine& layer, std::size_t lit, std::uint32_t from,
                      std::uint32_t to);
    void subtractLine(const LabelledLine& line, std::uint32_t halfWidth);

    Reach m_reach;
    std::vector<Candidate> m_candidates;
    std::vector<LitRun> m_left;  ///< of one candidate
    std::vector<LitRun> m_before;
    std::vector<LitRun> m_found;
};

}  // namespace vndlp
