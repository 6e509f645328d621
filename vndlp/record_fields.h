/// The byte layout of every record of the vendor container, stated once: each function lists a record's members in file
/// order and hands them to a visitor. Reading (`FieldReader`), writing (`FieldWriter`) and measuring (`FieldSize`) are
/// such visitors.

#pragma once

#include <vndlp/container.h>
#include <vndlp/formats.h>
#include "io/report.h"

#include <cstdint>

namespace vndlp {

template <class Visitor, class Record>
constexpr void backUseFields(Visitor&& v, Record& r) {
    v.number(r.machineHeightUm);
    v.number(r.flags);
    v.number(r.supportDensity);
    v.number(r.blurPixel);
    v.number(r.lineExposureTime);
    v.number(r.totalVolume);
    v.number(r.sliceModelX);
    v.number(r.sliceModelY);
    v.number(r.sliceModelZ);
    v.bytes(r.reserved);
}

template <class Visitor>
void headerFields(Visitor&& v, DlpV1Header& r) {
    v.layerCount(r.layerCount);
    v.resolution(r.resolution_x, r.resolution_y);
    v.previews(r.smallPreview, r.largePreview);
}

/// The V2 and the line header.
template <class Visitor, class Record>
void headerFields(Visitor&& v, Record& r) {
    v.number(r.versionCode);
    v.string(r.machine_type);
    v.layerCount(r.layerCount);
    v.resolution(r.resolution_x, r.resolution_y);
    backUseFields(v, r.backUse);
    v.previews(r.smallPreview, r.middlePreview, r.largePreview);
}

template <class Visitor>
void headerFields(Visitor&& v, DlpV3Header& r) {
    v.previews(r.smallPreview, r.secondPreview, r.thirdPreview);
    v.number(r.z_begin);
    v.number(r.z_end);
    v.layerCount(r.layerCount);
    v.resolution(r.resolution_x, r.resolution_y);
}

template <class Visitor, class Record>
void parameterFields(Visitor&& v, Record& r) {
    v.texts(r.platformX, r.platformY, r.thickness);
    v.number(r.exposure_time);
    v.number(r.light_off_delay);
    v.number(r.first_exposure_time);
    v.number(r.first_layer_count);
    v.number(r.first_lift_distance);
    v.number(r.first_lift_speed);
    v.number(r.lifting_distance);
    v.number(r.lifting_speed);
    v.number(r.retract_speed);
    v.number(r.firstBrightnessPVM);
    v.number(r.brightnessPVM);
}

template <class Visitor, class Record>
void settingsFields(Visitor&& v, Record& r) {
    v.string(r.sliceSoftVersion);
    v.string(r.consumables);
    v.number(r.enableBOffset);
    v.number(r.bOffsetThickness);
    v.number(r.bOffsetFocalLength);
    v.number(r.enableXYCompensation);
    v.number(r.XYCompensation);
    v.number(r.enableZCompensation);
    v.number(r.ZCompensation);
    v.number(r.enableAntiAliasing);
    v.number(r.antiAliasingMixGray);
    v.number(r.antiAliasingMaxGray);
    v.number(r.enableImageBlur);
    v.number(r.imageBlurPixelNum);
    v.tag();
}

template <class Visitor, class Record>
constexpr void imageParamFields(Visitor&& v, Record& r) {
    v.number(r.zThrough);
    v.number(r.enableAliasing);
    v.number(r.minGray);
    v.number(r.maxGray);
    v.tag();
}

/// Measures what a record of fixed size takes in a file.
class FieldSize {
public:
    template <class Number>
    constexpr void number(const Number& /*value*/) {
        m_bytes += static_cast<int>(sizeof(Number));
    }
    template <std::size_t n>
    constexpr void bytes(const unsigned char (&/*value*/)[n]) {
        m_bytes += static_cast<int>(n);
    }
    constexpr void tag() { m_bytes += kSplitTagBytes; }
    constexpr int total() const { return m_bytes; }

private:
    int m_bytes = 0;
};

constexpr int backUseSize() {
    FieldSize size;
    VndlpBackUse record;
    backUseFields(size, record);
    return size.total();
}
static_assert(backUseSize() == 64);

constexpr int imageParamSize() {
    FieldSize size;
    DlpImageParam record;
    imageParamFields(size, record);
    return size.total();
}
static_assert(imageParamSize() == 10);

/// Bytes of raw previews, each followed by a tag.
template <class... Image>
int previewSize(const Image&... images) {
    return ((images.size() + kSplitTagBytes) + ...);
}

/// Picks the previews out of a header.
template <class Action>
class PreviewVisitor {
public:
    explicit PreviewVisitor(Action action) : m_action(action) {}
    template <class Number>
    void number(Number& /*value*/) {}
    void bytes(unsigned char* /*value*/) {}
    void string(std::string& /*value*/) {}
    void layerCount(unsigned short& /*value*/) {}
    void resolution(unsigned short& /*x*/, unsigned short& /*y*/) {}
    template <class... Image>
    void previews(Image&... images) {
        (m_action(images), ...);
    }

private:
    Action m_action;
};

/// Calls `action(DlpImage&)` for every preview of a header, in file order.
template <class Header, class Action>
void forEachPreview(Header& header, Action&& action) {
    headerFields(PreviewVisitor(action), header);
}

/// Writes members as they come.
class FieldWriter {
public:
    explicit FieldWriter(FileWrite& out) : m_out(out) {}

    template <class Number>
    void number(const Number& value) {
        m_out << value;
    }
    template <std::size_t n>
    void bytes(const unsigned char (&value)[n]) {
        m_out.writeBytes(value, n);
    }
    void string(std::string& value) { m_out.writeStdString(value); }
    void texts(std::string& a, std::string& b, std::string& c) {
        for (std::string* text : {&a, &b, &c}) m_out.writeStdStringAsQAnsic(*text);
    }
    void layerCount(unsigned short value) { number(value); }
    void resolution(unsigned short x, unsigned short y) {
        number(x);
        number(y);
    }
    template <class... Image>
    void previews(const Image&... images) {
        (preview(images), ...);
    }
    void tag() { number(kSplitTag); }

private:
    void preview(const DlpImage& image) {
        m_out.writeRawData(image.bits(), image.size());
        tag();
    }

    FileWrite& m_out;
};

/// How far reading a record got; the values are the exported result codes.
enum class [[nodiscard]] ReadStatus : int{
    ok = 0, noFile = -1, badTag = -2, badLayerCount = -3, emptyText = -3, badResolution = -4,
};

/// Reads members as they come, checking each behind its reading; after the first failure it reads no more.
class FieldReader {
public:
    FieldReader(FileRead& in, bool withPreview) : m_in(in), m_withPreview(withPreview) {}

    ReadStatus status() const { return m_status; }

    template <class Number>
    void number(Number& value) {
        if (m_status == ReadStatus::ok) m_in >> value;
    }
    template <std::size_t n>
    void bytes(unsigned char (&value)[n]) {
        if (m_status == ReadStatus::ok) m_in.readBytes(value, n);
    }
    void string(std::string& value) {
        if (m_status == ReadStatus::ok) value = m_in.readStdString();
    }
    void texts(std::string& a, std::string& b, std::string& c) {
        for (std::string* text : {&a, &b, &c}) *text = m_in.readQAnsicString();
        if (a.empty() || b.empty() || c.empty()) m_status = ReadStatus::emptyText;
    }
    void layerCount(unsigned short& value) {
        number(value);
        // every layer takes more bytes than one packed run
        if (m_status != ReadStatus::ok || value <= m_in.fileLength() / kPackedRunBytes) return;
        report("error: layerCount error: %d\n", value);
        m_status = ReadStatus::badLayerCount;
    }
    void resolution(unsigned short& x, unsigned short& y) {
        number(x);
        number(y);
        if (m_status != ReadStatus::ok || (x != 0 && y != 0)) return;
        report("error: resolution error [%d %d]\n", x, y);
        m_status = ReadStatus::badResolution;
    }
    template <class... Image>
    void previews(Image&... images) {
        if (m_status != ReadStatus::ok) return;
        if (m_withPreview) {
            (preview(images), ...);
        } else if (m_in.skipRawData(previewSize(images...)) < 0) {
            wrongTag();
        }
    }
    void tag() {
        if (m_status == ReadStatus::ok && m_in.readBigEndianUint16() != kSplitTag) wrongTag();
    }

private:
    void preview(DlpImage& image) {
        if (m_status != ReadStatus::ok) return;
        image.needData();
        m_in.readRawData(image.bits(), image.haveDatas() ? image.size() : 0);
        tag();
    }
    void wrongTag() {
        report("error: split tag error\n");
        m_status = ReadStatus::badTag;
    }

    FileRead& m_in;
    bool m_withPreview;
    ReadStatus m_status = ReadStatus::ok;
};

}  // namespace vndlp
