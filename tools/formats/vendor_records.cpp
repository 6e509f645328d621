#include "tools/formats/vendor_records.h"

#include <cmath>

namespace vndlp::tools {

namespace {

unsigned short field(const PrintSettings& s, const char* key) { return static_cast<unsigned short>(s.whole(key)); }

}  // namespace

DlpParameters parametersOf(const PrintSettings& s) {
    DlpParameters p;
    p.platformX = shortNumber(s.number("display_width_mm"));
    p.platformY = shortNumber(s.number("display_height_mm"));
    p.thickness = shortNumber(s.number("layer_height_mm"));
    p.exposure_time = static_cast<unsigned short>(std::lround(s.number("exposure_s") * 10));
    p.light_off_delay = field(s, "light_off_s");
    p.first_exposure_time = field(s, "bottom_exposure_s");
    p.first_layer_count = field(s, "bottom_layers");
    p.first_lift_distance = field(s, "bottom_lift_mm");
    p.first_lift_speed = field(s, "bottom_lift_speed");
    p.lifting_distance = field(s, "lift_mm");
    p.lifting_speed = field(s, "lift_speed");
    p.retract_speed = field(s, "retract_speed");
    p.firstBrightnessPVM = field(s, "bottom_pwm");
    p.brightnessPVM = field(s, "pwm");
    return p;
}

DlpSliceBasicParameters sliceParametersOf(const PrintSettings& s) {
    DlpSliceBasicParameters p;
    p.sliceSoftVersion = "vndlp " VNDLP_VERSION;
    p.consumables = s.text("resin");
    p.enableAntiAliasing = static_cast<unsigned char>(s.whole("anti_aliasing"));
    p.antiAliasingMixGray = static_cast<unsigned char>(s.whole("min_grey"));
    p.antiAliasingMaxGray = static_cast<unsigned char>(s.whole("max_grey"));
    return p;
}

double pixelAreaOf(const PrintSettings& settings, int width, int height) {
    return settings.number("display_width_mm") * 1000 / width * settings.number("display_height_mm") * 1000 / height;
}

}  // namespace vndlp::tools
