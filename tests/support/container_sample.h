/// A small file of every container kind, twice: the records that make it, and its bytes written out field by field.

#pragma once

#include "support/bytes.h"
#include "support/front_end.h"

#include <vndlp/container.h>

#include <utility>
#include <vector>

namespace vndlp::test {

constexpr int kV1 = 1;
constexpr int kV2 = 2;
constexpr int kV3 = 3;
constexpr int kLine = 12;

/// Byte i of a picture; the seed tells the pictures of a header apart.
inline unsigned char pictureByte(std::size_t i, unsigned seed) {
    return static_cast<unsigned char>(i * 31 + i / 256 + seed);
}

inline void paintPictures(const std::vector<DlpImage*>& images) {
    for (unsigned seed = 1; DlpImage * image : images) {
        image->needData();
        for (int i = 0; i < image->size(); ++i) {
            image->bits()[i] = static_cast<char>(pictureByte(static_cast<std::size_t>(i), seed));
        }
        ++seed;
    }
}

template <class Header>
void fillScreen(Header& header) {
    header.layerCount = 3;
    header.resolution_x = 0x0B40;
    header.resolution_y = 0x0A28;
}

inline VndlpBackUse sampleBackUse() {
    VndlpBackUse b;
    b.setMachineHeight(175.5F);
    b.setEnableXYCompensate(true);
    b.setSupportPad(true);
    b.setAutoAllSupport(true);
    b.settSupportDensity(0.5F);
    b.setBlurPixel(-3);
    b.setExposeTimeVnLine(7.9F);
    b.setTotalVolume(2);
    b.setSliceModelX(1.5F);
    b.setSliceModelY(-2);
    b.setSliceModelZ(0.25F);
    for (unsigned i = 0; i < 30; ++i) b.reserved[i] = static_cast<unsigned char>(i + 1);
    return b;
}

/// All four headers are filled, so that a file of the wrong one shows.
inline DlpFileStructure sampleStructure(int kind, int version = 3) {
    DlpFileStructure s;
    s.headerType = kind;
    s.headerVersion = version;
    fillScreen(s.v1Header);
    paintPictures({&s.v1Header.smallPreview, &s.v1Header.largePreview});
    const auto fillVersioned = [](auto& header) {
        fillScreen(header);
        header.machine_type = "Maker M1";
        header.backUse = sampleBackUse();
        paintPictures({&header.smallPreview, &header.middlePreview, &header.largePreview});
    };
    fillVersioned(s.v2Header);
    fillVersioned(s.lineHeader);
    fillScreen(s.v3Header);
    s.v3Header.z_begin = 0x0102;
    s.v3Header.z_end = 0x0304;
    paintPictures({&s.v3Header.smallPreview, &s.v3Header.secondPreview, &s.v3Header.thirdPreview});

    DlpParameters& p = s.parameters;
    p.platformX = "68.04";
    p.platformY = "120.96";
    p.thickness = "0.05";
    numberParameters<DlpParameters, unsigned short>(p, 0x0A01);
    s.sliceBasicParameters = {"V1.2", "resin", 1, -2, 3, 4, -5, 6, 7, 8, 9, 10, 11, 12};
    return s;
}

inline std::vector<unsigned int> sampleAreas() { return {0x01020304, 0, 50}; }

inline std::vector<std::vector<WhiteData>> sampleRuns() {
    return {{{{5, 1}, {5, 8191}, 255}, {{300, 0}, {300, 2}, 16}}, {}, {{{16383, 8191}, {16383, 8191}, 16}}};
}

/// The same, packed.
inline std::vector<std::vector<unsigned char>> samplePackedRuns() {
    return {{0x00, 0x0F, 0xFF, 0xC0, 0x05, 0xFF, 0x00, 0x00, 0x00, 0x81, 0x2C, 0x10},
            {},
            {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x10}};
}

struct SampleFile {
    Bytes bytes;
    std::size_t pictures = 0;    ///< offsets where the sections begin
    std::size_t parameters = 0;  ///< in V3 files the numbers of the header stand before them
    std::size_t table = 0;
    std::size_t settings = 0;
    std::size_t layers = 0;
    std::size_t tail = 0;
};

inline void addScreen(Bytes& b) { b.u16(3).u16(0x0B40).u16(0x0A28); }  // layers, width, height

inline void addBackUse(Bytes& b) {
    b.u32(175500).u32(0x111).f32(0.5F).u32(0xFFFFFFFD).u16(7).f32(2).f32(1.5F).f32(-2).f32(0.25F);
    for (unsigned i = 1; i <= 30; ++i) b.u8(i);
}

inline void addPictures(Bytes& b, const std::vector<std::pair<std::size_t, std::size_t>>& sizes) {
    for (unsigned seed = 1; const auto& [width, height] : sizes) {
        for (std::size_t i = 0; i < width * height * 2; ++i) b.u8(pictureByte(i, seed));
        b.tag();
        ++seed;
    }
}

/// Everything before the first layer (in line files: before the image parameters).
inline SampleFile sampleHead(int kind, unsigned version = 3) {
    SampleFile f;
    Bytes& b = f.bytes;
    switch (kind) {
        case kV1:
            b.string("VNKT3D");
            addScreen(b);
            f.pictures = b.size();
            addPictures(b, {{116, 116}, {290, 290}});
            break;
        case kV3:
            b.string("VNKT3D3");
            f.pictures = b.size();
            addPictures(b, {{116, 116}, {212, 182}, {212, 182}});
            b.u16(0x0102).u16(0x0304);
            addScreen(b);
            break;
        default:
            b.string(kind == kV2 ? "VNKT3DV2" : "VNLINEV2").u16(kind == kV2 ? version : 2).string("Maker M1");
            addScreen(b);
            addBackUse(b);
            f.pictures = b.size();
            addPictures(b, {{116, 116}, {290, 290}, {290, 290}});
            break;
    }
    f.parameters = b.size();
    b.text("68.04").text("120.96").text("0.05");
    for (unsigned i = 1; i <= 11; ++i) b.u16(0x0A00 + i);
    f.table = b.size();
    if (kind == kV2 || kind == kLine) b.u32(0x01020304).u32(0).u32(50).tag();
    f.settings = b.size();
    if (kind == kV2 && version >= 3) {
        b.string("V1.2").string("resin").u8(1).u32(0xFFFFFFFE).u32(3).u8(4).u16(0xFFFB).u8(6).u16(7);
        b.u8(8).u8(9).u8(10).u8(11).u8(12).tag();
    }
    f.layers = b.size();
    return f;
}

/// Tail magic and trailer.
inline void addTail(SampleFile& f, int kind, unsigned version = 3) {
    f.tail = f.bytes.size();
    f.bytes.string(kind == kV2 ? "VNKT3DV2" : kind == kLine ? "VNLINEV2" : "VNKT3D");
    if (kind == kV3 || (kind == kV2 && version < 3)) sealWithXor(f.bytes);
    if (kind == kLine || (kind == kV2 && version >= 3)) sealWithCrc(f.bytes);
}

/// A whole file with layers of runs.
inline SampleFile sampleFile(int kind, unsigned version = 3) {
    SampleFile f = sampleHead(kind, version);
    const bool hasAreas = kind == kV2 || kind == kLine;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::vector<unsigned char> packed = samplePackedRuns()[i];
        if (hasAreas) f.bytes.u32(sampleAreas()[i]);
        f.bytes.u32(static_cast<unsigned>(packed.size() / 6)).raw(packed).tag();
    }
    addTail(f, kind, version);
    return f;
}

}  // namespace vndlp::test
