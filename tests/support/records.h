/// The members of the records by name: `visitRecord(record, visit)` calls `visit(name, member)` for each.

#pragma once

#include <vndlp/vndlp.h>

#include <sstream>
#include <string>

namespace vndlp::test {

template <class Visit, class... Member>
void visitMembers(Visit&& visit, const char* text, Member&... members) {
    std::istringstream names(text);
    const auto next = [&names] {
        std::string name;
        std::getline(names, name, ',');
        return name.substr(name.rfind('.') + 1);
    };
    (visit(next(), members), ...);
}

}  // namespace vndlp::test

/// Members given as `record.member`.
#define VNDLP_VISIT(...) ::vndlp::test::visitMembers(visit, #__VA_ARGS__, __VA_ARGS__)

namespace vndlp {
template <class V>
void visitRecord(VndlpBackUse& r, V&& visit) {
    VNDLP_VISIT(r.machineHeightUm, r.flags, r.supportDensity, r.blurPixel, r.lineExposureTime, r.totalVolume,
                r.sliceModelX, r.sliceModelY, r.sliceModelZ, r.reserved);
}
template <class V>
void visitRecord(DlpV1Header& r, V&& visit) {
    VNDLP_VISIT(r.layerCount, r.resolution_x, r.resolution_y, r.smallPreview, r.largePreview);
}
template <class V>
void visitRecord(DlpV3Header& r, V&& visit) {
    VNDLP_VISIT(r.smallPreview, r.secondPreview, r.thirdPreview, r.z_begin, r.z_end, r.layerCount, r.resolution_x,
                r.resolution_y);
}
template <class Header, class V>
void visitVersioned(Header& r, V&& visit) {
    VNDLP_VISIT(r.versionCode, r.machine_type, r.layerCount, r.resolution_x, r.resolution_y, r.smallPreview,
                r.middlePreview, r.largePreview);
    visitRecord(r.backUse, visit);
}
template <class V>
void visitRecord(DlpV2Header& r, V&& visit) {
    visitVersioned(r, visit);
}
template <class V>
void visitRecord(DlpV2LineHeader& r, V&& visit) {
    visitVersioned(r, visit);
}
template <class V>
void visitRecord(DlpParameters& r, V&& visit) {
    VNDLP_VISIT(r.platformX, r.platformY, r.thickness, r.exposure_time, r.light_off_delay, r.first_exposure_time,
                r.first_layer_count, r.first_lift_distance, r.first_lift_speed, r.lifting_distance, r.lifting_speed,
                r.retract_speed, r.firstBrightnessPVM, r.brightnessPVM);
}
template <class V>
void visitRecord(DlpSliceBasicParameters& r, V&& visit) {
    VNDLP_VISIT(r.sliceSoftVersion, r.consumables, r.enableBOffset, r.bOffsetThickness, r.bOffsetFocalLength,
                r.enableXYCompensation, r.XYCompensation, r.enableZCompensation, r.ZCompensation, r.enableAntiAliasing,
                r.antiAliasingMixGray, r.antiAliasingMaxGray, r.enableImageBlur, r.imageBlurPixelNum);
}
template <class V>
void visitRecord(DlpImageParam& r, V&& visit) {
    VNDLP_VISIT(r.zThrough, r.enableAliasing, r.minGray, r.maxGray);
}

}  // namespace vndlp

namespace CTB {
template <class V>
void visitRecord(HeaderSettings& r, V&& visit) {
    VNDLP_VISIT(r.magic, r.version, r.bedSizeX, r.bedSizeY, r.bedSizeZ, r.reserved20, r.reserved24, r.totalHeight,
                r.layerHeight, r.exposureTime, r.bottomExposureTime, r.lightOffDelay, r.bottomLayerCount, r.resolutionX,
                r.resolutionY, r.previewLargeOffset, r.layerDefOffset, r.layerCount, r.previewSmallOffset, r.printTime,
                r.projectorType, r.printParametersOffset, r.printParametersSize, r.antiAliasLevel, r.lightPwm,
                r.bottomLightPwm, r.encryptionKey, r.slicerInfoOffset, r.slicerInfoSize);
}
template <class V>
void visitRecord(PreView& r, V&& visit) {
    VNDLP_VISIT(r.resolutionX, r.resolutionY, r.imageOffset, r.imageSize, r.reserved16, r.reserved20, r.reserved24,
                r.reserved28, r.imageData);
}
template <class V>
void visitRecord(PrintParameters& r, V&& visit) {
    VNDLP_VISIT(r.bottomLiftHeight, r.bottomLiftSpeed, r.liftHeight, r.liftSpeed, r.retractSpeed, r.volume, r.weight,
                r.price, r.bottomLightOffDelay, r.lightOffDelay, r.bottomLayerCount, r.reserved44, r.reserved48,
                r.reserved52, r.reserved56);
}
template <class V>
void visitRecord(SlicerInfo& r, V&& visit) {
    VNDLP_VISIT(r.bottomLiftHeight2, r.bottomLiftSpeed2, r.liftHeight2, r.liftSpeed2, r.retractHeight2, r.retractSpeed2,
                r.restTimeAfterLift, r.machineNameOffset, r.machineNameSize, r.settingsFlags, r.word40, r.word44,
                r.slicerVersion, r.restTimeAfterRetract, r.restTimeAfterLift2, r.transitionLayerCount, r.word64,
                r.word68, r.word72, r.machineName);
}
template <class V>
void visitRecord(LayerDef& r, V&& visit) {
    VNDLP_VISIT(r.positionZ, r.exposureTime, r.lightOffDelay, r.dataOffset, r.dataSize, r.pageNumber, r.tableSize,
                r.reserved28, r.reserved32);
}
template <class V>
void visitRecord(LayerDefEx& r, V&& visit) {
    visitRecord(r.layerDef, visit);
    VNDLP_VISIT(r.totalSize, r.liftHeight, r.liftSpeed, r.liftHeight2, r.liftSpeed2, r.retractSpeed, r.retractHeight2,
                r.retractSpeed2, r.restTimeBeforeLift, r.restTimeAfterLift, r.restTimeAfterRetract, r.lightPwm);
}

}  // namespace CTB

namespace VNDLPV4 {
template <class V>
void visitRecord(HeaderSettings& r, V&& visit) {
    VNDLP_VISIT(r.headerText1, r.version, r.headerText2, r.resolutionX, r.resolutionY, r.floatField0, r.floatField1,
                r.floatField2, r.floatField3, r.floatField4, r.word0, r.previewLargeOffset, r.layerDefOffset,
                r.layerCount, r.previewSmallOffset, r.word5, r.word6, r.printParametersOffset, r.word8, r.word9,
                r.shortField0, r.shortField1, r.encryptionKey, r.slicerInfoOffset, r.word12, r.tailFloat0, r.tailFloat1,
                r.tailFloat2);
}
template <class V>
void visitRecord(PreView& r, V&& visit) {
    VNDLP_VISIT(r.resolutionX, r.resolutionY, r.imageOffset, r.imageSize, r.reserved16, r.reserved20, r.reserved24,
                r.reserved28, r.imageData);
}
template <class V>
void visitRecord(PrintParameters& r, V&& visit) {
    VNDLP_VISIT(r.bottomLiftHeight, r.bottomLiftSpeed, r.liftHeight, r.liftSpeed, r.retractSpeed, r.volume, r.weight,
                r.price, r.bottomLightOffDelay, r.lightOffDelay, r.bottomLayerCount, r.reserved44, r.reserved48,
                r.reserved52, r.reserved56, r.reserved60, r.word64);
}
template <class V>
void visitRecord(SlicerInfo& r, V&& visit) {
    VNDLP_VISIT(r.bottomLiftHeight2, r.bottomLiftSpeed2, r.liftHeight2, r.liftSpeed2, r.retractHeight2, r.retractSpeed2,
                r.restTimeAfterLift, r.word28, r.word32, r.word36, r.word40, r.word44, r.word60, r.word48,
                r.restTimeAfterRetract, r.restTimeAfterLift2, r.word64, r.word68, r.word72);
}
template <class V>
void visitRecord(LayerDef& r, V&& visit) {
    VNDLP_VISIT(r.positionZ, r.exposureTime, r.lightOffDelay, r.dataOffset, r.dataSize, r.pageNumber, r.tableSize,
                r.reserved28, r.extensionFlag, r.word36, r.extension0, r.extension1, r.extension2, r.extension3,
                r.extension4, r.extension5, r.extension6, r.extension7, r.extension8, r.extension9);
}
template <class V>
void visitRecord(LayerDefEx& r, V&& visit) {
    VNDLP_VISIT(r.liftHeight, r.liftSpeed, r.liftHeight2, r.liftSpeed2, r.retractSpeed, r.retractHeight2,
                r.retractSpeed2, r.restTimeBeforeLift, r.restTimeAfterLift, r.restTimeAfterRetract, r.lightPwm);
}

}  // namespace VNDLPV4

#undef VNDLP_VISIT
