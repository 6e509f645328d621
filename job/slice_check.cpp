#include <vndlp/slice_check.h>

#include "job/layer_data.h"
#include "job/model.h"
#include "job/results.h"

#include <cmath>
#include <vector>

namespace vndlp {

namespace {

constexpr double kAssumedLayerHeightMm = 0.05;

double settingOr(const SliceFile& file, const char* key, double other) {
    double value = 0;
    return file.number(key, -1, value).isOk() ? value : other;
}

double knownOr(double value, double other) { return std::isfinite(value) ? value : other; }

// Areas in front of the layers of V1 and V3 files are no areas: those headers have none.
bool holdsAreas(const SliceInfo& info) { return info.format == SliceFormat::vndlpv4 || hasAreaTable(info.headerKind); }

SliceResult readShapes(const SliceFile& file, const CheckJob& job, std::uint32_t index, CheckLayer& lit) {
    SliceShapes shapes;
    SliceResult result = file.layerShapes(index, shapes);
    if (!result.isOk()) return result;
    std::vector<std::vector<Vec3i>> polylines;
    std::size_t point = 0;
    for (const std::uint32_t end : shapes.pathEnds) {
        std::vector<Vec3i>& polyline = polylines.emplace_back();
        for (; point < end; ++point) polyline.emplace_back(shapes.points[2 * point], shapes.points[2 * point + 1], 0);
    }
    const auto usable = [](double um) { return std::isfinite(um) && um > 0 ? um : 50; };
    const std::vector<LitRun> runs =
        litRunsOfPolylines(polylines, job.width, job.height, usable(job.pixelXUm), usable(job.pixelYUm));
    lit.append(runs.data(), runs.size());
    return {};
}

int append(void* lit, const LitRun* runs, std::size_t count) {
    return static_cast<CheckLayer*>(lit)->append(runs, count) ? 0 : 1;
}

}  // namespace

SliceResult checkJobOf(const SliceFile& file, CheckJob& job) {
    if (!file.isOpen()) return job::plain(SliceCode::argument);
    const SliceInfo& info = file.info();
    if (info.width == 0 || info.height == 0) return job::failure(SliceCode::size, "the file has no screen to check on");
    job = {};
    job.width = info.width;
    job.height = info.height;
    job.pixelXUm = knownOr(info.pixelXUm, 50);
    job.pixelYUm = knownOr(info.pixelYUm, 50);
    job.linesAreColumns = file.litAxis() == SliceAxis::columns;
    job.layerHeightMm = settingOr(file, "layer_height_mm", kAssumedLayerHeightMm);
    job.machineHeightMm = knownOr(info.sizeZMm, 0);
    job.exposureS = settingOr(file, "exposure_s", -1);
    job.bottomExposureS = settingOr(file, "bottom_exposure_s", -1);
    job.lightPower = settingOr(file, "pwm", -1);
    job.bottomLightPower = settingOr(file, "bottom_pwm", -1);
    job.bottomLayers = static_cast<std::int64_t>(settingOr(file, "bottom_layers", -1));
    return {};
}

SliceResult readCheckLayer(const SliceFile& file, const CheckJob& job, std::uint32_t index, int threshold,
                           FileCheckLayer& layer) {
    return job::guarded([&] {
        if (!file.isOpen()) return job::plain(SliceCode::argument);
        job::LayerPlace place;
        SliceResult result = job::placeOfLayer(file.state()->model, index, place);
        if (!result.isOk()) return result;
        layer.storedMm2 = holdsAreas(file.info()) ? place.area / 1000.0 : -1;
        result = file.info().layerKind == SliceLayers::images ? file.layerLit(index, threshold, append, &layer.lit)
                                                              : readShapes(file, job, index, layer.lit);
        layer.lit.close();
        return result;
    });
}

void addCheckLayer(JobCheck& check, const CheckJob& job, std::uint32_t index, FileCheckLayer& layer) {
    const auto lit = static_cast<double>(layer.lit.litPixels());
    check.addLayer(layer.lit);
    if (layer.storedMm2 >= 0) check.compareArea(index, layer.storedMm2, lit * job.pixelXUm * job.pixelYUm / 1e6);
}

}  // namespace vndlp
