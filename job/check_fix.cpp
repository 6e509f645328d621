#include <vndlp/job_check.h>

#include <algorithm>
#include <utility>

namespace vndlp {

namespace {

/// What of lit runs is not in others; both by line and place, the others inside the lit ones.
std::vector<LitRun> without(const std::vector<LitRun>& runs, const std::vector<LitRun>& others) {
    std::vector<LitRun> left;
    auto other = others.begin();
    for (LitRun run : runs) {
        bool isLeft = true;
        for (; other != others.end() && other->line == run.line && other->last <= run.last; ++other) {
            if (other->first > run.first) left.push_back({run.line, run.first, other->first - 1});
            isLeft = other->last < run.last;
            run.first = other->last + 1;
        }
        if (isLeft) left.push_back(run);
    }
    return left;
}

class FixPlanner {
public:
    FixPlanner(const CheckJob& job, std::uint32_t layers, CheckReadFn read, void* context, JobFix& fix)
        : m_job(job), m_layers(layers), m_read(read), m_context(context), m_fix(fix) {}

    bool clearIslands(std::int64_t mostPixels) {
        return change(CheckKind::island, mostPixels, &FixedLayer::cleared, m_fix.islands, m_fix.islandVoxels);
    }
    bool fillTraps() { return change(CheckKind::trap, INT64_MAX, &FixedLayer::filled, m_fix.traps, m_fix.trapVoxels); }
    /// A trap has lit walls, so that filling it lights no layer that was empty.
    bool dropEmptyEnd() {
        for (m_fix.layers = m_layers; m_fix.layers > 0; --m_fix.layers) {
            CheckLayer layer(m_job);
            if (!readLayer(m_fix.layers - 1, layer)) return false;
            if (!layer.isEmpty()) break;
        }
        return true;
    }

private:
    /// Reads a layer as it is without what is cleared by now.
    bool readLayer(std::uint32_t index, CheckLayer& out) const {
        if (m_read(m_context, index, out) != 0) return false;
        out.close();
        const auto found = m_fix.changed.find(index);
        if (found == m_fix.changed.end()) return true;
        const std::vector<LitRun> left = without(out.litRuns(), found->second.cleared);
        out = CheckLayer(m_job);
        out.append(left.data(), left.size());
        out.close();
        return true;
    }

    /// Finds what is of a kind and notes its runs as what changes.
    bool change(CheckKind kind, std::int64_t mostPixels, std::vector<LitRun> FixedLayer::*runs, std::uint64_t& count,
                std::uint64_t& voxels) {
        CheckOptions options;
        options.kinds = 1U << static_cast<unsigned>(kind);
        options.keepPlaces = true;
        JobCheck check(m_job, options);
        for (std::uint32_t i = 0; i < m_layers; ++i) {
            CheckLayer layer(m_job);
            if (!readLayer(i, layer)) return false;
            check.addLayer(layer);
        }
        std::map<std::uint32_t, CheckFinding> changes;  // by layer: the places of all findings there
        for (const CheckFinding& finding : check.finish()) {
            if (finding.pixels > mostPixels) continue;
            ++count;
            voxels += static_cast<std::uint64_t>(finding.voxels);
            for (const CheckPlace& place : finding.places) {
                CheckFinding& here = changes[place.layer];
                here.layer = here.lastLayer = place.layer;
                here.places.push_back(place);
            }
        }
        std::map<std::uint32_t, std::vector<LitRun>> found;
        for (const auto& [index, here] : changes) {
            CheckLayer layer(m_job);
            if (!readLayer(index, layer)) return false;
            found[index] = check.runsOf(here, nullptr, layer, index);
        }
        for (auto& [index, list] : found) m_fix.changed[index].*runs = std::move(list);
        return true;
    }

    const CheckJob& m_job;
    std::uint32_t m_layers;
    CheckReadFn m_read;
    void* m_context;
    JobFix& m_fix;
};

}  // namespace

bool planFix(const CheckJob& job, std::uint32_t layers, const FixOptions& options, CheckReadFn read, void* context,
             JobFix& fix) {
    fix = JobFix();
    FixPlanner planner(job, layers, read, context, fix);
    if (options.islandPixels >= 0 && !planner.clearIslands(options.islandPixels)) return false;
    if (options.fillTraps && !planner.fillTraps()) return false;
    return planner.dropEmptyEnd();
}

}  // namespace vndlp
