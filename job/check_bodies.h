/// Bodies: regions of one sort, joined through layers.

#pragma once

#include "job/check_layer.h"

#include <cstdint>
#include <vector>

namespace vndlp {

/// How a body that was not settled came to its end.
enum class BodyEnd {
    faded,   ///< nothing of it in the layer above
    joined,  ///< to a settled one
    jobEnd   ///< it is in the last layer
};

/// A body that is not settled.
struct Body {
    bool isLit = false;
    std::uint32_t firstLayer = 0;
    std::uint32_t lastLayer = 0;
    std::uint64_t voxels = 0;
    std::uint64_t largestRegion = 0;  ///< pixels, in one layer
    LineBox box;
    std::vector<CheckPlace> places;  ///< if they are kept
    BodyEnd end = BodyEnd::jobEnd;   ///< of a finished one
};

/// Joins the regions of one layer after the other with the open bodies. A layer takes three steps: `begin`, `join` for
/// each pair of regions of one sort that share a place in the layer below and in this one, `end`.
class Bodies {
public:
    explicit Bodies(bool keepPlaces) : m_keepPlaces(keepPlaces) {}

    void begin(const LabelledLines& layer);

    /// \param below region of the layer below.
    /// \param own   region of this layer.
    void join(std::uint32_t below, std::uint32_t own) {
        // overlaps of the same two regions follow each other
        if (m_lastBelow[own] == below) return;
        m_lastBelow[own] = below;
        m_sets.unite(m_nodes[below], regionNode(own));
    }

    /// \return the unsettled bodies of the layers below that are finished.
    std::vector<Body> end(const LabelledLines& layer, std::uint32_t index);

    /// After the last layer. \return the unsettled bodies that are left.
    std::vector<Body> finish();

private:
    /// All that is settled is one node, the first: joined or not, it will never be found.
    static constexpr std::uint32_t kSettled = 0;
    std::uint32_t bodyNode(std::size_t body) const { return static_cast<std::uint32_t>(body + 1); }
    std::uint32_t regionNode(std::size_t region) const {
        return static_cast<std::uint32_t>(m_open.size() + 1 + region);
    }
    void addRegion(Body& body, const Region& region, CheckPlace place);
    void merge(Body& into, Body& body) const;

    bool m_keepPlaces;
    std::vector<Body> m_open;
    std::vector<std::uint32_t> m_nodes;      ///< of the regions of the layer below: `kSettled` or that of an open body
    std::vector<std::uint32_t> m_lastBelow;  ///< of each region: which it was joined with last
    Sets m_sets;                             ///< of nodes: settled, open bodies, regions
};

}  // namespace vndlp
