/// The fields of every record in file order: the one list that reading, writing and measuring are made from.

#pragma once

#include <vndlp/ctb.h>

#include <bit>

namespace CTB {

/// Second argument of a field that is not simply written and read as its own type.

/// Writing stores this value in the record and in the file, whatever the record held.
template <class Value>
struct Forced {
    constexpr explicit Forced(Value v) : value(v) {}
    Value value;
};
/// Written as an integer, but read as a float whose fraction is dropped: kept, since files are read so everywhere.
struct ReadAsFloat {};
/// Written as a float, but its bits are read as an integer whose value is converted to float: kept likewise.
struct ReadAsInteger {};

static_assert(std::bit_cast<unsigned int>(9.131F) == 0x41121893 && std::bit_cast<unsigned int>(0.548F) == 0x3F0C49BA);

/// `Layout<Record>::list(field)` calls `field(&Record::member)` or `field(&Record::member, quirk)` per field. The type
/// of the member is the type in the file: unsigned int = u32, unsigned short = u16, float = f32.
template <class Record>
struct Layout;

template <>
struct Layout<HeaderSettings> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = HeaderSettings;
        field(&R::magic);
        field(&R::version);
        field(&R::bedSizeX);
        field(&R::bedSizeY);
        field(&R::bedSizeZ);
        field(&R::reserved20);
        field(&R::reserved24);
        field(&R::totalHeight);
        field(&R::layerHeight);
        field(&R::exposureTime);
        field(&R::bottomExposureTime);
        field(&R::lightOffDelay);
        field(&R::bottomLayerCount);
        field(&R::resolutionX);
        field(&R::resolutionY);
        field(&R::previewLargeOffset);
        field(&R::layerDefOffset);
        field(&R::layerCount);
        field(&R::previewSmallOffset);
        field(&R::printTime, Forced(330300u));
        field(&R::projectorType);
        field(&R::printParametersOffset);
        field(&R::printParametersSize);
        field(&R::antiAliasLevel);
        field(&R::lightPwm);
        field(&R::bottomLightPwm, Forced<unsigned short>(255));
        field(&R::encryptionKey);
        field(&R::slicerInfoOffset);
        field(&R::slicerInfoSize);
    }
};

template <>
struct Layout<PreView> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = PreView;
        field(&R::resolutionX);
        field(&R::resolutionY);
        field(&R::imageOffset);
        field(&R::imageSize);
        field(&R::reserved16);
        field(&R::reserved20);
        field(&R::reserved24);
        field(&R::reserved28);
    }
};

template <>
struct Layout<PrintParameters> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = PrintParameters;
        field(&R::bottomLiftHeight);
        field(&R::bottomLiftSpeed);
        field(&R::liftHeight);
        field(&R::liftSpeed);
        field(&R::retractSpeed);
        field(&R::volume, Forced(9.131F));
        field(&R::weight);
        field(&R::price, Forced(0.548F));
        field(&R::bottomLightOffDelay);
        field(&R::lightOffDelay);
        field(&R::bottomLayerCount, ReadAsFloat{});
        field(&R::reserved44);
        field(&R::reserved48);
        field(&R::reserved52);
        field(&R::reserved56);
    }
};

template <>
struct Layout<SlicerInfo> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = SlicerInfo;
        field(&R::bottomLiftHeight2);
        field(&R::bottomLiftSpeed2);
        field(&R::liftHeight2);
        field(&R::liftSpeed2);
        field(&R::retractHeight2);
        field(&R::retractSpeed2);
        field(&R::restTimeAfterLift);
        field(&R::machineNameOffset);
        field(&R::machineNameSize);
        field(&R::settingsFlags, Forced(0x2000000Fu));
        field(&R::word40, Forced(0x01A4FA00u));
        field(&R::word44);
        field(&R::slicerVersion);
        field(&R::restTimeAfterRetract, ReadAsInteger{});
        field(&R::restTimeAfterLift2, ReadAsInteger{});
        field(&R::transitionLayerCount);
        field(&R::word64);
        field(&R::word68);
        field(&R::word72);
    }
};

template <>
struct Layout<LayerDef> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = LayerDef;
        field(&R::positionZ);
        field(&R::exposureTime);
        field(&R::lightOffDelay);
        field(&R::dataOffset);
        field(&R::dataSize);
        field(&R::pageNumber);
        field(&R::tableSize);
        field(&R::reserved28);
        field(&R::reserved32);
    }
};

/// What follows the embedded `LayerDef`.
template <>
struct Layout<LayerDefEx> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = LayerDefEx;
        field(&R::totalSize);
        field(&R::liftHeight);
        field(&R::liftSpeed);
        field(&R::liftHeight2);
        field(&R::liftSpeed2);
        field(&R::retractSpeed);
        field(&R::retractHeight2);
        field(&R::retractSpeed2);
        field(&R::restTimeBeforeLift);
        field(&R::restTimeAfterLift);
        field(&R::restTimeAfterRetract);
        field(&R::lightPwm);
    }
};

/// Adds up the bytes of the listed fields.
struct FieldMeasure {
    unsigned int bytes = 0;

    template <class Record, class Value, class... Quirk>
    constexpr void operator()(Value Record::* /*member*/, Quirk... /*any*/) {
        static_assert(sizeof(Value) == 4 || sizeof(Value) == 2);
        bytes += static_cast<unsigned int>(sizeof(Value));
    }
};

template <class Record>
constexpr unsigned int listedBytes() {
    FieldMeasure measure;
    Layout<Record>::list(measure);
    return measure.bytes;
}

constexpr unsigned int kHeaderBytes = listedBytes<HeaderSettings>();
constexpr unsigned int kPreViewBytes = listedBytes<PreView>();
constexpr unsigned int kPrintParametersBytes = listedBytes<PrintParameters>();
constexpr unsigned int kSlicerInfoBytes = listedBytes<SlicerInfo>();
constexpr unsigned int kLayerDefBytes = listedBytes<LayerDef>();
constexpr unsigned int kLayerDefExBytes = kLayerDefBytes + listedBytes<LayerDefEx>();

static_assert(kHeaderBytes == 112);
static_assert(kPreViewBytes == 32);
static_assert(kPrintParametersBytes == 60);
static_assert(kSlicerInfoBytes == 76);
static_assert(kLayerDefBytes == 36);
static_assert(kLayerDefExBytes == 84);

}  // namespace CTB
