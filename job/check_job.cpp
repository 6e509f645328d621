#include "job/check_bodies.h"
#include "job/check_findings.h"
#include "job/check_layer.h"
#include "job/check_overhang.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>

namespace vndlp {

namespace {

constexpr double kUnknownPixelUm = 50;
constexpr double kLeastOverhangUm = 200;
constexpr double kOverhangLayers = 4;
/// What rounding may add to a distance, and to the height of all layers.
constexpr double kDistanceSlackUm = 0.01;
constexpr double kHeightSlackMm = 0.0001;
constexpr double kSquareUmPerCm2 = 1e8;
/// What an area in a file may differ by: a unit of the formats, and what hosts make of smooth edges.
constexpr double kAreaSlackMm2 = 0.001;
constexpr double kAreaSlackShare = 0.01;

double usablePixel(double um) { return um > 0 && std::isfinite(um) ? um : kUnknownPixelUm; }

CheckJob usable(CheckJob job) {
    job.width = std::max(job.width, 1U);
    job.height = std::max(job.height, 1U);
    job.pixelXUm = usablePixel(job.pixelXUm);
    job.pixelYUm = usablePixel(job.pixelYUm);
    return job;
}

LabelledLines linesFor(const CheckJob& job) {
    const CheckJob valid = usable(job);
    return valid.linesAreColumns ? LabelledLines(valid.width, valid.height) : LabelledLines(valid.height, valid.width);
}

Reach reachFor(const CheckJob& job, const CheckOptions& options) {
    double distance = options.overhangUm;
    if (!(distance >= 0)) distance = std::max(kLeastOverhangUm, kOverhangLayers * knownLayerHeight(job) * 1000);
    distance += kDistanceSlackUm;
    return job.linesAreColumns ? Reach(job.pixelXUm, job.pixelYUm, distance, job.width, job.height)
                               : Reach(job.pixelYUm, job.pixelXUm, distance, job.height, job.width);
}

/// Walks along all lines of two layers. Calls as `visitOverlaps`, the second with line and segments.
template <class OnSame, class OnAbove>
void visitLayers(const LabelledLines& below, const LabelledLines& layer, OnSame onSame, OnAbove onAbove) {
    for (std::uint32_t index = 0; index < layer.lines(); ++index) {
        const LabelledLine belowLine = below.line(index);
        const LabelledLine line = layer.line(index);
        visitOverlaps(belowLine, line, onSame,
                      [&](std::size_t lit, std::size_t unlit) { onAbove(index, line, lit, belowLine, unlit); });
    }
}

/// Appends the parts of a layer's lit runs that lie less than `margin` from an edge.
void appendMargin(const LabelledLines& layer, std::int64_t margin, std::vector<LitRun>& runs) {
    if (margin <= 0) return;
    const auto outer = static_cast<std::uint32_t>(std::min<std::int64_t>(margin, UINT32_MAX / 2));
    const auto isInMargin = [outer](std::uint32_t place, std::uint32_t count) {
        return place < outer || std::uint64_t{place} + outer >= count;
    };
    const auto add = [&runs](std::uint32_t index, std::uint32_t begin, std::uint32_t end) {
        if (begin < end) runs.push_back({index, begin, end - 1});
    };
    const std::uint32_t length = layer.length();
    const std::uint32_t farMargin = length > outer ? length - outer : 0;
    for (std::uint32_t index = 0; index < layer.lines(); ++index) {
        const LabelledLine line = layer.line(index);
        if (isInMargin(index, layer.lines())) {
            for (std::size_t i = 1; i < line.ends.size(); i += 2) add(index, line.begin(i), line.ends[i]);
            continue;
        }
        for (std::size_t i = 1; i < line.ends.size() && line.begin(i) < outer; i += 2) {
            add(index, line.begin(i), std::min(line.ends[i], outer));
        }
        const std::size_t atEnd = runs.size();
        for (std::size_t i = line.ends.size() - 1; i > 0 && line.ends[i - 1] > farMargin; i -= 2) {
            // what is in both margins is there already
            add(index, std::max({line.begin(i - 1), farMargin, std::min(outer, length)}), line.ends[i - 1]);
        }
        std::reverse(runs.begin() + static_cast<std::ptrdiff_t>(atEnd), runs.end());
    }
}

std::string counted(std::int64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

struct Sum {
    std::uint64_t pixels = 0;
    LineBox box;
};

Sum sumOf(const std::vector<LitRun>& runs) {
    Sum sum;
    for (const LitRun& run : runs) {
        sum.pixels += run.last - run.first + 1;
        sum.box.add({run.line, run.line, run.first, run.last});
    }
    return sum;
}

/// Layers that follow each other and have something in common.
struct OpenRun {
    std::uint32_t firstLayer = 0;
    std::uint32_t lastLayer = 0;
    std::uint64_t mostPixels = 0;
    std::uint64_t voxels = 0;
    LineBox box;
};

}  // namespace

CheckLayer::CheckLayer(const CheckJob& job) : m_lines(new LabelledLines(linesFor(job))) {}
CheckLayer::~CheckLayer() = default;
CheckLayer::CheckLayer(CheckLayer&& other) noexcept = default;
CheckLayer& CheckLayer::operator=(CheckLayer&& other) noexcept = default;

bool CheckLayer::append(const LitRun* runs, std::size_t count) { return m_lines->append({runs, count}); }

bool CheckLayer::close() {
    m_lines->close();
    return m_lines->isSound();
}

void CheckLayer::closeUnknown() {
    m_lines->setUnknown();
    m_lines->close();
}

std::uint64_t CheckLayer::litPixels() const { return m_lines->litPixels(); }

bool CheckLayer::isEmpty() const { return m_lines->isEmpty(); }

std::vector<LitRun> CheckLayer::litRuns() const {
    std::vector<LitRun> runs;
    for (std::uint32_t index = 0; index < m_lines->closedLines(); ++index) {
        const LabelledLine line = m_lines->line(index);
        for (std::size_t i = 1; i < line.ends.size(); i += 2) runs.push_back({index, line.begin(i), line.ends[i] - 1});
    }
    return runs;
}

class CheckWork {
public:
    CheckWork(const CheckJob& job_, const CheckOptions& options_)
        : job(usable(job_)),
          options(options_),
          findings(job, options),
          bodies(options.keepPlaces),
          overhangs(reachFor(job, options)),
          below(linesFor(job)) {}

    const CheckJob job;
    const CheckOptions options;
    FindingList findings;
    Bodies bodies;
    OverhangFinder overhangs;
    LabelledLines below;
    std::uint32_t layers = 0;
    std::optional<OpenRun> emptyRun;
    std::optional<OpenRun> outsideRun;
    std::uint32_t wrongAreas = 0;
    std::string wrongArea;  ///< the first

    void joinLayer(const LabelledLines& layer);
    void addBody(Body& body);
    void addOverhangs(const LabelledLines& layer, const std::vector<std::uint8_t>& isSupported);
    void followEmpty(const LabelledLines& layer);
    void followOutside(const LabelledLines& layer);
    void comparePeak(const LabelledLines& layer);
    void endEmptyRun();
    void endOutsideRun();
    void compareHeight();
    void checkSettings();
    void addFault(CheckKind kind, std::string fault);
};

void CheckWork::addBody(Body& body) {
    const bool isTrap = body.end == BodyEnd::faded && body.firstLayer > 0;
    const CheckKind kind = body.isLit ? CheckKind::island : isTrap ? CheckKind::trap : CheckKind::cup;
    CheckFinding finding = FindingList::make(kind, body.firstLayer, body.lastLayer);
    findings.setPixels(finding, body.largestRegion);
    findings.setVoxels(finding, body.voxels);
    findings.setBox(finding, body.box);
    finding.places = std::move(body.places);
    std::sort(finding.places.begin(), finding.places.end(), [](const CheckPlace& a, const CheckPlace& b) {
        return a.layer != b.layer ? a.layer < b.layer : a.region < b.region;
    });
    findings.add(std::move(finding));
}

void CheckWork::joinLayer(const LabelledLines& layer) {
    bodies.begin(layer);
    std::vector<std::uint8_t> isSupported(layer.regions().size());
    overhangs.begin();
    if (layers > 0) {
        visitLayers(
            below, layer,
            [&](std::uint32_t belowRegion, std::uint32_t region, bool isLit) {
                bodies.join(belowRegion, region);
                if (isLit) isSupported[region] = 1;
            },
            [&](std::uint32_t index, const LabelledLine& line, std::size_t lit, const LabelledLine& belowLine,
                std::size_t unlit) { overhangs.addLine(index, line, lit, belowLine, unlit); });
    }
    for (Body& body : bodies.end(layer, layers)) addBody(body);
    if (findings.wants(CheckKind::overhang)) addOverhangs(layer, isSupported);
}

void CheckWork::addOverhangs(const LabelledLines& layer, const std::vector<std::uint8_t>& isSupported) {
    const std::vector<LitRun>& runs = overhangs.find(below, isSupported);
    if (runs.empty()) return;
    LabelledLines pieces(layer.lines(), layer.length());
    pieces.append(runs);
    pieces.close();
    for (std::uint32_t i = 0; i < pieces.regions().size(); ++i) {
        const Region& piece = pieces.regions()[i];
        if (!piece.isLit) continue;
        CheckFinding finding = FindingList::make(CheckKind::overhang, layers, layers);
        findings.setPixels(finding, piece.pixels);
        findings.setBox(finding, piece.box);
        if (options.keepPlaces) finding.places.push_back({layers, i});
        findings.add(std::move(finding));
    }
}

void CheckWork::endEmptyRun() {
    if (!emptyRun) return;
    CheckFinding finding = FindingList::make(CheckKind::empty, emptyRun->firstLayer, emptyRun->lastLayer);
    findings.setPixels(finding, 0);
    findings.add(std::move(finding));
    emptyRun.reset();
}

void CheckWork::followEmpty(const LabelledLines& layer) {
    if (!layer.isEmpty()) return endEmptyRun();
    if (!emptyRun) emptyRun = OpenRun{layers, layers, 0, 0, {}};
    emptyRun->lastLayer = layers;
}

void CheckWork::endOutsideRun() {
    if (!outsideRun) return;
    CheckFinding finding = FindingList::make(CheckKind::outside, outsideRun->firstLayer, outsideRun->lastLayer);
    findings.setPixels(finding, outsideRun->mostPixels);
    findings.setVoxels(finding, outsideRun->voxels);
    findings.setBox(finding, outsideRun->box);
    findings.add(std::move(finding));
    outsideRun.reset();
}

void CheckWork::followOutside(const LabelledLines& layer) {
    std::vector<LitRun> runs;
    appendMargin(layer, options.marginPx, runs);
    if (runs.empty()) return endOutsideRun();
    if (!outsideRun) outsideRun = OpenRun{layers, layers, 0, 0, {}};
    const Sum sum = sumOf(runs);
    outsideRun->lastLayer = layers;
    outsideRun->mostPixels = std::max(outsideRun->mostPixels, sum.pixels);
    outsideRun->voxels += sum.pixels;
    outsideRun->box.add(sum.box);
}

void CheckWork::comparePeak(const LabelledLines& layer) {
    const auto now = static_cast<double>(layer.litPixels());
    const auto before = static_cast<double>(below.litPixels());
    if (layers == 0 || !(now > options.jumpFactor * before)) return;
    if (!((now - before) * job.pixelXUm * job.pixelYUm / kSquareUmPerCm2 > options.jumpCm2)) return;
    CheckFinding finding = FindingList::make(CheckKind::peak, layers, layers);
    findings.setPixels(finding, layer.litPixels());
    LineBox box;
    for (const Region& region : layer.regions()) {
        if (region.isLit) box.add(region.box);
    }
    if (layer.litPixels() > 0) findings.setBox(finding, box);
    findings.add(std::move(finding));
}

void CheckWork::compareHeight() {
    const double thickness = knownLayerHeight(job);
    const double limit = job.machineHeightMm + kHeightSlackMm;
    if (!(job.machineHeightMm > 0) || !(layers * thickness > limit)) return;
    auto first = static_cast<std::uint32_t>(std::min(std::floor(limit / thickness), layers - 1.0));
    // the quotient is rounded
    while (first > 0 && first * thickness > limit) --first;
    while ((first + 1.0) * thickness <= limit) ++first;
    CheckFinding finding = FindingList::make(CheckKind::outside, first, layers - 1);
    findings.setPixels(finding, 0);
    findings.add(std::move(finding));
}

void CheckWork::addFault(CheckKind kind, std::string fault) {
    CheckFinding finding = FindingList::make(kind, -1, -1);
    finding.fault = std::move(fault);
    findings.add(std::move(finding));
}

void CheckWork::checkSettings() {
    if (job.printerWidth > 0 && job.printerHeight > 0 &&
        (job.printerWidth != job.width || job.printerHeight != job.height)) {
        const auto size = [](std::uint32_t x, std::uint32_t y) {
            return std::to_string(x) + " x " + std::to_string(y);
        };
        addFault(CheckKind::outside, "the job is made for " + size(job.width, job.height) +
                                         " pixels, the printer has " + size(job.printerWidth, job.printerHeight));
    }
    const bool hasBottom = job.bottomLayers != 0;
    if (job.exposureS == 0) addFault(CheckKind::settings, "the exposure is 0");
    if (job.bottomExposureS == 0 && hasBottom) addFault(CheckKind::settings, "the exposure of bottom layers is 0");
    if (job.lightPower == 0) addFault(CheckKind::settings, "the light power is 0");
    if (job.bottomLightPower == 0 && hasBottom) addFault(CheckKind::settings, "the light power of bottom layers is 0");
    if (job.layerHeightMm == 0) addFault(CheckKind::settings, "the layer height is 0");
    if (job.bottomLayers > layers) {
        addFault(CheckKind::settings,
                 counted(job.bottomLayers, "bottom layer") + ", but only " + counted(layers, "layer"));
    }
    if (wrongAreas > 0) {
        addFault(CheckKind::settings, "the areas of " + counted(wrongAreas, "layer") +
                                          " in the file are not those of what is lit, first of " + wrongArea);
    }
}

JobCheck::JobCheck(const CheckJob& job, const CheckOptions& options) : m_work(new CheckWork(job, options)) {}
JobCheck::~JobCheck() = default;

void JobCheck::addLayer(CheckLayer& layer) {
    layer.close();
    CheckWork& work = *m_work;
    LabelledLines lines = std::move(*layer.m_lines);
    if (lines.lines() != work.below.lines() || lines.length() != work.below.length()) lines = linesFor(work.job);
    lines.close();
    work.joinLayer(lines);
    work.followEmpty(lines);
    work.followOutside(lines);
    work.comparePeak(lines);
    work.below = std::move(lines);
    ++work.layers;
}

void JobCheck::compareArea(std::uint32_t layer, double storedMm2, double litMm2) {
    const double difference = std::fabs(storedMm2 - litMm2);
    if (difference <= std::max(kAreaSlackMm2, kAreaSlackShare * std::fabs(litMm2))) return;
    if (m_work->wrongAreas++ > 0) return;
    char text[120];
    std::snprintf(text, sizeof text, "layer %u: %.3f mm2 stored, %.3f mm2 lit", layer, storedMm2, litMm2);
    m_work->wrongArea = text;
}

std::vector<CheckFinding> JobCheck::finish() {
    CheckWork& work = *m_work;
    for (Body& body : work.bodies.finish()) work.addBody(body);
    work.endEmptyRun();
    work.endOutsideRun();
    work.compareHeight();
    work.checkSettings();
    return work.findings.takeSorted(work.layers);
}

std::string JobCheck::describe(const CheckFinding& finding) const { return describeFinding(m_work->job, finding); }

std::vector<LitRun> JobCheck::runsOf(const CheckFinding& finding, const CheckLayer* below, const CheckLayer& layer,
                                     std::uint32_t index) const {
    std::vector<LitRun> runs;
    if (index < finding.layer || index > finding.lastLayer) return runs;
    const LabelledLines* lines = layer.m_lines.get();
    std::optional<LabelledLines> pieces;
    if (finding.kind == CheckKind::overhang) {
        if (below == nullptr) return runs;
        OverhangFinder finder(reachFor(m_work->job, m_work->options));
        std::vector<std::uint8_t> isSupported(lines->regions().size());
        visitLayers(
            *below->m_lines, *lines,
            [&](std::uint32_t, std::uint32_t region, bool isLit) {
                if (isLit) isSupported[region] = 1;
            },
            [&](std::uint32_t at, const LabelledLine& line, std::size_t lit, const LabelledLine& belowLine,
                std::size_t unlit) { finder.addLine(at, line, lit, belowLine, unlit); });
        pieces.emplace(lines->lines(), lines->length());
        pieces->append(finder.find(*below->m_lines, isSupported));
        pieces->close();
        lines = &*pieces;
    } else if (finding.kind == CheckKind::outside) {
        appendMargin(*lines, finding.pixels > 0 ? m_work->options.marginPx : UINT32_MAX / 2, runs);
    } else if (finding.kind == CheckKind::peak) {
        appendMargin(*lines, UINT32_MAX / 2, runs);
    }
    for (const CheckPlace& place : finding.places) {
        if (place.layer == index) lines->appendRuns(place.region, runs);
    }
    std::sort(runs.begin(), runs.end(),
              [](const LitRun& a, const LitRun& b) { return a.line != b.line ? a.line < b.line : a.first < b.first; });
    return runs;
}

}  // namespace vndlp
