#include "job/estimate.h"

#include "job/layer_data.h"
#include "job/settings.h"
#include "printtime/quiet_estimate.h"

#include <cmath>
#include <limits>

namespace vndlp::job {

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double kUm2OfArea = 1000;  // an area value counts thousandths of a mm^2

/// The settings a layer prints with: its own, else the file's, else 0.
class LayerSettings {
public:
    LayerSettings(const Model& model, std::uint32_t layer, bool isBottom)
        : m_model(model), m_layer(layer), m_isBottom(isBottom) {}

    /// \param bottomKey what bottom layers have in place of `key`; null: the same.
    [[nodiscard]] double operator()(const char* key, const char* bottomKey = nullptr) const {
        double value = 0;
        const SettingRow& row = *findSetting(key);
        if (row.layerField(m_model.info.format) != nullptr && readNumber(m_model, row, m_layer, value).isOk()) {
            return std::max(value, 0.0);
        }
        if (m_isBottom && bottomKey != nullptr && readNumber(m_model, *findSetting(bottomKey), -1, value).isOk()) {
            return std::max(value, 0.0);
        }
        return readNumber(m_model, row, -1, value).isOk() ? std::max(value, 0.0) : 0;
    }

private:
    const Model& m_model;
    std::uint32_t m_layer;
    bool m_isBottom;
};

double moveSeconds(double mm, double mmPerMinute) { return mm > 0 && mmPerMinute > 0 ? mm / mmPerMinute * 60 : 0; }

double layerSeconds(const Model& model, std::uint32_t layer, bool isBottom) {
    const LayerSettings setting(model, layer, isBottom);
    double seconds = std::round(setting("exposure_s", "bottom_exposure_s") * 10) / 10;
    seconds += setting("light_off_s", "bottom_light_off_s");
    for (const char* rest : {"rest_before_lift_s", "rest_after_lift_s", "rest_after_lift2_s", "rest_after_retract_s"}) {
        seconds += setting(rest);
    }
    const double lift = setting("lift_mm", "bottom_lift_mm");
    const double lift2 = setting("lift2_mm", "bottom_lift2_mm");
    const double retract2 = std::min(setting("retract2_mm"), lift + lift2);
    seconds += moveSeconds(lift, setting("lift_speed", "bottom_lift_speed"));
    seconds += moveSeconds(lift2, setting("lift2_speed", "bottom_lift2_speed"));
    seconds += moveSeconds(lift + lift2 - retract2, setting("retract_speed"));
    return seconds + moveSeconds(retract2, setting("retract2_speed"));
}

double movesSeconds(const Model& model) {
    double bottomLayers = 0;
    if (!readNumber(model, *findSetting("bottom_layers"), -1, bottomLayers).isOk()) bottomLayers = 0;
    double seconds = 0;
    const bool areAlike = model.info.format == SliceFormat::vndlp || model.info.format == SliceFormat::vnline;
    if (areAlike) {
        const double bottom = std::min<double>(bottomLayers, model.info.layers);
        return bottom * layerSeconds(model, 0, true) + (model.info.layers - bottom) * layerSeconds(model, 0, false);
    }
    // those that are there: a damaged count may say any number
    const auto layers = static_cast<std::uint32_t>(model.layers().layers.size());
    for (std::uint32_t i = 0; i < layers; ++i) seconds += layerSeconds(model, i, i < bottomLayers);
    return seconds;
}

double fileNumber(const Model& model, const char* key) {
    double value = 0;
    return readNumber(model, *findSetting(key), -1, value).isOk() ? value : 0;
}

/// The library's model of the job's machine; none for machines it does not know.
QuietEstimate machineEstimate(const Model& model, const std::vector<double>& areasMm2) {
    constexpr double kM33AreasPerMm2 = 0.01;  // its bands count cm^2
    std::string machine;
    if (!readText(model, *findSetting("machine"), machine).isOk()) return {};
    CPrinterTime job;
    job.setMachineName(machine);
    const auto number = [&model](const char* key) { return static_cast<float>(fileNumber(model, key)); };
    job.setExposure(number("exposure_s"));
    job.setFirstLayerExposure(number("bottom_exposure_s"));
    job.setFirstLayerNum(static_cast<int>(std::min(fileNumber(model, "bottom_layers"), 65535.0)));
    job.setLightOffDelay(number("light_off_s"));
    job.setLiftHeight(number("lift_mm"));
    // those that are there: a damaged count may say any number
    job.setLayerCount(static_cast<int>(areasMm2.size()));
    job.setLayerHeight(static_cast<float>(model.layerHeightMm));
    job.setResolution(static_cast<float>(model.info.width), static_cast<float>(model.info.height));
    job.setPixel(static_cast<float>(model.info.pixelXUm / 1000), static_cast<float>(model.info.pixelYUm / 1000));
    std::vector<double> areas = areasMm2;
    for (double& area : areas) area *= job.m_machineName == "M33" ? kM33AreasPerMm2 : kUm2OfArea;
    job.setMaxAreaLineArea(std::move(areas));
    return estimateQuietly(job);
}

}  // namespace

SliceResult layerAreas(const Model& model, const ProgressSink& progress, std::vector<double>& areasMm2) {
    const std::vector<LayerPlace>& layers = model.layers().layers;
    areasMm2.clear();
    areasMm2.reserve(layers.size());
    const bool areStored = model.info.format == SliceFormat::vndlpv4 || hasAreaTable(model.info.headerKind);
    for (std::uint32_t i = 0; i < layers.size(); ++i) {
        if (areStored) {
            areasMm2.push_back(layers[i].area / kUm2OfArea);
            continue;
        }
        if (!progress(i, layers.size())) return plain(SliceCode::stopped);
        LayerPlace place;
        LayerCounts counts;
        SliceResult result = placeOfImage(model, i, place);
        if (result.isOk()) result = countData(model, i, place, counts);
        if (!result.isOk() && result.code != SliceCode::damaged) return result;
        areasMm2.push_back(result.isOk() ? static_cast<double>(counts.lit) * model.pixelAreaMm2 : 0);
    }
    return done();
}

SliceResult estimateJob(const Model& model, const ProgressSink& progress, SliceEstimate& estimate) {
    estimate = {};
    estimate.fileS = kNone;
    double fileSeconds = 0;
    if (readNumber(model, *findSetting("print_time_s"), -1, fileSeconds).isOk()) estimate.fileS = fileSeconds;
    std::vector<double> areas;
    SliceResult result = layerAreas(model, progress, areas);
    if (!result.isOk()) return result;
    double area = 0;
    for (const double one : areas) area += one;
    estimate.volumeMl = area * model.layerHeightMm / 1000;
    const QuietEstimate byMachine = machineEstimate(model, areas);
    estimate.model = byMachine.model != nullptr ? byMachine.model : "moves";
    estimate.estimateS = byMachine.model != nullptr ? byMachine.seconds : movesSeconds(model);
    return result;
}

}  // namespace vndlp::job
