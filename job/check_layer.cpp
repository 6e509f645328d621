#include "job/check_layer.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vndlp {

namespace {

constexpr std::uint32_t kNoLabel = UINT32_MAX;

}  // namespace

void Sets::reset(std::size_t count) {
    m_parents.resize(count);
    std::iota(m_parents.begin(), m_parents.end(), 0U);
}

void LineBox::add(const LineBox& other) {
    firstLine = std::min(firstLine, other.firstLine);
    lastLine = std::max(lastLine, other.lastLine);
    first = std::min(first, other.first);
    last = std::max(last, other.last);
}

LabelledLines::LabelledLines(std::uint32_t lines, std::uint32_t length) : m_lines(lines), m_length(length) {
    m_lineBegins.reserve(std::size_t{lines} + 1);
    m_lineBegins.push_back(0);
}

bool LabelledLines::append(std::span<const LitRun> runs) {
    for (const LitRun& run : runs) {
        const auto line = static_cast<std::uint32_t>(m_lineBegins.size() - 1);
        const bool isInside = run.line < m_lines && run.first <= run.last && run.last < m_length;
        if (!m_isSound || m_isClosed || !isInside || run.line < line) return m_isSound = false;
        for (std::uint32_t i = line; i < run.line; ++i) endLine();
        const bool isFirst = m_ends.size() == m_lineBegins.back();
        if (!isFirst && run.first < m_ends.back()) return m_isSound = false;
        m_litPixels += run.last - run.first + 1;
        if (!isFirst && run.first == m_ends.back()) {
            m_ends.back() = run.last + 1;
        } else {
            m_ends.push_back(run.first);
            m_ends.push_back(run.last + 1);
        }
    }
    return m_isSound;
}

std::uint32_t LabelledLines::addRegion(std::size_t segment) {
    m_regions.emplace_back();
    m_regions.back().isLit = LabelledLine::isLit(segment);
    m_regions.back().box.firstLine = static_cast<std::uint32_t>(m_lineBegins.size() - 1);
    return m_joined.add();
}

/// Counts a segment to its label's region; one without a label begins a region.
inline std::uint32_t LabelledLines::count(std::size_t segment, std::uint32_t begin, std::uint32_t end,
                                          std::uint32_t label) {
    if (label == kNoLabel) label = addRegion(segment);
    Region& region = m_regions[label];
    region.pixels += end - begin;
    region.box.lastLine = static_cast<std::uint32_t>(m_lineBegins.size() - 1);
    region.box.first = std::min(region.box.first, begin);
    region.box.last = std::max(region.box.last, end - 1);
    return label;
}

void LabelledLines::labelFirstLine() {
    std::uint32_t begin = 0;
    for (std::size_t i = 0; i < m_ends.size(); ++i) {
        m_labels[i] = m_ends[i] > begin ? count(i, begin, m_ends[i], kNoLabel) : kNoLabel;
        begin = m_ends[i];
    }
}

/// Walks along the line and the one above it, segment by segment. Segments of one sort that share a place belong
/// together; where both change at once and in opposite ways, two lit ones meet at a corner.
void LabelledLines::labelLine(std::size_t above) {
    const std::size_t own = m_lineBegins.back();
    const std::uint32_t* const aboveEnds = m_ends.data() + above;
    const std::uint32_t* const aboveLabels = m_labels.data() + above;
    const std::uint32_t* const ends = m_ends.data() + own;
    std::uint32_t* const labels = m_labels.data() + own;
    const auto join = [this](std::uint32_t label, std::uint32_t other) {
        if (label == other || label == kNoLabel) return other;
        return m_joined.unite(label, other);
    };
    std::size_t i = aboveEnds[0] == 0 ? 1 : 0;
    std::size_t j = ends[0] == 0 ? 1 : 0;
    labels[0] = kNoLabel;
    std::uint32_t begin = 0;
    std::uint32_t label = kNoLabel;
    for (;;) {
        const bool isSame = (i ^ j) % 2 == 0;
        if (isSame) label = join(label, aboveLabels[i]);
        const std::uint32_t aboveEnd = aboveEnds[i];
        const std::uint32_t end = ends[j];
        if (aboveEnd < end) {
            ++i;
            continue;
        }
        std::uint32_t next = kNoLabel;
        if (aboveEnd == end) {
            if (!isSame && end != m_length) {
                if (LabelledLine::isLit(i)) {
                    next = aboveLabels[i];
                } else {
                    label = join(label, aboveLabels[i + 1]);
                }
            }
            ++i;
        }
        labels[j] = count(j, begin, end, label);
        if (end == m_length) break;
        begin = end;
        label = next;
        ++j;
    }
    // an empty segment behind the last one
    for (++j; j < m_ends.size() - own; ++j) labels[j] = kNoLabel;
}

void LabelledLines::endLine() {
    // a line that ends lit ends with an empty segment, too
    m_ends.push_back(m_length);
    m_labels.resize(m_ends.size());
    if (m_lineBegins.size() == 1) {
        labelFirstLine();
    } else {
        labelLine(m_lineBegins[m_lineBegins.size() - 2]);
    }
    m_lineBegins.push_back(m_ends.size());
}

void LabelledLines::close() {
    if (m_isClosed) return;
    m_isClosed = true;
    while (m_lineBegins.size() <= m_lines) endLine();
    // a root is lower than its members, so it has its number when they ask for it
    std::vector<std::uint32_t> numbers(m_regions.size());
    std::uint32_t next = 0;
    for (std::uint32_t label = 0; label < m_regions.size(); ++label) {
        const std::uint32_t root = m_joined.find(label);
        if (root == label) {
            numbers[label] = next;
            // the place is that of a label that has been moved already
            m_regions[next++] = m_regions[label];
        } else {
            numbers[label] = numbers[root];
            m_regions[numbers[root]].pixels += m_regions[label].pixels;
            m_regions[numbers[root]].box.add(m_regions[label].box);
        }
    }
    m_regions.resize(next);
    for (std::uint32_t& label : m_labels) {
        if (label != kNoLabel) label = numbers[label];
    }
}

bool LabelledLines::touchesBorder(const Region& region) const {
    const LineBox& box = region.box;
    return box.firstLine == 0 || box.lastLine == m_lines - 1 || box.first == 0 || box.last == m_length - 1;
}

void LabelledLines::appendRuns(std::uint32_t region, std::vector<LitRun>& runs) const {
    if (region >= m_regions.size()) return;
    const LineBox& box = m_regions[region].box;
    for (std::uint32_t index = box.firstLine; index <= box.lastLine; ++index) {
        const LabelledLine line = this->line(index);
        for (std::size_t i = 0; i < line.ends.size(); ++i) {
            if (line.regions[i] == region) runs.push_back({index, line.begin(i), line.ends[i] - 1});
        }
    }
}

}  // namespace vndlp
