#include "job/check_findings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <tuple>
#include <utility>

namespace vndlp {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double kSquareUmPerMm2 = 1e6;
/// Smaller traps, cups and overhangs are notes. A little below 1, since pixel sizes are seldom exact in binary.
constexpr double kSmallMm2 = 1 - 1e-9;

template <class... Values>
std::string printed(const char* format, Values... values) {
    char text[160];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

CheckSeverity severityOf(const CheckFinding& finding, std::int64_t layers) {
    switch (finding.kind) {
        case CheckKind::island:
        case CheckKind::outside:
        case CheckKind::settings: return CheckSeverity::error;
        case CheckKind::empty: return finding.lastLayer + 1 < layers ? CheckSeverity::error : CheckSeverity::note;
        case CheckKind::peak: return CheckSeverity::warning;
        default: return finding.areaMm2 < kSmallMm2 ? CheckSeverity::note : CheckSeverity::warning;
    }
}

/// The voxels of a finding, or its pixels where it has none.
std::int64_t sizeOf(const CheckFinding& finding) {
    return std::max<std::int64_t>(finding.voxels >= 0 ? finding.voxels : finding.pixels, 0);
}

bool isBefore(const CheckFinding& a, const CheckFinding& b) {
    const auto key = [](const CheckFinding& f, std::int64_t size) {
        return std::tuple(f.severity, f.kind, -size, f.layer, f.yPx[0], f.xPx[0], f.lastLayer, f.yPx[1], f.xPx[1]);
    };
    return key(a, sizeOf(a)) < key(b, sizeOf(b));
}

const char* wordsFor(const CheckFinding& finding) {
    switch (finding.kind) {
        case CheckKind::island: return "hangs in the air";
        case CheckKind::trap: return "resin is sealed in";
        case CheckKind::cup: return "pulls a vacuum";
        case CheckKind::empty: return "nothing is lit";
        case CheckKind::overhang: return "too far from what is lit below";
        case CheckKind::outside: return finding.pixels > 0 ? "lit at the edge of the screen" : "above the build height";
        case CheckKind::peak: return "the lit area jumps";
        default: return "";
    }
}

std::string layersOf(const CheckJob& job, const CheckFinding& finding) {
    const auto first = static_cast<long long>(finding.layer);
    const auto last = static_cast<long long>(finding.lastLayer);
    const std::string layers =
        first == last ? printed("layer %lld", first) : printed("layers %lld to %lld", first, last);
    return layers + printed(", %.2f mm from the plate", static_cast<double>(finding.layer) * knownLayerHeight(job));
}

}  // namespace

const char* nameOf(CheckKind kind) {
    static constexpr const char* kNames[kCheckKinds] = {"island",   "trap",    "cup",  "empty",
                                                        "overhang", "outside", "peak", "settings"};
    return kNames[static_cast<int>(kind)];
}

const char* nameOf(CheckSeverity severity) {
    static constexpr const char* kNames[] = {"error", "warning", "note"};
    return kNames[static_cast<int>(severity)];
}

CheckFinding::CheckFinding() : areaMm2(kNone), volumeMl(kNone), centrePx{kNone, kNone} {}

double knownLayerHeight(const CheckJob& job) { return job.layerHeightMm > 0 ? job.layerHeightMm : 0; }

CheckFinding FindingList::make(CheckKind kind, std::int64_t layer, std::int64_t lastLayer) {
    CheckFinding finding;
    finding.kind = kind;
    finding.layer = layer;
    finding.lastLayer = lastLayer;
    return finding;
}

void FindingList::setPixels(CheckFinding& finding, std::uint64_t pixels) const {
    finding.pixels = static_cast<std::int64_t>(pixels);
    finding.areaMm2 = static_cast<double>(pixels) * m_job.pixelXUm * m_job.pixelYUm / kSquareUmPerMm2;
}

void FindingList::setVoxels(CheckFinding& finding, std::uint64_t voxels) const {
    finding.voxels = static_cast<std::int64_t>(voxels);
    const double areaMm2 = static_cast<double>(voxels) * m_job.pixelXUm * m_job.pixelYUm / kSquareUmPerMm2;
    finding.volumeMl = areaMm2 * knownLayerHeight(m_job) / 1000;
}

void FindingList::setBox(CheckFinding& finding, const LineBox& box) const {
    const auto set = [](std::int64_t(&range)[2], std::uint32_t first, std::uint32_t last) {
        range[0] = first;
        range[1] = last;
    };
    set(m_job.linesAreColumns ? finding.xPx : finding.yPx, box.firstLine, box.lastLine);
    set(m_job.linesAreColumns ? finding.yPx : finding.xPx, box.first, box.last);
    finding.centrePx[0] = static_cast<double>(finding.xPx[0] + finding.xPx[1]) / 2;
    finding.centrePx[1] = static_cast<double>(finding.yPx[0] + finding.yPx[1]) / 2;
}

void FindingList::add(CheckFinding finding) {
    if (!wants(finding.kind)) return;
    if (finding.pixels > 0 && finding.pixels < m_options.minPixels) return;
    m_findings.push_back(std::move(finding));
}

std::vector<CheckFinding> FindingList::takeSorted(std::int64_t layers) {
    for (CheckFinding& finding : m_findings) finding.severity = severityOf(finding, layers);
    std::stable_sort(m_findings.begin(), m_findings.end(), isBefore);
    return std::exchange(m_findings, {});
}

std::string describeFinding(const CheckJob& job, const CheckFinding& finding) {
    std::string text = std::string(nameOf(finding.kind)) + ": ";
    if (!finding.fault.empty()) return text + finding.fault;
    text += layersOf(job, finding) + ": " + wordsFor(finding);
    if (finding.xPx[0] >= 0) {
        text += printed(", at %.2f, %.2f mm (pixel %.0f, %.0f)", (finding.centrePx[0] + 0.5) * job.pixelXUm / 1000,
                        (finding.centrePx[1] + 0.5) * job.pixelYUm / 1000, std::floor(finding.centrePx[0]),
                        std::floor(finding.centrePx[1]));
    }
    if (finding.pixels > 0) {
        text += printed(finding.pixels == 1 ? ", %lld pixel, %.3f mm2" : ", %lld pixels, %.3f mm2",
                        static_cast<long long>(finding.pixels), finding.areaMm2);
    }
    if (finding.voxels > 0) text += printed(", %.4f ml", finding.volumeMl);
    return text;
}

}  // namespace vndlp
