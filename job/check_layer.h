/// The lit and unlit segments of a layer's lines, labelled with their regions as they arrive.

#pragma once

#include <vndlp/job_check.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vndlp {

/// Disjoint sets of small numbers; a set's root is its lowest member.
class Sets {
public:
    void reset(std::size_t count);
    std::uint32_t add() {
        m_parents.push_back(static_cast<std::uint32_t>(m_parents.size()));
        return m_parents.back();
    }
    std::uint32_t find(std::uint32_t member) {
        while (m_parents[member] != member) {
            m_parents[member] = m_parents[m_parents[member]];
            member = m_parents[member];
        }
        return member;
    }
    /// \return the root of both.
    std::uint32_t unite(std::uint32_t a, std::uint32_t b) {
        a = find(a);
        b = find(b);
        if (a < b) return m_parents[b] = a;
        return m_parents[a] = b;
    }

private:
    std::vector<std::uint32_t> m_parents;
};

/// First and last line, first and last place in a line, inclusive.
struct LineBox {
    std::uint32_t firstLine = UINT32_MAX;
    std::uint32_t lastLine = 0;
    std::uint32_t first = UINT32_MAX;
    std::uint32_t last = 0;

    void add(const LineBox& other);
};

struct Region {
    std::uint64_t pixels = 0;
    LineBox box;
    bool isLit = false;
};

/// One line: segments, unlit and lit in turn, the first and the last unlit; these two may be empty.
struct LabelledLine {
    std::span<const std::uint32_t> ends;     ///< where each segment ends, exclusive; the last where the line does
    std::span<const std::uint32_t> regions;  ///< of each segment; undefined for an empty one
    static bool isLit(std::size_t segment) { return segment % 2 != 0; }
    std::size_t firstSegment() const { return ends[0] == 0 ? 1 : 0; }  ///< that is not empty
    std::uint32_t begin(std::size_t segment) const { return segment == 0 ? 0 : ends[segment - 1]; }
};

/// Lines of equal length. Two lines are kept in the processor's reach: labels are given as a line is complete.
class LabelledLines {
public:
    /// \param lines, length at least 1.
    LabelledLines(std::uint32_t lines, std::uint32_t length);

    /// \return false when a run is not behind the one before or not inside; the rest is ignored then.
    bool append(std::span<const LitRun> runs);
    /// Fills up with unlit lines and joins what belongs together; a second call does nothing.
    void close();

    std::uint32_t lines() const { return m_lines; }
    std::uint32_t closedLines() const { return static_cast<std::uint32_t>(m_lineBegins.size() - 1); }
    std::uint32_t length() const { return m_length; }
    std::uint64_t litPixels() const { return m_litPixels; }
    bool isSound() const { return m_isSound; }
    /// What is lit is not known.
    void setUnknown() { m_isUnknown = true; }
    bool isEmpty() const { return m_litPixels == 0 && !m_isUnknown; }
    /// Of closed lines, in the order of their first pixels.
    const std::vector<Region>& regions() const { return m_regions; }
    LabelledLine line(std::uint32_t index) const {
        const std::size_t begin = m_lineBegins[index];
        const std::size_t count = m_lineBegins[index + 1] - begin;
        return {{m_ends.data() + begin, count}, {m_labels.data() + begin, count}};
    }
    bool touchesBorder(const Region& region) const;
    /// Appends the runs of a region.
    void appendRuns(std::uint32_t region, std::vector<LitRun>& runs) const;

private:
    void endLine();
    void labelFirstLine();
    void labelLine(std::size_t above);
    std::uint32_t addRegion(std::size_t segment);
    std::uint32_t count(std::size_t segment, std::uint32_t begin, std::uint32_t end, std::uint32_t label);

    std::uint32_t m_lines;
    std::uint32_t m_length;
    std::uint64_t m_litPixels = 0;
    bool m_isSound = true;
    bool m_isClosed = false;
    bool m_isUnknown = false;
    std::vector<std::size_t> m_lineBegins;  ///< of the lines begun; one more when closed
    std::vector<std::uint32_t> m_ends;
    std::vector<std::uint32_t> m_labels;
    std::vector<Region> m_regions;  ///< while open: a region for each label, parts of what is joined in the end
    Sets m_joined;                  ///< labels of one region
};

/// The overlaps of a line's segments with those of another.
/// \param onSame  `(region of below, region of layer, isLit)` for segments of one sort that share a place.
/// \param onAbove `(lit segment of layer, unlit segment of below)` for those that share one.
template <class OnSame, class OnAbove>
void visitOverlaps(const LabelledLine& below, const LabelledLine& layer, OnSame onSame, OnAbove onAbove) {
    std::size_t i = below.firstSegment();
    std::size_t j = layer.firstSegment();
    const std::uint32_t length = layer.ends.back();
    for (;;) {
        if ((i ^ j) % 2 == 0) {
            onSame(below.regions[i], layer.regions[j], LabelledLine::isLit(j));
        } else if (LabelledLine::isLit(j)) {
            onAbove(j, i);
        }
        const std::uint32_t belowEnd = below.ends[i];
        const std::uint32_t layerEnd = layer.ends[j];
        if (belowEnd == length && layerEnd == length) return;
        i += belowEnd <= layerEnd ? 1 : 0;
        j += layerEnd <= belowEnd ? 1 : 0;
    }
}

}  // namespace vndlp
