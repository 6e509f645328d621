#include <vndlp/check_file.h>
#include <vndlp/formats.h>

#include "job/model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace vndlp {

namespace {

constexpr int kFormatThreshold = 15;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double kSquareUmPerMm2 = 1e6;
/// Areas of lines are often those of the image the lines were traced from. Its edges may be so soft.
constexpr double kSoftEdgePixels = 2;

double numberOr(const SliceFile& file, const char* key, double fallback) {
    double value = 0;
    return file.number(key, -1, value).isOk() && std::isfinite(value) ? value : fallback;
}

/// What is inside closed polylines whose holes run counter to their outlines, um^2.
double areaInside(const std::vector<std::vector<Vec3i>>& polylines) {
    double doubled = 0;
    for (const std::vector<Vec3i>& p : polylines) {
        if (p.empty() || p.front().x != p.back().x || p.front().y != p.back().y) continue;
        for (std::size_t i = 1; i < p.size(); ++i) {
            // from the first point, so that large coordinates keep their precision
            const double x0 = static_cast<double>(p[i - 1].x) - p[0].x;
            const double y0 = static_cast<double>(p[i - 1].y) - p[0].y;
            doubled += x0 * (static_cast<double>(p[i].y) - p[0].y) - (static_cast<double>(p[i].x) - p[0].x) * y0;
        }
    }
    return std::fabs(doubled) / 2;
}

std::vector<std::vector<Vec3i>> polylinesOf(const SliceShapes& shapes) {
    std::vector<std::vector<Vec3i>> polylines;
    polylines.reserve(shapes.pathEnds.size());
    std::size_t point = 0;
    for (const std::uint32_t end : shapes.pathEnds) {
        std::vector<Vec3i> polyline;
        polyline.reserve(end - point);
        for (; point < end; ++point) polyline.emplace_back(shapes.points[2 * point], shapes.points[2 * point + 1], 0);
        polylines.push_back(std::move(polyline));
    }
    return polylines;
}

SliceResult readShapes(const SliceFile& file, const CheckJob& job, std::uint32_t layer, CheckLayer& out,
                       double& areaMm2) {
    SliceShapes shapes;
    SliceResult result = file.layerShapes(layer, shapes);
    if (!result.isOk()) return result;
    areaMm2 = kNone;
    if (shapes.kind == SliceLayers::paths) {
        const std::vector<std::vector<Vec3i>> polylines = polylinesOf(shapes);
        const std::vector<LitRun> runs =
            litRunsOfPolylines(polylines, job.width, job.height, job.pixelXUm, job.pixelYUm);
        out.append(runs.data(), runs.size());
        areaMm2 = areaInside(polylines) / kSquareUmPerMm2;
    }
    // vertices do not say which of them are a triangle's
    if (!shapes.vertices.empty()) out.closeUnknown();
    out.close();
    return result;
}

/// What the area of an image may have more or less than its outlines, where soft edges count whole.
double edgeMm2(const SliceFile& file, std::uint32_t layer) {
    SliceShapes shapes;
    if (!file.layerShapes(layer, shapes).isOk()) return 0;
    double lengthUm = 0;
    for (const std::vector<Vec3i>& polyline : polylinesOf(shapes)) {
        for (std::size_t i = 1; i < polyline.size(); ++i) {
            lengthUm += std::hypot(static_cast<double>(polyline[i].x) - polyline[i - 1].x,
                                   static_cast<double>(polyline[i].y) - polyline[i - 1].y);
        }
    }
    const CheckJob job = checkJobOf(file);
    return kSoftEdgePixels * lengthUm * std::max(job.pixelXUm, job.pixelYUm) / kSquareUmPerMm2;
}

double pixelMm2(const SliceInfo& info) { return info.pixelXUm * info.pixelYUm / kSquareUmPerMm2; }

}  // namespace

CheckJob checkJobOf(const SliceFile& file) {
    const SliceInfo& info = file.info();
    CheckJob job;
    job.width = info.width;
    job.height = info.height;
    if (info.pixelXUm > 0) job.pixelXUm = info.pixelXUm;
    if (info.pixelYUm > 0) job.pixelYUm = info.pixelYUm;
    job.linesAreColumns = file.litAxis() == SliceAxis::columns;
    job.layerHeightMm = numberOr(file, "layer_height_mm", -1);
    job.machineHeightMm = numberOr(file, "machine_height_mm", 0);
    job.exposureS = numberOr(file, "exposure_s", -1);
    job.bottomExposureS = numberOr(file, "bottom_exposure_s", -1);
    job.lightPower = numberOr(file, "pwm", -1);
    job.bottomLightPower = numberOr(file, "bottom_pwm", -1);
    job.bottomLayers = static_cast<std::int64_t>(numberOr(file, "bottom_layers", -1));
    return job;
}

SliceResult readCheckLayer(const SliceFile& file, const CheckJob& job, std::uint32_t layer, int threshold,
                           CheckLayer& out, double& areaMm2) {
    if (file.info().layerKind != SliceLayers::images) return readShapes(file, job, layer, out, areaMm2);
    const auto take = [](void* context, const LitRun* runs, std::size_t count) {
        return static_cast<CheckLayer*>(context)->append(runs, count) ? 0 : 1;
    };
    SliceResult result = file.layerLit(layer, threshold, take, &out);
    if (!result.isOk()) return result;
    out.close();
    auto lit = static_cast<double>(out.litPixels());
    if (threshold != kFormatThreshold) {
        SliceLayerFacts facts;
        result = file.layerFacts(layer, facts);
        if (!result.isOk()) return result;
        lit = static_cast<double>(facts.litPixels);
    }
    areaMm2 = lit * pixelMm2(file.info());
    return result;
}

void compareAreas(const SliceFile& file, std::uint32_t layer, double areaMm2, double litMm2, JobCheck& check) {
    const SliceInfo& info = file.info();
    const bool holdsAreas = info.format == SliceFormat::vndlpv4 || hasAreaTable(info.headerKind);
    const std::vector<job::LayerPlace>& places = file.state()->model.layers().layers;
    if (!holdsAreas || layer >= places.size() || std::isnan(areaMm2)) return;
    const auto nearest = [&](double storedMm2) {
        return std::fabs(storedMm2 - litMm2) < std::fabs(storedMm2 - areaMm2) ? litMm2 : areaMm2;
    };
    double worst = places[layer].area / 1000.0;
    SliceRawField field;
    if (file.raw("AreaTable." + std::to_string(layer) + ".area", field).isOk()) {
        const double inTable = static_cast<double>(field.integer) / 1000;
        if (std::fabs(inTable - nearest(inTable)) > std::fabs(worst - nearest(worst))) worst = inTable;
    }
    const double own = nearest(worst);
    const bool mayBeTraced = info.format == SliceFormat::vnline && worst != own;
    if (!mayBeTraced || std::fabs(worst - own) > edgeMm2(file, layer)) check.compareArea(layer, worst, own);
}

SliceResult checkSliceFile(const SliceFile& file, const CheckOptions& options, std::vector<CheckFinding>& findings,
                           SliceProgressFn progress, void* context) {
    const CheckJob job = checkJobOf(file);
    const std::uint32_t layers = file.info().layers;
    JobCheck check(job, options);
    for (std::uint32_t i = 0; i < layers; ++i) {
        CheckLayer layer(job);
        double areaMm2 = 0;
        SliceResult result = readCheckLayer(file, job, i, options.threshold, layer, areaMm2);
        if (!result.isOk()) return result;
        const double litMm2 = static_cast<double>(layer.litPixels()) * pixelMm2(file.info());
        check.addLayer(layer);
        compareAreas(file, i, areaMm2, litMm2, check);
        if (progress == nullptr || progress(context, i + 1, layers) == 0) continue;
        result.code = SliceCode::stopped;
        return result;
    }
    findings = check.finish();
    return {};
}

}  // namespace vndlp
