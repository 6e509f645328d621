/// The fields of every record of the vendor container in file order: the one list that reading, writing, measuring and
/// describing are made from.

#pragma once

#include <vndlp/container.h>
#include <vndlp/formats.h>
#include "io/record_layout.h"
#include "io/report.h"

#include <cstdint>
#include <string>

namespace vndlp {

// what stands in the lists besides fields

/// The two bytes behind a record.
struct SplitTag {
    static constexpr std::size_t kBytes = kSplitTagBytes;
};
/// Checks on the fields in front of them.
struct LayerCountCheck {};
struct ResolutionCheck {};
struct TextsCheck {};

/// Quirk of a preview: raw pixels and a tag.
struct RawPixels {
    static std::size_t storedBytes(const DlpImage& image) {
        return static_cast<std::size_t>(image.size()) + kSplitTagBytes;
    }
};

template <>
struct Layout<VndlpBackUse> {
    using R = VndlpBackUse;
    static constexpr const char* name = "VndlpBackUse";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"machineHeightUm", &R::machineHeightUm, "um"}, Field{"flags", &R::flags},
        Field{"supportDensity", &R::supportDensity},         Field{"blurPixel", &R::blurPixel, "px"},
        Field{"lineExposureTime", &R::lineExposureTime},     Field{"totalVolume", &R::totalVolume, "ml"},
        Field{"sliceModelX", &R::sliceModelX, "mm"},         Field{"sliceModelY", &R::sliceModelY, "mm"},
        Field{"sliceModelZ", &R::sliceModelZ, "mm"},         Field{"reserved", &R::reserved},
    };
};
static_assert(fixedBytes<VndlpBackUse>() == 64);

template <>
struct Layout<DlpV1Header> {
    using R = DlpV1Header;
    static constexpr const char* name = "DlpV1Header";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"layerCount", &R::layerCount},
        LayerCountCheck{},
        Field{"resolution_x", &R::resolution_x, "px"},
        Field{"resolution_y", &R::resolution_y, "px"},
        ResolutionCheck{},
        Field{"smallPreview", &R::smallPreview, "", RawPixels{}},
        Field{"largePreview", &R::largePreview, "", RawPixels{}},
    };
};

/// The V2 and the line header.
template <class R>
constexpr auto versionedHeaderFields() {
    return std::tuple{
        Field{"versionCode", &R::versionCode},
        Field{"machine_type", &R::machine_type},
        Field{"layerCount", &R::layerCount},
        LayerCountCheck{},
        Field{"resolution_x", &R::resolution_x, "px"},
        Field{"resolution_y", &R::resolution_y, "px"},
        ResolutionCheck{},
        Field{"backUse", &R::backUse},
        Field{"smallPreview", &R::smallPreview, "", RawPixels{}},
        Field{"middlePreview", &R::middlePreview, "", RawPixels{}},
        Field{"largePreview", &R::largePreview, "", RawPixels{}},
    };
}

template <>
struct Layout<DlpV2Header> {
    static constexpr const char* name = "DlpV2Header";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr auto fields = versionedHeaderFields<DlpV2Header>();
};

template <>
struct Layout<DlpV2LineHeader> {
    static constexpr const char* name = "DlpV2LineHeader";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr auto fields = versionedHeaderFields<DlpV2LineHeader>();
};

template <>
struct Layout<DlpV3Header> {
    using R = DlpV3Header;
    static constexpr const char* name = "DlpV3Header";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"smallPreview", &R::smallPreview, "", RawPixels{}},
        Field{"secondPreview", &R::secondPreview, "", RawPixels{}},
        Field{"thirdPreview", &R::thirdPreview, "", RawPixels{}},
        Field{"z_begin", &R::z_begin},
        Field{"z_end", &R::z_end},
        Field{"layerCount", &R::layerCount},
        LayerCountCheck{},
        Field{"resolution_x", &R::resolution_x, "px"},
        Field{"resolution_y", &R::resolution_y, "px"},
        ResolutionCheck{},
    };
};

template <>
struct Layout<DlpParameters> {
    using R = DlpParameters;
    static constexpr const char* name = "DlpParameters";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"platformX", &R::platformX, "mm", Utf16{}},
        Field{"platformY", &R::platformY, "mm", Utf16{}},
        Field{"thickness", &R::thickness, "mm", Utf16{}},
        TextsCheck{},
        Field{"exposure_time", &R::exposure_time, "0.1 s"},
        Field{"light_off_delay", &R::light_off_delay, "s"},
        Field{"first_exposure_time", &R::first_exposure_time, "s"},
        Field{"first_layer_count", &R::first_layer_count},
        Field{"first_lift_distance", &R::first_lift_distance, "mm"},
        Field{"first_lift_speed", &R::first_lift_speed, "mm/min"},
        Field{"lifting_distance", &R::lifting_distance, "mm"},
        Field{"lifting_speed", &R::lifting_speed, "mm/min"},
        Field{"retract_speed", &R::retract_speed, "mm/min"},
        Field{"firstBrightnessPVM", &R::firstBrightnessPVM},
        Field{"brightnessPVM", &R::brightnessPVM},
    };
};

template <>
struct Layout<DlpSliceBasicParameters> {
    using R = DlpSliceBasicParameters;
    static constexpr const char* name = "DlpSliceBasicParameters";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"sliceSoftVersion", &R::sliceSoftVersion},
        Field{"consumables", &R::consumables},
        Field{"enableBOffset", &R::enableBOffset},
        Field{"bOffsetThickness", &R::bOffsetThickness},
        Field{"bOffsetFocalLength", &R::bOffsetFocalLength},
        Field{"enableXYCompensation", &R::enableXYCompensation},
        Field{"XYCompensation", &R::XYCompensation},
        Field{"enableZCompensation", &R::enableZCompensation},
        Field{"ZCompensation", &R::ZCompensation},
        Field{"enableAntiAliasing", &R::enableAntiAliasing},
        Field{"antiAliasingMixGray", &R::antiAliasingMixGray},
        Field{"antiAliasingMaxGray", &R::antiAliasingMaxGray},
        Field{"enableImageBlur", &R::enableImageBlur},
        Field{"imageBlurPixelNum", &R::imageBlurPixelNum, "px"},
        SplitTag{},
    };
};

template <>
struct Layout<DlpImageParam> {
    using R = DlpImageParam;
    static constexpr const char* name = "DlpImageParam";
    static constexpr BYTEORDER order = BigEndian;
    static constexpr std::tuple fields{
        Field{"zThrough", &R::zThrough},
        Field{"enableAliasing", &R::enableAliasing},
        Field{"minGray", &R::minGray},
        Field{"maxGray", &R::maxGray},
        SplitTag{},
    };
};
static_assert(fixedBytes<DlpImageParam>() == 10);

/// Calls `action(DlpImage&)` for every preview of a header, in file order.
template <class Header, class Action>
void forEachPreview(Header& header, Action&& action) {
    forEachItem<std::remove_const_t<Header>>([&](const auto& item) {
        if constexpr (requires { DlpImage{header.*item.member}; }) action(header.*item.member);
    });
}

/// Bytes of raw previews, each followed by a tag.
template <class Header>
int previewSize(const Header& header) {
    std::size_t bytes = 0;
    forEachPreview(header, [&bytes](const DlpImage& image) { bytes += RawPixels::storedBytes(image); });
    return static_cast<int>(bytes);
}

/// Writes fields in the file's byte order.
class FieldWriter : public NumberOrders {
public:
    explicit FieldWriter(FileWrite& out) : NumberOrders(BigEndian, BigEndian), m_out(out) {}

    template <class Number>
    void number(const Number& value, BYTEORDER /*the file's*/ = BigEndian) {
        m_out << value;
    }
    template <std::size_t n>
    void write(const unsigned char (&value)[n], Plain /*quirk*/) {
        m_out.writeBytes(value, n);
    }
    void write(std::string& value, Plain /*quirk*/) { m_out.writeStdString(value); }
    void write(std::string& value, Utf16 /*quirk*/) { m_out.writeStdStringAsQAnsic(value); }
    void write(const DlpImage& image, RawPixels /*quirk*/) {
        m_out.writeRawData(image.bits(), image.size());
        tag();
    }
    template <class Item, class Record>
    void mark(const Item& /*item*/, const Record& /*record*/) {
        if constexpr (std::is_same_v<Item, SplitTag>) tag();
    }
    void tag() { number(kSplitTag); }

private:
    FileWrite& m_out;
};

/// How far reading a record got; the values are the exported result codes.
enum class [[nodiscard]] ReadStatus : int{
    ok = 0, noFile = -1, badTag = -2, badLayerCount = -3, emptyText = -3, badResolution = -4,
};

/// Reads fields in the file's byte order, checking each behind its reading; after the first failure it reads no more.
class FieldReader : public NumberOrders {
public:
    FieldReader(FileRead& in, bool withPreview)
        : NumberOrders(BigEndian, BigEndian), m_in(in), m_withPreview(withPreview) {}

    ReadStatus status() const { return m_status; }
    [[nodiscard]] bool isGood() const { return m_status == ReadStatus::ok; }

    template <class Number>
    bool number(Number& value, BYTEORDER /*the file's*/ = BigEndian) {
        m_in >> value;
        return true;
    }
    template <std::size_t n>
    void read(unsigned char (&value)[n], Plain /*quirk*/) {
        m_in.readBytes(value, n);
    }
    void read(std::string& value, Plain /*quirk*/) { value = m_in.readStdString(); }
    void read(std::string& value, Utf16 /*quirk*/) { value = m_in.readQAnsicString(); }
    void read(DlpImage& image, RawPixels quirk) {
        if (m_withPreview) {
            image.needData();
            m_in.readRawData(image.bits(), image.haveDatas() ? image.size() : 0);
            tag();
        } else if (m_in.skipRawData(static_cast<long long>(quirk.storedBytes(image))) < 0) {
            wrongTag();
        }
    }
    template <class Record>
    void mark(SplitTag /*item*/, const Record& /*record*/) {
        tag();
    }
    template <class Record>
    void mark(LayerCountCheck /*item*/, const Record& record) {
        // every layer takes more bytes than one packed run
        if (record.layerCount <= m_in.fileLength() / kPackedRunBytes) return;
        report("error: layerCount error: %d\n", record.layerCount);
        m_status = ReadStatus::badLayerCount;
    }
    template <class Record>
    void mark(ResolutionCheck /*item*/, const Record& record) {
        if (record.resolution_x != 0 && record.resolution_y != 0) return;
        report("error: resolution error [%d %d]\n", record.resolution_x, record.resolution_y);
        m_status = ReadStatus::badResolution;
    }
    void mark(TextsCheck /*item*/, const DlpParameters& record) {
        if (record.platformX.empty() || record.platformY.empty() || record.thickness.empty()) {
            m_status = ReadStatus::emptyText;
        }
    }
    void tag() {
        if (m_in.readBigEndianUint16() != kSplitTag) wrongTag();
    }

private:
    void wrongTag() {
        report("error: split tag error\n");
        m_status = ReadStatus::badTag;
    }

    FileRead& m_in;
    bool m_withPreview;
    ReadStatus m_status = ReadStatus::ok;
};

}  // namespace vndlp
