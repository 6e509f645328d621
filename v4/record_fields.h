/// The fields of every record in file order: the one list that reading, writing and measuring are made from.

#pragma once

#include <vndlp/v4.h>
#include "ctb/record_fields.h"

namespace VNDLPV4 {

/// The number's value is written as a float, whose bits are read as the number: kept, since files are so.
struct WrittenAsFloat {
    using Stored = float;
    static float toStored(unsigned int value) { return static_cast<float>(value); }
};

/// Part of the extension of a layer, which not every layer has.
struct Extension {
    static bool isIn(const LayerDef& layer) { return layer.extensionFlag != 0; }
};

}  // namespace VNDLPV4

namespace vndlp {

template <>
struct Layout<VNDLPV4::HeaderSettings> {
    using R = VNDLPV4::HeaderSettings;
    static constexpr const char* name = "HeaderSettings";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"headerText1", &R::headerText1},
        Field{"version", &R::version, "", ForcedBigEndian{VNDLPV4::kV4Version}},
        Field{"headerText2", &R::headerText2},
        Field{"resolutionX", &R::resolutionX, "px"},
        Field{"resolutionY", &R::resolutionY, "px"},
        Field{"floatField0", &R::floatField0, "mm"},
        Field{"floatField1", &R::floatField1, "mm"},
        Field{"floatField2", &R::floatField2, "mm"},
        Field{"floatField3", &R::floatField3, "mm"},
        Field{"floatField4", &R::floatField4, "mm"},
        Field{"word0", &R::word0},
        Field{"previewLargeOffset", &R::previewLargeOffset},
        Field{"layerDefOffset", &R::layerDefOffset},
        Field{"layerCount", &R::layerCount},
        Field{"previewSmallOffset", &R::previewSmallOffset},
        Field{"word5", &R::word5, "s"},
        Field{"word6", &R::word6},
        Field{"printParametersOffset", &R::printParametersOffset},
        Field{"word8", &R::word8},
        Field{"word9", &R::word9},
        Field{"shortField0", &R::shortField0},
        Field{"shortField1", &R::shortField1},
        Field{"encryptionKey", &R::encryptionKey},
        Field{"slicerInfoOffset", &R::slicerInfoOffset},
        Field{"word12", &R::word12},
        Field{"tailFloat0", &R::tailFloat0, "s"},
        Field{"tailFloat1", &R::tailFloat1, "s"},
        Field{"tailFloat2", &R::tailFloat2, "s"},
    };
};

template <>
struct Layout<VNDLPV4::PreView> {
    static constexpr const char* name = "PreView";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr auto fields = CTB::previewFields<VNDLPV4::PreView>();
};

template <>
struct Layout<VNDLPV4::PrintParameters> {
    using R = VNDLPV4::PrintParameters;
    static constexpr const char* name = "PrintParameters";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"bottomLiftHeight", &R::bottomLiftHeight, "mm"},
        Field{"bottomLiftSpeed", &R::bottomLiftSpeed, "mm/min"},
        Field{"liftHeight", &R::liftHeight, "mm"},
        Field{"liftSpeed", &R::liftSpeed, "mm/min"},
        Field{"retractSpeed", &R::retractSpeed, "mm/min"},
        Field{"volume", &R::volume, "ml"},
        Field{"weight", &R::weight, "g"},
        Field{"price", &R::price},
        Field{"bottomLightOffDelay", &R::bottomLightOffDelay, "s"},
        Field{"lightOffDelay", &R::lightOffDelay, "s"},
        Field{"bottomLayerCount", &R::bottomLayerCount},
        Field{"reserved44", &R::reserved44},
        Field{"reserved48", &R::reserved48},
        Field{"reserved52", &R::reserved52},
        Field{"reserved56", &R::reserved56},
        Field{"reserved60", &R::reserved60},
        Field{"word64", &R::word64},
    };
};

template <>
struct Layout<VNDLPV4::SlicerInfo> {
    using R = VNDLPV4::SlicerInfo;
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
        Field{"word28", &R::word28},
        Field{"word32", &R::word32, "", Forced{0x01A4FA00u}},
        Field{"word36", &R::word36},
        Field{"word40", &R::word40},
        Field{"word44", &R::word44, "", VNDLPV4::WrittenAsFloat{}},
        // named after another place, but this is theirs
        Field{"word60", &R::word60, "", VNDLPV4::WrittenAsFloat{}},
        Field{"word48", &R::word48},
        Field{"restTimeAfterRetract", &R::restTimeAfterRetract, "s"},
        Field{"restTimeAfterLift2", &R::restTimeAfterLift2, "s"},
        Field{"word64", &R::word64},
        Field{"word68", &R::word68},
        Field{"word72", &R::word72},
    };
};

template <>
struct Layout<VNDLPV4::LayerDef> {
    using R = VNDLPV4::LayerDef;
    using Extension = VNDLPV4::Extension;
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
        Field{"extensionFlag", &R::extensionFlag},
        Field{"word36", &R::word36},
        Field{"extension0", &R::extension0, "", Extension{}},
        Field{"extension1", &R::extension1, "", Extension{}},
        Field{"extension2", &R::extension2, "", Extension{}},
        Field{"extension3", &R::extension3, "", Extension{}},
        Field{"extension4", &R::extension4, "", Extension{}},
        Field{"extension5", &R::extension5, "", Extension{}},
        Field{"extension6", &R::extension6, "", Extension{}},
        Field{"extension7", &R::extension7, "", Extension{}},
        Field{"extension8", &R::extension8, "", Extension{}},
        Field{"extension9", &R::extension9, "", Extension{}},
    };
};

template <>
struct Layout<VNDLPV4::LayerDefEx> {
    static constexpr const char* name = "LayerDefEx";
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr auto fields = CTB::moveFields<VNDLPV4::LayerDefEx>();
};

}  // namespace vndlp

namespace VNDLPV4 {

/// Without the characters and the zero bytes of its two strings.
constexpr unsigned int kHeaderBytes = vndlp::fixedBytes<HeaderSettings>();
constexpr unsigned int kPreViewBytes = vndlp::fixedBytes<PreView>();
constexpr unsigned int kPrintParametersBytes = vndlp::fixedBytes<PrintParameters>();
constexpr unsigned int kSlicerInfoBytes = vndlp::fixedBytes<SlicerInfo>();
/// Without the extension.
constexpr unsigned int kLayerDefBytes = vndlp::fixedBytes<LayerDef>();
constexpr unsigned int kLayerDefExBytes = vndlp::fixedBytes<LayerDefEx>();

static_assert(kHeaderBytes == 102);
static_assert(kPreViewBytes == 32);
static_assert(kPrintParametersBytes == 68);
static_assert(kSlicerInfoBytes == 76);
static_assert(kLayerDefBytes == 40);
static_assert(kLayerDefExBytes == 44);
static_assert(std::tuple_size_v<decltype(vndlp::Layout<LayerDef>::fields)> == 10 + kLayerExtensionBytes / 8);

/// From this header version on, every layer has a `LayerDefEx` in front of its encoded image.
constexpr unsigned short kFirstExtendedVersion = 3;

}  // namespace VNDLPV4
