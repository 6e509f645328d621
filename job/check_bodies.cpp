#include "job/check_bodies.h"

#include <algorithm>
#include <utility>

namespace vndlp {

void Bodies::begin(const LabelledLines& layer) {
    m_sets.reset(1 + m_open.size() + layer.regions().size());
    m_lastBelow.assign(layer.regions().size(), UINT32_MAX);
}

void Bodies::addRegion(Body& body, const Region& region, CheckPlace place) {
    if (body.voxels == 0) {
        body.isLit = region.isLit;
        body.firstLayer = place.layer;
    }
    body.lastLayer = place.layer;
    body.voxels += region.pixels;
    body.largestRegion = std::max(body.largestRegion, region.pixels);
    body.box.add(region.box);
    if (m_keepPlaces) body.places.push_back(place);
}

void Bodies::merge(Body& into, Body& body) const {
    if (into.voxels < body.voxels) std::swap(into, body);
    if (body.voxels == 0) return;
    into.firstLayer = std::min(into.firstLayer, body.firstLayer);
    into.voxels += body.voxels;
    into.largestRegion = std::max(into.largestRegion, body.largestRegion);
    into.box.add(body.box);
    // the body of more voxels need not have more places, but mostly has
    into.places.insert(into.places.end(), body.places.begin(), body.places.end());
}

std::vector<Body> Bodies::end(const LabelledLines& layer, std::uint32_t index) {
    const std::vector<Region>& regions = layer.regions();
    for (std::size_t i = 0; i < regions.size(); ++i) {
        const bool settles = regions[i].isLit ? index == 0 : layer.touchesBorder(regions[i]);
        if (settles) m_sets.unite(kSettled, regionNode(i));
    }
    // an unsettled set with a region is a body from now on
    std::vector<std::uint32_t> bodyOfRoot(1 + m_open.size() + regions.size(), UINT32_MAX);
    std::uint32_t bodyCount = 0;
    m_nodes.resize(regions.size());
    for (std::size_t i = 0; i < regions.size(); ++i) {
        const std::uint32_t root = m_sets.find(regionNode(i));
        if (root != kSettled && bodyOfRoot[root] == UINT32_MAX) bodyOfRoot[root] = bodyCount++;
        m_nodes[i] = root == kSettled ? kSettled : bodyNode(bodyOfRoot[root]);
    }
    std::vector<Body> finished;
    std::vector<Body> open(bodyCount);
    for (std::size_t i = 0; i < m_open.size(); ++i) {
        const std::uint32_t root = m_sets.find(bodyNode(i));
        if (bodyOfRoot[root] != UINT32_MAX) {
            merge(open[bodyOfRoot[root]], m_open[i]);
        } else {
            m_open[i].end = root == kSettled ? BodyEnd::joined : BodyEnd::faded;
            finished.push_back(std::move(m_open[i]));
        }
    }
    for (std::size_t i = 0; i < regions.size(); ++i) {
        if (m_nodes[i] == kSettled) continue;
        addRegion(open[m_nodes[i] - 1], regions[i], {index, static_cast<std::uint32_t>(i)});
    }
    m_open.swap(open);
    return finished;
}

std::vector<Body> Bodies::finish() { return std::exchange(m_open, {}); }

}  // namespace vndlp
