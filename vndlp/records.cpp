#include <vndlp/container.h>
#include <vndlp/formats.h>
#include "io/decimal.h"
#include "io/report.h"
#include "vndlp/record_fields.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace vndlp {

namespace {

enum BackUseFlag : unsigned int { kEnableXYCompensate = 1u << 0, kSupportPad = 1u << 4, kAutoAllSupport = 1u << 8 };

/// The tail of the reserved bytes that `setBackUse` leaves as it is.
constexpr std::size_t kReservedNotCopied = 10;

void setFlag(unsigned int& flags, BackUseFlag flag, bool on) { flags = on ? flags | flag : flags & ~flag; }

template <class Header>
void allocatePreviews(Header& header) {
    forEachPreview(header, [](DlpImage& image) { image.needData(); });
}

template <class Header>
void releasePreviews(Header& header) {
    forEachPreview(header, [](DlpImage& image) { image.release(); });
}

template <class Header>
void showScreen(const Header& header) {
    report("layerCount = %u\n", header.layerCount);
    report("resolution_x = %u\n", header.resolution_x);
    report("resolution_y = %u\n", header.resolution_y);
}

template <class Header>
void showV2(const Header& header) {
    report("machine_type = %s\n", header.machine_type.c_str());
    report("versionCode = %u\n", header.versionCode);
    showScreen(header);
}

/// Calls `action` with the header that the structure's kind selects, if any.
template <class Structure, class Action>
void withActiveHeader(Structure& structure, Action&& action) {
    switch (structure.headerType) {
        case kV1Header: action(structure.v1Header); break;
        case kV2Header: action(structure.v2Header); break;
        case kV3Header: action(structure.v3Header); break;
        case kLineHeader: action(structure.lineHeader); break;
        default: break;
    }
}

/// The same for the two kinds that have a version, a machine type and a back use.
template <class Structure, class Action>
void withVersionedHeader(Structure& structure, Action&& action) {
    if (structure.headerType == kV2Header) {
        action(structure.v2Header);
    } else if (structure.headerType == kLineHeader) {
        action(structure.lineHeader);
    }
}

}  // namespace

unsigned int storedLayerArea(double area) {
    const double rounded = std::round(area / 1000);
    if (!(std::fabs(rounded) < 9.0e18)) return 0;
    return static_cast<unsigned int>(static_cast<long long>(rounded));
}

void DlpV1Header::needData() { allocatePreviews(*this); }
void DlpV1Header::release() { releasePreviews(*this); }
void DlpV1Header::show() const { showScreen(*this); }
int DlpV1Header::thumbImageSize() const { return previewSize(*this); }

void DlpV2Header::needData() { allocatePreviews(*this); }
void DlpV2Header::release() { releasePreviews(*this); }
void DlpV2Header::show() const { showV2(*this); }
int DlpV2Header::thumbImageSize() const { return previewSize(*this); }

void DlpV2LineHeader::needData() { allocatePreviews(*this); }
void DlpV2LineHeader::release() { releasePreviews(*this); }
void DlpV2LineHeader::show() const { showV2(*this); }
int DlpV2LineHeader::thumbImageSize() const { return previewSize(*this); }

void DlpV3Header::needData() { allocatePreviews(*this); }
void DlpV3Header::release() { releasePreviews(*this); }
void DlpV3Header::show() const {
    report("z_begin = %u\n", z_begin);
    report("z_end = %u\n", z_end);
    showScreen(*this);
}
int DlpV3Header::thumbImageSize() const { return previewSize(*this); }

void VndlpBackUse::setDataType(int type, int subType) {
    dataType = type;
    dataSubType = subType;
}

void VndlpBackUse::setMachineHeight(float mm) {
    const float um = mm * 1000;
    // what no unsigned int can hold, and NaN, has no height to keep
    machineHeightUm = um > 0 && um < 4294967296.0F ? static_cast<unsigned int>(um) : 0;
}

float VndlpBackUse::getMachineHeight() const { return static_cast<float>(machineHeightUm) / 1000; }

bool VndlpBackUse::isEnableXYCompensate() const { return (flags & kEnableXYCompensate) != 0; }
void VndlpBackUse::setEnableXYCompensate(bool on) { setFlag(flags, kEnableXYCompensate, on); }
bool VndlpBackUse::isSupportPad() const { return (flags & kSupportPad) != 0; }
void VndlpBackUse::setSupportPad(bool on) { setFlag(flags, kSupportPad, on); }
bool VndlpBackUse::isAutoAllSupport() const { return (flags & kAutoAllSupport) != 0; }
void VndlpBackUse::setAutoAllSupport(bool on) { setFlag(flags, kAutoAllSupport, on); }
float VndlpBackUse::getSupportDensity() const { return supportDensity; }
void VndlpBackUse::settSupportDensity(float value) { supportDensity = value; }
int VndlpBackUse::getBlurPixel() const { return blurPixel; }
void VndlpBackUse::setBlurPixel(int value) { blurPixel = value; }
float VndlpBackUse::getExposeTimeVnLine() const { return lineExposureTime; }
void VndlpBackUse::setExposeTimeVnLine(float value) {
    lineExposureTime = value > 0 && value < 65536 ? static_cast<unsigned short>(value) : static_cast<unsigned short>(0);
}
float VndlpBackUse::getTotalVolume() const { return totalVolume; }
void VndlpBackUse::setTotalVolume(float value) { totalVolume = value; }
float VndlpBackUse::getSliceModelX() const { return sliceModelX; }
void VndlpBackUse::setSliceModelX(float value) { sliceModelX = value; }
float VndlpBackUse::getSliceModelY() const { return sliceModelY; }
void VndlpBackUse::setSliceModelY(float value) { sliceModelY = value; }
float VndlpBackUse::getSliceModelZ() const { return sliceModelZ; }
void VndlpBackUse::setSliceModelZ(float value) { sliceModelZ = value; }

int VndlpBackUse::write(FileWrite& out) {
    FieldWriter writer(out);
    writeRecord(writer, *this);
    return 0;
}

int VndlpBackUse::read(FileRead& in) {
    FieldReader reader(in, false);
    readRecord(reader, *this);
    return 0;
}

double DlpParameters::parsePlatformX() const { return parseDecimal(platformX); }
double DlpParameters::parsePlatformY() const { return parseDecimal(platformY); }
double DlpParameters::parseThickness() const { return parseDecimal(thickness); }

void DlpParameters::show() const {
    report("platformX = %s\n", platformX.c_str());
    report("platformY = %s\n", platformY.c_str());
    report("thickness = %s\n", thickness.c_str());
    report("exposure_time = %d\n", exposure_time);
    report("light_off_delay = %d\n", light_off_delay);
    report("first_exposure_time = %d\n", first_exposure_time);
    report("first_layer_count = %d\n", first_layer_count);
    report("first_lift_distance = %d\n", first_lift_distance);
    report("first_lift_speed = %d\n", first_lift_speed);
    report("lifting_distance = %d\n", lifting_distance);
    report("lifting_speed = %d\n", lifting_speed);
    report("retract_speed = %d\n", retract_speed);
    report("firstBrightnessPVM = %d\n", firstBrightnessPVM);
    report("brightnessPVM = %d\n", brightnessPVM);
}

void DlpSliceBasicParameters::show() const {
    report("sliceSoftVersion:\t%s\n", sliceSoftVersion.c_str());
    report("consumables:\t%s\n", consumables.c_str());
    report("enableBOffset:\t%d\n", enableBOffset);
    report("bOffsetThickness:\t%d\n", bOffsetThickness);
    report("bOffsetFocalLength:\t%d\n", bOffsetFocalLength);
    report("enableXYCompensation:\t%d\n", enableXYCompensation);
    report("XYCompensation:\t%d\n", XYCompensation);
    report("enableZCompensation:\t%d\n", enableZCompensation);
    report("ZCompensation:\t%d\n", ZCompensation);
    report("enableAntiAliasing:\t%d\n", enableAntiAliasing);
    report("antiAliasingMixGray:\t%u\n", antiAliasingMixGray);
    report("antiAliasingMaxGray:\t%u\n", antiAliasingMaxGray);
    report("enableImageBlur:\t%d\n", enableImageBlur);
    report("imageBlurPixelNum:\t%u\n", imageBlurPixelNum);
}

void DlpImageParam::show() const {
    report("zThrough = %d\n", zThrough);
    report("enableAliasing = %d\n", enableAliasing);
    report("minGray = %d\n", minGray);
    report("maxGray = %d\n", maxGray);
}

bool DlpFileStructure::isAvailable() const { return findMagic(headerType) != nullptr; }

int DlpFileStructure::layerCount() const {
    int count = 0;
    withActiveHeader(*this, [&count](const auto& header) { count = header.layerCount; });
    return count;
}

void DlpFileStructure::setLayerCount(int count) {
    withActiveHeader(*this, [count](auto& header) { header.layerCount = static_cast<unsigned short>(count); });
}

int DlpFileStructure::getResolutionX() const {
    int x = 0;
    withActiveHeader(*this, [&x](const auto& header) { x = header.resolution_x; });
    return x;
}

int DlpFileStructure::getResulutionY() const {
    int y = 0;
    withActiveHeader(*this, [&y](const auto& header) { y = header.resolution_y; });
    return y;
}

void DlpFileStructure::setResolution(int x, int y) {
    withActiveHeader(*this, [x, y](auto& header) {
        header.resolution_x = static_cast<unsigned short>(x);
        header.resolution_y = static_cast<unsigned short>(y);
    });
}

unsigned short DlpFileStructure::getVersionCode() {
    unsigned short version = 0;
    withVersionedHeader(*this, [&version](const auto& header) { version = header.versionCode; });
    return version;
}

void DlpFileStructure::setVersionCode(unsigned short version) {
    withVersionedHeader(*this, [version](auto& header) { header.versionCode = version; });
}

void DlpFileStructure::setMachineType(std::string type) {
    withVersionedHeader(*this, [&type](auto& header) { header.machine_type = std::move(type); });
}

VndlpBackUse* DlpFileStructure::getVndlpBackUse() {
    VndlpBackUse* backUse = nullptr;
    withVersionedHeader(*this, [&backUse](auto& header) { backUse = &header.backUse; });
    return backUse;
}

const VndlpBackUse* DlpFileStructure::getVndlpBackUse() const {
    return const_cast<DlpFileStructure*>(this)->getVndlpBackUse();
}

int DlpFileStructure::setBackUse(const VndlpBackUse& backUse) {
    VndlpBackUse* target = getVndlpBackUse();
    if (target == nullptr) return 0;
    VndlpBackUse merged = backUse;
    constexpr std::size_t kCopied = sizeof merged.reserved - kReservedNotCopied;
    std::memcpy(merged.reserved + kCopied, target->reserved + kCopied, kReservedNotCopied);
    *target = merged;
    return 1;
}

void DlpFileStructure::needData() {
    withActiveHeader(*this, [](auto& header) { header.needData(); });
}

void DlpFileStructure::release() {
    v1Header.release();
    v2Header.release();
    v3Header.release();
    lineHeader.release();
}

void DlpFileStructure::show() const {
    // kept as it has always been: a line structure shows the V2 header, not its own
    if (headerType == kLineHeader) {
        v2Header.show();
    } else {
        withActiveHeader(*this, [](const auto& header) { header.show(); });
    }
    parameters.show();
}

}  // namespace vndlp
