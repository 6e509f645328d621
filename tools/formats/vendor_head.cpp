#include "tools/formats/vendor_head.h"

#include "tools/base/failure.h"
#include "tools/images/transform.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <cmath>

namespace vndlp::tools {

namespace {

std::string headerFailureText(int code) {
    switch (code) {
        case -2: return "the preview pictures do not end where they should";
        case -3: return "the layer count is more than a file of this size can hold";
        case -4: return "the screen's resolution is 0";
        default: return "the header cannot be read";
    }
}

/// A preview's pixels, 5-6-5 bits big-endian, as a picture.
ColourImage pictureOf(const DlpImage& preview) {
    ColourImage picture;
    picture.width = preview.width();
    picture.height = preview.height();
    const auto pixels = static_cast<std::size_t>(preview.width()) * static_cast<std::size_t>(preview.height());
    picture.pixels.resize(pixels * 4);
    const auto* bytes = reinterpret_cast<const unsigned char*>(preview.bits());
    const auto widen = [](unsigned value, unsigned bits) {
        return static_cast<unsigned char>(value * 255 / ((1u << bits) - 1));
    };
    for (std::size_t i = 0; i < pixels; ++i) {
        const unsigned colour = static_cast<unsigned>(bytes[2 * i]) << 8 | bytes[2 * i + 1];
        unsigned char* out = picture.pixels.data() + 4 * i;
        out[0] = widen(colour >> 11, 5);
        out[1] = widen(colour >> 5 & 63, 6);
        out[2] = widen(colour & 31, 5);
        out[3] = 255;
    }
    return picture;
}

std::string quantity(double value, const char* unit) { return shortNumber(value) + " " + unit; }

EnumCheckSumType trailerType(const std::string& path) {
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    CheckSum::instance().getFileVersionInfo(path.c_str(), magic, version, type);
    return type;
}

/// Scales a picture into a preview of 5-6-5 bits, big-endian.
void fillPreview(const ColourImage& picture, DlpImage& preview) {
    preview.needData();
    const ColourImage scaled = resizeColour(picture, preview.width(), preview.height());
    auto* out = reinterpret_cast<unsigned char*>(preview.bits());
    for (std::size_t i = 0; i < scaled.pixels.size(); i += 4, out += 2) {
        const unsigned colour = static_cast<unsigned>(scaled.pixels[i] >> 3) << 11 |
                                static_cast<unsigned>(scaled.pixels[i + 1] >> 2) << 5 | scaled.pixels[i + 2] >> 3;
        out[0] = static_cast<unsigned char>(colour >> 8);
        out[1] = static_cast<unsigned char>(colour);
    }
}

}  // namespace

bool hasAreas(int headerType) { return headerType == kV2 || headerType == kLine; }

HeadMap mapHead(VndlpRead& reader, DlpFileStructure& s, std::vector<unsigned int>& areas) {
    HeadMap map;
    long long begin = 0;
    const auto endSection = [&](const char* name) {
        const long long end = reader.currentPosition();
        map.sections.push_back({name, begin, end - begin});
        begin = end;
    };
    const auto require = [&](int code, const std::string& text) {
        if (code != 0) throw HeadFailure{begin, text};
    };

    std::string magic;
    reader.readTag(magic);
    endSection("head magic");
    int code = 0;
    int previewBytes = 0;
    switch (s.headerType) {
        case kV1:
            code = reader.readDlpV1Header(s.v1Header, true);
            previewBytes = s.v1Header.thumbImageSize();
            break;
        case kV2:
            code = reader.readDlpV2Header(s.v2Header, true);
            previewBytes = s.v2Header.thumbImageSize();
            break;
        case kV3:
            code = reader.readDlpV3Header(s.v3Header, true);
            previewBytes = s.v3Header.thumbImageSize();
            break;
        default:
            code = reader.readDlpLineV2Header(s.lineHeader, true);
            previewBytes = s.lineHeader.thumbImageSize();
            break;
    }
    require(code, headerFailureText(code));
    endSection("header");
    Section& header = map.sections.back();
    header.size -= previewBytes;
    // the V3 header has its previews in front of its numbers
    const long long previews = s.headerType == kV3 ? header.offset : header.offset + header.size;
    if (s.headerType == kV3) header.offset += previewBytes;
    map.sections.push_back({"previews", previews, previewBytes});

    areas.assign(static_cast<std::size_t>(s.layerCount()), 0);
    code = reader.readDlpParameters(s.parameters, hasAreas(s.headerType) ? &areas : nullptr);
    require(code, code == -3 ? "the platform's size or the layer thickness is missing"
                             : "the layer area table does not end where it should");
    endSection("parameters");
    if (hasAreas(s.headerType)) {
        const long long tableBytes = 4LL * s.layerCount() + 2;
        map.sections.back().size -= tableBytes;
        map.sections.push_back({"layer area table", begin - tableBytes, tableBytes});
    }
    if (s.headerType == kV2 && s.v2Header.versionCode >= kSettingsVersion) {
        code = reader.readDlpSliceBasicParameters(s.sliceBasicParameters);
        require(code, "the slicing settings do not end where they should");
        endSection("slicing settings");
    }
    map.firstLayer = begin;
    return map;
}

std::vector<Field> headerFields(const DlpFileStructure& s) {
    std::vector<Field> fields;
    const auto add = [&fields](const char* key, const auto& value, const std::string& text) {
        fields.push_back({key, value, text});
    };
    const auto addMachine = [&](const auto& h) { add("machine_type", h.machine_type, h.machine_type); };
    if (s.headerType == kV2) addMachine(s.v2Header);
    if (s.headerType == kLine) addMachine(s.lineHeader);
    if (s.headerType == kV3) {
        add("z_begin", s.v3Header.z_begin, std::to_string(s.v3Header.z_begin));
        add("z_end", s.v3Header.z_end, std::to_string(s.v3Header.z_end));
    }
    if (const VndlpBackUse* b = s.getVndlpBackUse()) {
        add("machineHeight", b->machineHeightUm, quantity(b->machineHeightUm / 1000.0, "mm"));
        add("enableXYCompensate", b->isEnableXYCompensate(), b->isEnableXYCompensate() ? "yes" : "no");
        add("supportPad", b->isSupportPad(), b->isSupportPad() ? "yes" : "no");
        add("autoAllSupport", b->isAutoAllSupport(), b->isAutoAllSupport() ? "yes" : "no");
        add("supportDensity", b->supportDensity, shortNumber(static_cast<double>(b->supportDensity)));
        add("blurPixel", b->blurPixel, quantity(b->blurPixel, "px"));
        add("lineExposureTime", b->lineExposureTime, std::to_string(b->lineExposureTime));
        add("totalVolume", b->totalVolume, shortNumber(static_cast<double>(b->totalVolume)));
        add("sliceModelX", b->sliceModelX, quantity(static_cast<double>(b->sliceModelX), "mm"));
        add("sliceModelY", b->sliceModelY, quantity(static_cast<double>(b->sliceModelY), "mm"));
        add("sliceModelZ", b->sliceModelZ, quantity(static_cast<double>(b->sliceModelZ), "mm"));
    }
    return fields;
}

std::vector<Field> parameterFields(const DlpFileStructure& s) {
    const DlpParameters& p = s.parameters;
    std::vector<Field> fields = {
        {"platformX", p.platformX, p.platformX + " mm"},
        {"platformY", p.platformY, p.platformY + " mm"},
        {"thickness", p.thickness, p.thickness + " mm"},
        {"exposure_time", p.exposure_time, quantity(p.exposure_time / 10.0, "s")},
        {"light_off_delay", p.light_off_delay, quantity(p.light_off_delay, "s")},
        {"first_exposure_time", p.first_exposure_time, quantity(p.first_exposure_time, "s")},
        {"first_layer_count", p.first_layer_count, std::to_string(p.first_layer_count)},
        {"first_lift_distance", p.first_lift_distance, quantity(p.first_lift_distance, "mm")},
        {"first_lift_speed", p.first_lift_speed, quantity(p.first_lift_speed, "mm/min")},
        {"lifting_distance", p.lifting_distance, quantity(p.lifting_distance, "mm")},
        {"lifting_speed", p.lifting_speed, quantity(p.lifting_speed, "mm/min")},
        {"retract_speed", p.retract_speed, quantity(p.retract_speed, "mm/min")},
        {"firstBrightnessPVM", p.firstBrightnessPVM, std::to_string(p.firstBrightnessPVM)},
        {"brightnessPVM", p.brightnessPVM, std::to_string(p.brightnessPVM)},
    };
    if (s.headerType != kV2 || s.v2Header.versionCode < kSettingsVersion) return fields;
    const DlpSliceBasicParameters& b = s.sliceBasicParameters;
    const auto number = [&fields](const char* key, int value) {
        fields.push_back({key, value, std::to_string(value)});
    };
    fields.push_back({"sliceSoftVersion", b.sliceSoftVersion, b.sliceSoftVersion});
    fields.push_back({"consumables", b.consumables, b.consumables});
    number("enableBOffset", b.enableBOffset);
    number("bOffsetThickness", b.bOffsetThickness);
    number("bOffsetFocalLength", b.bOffsetFocalLength);
    number("enableXYCompensation", b.enableXYCompensation);
    number("XYCompensation", b.XYCompensation);
    number("enableZCompensation", b.enableZCompensation);
    number("ZCompensation", b.ZCompensation);
    number("enableAntiAliasing", b.enableAntiAliasing);
    number("antiAliasingMixGray", b.antiAliasingMixGray);
    number("antiAliasingMaxGray", b.antiAliasingMaxGray);
    number("enableImageBlur", b.enableImageBlur);
    number("imageBlurPixelNum", b.imageBlurPixelNum);
    return fields;
}

std::vector<Preview> previewsOf(const DlpFileStructure& s) {
    std::vector<Preview> all;
    const auto add = [&all](const char* name, const DlpImage& image) {
        if (image.haveDatas()) all.push_back({name, pictureOf(image)});
    };
    const auto addThree = [&add](const auto& h) {
        add("small", h.smallPreview);
        add("middle", h.middlePreview);
        add("large", h.largePreview);
    };
    switch (s.headerType) {
        case kV1:
            add("small", s.v1Header.smallPreview);
            add("large", s.v1Header.largePreview);
            break;
        case kV2: addThree(s.v2Header); break;
        case kV3:
            add("small", s.v3Header.smallPreview);
            add("second", s.v3Header.secondPreview);
            add("third", s.v3Header.thirdPreview);
            break;
        default: addThree(s.lineHeader); break;
    }
    return all;
}

PrintSettings settingsOf(const DlpFileStructure& structure, const std::string& where) {
    PrintSettings s;
    const auto number = [&](const char* key, double value) { s.set(key, value, Origin::job, where); };
    const DlpParameters& p = structure.parameters;
    if (structure.headerType == kV2) s.set("machine", structure.v2Header.machine_type, Origin::job, where);
    if (structure.headerType == kLine) s.set("machine", structure.lineHeader.machine_type, Origin::job, where);
    number("resolution_x", structure.getResolutionX());
    number("resolution_y", structure.getResulutionY());
    if (p.parsePlatformX() > 0) number("display_width_mm", p.parsePlatformX());
    if (p.parsePlatformY() > 0) number("display_height_mm", p.parsePlatformY());
    if (p.parseThickness() > 0) number("layer_height_mm", p.parseThickness());
    if (const VndlpBackUse* b = structure.getVndlpBackUse()) {
        number("machine_height_mm", b->machineHeightUm / 1000.0);
    }
    number("exposure_s", p.exposure_time / 10.0);
    number("bottom_exposure_s", p.first_exposure_time);
    number("bottom_layers", p.first_layer_count);
    number("light_off_s", p.light_off_delay);
    number("bottom_lift_mm", p.first_lift_distance);
    number("bottom_lift_speed", p.first_lift_speed);
    number("lift_mm", p.lifting_distance);
    number("lift_speed", p.lifting_speed);
    number("retract_speed", p.retract_speed);
    number("bottom_pwm", std::min<int>(p.firstBrightnessPVM, 255));
    number("pwm", std::min<int>(p.brightnessPVM, 255));
    const DlpSliceBasicParameters& b = structure.sliceBasicParameters;
    number("anti_aliasing", b.enableAntiAliasing != 0 ? 1 : 0);
    number("min_grey", b.antiAliasingMixGray);
    number("max_grey", b.antiAliasingMaxGray);
    if (!b.consumables.empty()) s.set("resin", b.consumables, Origin::job, where);
    return s;
}

void addEndSections(const std::string& path, long long fileSize, long long layersEnd, const std::string& tailMagic,
                    std::vector<Section>& sections) {
    const auto tailBytes = static_cast<long long>(tailMagic.size()) + 5;
    sections.push_back({"tail magic", layersEnd, std::min(tailBytes, fileSize - layersEnd)});
    const long long rest = fileSize - layersEnd - tailBytes;
    const bool hasTrailer = trailerType(path) != CHECKSUM_NONE;
    if (rest > 0 && hasTrailer) sections.push_back({"checksum trailer", fileSize - kTrailerBytes, kTrailerBytes});
    const long long left = rest - (hasTrailer ? kTrailerBytes : 0);
    if (left > 0) sections.push_back({"left over", layersEnd + tailBytes, left});
}

void findTailProblems(VndlpRead& reader, const std::string& path, std::vector<Finding>& findings) {
    const long long offset = reader.currentPosition();
    const std::string expected = reader.tailMagic();
    std::string found;
    reader.readTag(found);
    const auto tagBytes = static_cast<long long>(expected.size()) + 5;
    if (found != expected || reader.currentPosition() - offset != tagBytes) {
        findings.push_back({offset, "the tail magic \"" + expected + "\" is missing"});
        return;
    }
    const long long left = reader.remaining() - (trailerType(path) != CHECKSUM_NONE ? kTrailerBytes : 0);
    const long long end = reader.currentPosition();
    if (left > 0) findings.push_back({end, std::to_string(left) + " bytes are left over behind the tail magic"});
    if (left < 0) findings.push_back({end, "the checksum trailer is missing"});
}

void findTrailerProblems(const std::string& path, long long fileSize, std::vector<Finding>& findings) {
    const Trailer trailer = trailerOf(path);
    if (!trailer.present || trailer.matches) return;
    findings.push_back(trailerFinding(trailer, fileSize));
}

void fillPreviews(const std::vector<ColourImage>& pictures, DlpImage& small, DlpImage& middle, DlpImage& large) {
    std::size_t next = 0;
    for (DlpImage* preview : {&small, &middle, &large}) {
        fillPreview(pictures.at(next), *preview);
        next = std::min(next + 1, pictures.size() - 1);
    }
}

void failToWrite(const std::string& path) {
    throw Failure(path + ": could not be written completely: the disk is full, or the system reports an error");
}

}  // namespace vndlp::tools
