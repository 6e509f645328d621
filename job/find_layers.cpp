#include "job/find_layers.h"

#include "job/layer_data.h"
#include "job/results.h"

#include <vndlp/image.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace vndlp::job {

namespace {

constexpr std::size_t kSearchBytes = std::size_t{1} << 18;

class Finder {
public:
    Finder(const Model& model, const ProgressSink& progress, FoundLayers& found)
        : m_model(model), m_progress(progress), m_found(found) {}

    SliceResult tabled() {
        const LayerTable& table = m_model.layers();
        for (std::uint32_t i = 0; i < table.layers.size(); ++i) {
            LayerPlace place;
            SliceResult result = placeOfLayer(m_model, i, place);
            if (result.isOk()) result = check(i, place);
            if (!take(i, place, result)) return result;
        }
        const auto known = static_cast<std::uint32_t>(table.layers.size());
        miss(known, m_model.info.layers, table.brokenAt, table.whatBroke);
        return {};
    }

    SliceResult chained() {
        readAreas();
        std::int64_t at = m_model.layersAt;
        for (std::uint32_t i = 0; i < m_model.info.layers;) {
            LayerPlace place;
            const bool isPlaced = locateVendorLayer(m_model, at, i, place);
            SliceResult result = isPlaced ? check(i, place) : damaged(at, "cannot be found", i);
            const bool isGood = result.isOk();
            LayerPlace next;
            // a layer that is damaged only within keeps its length
            const bool goesOn =
                isGood || (isPlaced && (i + 1 >= m_model.info.layers || begins(place.end, i + 1, next)));
            if (goesOn) {
                if (!take(i, place, result)) return result;
                at = place.end;
                ++i;
                continue;
            }
            if (!isDamage(result)) return result;
            if (const std::int64_t end = countedEnd(isPlaced, place, i); end >= 0) {
                m_found.hurt.push_back({SliceSeverity::error, result.offset, i, result.text});
                at = end;
                ++i;
                continue;
            }
            std::uint32_t number = 0;
            std::int64_t begin = -1;
            if (SliceResult searched = search(at, i, begin, number); !searched.isOk()) return searched;
            const std::uint32_t end = begin < 0 ? m_model.info.layers : number;
            m_found.hurt.push_back({SliceSeverity::error, result.offset, i, result.text});
            miss(i + 1, end, at, "no layer is found there");
            i = end;
            at = begin;
        }
        return {};
    }

private:
    static bool isDamage(const SliceResult& result) { return result.code == SliceCode::damaged; }

    SliceResult check(std::uint32_t index, const LayerPlace& place) {
        const bool goesOn = m_progress(static_cast<std::uint64_t>(std::max<std::int64_t>(place.begin, 0)),
                                       static_cast<std::uint64_t>(m_model.bytes.size()));
        return goesOn ? checkData(m_model, index, place) : plain(SliceCode::stopped);
    }

    /// Sorts a layer in. \return false for a failure that is no damage.
    bool take(std::uint32_t index, const LayerPlace& place, const SliceResult& result) {
        if (result.isOk()) {
            m_found.whole.emplace(index, place);
        } else if (isDamage(result)) {
            m_found.hurt.push_back({SliceSeverity::error, result.offset, index, result.text});
        }
        return result.isOk() || isDamage(result);
    }

    void miss(std::uint32_t first, std::uint32_t end, std::int64_t offset, const std::string& why) {
        if (first >= end) return;
        const std::string last = std::to_string(end - 1);
        m_found.hurt.push_back({SliceSeverity::error, offset, first,
                                (end - first > 1 ? "is missing, as all up to layer " + last : "is missing") +
                                    (why.empty() ? "" : ": " + why)});
    }

    /// Where a layer of runs ends by its count, though no tag stands there; -1 unless the next one begins there.
    std::int64_t countedEnd(bool isPlaced, const LayerPlace& place, std::uint32_t index) const {
        if (isPlaced || m_model.info.format != SliceFormat::vndlp || place.data <= 0) return -1;
        const std::int64_t end = place.data + std::int64_t{place.count} * kPackedRunBytes + kSplitTagBytes;
        LayerPlace next;
        return index + 1 < m_model.info.layers && begins(end, index + 1, next) ? end : -1;
    }

    void readAreas() {
        if (!hasAreaTable(m_model.info.headerKind)) return;
        std::vector<unsigned char> table(std::size_t{kAreaBytes} * m_model.info.layers);
        if (!m_model.bytes.read(m_model.tableAt, table.data(), table.size()).isOk()) return;
        for (std::size_t i = 0; i < table.size(); i += kAreaBytes) {
            m_areas.push_back(loadNumber<std::uint32_t>(table.data() + i, BigEndian));
        }
    }

    /// Whether a layer of this number begins at an offset, and is whole.
    bool begins(std::int64_t offset, std::uint32_t index, LayerPlace& place) const {
        if (!locateVendorLayer(m_model, offset, index, place)) return false;
        if (!m_areas.empty() && place.area != m_areas[index]) return false;
        return checkData(m_model, index, place).isOk();
    }

    /// The first layer behind `index` that begins behind a tag from `from` on.
    SliceResult search(std::int64_t from, std::uint32_t index, std::int64_t& begin, std::uint32_t& number) const {
        std::vector<unsigned char> piece(kSearchBytes);
        const std::int64_t size = m_model.bytes.size();
        // pieces overlap by a byte, for tags that lie across
        for (std::int64_t at = std::max<std::int64_t>(from, 0); at + 1 < size;
             at += static_cast<std::int64_t>(kSearchBytes) - 1) {
            const auto held = static_cast<std::size_t>(std::min<std::int64_t>(size - at, kSearchBytes));
            SliceResult result = m_model.bytes.read(at, piece.data(), held);
            if (!result.isOk()) return result;
            const bool goesOn = m_progress(static_cast<std::uint64_t>(at), static_cast<std::uint64_t>(size));
            if (!goesOn) return plain(SliceCode::stopped);
            for (std::size_t i = 0; i + 1 < held; ++i) {
                if (piece[i] != kSplitTag >> 8 || piece[i + 1] != (kSplitTag & 0xFF)) continue;
                const std::int64_t behind = at + static_cast<std::int64_t>(i) + kSplitTagBytes;
                if (!isLayer(behind, index, number)) continue;
                begin = behind;
                return {};
            }
        }
        return {};
    }

    bool isLayer(std::int64_t offset, std::uint32_t index, std::uint32_t& number) const {
        LayerPlace place;
        if (m_areas.empty()) {
            number = index + 1;
            return number < m_model.info.layers && begins(offset, number, place);
        }
        unsigned char raw[kAreaBytes];
        if (!m_model.bytes.read(offset, raw, sizeof raw).isOk()) return false;
        const auto area = loadNumber<std::uint32_t>(raw, BigEndian);
        const auto found = std::find(m_areas.begin() + index + 1, m_areas.end(), area);
        number = static_cast<std::uint32_t>(found - m_areas.begin());
        return found != m_areas.end() && begins(offset, number, place);
    }

    const Model& m_model;
    const ProgressSink& m_progress;
    FoundLayers& m_found;
    std::vector<std::uint32_t> m_areas;  // of the table; empty without one
};

}  // namespace

SliceResult checkHead(const Model& model) {
    const bool isReadable = model.info.width > 0 && model.info.height > 0 && model.info.layers > 0 &&
                            (model.isVendor() ? model.layersAt >= 0
                                              : model.records.size() > 1 && model.records.front().isWhole &&
                                                    model.tableAt >= model.records.front().bytes);
    if (isReadable) return {};
    return damaged(model.headBrokeAt, model.whatBroke.empty() ? "its head cannot be read" : model.whatBroke);
}

SliceResult findLayers(const Model& model, const ProgressSink& progress, FoundLayers& found) {
    Finder finder(model, progress, found);
    return model.isVendor() ? finder.chained() : finder.tabled();
}

}  // namespace vndlp::job
