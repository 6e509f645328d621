/// The fields of every record in file order: the one list that reading, writing and measuring are made from.

#pragma once

#include <vndlp/v4.h>

namespace VNDLPV4 {

/// Second argument of a field that is not simply written and read as its own type.

/// Big-endian; writing stores this value in the record and in the file, whatever the record held.
struct ForcedBigEndian {
    unsigned short value;
};
/// Writing stores this value in the record and in the file.
struct Forced {
    unsigned int value;
};
/// The number's value is written as a float, whose bits are read as the number: kept, since files are so.
struct WrittenAsFloat {};

/// `Layout<Record>::list(field)` calls `field(&Record::member)` or `field(&Record::member, quirk)` per field. The type
/// of the member is the type in the file: unsigned int = u32, unsigned short = u16, short = i16, long long = i64,
/// float = f32, std::string = big-endian length, characters and a zero byte.
template <class Record>
struct Layout;

template <>
struct Layout<HeaderSettings> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = HeaderSettings;
        field(&R::headerText1);
        field(&R::version, ForcedBigEndian{kV4Version});
        field(&R::headerText2);
        field(&R::resolutionX);
        field(&R::resolutionY);
        field(&R::floatField0);
        field(&R::floatField1);
        field(&R::floatField2);
        field(&R::floatField3);
        field(&R::floatField4);
        field(&R::word0);
        field(&R::previewLargeOffset);
        field(&R::layerDefOffset);
        field(&R::layerCount);
        field(&R::previewSmallOffset);
        field(&R::word5);
        field(&R::word6);
        field(&R::printParametersOffset);
        field(&R::word8);
        field(&R::word9);
        field(&R::shortField0);
        field(&R::shortField1);
        field(&R::encryptionKey);
        field(&R::slicerInfoOffset);
        field(&R::word12);
        field(&R::tailFloat0);
        field(&R::tailFloat1);
        field(&R::tailFloat2);
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
        field(&R::volume);
        field(&R::weight);
        field(&R::price);
        field(&R::bottomLightOffDelay);
        field(&R::lightOffDelay);
        field(&R::bottomLayerCount);
        field(&R::reserved44);
        field(&R::reserved48);
        field(&R::reserved52);
        field(&R::reserved56);
        field(&R::reserved60);
        field(&R::word64);
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
        field(&R::word28);
        field(&R::word32, Forced{0x01A4FA00});
        field(&R::word36);
        field(&R::word40);
        field(&R::word44, WrittenAsFloat{});
        // named after another place, but this is theirs
        field(&R::word60, WrittenAsFloat{});
        field(&R::word48);
        field(&R::restTimeAfterRetract);
        field(&R::restTimeAfterLift2);
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
        field(&R::extensionFlag);
        field(&R::word36);
    }
    /// In the file only when `extensionFlag` is not 0.
    template <class Field>
    static constexpr void listExtension(Field&& field) {
        using R = LayerDef;
        field(&R::extension0);
        field(&R::extension1);
        field(&R::extension2);
        field(&R::extension3);
        field(&R::extension4);
        field(&R::extension5);
        field(&R::extension6);
        field(&R::extension7);
        field(&R::extension8);
        field(&R::extension9);
    }
};

template <>
struct Layout<LayerDefEx> {
    template <class Field>
    static constexpr void list(Field&& field) {
        using R = LayerDefEx;
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

/// Adds up the bytes of the listed fields; of a string, those it has beside its characters.
struct FieldMeasure {
    unsigned int bytes = 0;

    template <class Record, class Value, class... Quirk>
    constexpr void operator()(Value Record::* /*member*/, Quirk... /*any*/) {
        bytes += static_cast<unsigned int>(sizeof(Value));
    }
    template <class Record>
    constexpr void operator()(std::string Record::* /*member*/) {
        bytes += 4;  // the length; the zero byte behind the characters is counted with them
    }
};

template <class Record>
constexpr unsigned int listedBytes() {
    FieldMeasure measure;
    Layout<Record>::list(measure);
    return measure.bytes;
}

constexpr unsigned int extensionBytes() {
    FieldMeasure measure;
    Layout<LayerDef>::listExtension(measure);
    return measure.bytes;
}

constexpr unsigned int kHeaderBytes = listedBytes<HeaderSettings>();
constexpr unsigned int kPreViewBytes = listedBytes<PreView>();
constexpr unsigned int kPrintParametersBytes = listedBytes<PrintParameters>();
constexpr unsigned int kSlicerInfoBytes = listedBytes<SlicerInfo>();
constexpr unsigned int kLayerDefBytes = listedBytes<LayerDef>();
constexpr unsigned int kLayerDefExBytes = listedBytes<LayerDefEx>();

static_assert(kHeaderBytes == 102);
static_assert(kPreViewBytes == 32);
static_assert(kPrintParametersBytes == 68);
static_assert(kSlicerInfoBytes == 76);
static_assert(kLayerDefBytes == 40);
static_assert(kLayerDefExBytes == 44);
static_assert(extensionBytes() == kLayerExtensionBytes);

/// From this header version on, every layer has a `LayerDefEx` in front of its code.
constexpr unsigned short kFirstExtendedVersion = 3;

}  // namespace VNDLPV4
