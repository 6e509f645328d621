/// What the two flat parameter records have in common on their way into a file structure.

#pragma once

#include <vndlp/container.h>
#include "io/decimal.h"

#include <string>

namespace vndlp {

/// Bits of a wrapper that tell what was set; all four are needed before the head can be written.
enum ReadyFlag : unsigned int {
    kParametersSet = 1,
    kSmallPreviewSet = 2,
    kFirstLargePreviewSet = 4,
    kSecondLargePreviewSet = 8,
    kAllSet = 15,
};

/// Takes over what `DlpV2ParamWrapper` and `DlpLineV2ParamWrapper` name alike; the structure's header kind must be set.
template <class Param>
void applyCommonParam(const Param& p, const std::string& machineType, DlpFileStructure& s) {
    const auto low16 = [](auto value) { return static_cast<unsigned short>(value); };
    s.setVersionCode(low16(p.versionCode));
    s.setMachineType(machineType);
    s.setLayerCount(p.layerCount);
    s.setResolution(p.resolutionX, p.resolutionY);
    if (VndlpBackUse* backUse = s.getVndlpBackUse()) {
        backUse->setMachineHeight(p.machineHeight);
        backUse->setEnableXYCompensate(p.enableXYCompensate != 0);
        backUse->setAutoAllSupport(p.autoAllSupport != 0);
        backUse->setSupportPad(p.supportPad != 0);
        backUse->settSupportDensity(p.supportDensity);
    }
    DlpParameters& out = s.parameters;
    out.platformX = sixDecimals(p.platformX);
    out.platformY = sixDecimals(p.platformY);
    out.thickness = sixDecimals(p.thickness);
    out.exposure_time = low16(p.exposure_time);
    out.light_off_delay = low16(p.light_off_delay);
    out.first_exposure_time = low16(p.first_exposure_time);
    out.first_layer_count = low16(p.first_layer_count);
    out.first_lift_distance = low16(p.first_lift_distance);
    out.first_lift_speed = low16(p.first_lift_speed);
    out.lifting_distance = low16(p.lifting_distance);
    out.lifting_speed = low16(p.lifting_speed);
    out.retract_speed = low16(p.retract_speed);
    out.firstBrightnessPVM = low16(p.firstBrightnessPVM);
    out.brightnessPVM = low16(p.brightnessPVM);
}

}  // namespace vndlp
