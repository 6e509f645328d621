#include "job/settings_table.h"

#include <algorithm>
#include <iterator>

namespace vndlp::job {

namespace {

constexpr double kMost16 = 65535;
constexpr double kMostMm = 1e6;
constexpr double kMost32 = 4294967295.0;

constexpr unsigned bit(SliceFormat format) { return 1u << static_cast<unsigned>(format); }

/// A row as it is written down; the sets of formats follow from its places.
constexpr SettingRow row(const char* name, const char* unit, SliceValueType type, double least, double most,
                         const char* help, Place vndlp, Place vnline, Place ctb, Place v4,
                         const char* ctbLayer = nullptr, const char* v4Layer = nullptr) {
    SettingRow made{{name, unit, help, type, 0, 0, 0, least, most}, vndlp, vnline, ctb, v4, ctbLayer, v4Layer};
    const Place* places[] = {&vndlp, &vnline, &ctb, &v4};
    for (int i = 0; i < 4; ++i) {
        const unsigned format = 2u << static_cast<unsigned>(i);
        if (places[i]->field != nullptr) (places[i]->isFixed ? made.key.fixedFormats : made.key.formats) |= format;
    }
    if (ctbLayer != nullptr) made.key.layerFormats |= bit(SliceFormat::ctb);
    if (v4Layer != nullptr) made.key.layerFormats |= bit(SliceFormat::vndlpv4);
    return made;
}

constexpr Place at(const char* field, double perUnit = 1, Stored stored = Stored::number) {
    return {field, perUnit, stored, false, nullptr};
}
constexpr Place fixedAt(const char* field) { return {field, 1, Stored::number, true, nullptr}; }
constexpr Place twice(const char* field, const char* copy) { return {field, 1, Stored::number, false, copy}; }
constexpr Place nowhere() { return {}; }

constexpr auto kNumber = SliceValueType::number;
constexpr auto kInteger = SliceValueType::integer;
constexpr auto kText = SliceValueType::text;

constexpr SettingRow kRows[] = {
    row("machine", "", kText, 0, 0, "the printer's name, as its firmware expects it",
        at("DlpHeader.machine_type", 1, Stored::text), at("DlpHeader.machine_type", 1, Stored::text),
        at("SlicerInfo.machineName", 1, Stored::text), at("HeaderSettings.headerText2", 1, Stored::text)),
    row("resolution_x", "px", kInteger, 1, kMost16, "screen width", at("DlpHeader.resolution_x"),
        at("DlpHeader.resolution_x"), at("HeaderSettings.resolutionX"), at("HeaderSettings.resolutionX")),
    row("resolution_y", "px", kInteger, 1, kMost16, "screen height", at("DlpHeader.resolution_y"),
        at("DlpHeader.resolution_y"), at("HeaderSettings.resolutionY"), at("HeaderSettings.resolutionY")),
    row("display_width_mm", "mm", kNumber, 1e-3, kMostMm, "width of the screen",
        at("DlpParameters.platformX", 1, Stored::decimal), at("DlpParameters.platformX", 1, Stored::decimal),
        at("HeaderSettings.bedSizeX"), at("HeaderSettings.floatField0")),
    row("display_height_mm", "mm", kNumber, 1e-3, kMostMm, "height of the screen",
        at("DlpParameters.platformY", 1, Stored::decimal), at("DlpParameters.platformY", 1, Stored::decimal),
        at("HeaderSettings.bedSizeY"), at("HeaderSettings.floatField1")),
    row("machine_height_mm", "mm", kNumber, 0, 4e6, "build height", at("VndlpBackUse.machineHeightUm", 1000),
        at("VndlpBackUse.machineHeightUm", 1000), at("HeaderSettings.bedSizeZ"), at("HeaderSettings.floatField2")),
    row("layer_height_mm", "mm", kNumber, 1e-4, 100, "layer thickness",
        at("DlpParameters.thickness", 1, Stored::decimal), at("DlpParameters.thickness", 1, Stored::decimal),
        at("HeaderSettings.layerHeight"), at("HeaderSettings.floatField4")),
    row("exposure_s", "s", kNumber, 0, kMost16 / 10, "exposure of a layer", at("DlpParameters.exposure_time", 10),
        at("DlpParameters.exposure_time", 10), at("HeaderSettings.exposureTime"), at("HeaderSettings.tailFloat0"),
        "LayerDef.exposureTime", "LayerDef.exposureTime"),
    row("bottom_exposure_s", "s", kNumber, 0, kMost16, "exposure of a bottom layer",
        at("DlpParameters.first_exposure_time"), at("DlpParameters.first_exposure_time"),
        at("HeaderSettings.bottomExposureTime"), at("HeaderSettings.tailFloat1")),
    row("bottom_layers", "", kInteger, 0, kMost16, "number of bottom layers", at("DlpParameters.first_layer_count"),
        at("DlpParameters.first_layer_count"),
        twice("HeaderSettings.bottomLayerCount", "PrintParameters.bottomLayerCount"),
        twice("HeaderSettings.word0", "PrintParameters.bottomLayerCount")),
    row("transition_layers", "", kInteger, 0, kMost16, "layers between bottom and normal exposure", nowhere(),
        nowhere(), at("SlicerInfo.transitionLayerCount"), at("SlicerInfo.word60")),
    row("light_off_s", "s", kNumber, 0, kMost16, "wait with the light off after a layer",
        at("DlpParameters.light_off_delay"), at("DlpParameters.light_off_delay"), at("HeaderSettings.lightOffDelay"),
        at("HeaderSettings.tailFloat2"), "LayerDef.lightOffDelay", "LayerDef.lightOffDelay"),
    row("bottom_light_off_s", "s", kNumber, 0, kMost16, "the same after a bottom layer", nowhere(), nowhere(),
        at("PrintParameters.bottomLightOffDelay"), at("PrintParameters.bottomLightOffDelay")),
    row("bottom_lift_mm", "mm", kNumber, 0, kMost16, "lift after a bottom layer",
        at("DlpParameters.first_lift_distance"), at("DlpParameters.first_lift_distance"),
        at("PrintParameters.bottomLiftHeight"), at("PrintParameters.bottomLiftHeight")),
    row("bottom_lift_speed", "mm/min", kNumber, 0, kMost16, "speed of that lift", at("DlpParameters.first_lift_speed"),
        at("DlpParameters.first_lift_speed"), at("PrintParameters.bottomLiftSpeed"),
        at("PrintParameters.bottomLiftSpeed")),
    row("lift_mm", "mm", kNumber, 0, kMost16, "lift after a layer", at("DlpParameters.lifting_distance"),
        at("DlpParameters.lifting_distance"), at("PrintParameters.liftHeight"), at("PrintParameters.liftHeight"),
        "LayerDefEx.liftHeight", "LayerDefEx.liftHeight"),
    row("lift_speed", "mm/min", kNumber, 0, kMost16, "speed of that lift", at("DlpParameters.lifting_speed"),
        at("DlpParameters.lifting_speed"), at("PrintParameters.liftSpeed"), at("PrintParameters.liftSpeed"),
        "LayerDefEx.liftSpeed", "LayerDefEx.liftSpeed"),
    row("retract_speed", "mm/min", kNumber, 0, kMost16, "speed of the way back", at("DlpParameters.retract_speed"),
        at("DlpParameters.retract_speed"), at("PrintParameters.retractSpeed"), at("PrintParameters.retractSpeed"),
        "LayerDefEx.retractSpeed", "LayerDefEx.retractSpeed"),
    row("bottom_lift2_mm", "mm", kNumber, 0, kMost16, "second stage of the lift after a bottom layer", nowhere(),
        nowhere(), at("SlicerInfo.bottomLiftHeight2"), at("SlicerInfo.bottomLiftHeight2")),
    row("bottom_lift2_speed", "mm/min", kNumber, 0, kMost16, "its speed", nowhere(), nowhere(),
        at("SlicerInfo.bottomLiftSpeed2"), at("SlicerInfo.bottomLiftSpeed2")),
    row("lift2_mm", "mm", kNumber, 0, kMost16, "second stage of the lift after a layer", nowhere(), nowhere(),
        at("SlicerInfo.liftHeight2"), at("SlicerInfo.liftHeight2"), "LayerDefEx.liftHeight2", "LayerDefEx.liftHeight2"),
    row("lift2_speed", "mm/min", kNumber, 0, kMost16, "its speed", nowhere(), nowhere(), at("SlicerInfo.liftSpeed2"),
        at("SlicerInfo.liftSpeed2"), "LayerDefEx.liftSpeed2", "LayerDefEx.liftSpeed2"),
    row("retract2_mm", "mm", kNumber, 0, kMost16, "second stage of the way back", nowhere(), nowhere(),
        at("SlicerInfo.retractHeight2"), at("SlicerInfo.retractHeight2"), "LayerDefEx.retractHeight2",
        "LayerDefEx.retractHeight2"),
    row("retract2_speed", "mm/min", kNumber, 0, kMost16, "its speed", nowhere(), nowhere(),
        at("SlicerInfo.retractSpeed2"), at("SlicerInfo.retractSpeed2"), "LayerDefEx.retractSpeed2",
        "LayerDefEx.retractSpeed2"),
    row("rest_before_lift_s", "s", kNumber, 0, kMost16, "rest before the lift, of single layers", nowhere(), nowhere(),
        nowhere(), nowhere(), "LayerDefEx.restTimeBeforeLift", "LayerDefEx.restTimeBeforeLift"),
    row("rest_after_lift_s", "s", kNumber, 0, kMost16, "rest after the lift", nowhere(), nowhere(),
        at("SlicerInfo.restTimeAfterLift"), at("SlicerInfo.restTimeAfterLift"), "LayerDefEx.restTimeAfterLift",
        "LayerDefEx.restTimeAfterLift"),
    row("rest_after_lift2_s", "s", kNumber, 0, kMost16, "rest after the second stage of the lift", nowhere(), nowhere(),
        at("SlicerInfo.restTimeAfterLift2"), at("SlicerInfo.restTimeAfterLift2")),
    row("rest_after_retract_s", "s", kNumber, 0, kMost16, "rest after the way back", nowhere(), nowhere(),
        at("SlicerInfo.restTimeAfterRetract"), at("SlicerInfo.restTimeAfterRetract"), "LayerDefEx.restTimeAfterRetract",
        "LayerDefEx.restTimeAfterRetract"),
    row("bottom_pwm", "", kInteger, 0, 255, "light power of the bottom layers, 0 to 255",
        at("DlpParameters.firstBrightnessPVM"), at("DlpParameters.firstBrightnessPVM"),
        fixedAt("HeaderSettings.bottomLightPwm"), at("HeaderSettings.shortField1")),
    row("pwm", "", kNumber, 0, 255, "light power, 0 to 255", at("DlpParameters.brightnessPVM"),
        at("DlpParameters.brightnessPVM"), at("HeaderSettings.lightPwm"), at("HeaderSettings.shortField0"),
        "LayerDefEx.lightPwm", "LayerDefEx.lightPwm"),
    row("anti_aliasing", "", kInteger, 0, 1, "1 when grey levels smooth the edges",
        at("DlpSliceBasicParameters.enableAntiAliasing", 1, Stored::flag),
        at("DlpImageParam.enableAliasing", 1, Stored::flag), at("SlicerInfo.word44", 1, Stored::flag),
        at("SlicerInfo.word44", 1, Stored::flag)),
    row("min_grey", "", kInteger, 0, 255, "darkest grey of the anti-aliasing",
        at("DlpSliceBasicParameters.antiAliasingMixGray"), at("DlpImageParam.minGray"), nowhere(), nowhere()),
    row("max_grey", "", kInteger, 0, 255, "brightest grey of the anti-aliasing",
        at("DlpSliceBasicParameters.antiAliasingMaxGray"), at("DlpImageParam.maxGray"), nowhere(), nowhere()),
    row("blur_px", "px", kInteger, -2147483648.0, 2147483647.0, "blur of the edges", at("VndlpBackUse.blurPixel"),
        at("VndlpBackUse.blurPixel"), nowhere(), nowhere()),
    row("resin", "", kText, 0, 0, "the resin's name", at("DlpSliceBasicParameters.consumables", 1, Stored::text),
        nowhere(), nowhere(), nowhere()),
    row("resin_ml", "ml", kNumber, 0, 1e6, "resin the job uses", at("VndlpBackUse.totalVolume"),
        at("VndlpBackUse.totalVolume"), fixedAt("PrintParameters.volume"), at("PrintParameters.volume")),
    row("resin_g", "g", kNumber, 0, 1e6, "the same by weight", nowhere(), nowhere(), at("PrintParameters.weight"),
        at("PrintParameters.weight")),
    row("price", "", kNumber, 0, 1e9, "cost of the resin", nowhere(), nowhere(), fixedAt("PrintParameters.price"),
        at("PrintParameters.price")),
    row("print_time_s", "s", kInteger, 0, kMost32, "estimated print time", nowhere(), nowhere(),
        fixedAt("HeaderSettings.printTime"), at("HeaderSettings.word5")),
    row("model_x_mm", "mm", kNumber, -kMostMm, kMostMm, "size of the model along x", at("VndlpBackUse.sliceModelX"),
        at("VndlpBackUse.sliceModelX"), nowhere(), nowhere()),
    row("model_y_mm", "mm", kNumber, -kMostMm, kMostMm, "size of the model along y", at("VndlpBackUse.sliceModelY"),
        at("VndlpBackUse.sliceModelY"), nowhere(), nowhere()),
    row("model_z_mm", "mm", kNumber, -kMostMm, kMostMm, "size of the model along z", at("VndlpBackUse.sliceModelZ"),
        at("VndlpBackUse.sliceModelZ"), nowhere(), nowhere()),
    row("slicer", "", kText, 0, 0, "the slicer's name or version",
        at("DlpSliceBasicParameters.sliceSoftVersion", 1, Stored::text), nowhere(),
        at("SlicerInfo.slicerVersion", 1, Stored::version), at("SlicerInfo.word48", 1, Stored::version)),
};

}  // namespace

const Place& SettingRow::place(SliceFormat format) const {
    static constexpr Place none{};
    switch (format) {
        case SliceFormat::vndlp: return vndlp;
        case SliceFormat::vnline: return vnline;
        case SliceFormat::ctb: return ctb;
        case SliceFormat::vndlpv4: return v4;
        case SliceFormat::none: break;
    }
    return none;
}

const char* SettingRow::layerField(SliceFormat format) const {
    return format == SliceFormat::ctb ? ctbLayer : format == SliceFormat::vndlpv4 ? v4Layer : nullptr;
}

std::size_t settingCount() { return std::size(kRows); }

const SettingRow& settingRow(std::size_t index) { return kRows[index]; }

const SettingRow* findSetting(const std::string& key) {
    const auto* found =
        std::find_if(std::begin(kRows), std::end(kRows), [&](const SettingRow& r) { return key == r.key.name; });
    return found == std::end(kRows) ? nullptr : found;
}

}  // namespace vndlp::job

namespace vndlp {

const SliceKey* sliceKey(std::size_t index) {
    return index < job::settingCount() ? &job::settingRow(index).key : nullptr;
}

const SliceKey* findSliceKey(const std::string& name) {
    const job::SettingRow* row = job::findSetting(name);
    return row == nullptr ? nullptr : &row->key;
}

}  // namespace vndlp
