/// The fields of every record in file order: the one list that reading, writing and measuring are made from.

#pragma once

#include <vndlp/ctb.h>
#include "io/record_layout.h"

namespace CTB {

using vndlp::Field;
using vndlp::Forced;

/// Written as an integer, but read as a float whose fraction is dropped: kept, since files are read so everywhere.
struct ReadAsFloat {
    using Read = float;
    /// 0 for what no count can hold.
    static unsigned int fromRead(float value) {
        return value >= 0 && value < 4294967296.0F ? static_cast<unsigned>(value) : 0;
    }
};
/// Written as a float, but its bits are read as an integer whose value is converted to float: kept likewise.
struct ReadAsInteger {
    using Read = unsigned int;
    static float fromRead(unsigned int bits) { return static_cast<float>(bits); }
};

static_assert(vndlp::bitCast<unsigned int>(9.131F) == 0x41121893 && vndlp::bitCast<unsigned int>(0.548F) == 0x3F0C49BA);

// V4 files share the next two lists

template <class R>
constexpr auto previewFields() {
    return std::tuple{
        Field{"resolutionX", &R::resolutionX, "px"}, Field{"resolutionY", &R::resolutionY, "px"},
        Field{"imageOffset", &R::imageOffset},       Field{"imageSize", &R::imageSize},
        Field{"reserved16", &R::reserved16},         Field{"reserved20", &R::reserved20},
        Field{"reserved24", &R::reserved24},         Field{"reserved28", &R::reserved28},
    };
}

/// The moves around a layer and its light.
template <class R>
constexpr auto moveFields() {
    return std::tuple{
        Field{"liftHeight", &R::liftHeight, "mm"},
        Field{"liftSpeed", &R::liftSpeed, "mm/min"},
        Field{"liftHeight2", &R::liftHeight2, "mm"},
        Field{"liftSpeed2", &R::liftSpeed2, "mm/min"},
        Field{"retractSpeed", &R::retractSpeed, "mm/min"},
        Field{"retractHeight2", &R::retractHeight2, "mm"},
        Field{"retractSpeed2", &R::retractSpeed2, "mm/min"},
        Field{"restTimeBeforeLift", &R::restTimeBeforeLift, "s"},
        Field{"restTimeAfterLift", &R::restTimeAfterLift, "s"},
        Field{"restTimeAfterRetract", &R::restTimeAfterRetract, "s"},
        Field{"lightPwm", &R::lightPwm},
    };
}

}  // namespace CTB

namespace vndlp {

template <>
struct Layout<CTB::HeaderSettings> {
    using R = CTB::HeaderSettings;
    static constexpr const char* name = "HeaderSettings";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"magic", &R::magic},
        Field{"version", &R::version},
        Field{"bedSizeX", &R::bedSizeX, "mm"},
        Field{"bedSizeY", &R::bedSizeY, "mm"},
        Field{"bedSizeZ", &R::bedSizeZ, "mm"},
        Field{"reserved20", &R::reserved20},
        Field{"reserved24", &R::reserved24},
        Field{"totalHeight", &R::totalHeight, "mm"},
        Field{"layerHeight", &R::layerHeight, "mm"},
        Field{"exposureTime", &R::exposureTime, "s"},
        Field{"bottomExposureTime", &R::bottomExposureTime, "s"},
        Field{"lightOffDelay", &R::lightOffDelay, "s"},
        Field{"bottomLayerCount", &R::bottomLayerCount},
        Field{"resolutionX", &R::resolutionX, "px"},
        Field{"resolutionY", &R::resolutionY, "px"},
        Field{"previewLargeOffset", &R::previewLargeOffset},
        Field{"layerDefOffset", &R::layerDefOffset},
        Field{"layerCount", &R::layerCount},
        Field{"previewSmallOffset", &R::previewSmallOffset},
        Field{"printTime", &R::printTime, "s", Forced{330300u}},
        Field{"projectorType", &R::projectorType},
        Field{"printParametersOffset", &R::printParametersOffset},
        Field{"printParametersSize", &R::printParametersSize},
        Field{"antiAliasLevel", &R::antiAliasLevel},
        Field{"lightPwm", &R::lightPwm},
        Field{"bottomLightPwm", &R::bottomLightPwm, "", Forced<unsigned short>{255}},
        Field{"encryptionKey", &R::encryptionKey},
        Field{"slicerInfoOffset", &R::slicerInfoOffset},
        Field{"slicerInfoSize", &R::slicerInfoSize},
    };
};

template <>
struct Layout<CTB::PreView> {
    static constexpr const char* name = "PreView";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr auto fields = CTB::previewFields<CTB::PreView>();
};

template <>
struct Layout<CTB::PrintParameters> {
    using R = CTB::PrintParameters;
    static constexpr const char* name = "PrintParameters";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"bottomLiftHeight", &R::bottomLiftHeight, "mm"},
        Field{"bottomLiftSpeed", &R::bottomLiftSpeed, "mm/min"},
        Field{"liftHeight", &R::liftHeight, "mm"},
        Field{"liftSpeed", &R::liftSpeed, "mm/min"},
        Field{"retractSpeed", &R::retractSpeed, "mm/min"},
        Field{"volume", &R::volume, "ml", Forced{9.131F}},
        Field{"weight", &R::weight, "g"},
        Field{"price", &R::price, "", Forced{0.548F}},
        Field{"bottomLightOffDelay", &R::bottomLightOffDelay, "s"},
        Field{"lightOffDelay", &R::lightOffDelay, "s"},
        Field{"bottomLayerCount", &R::bottomLayerCount, "", CTB::ReadAsFloat{}},
        Field{"reserved44", &R::reserved44},
        Field{"reserved48", &R::reserved48},
        Field{"reserved52", &R::reserved52},
        Field{"reserved56", &R::reserved56},
    };
};

template <>
struct Layout<CTB::SlicerInfo> {
    using R = CTB::SlicerInfo;
    static constexpr const char* name = "SlicerInfo";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"bottomLiftHeight2", &R::bottomLiftHeight2, "mm"},
        Field{"bottomLiftSpeed2", &R::bottomLiftSpeed2, "mm/min"},
        Field{"liftHeight2", &R::liftHeight2, "mm"},
        Field{"liftSpeed2", &R::liftSpeed2, "mm/min"},
        Field{"retractHeight2", &R::retractHeight2, "mm"},
        Field{"retractSpeed2", &R::retractSpeed2, "mm/min"},
        Field{"restTimeAfterLift", &R::restTimeAfterLift, "s"},
        Field{"machineNameOffset", &R::machineNameOffset},
        Field{"machineNameSize", &R::machineNameSize},
        Field{"settingsFlags", &R::settingsFlags, "", Forced{0x2000000Fu}},
        Field{"word40", &R::word40, "", Forced{0x01A4FA00u}},
        Field{"word44", &R::word44},
        Field{"slicerVersion", &R::slicerVersion},
        Field{"restTimeAfterRetract", &R::restTimeAfterRetract, "s", CTB::ReadAsInteger{}},
        Field{"restTimeAfterLift2", &R::restTimeAfterLift2, "s", CTB::ReadAsInteger{}},
        Field{"transitionLayerCount", &R::transitionLayerCount},
        Field{"word64", &R::word64},
        Field{"word68", &R::word68},
        Field{"word72", &R::word72},
    };
};

template <>
struct Layout<CTB::LayerDef> {
    using R = CTB::LayerDef;
    static constexpr const char* name = "LayerDef";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"positionZ", &R::positionZ, "mm"},
        Field{"exposureTime", &R::exposureTime, "s"},
        Field{"lightOffDelay", &R::lightOffDelay, "s"},
        Field{"dataOffset", &R::dataOffset},
        Field{"dataSize", &R::dataSize},
        Field{"pageNumber", &R::pageNumber},
        Field{"tableSize", &R::tableSize},
        Field{"reserved28", &R::reserved28},
        Field{"reserved32", &R::reserved32},
    };
};

template <>
struct Layout<CTB::LayerDefEx> {
    using R = CTB::LayerDefEx;
    static constexpr const char* name = "LayerDefEx";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr auto fields = std::tuple_cat(
        std::tuple{Field{"layerDef", &R::layerDef}, Field{"totalSize", &R::totalSize}}, CTB::moveFields<R>());
};

}  // namespace vndlp

namespace CTB {

constexpr unsigned int kHeaderBytes = vndlp::fixedBytes<HeaderSettings>();
constexpr unsigned int kPreViewBytes = vndlp::fixedBytes<PreView>();
constexpr unsigned int kPrintParametersBytes = vndlp::fixedBytes<PrintParameters>();
constexpr unsigned int kSlicerInfoBytes = vndlp::fixedBytes<SlicerInfo>();
constexpr unsigned int kLayerDefBytes = vndlp::fixedBytes<LayerDef>();
constexpr unsigned int kLayerDefExBytes = vndlp::fixedBytes<LayerDefEx>();

static_assert(kHeaderBytes == 112);
static_assert(kPreViewBytes == 32);
static_assert(kPrintParametersBytes == 60);
static_assert(kSlicerInfoBytes == 76);
static_assert(kLayerDefBytes == 36);
static_assert(kLayerDefExBytes == 84);

}  // namespace CTB
