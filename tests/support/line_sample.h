/// The line file the tests share, and docs/format-vnline.md takes apart: its records, and its bytes field by field.

#pragma once

#include "support/bytes.h"

#include <vndlp/wrappers.h>

#include <string>
#include <vector>

namespace vndlp::test {

using Paths = std::vector<std::vector<Vec3i>>;

inline DlpLineV2ParamWrapper sampleLineParam() {
    DlpLineV2ParamWrapper p;
    p.machineName = "M1";
    p.layerCount = 2;
    p.resolutionX = 1440;
    p.resolutionY = 2560;
    p.machineHeight = 175.5F;
    p.enableXYCompensate = 1;
    p.supportPad = 0;
    p.autoAllSupport = 7;  // any but zero is true
    p.supportDensity = 0.5F;
    p.blurPixel = 2;
    p.platformX = 68.04F;
    p.platformY = 120.96F;
    p.thickness = 0.05F;
    p.exposure_time = 80;
    p.light_off_delay = 2;
    p.first_exposure_time = 40;
    p.first_layer_count = 5;
    p.first_lift_distance = 8;
    p.first_lift_speed = 65;
    p.lifting_distance = 6;
    p.lifting_speed = 120;
    p.retract_speed = 180;
    p.firstBrightnessPVM = 255;
    p.brightnessPVM = 65536 + 200;  // the low 16 bits stay
    p.zThrough = -1;
    p.enableAliasing = 1;
    p.minGray = 16;
    p.maxGray = 255;
    return p;
}

/// A triangle and an open polyline; the other layer is empty.
inline Paths samplePaths() {
    return {{Vec3i(10000, 20000, 0), Vec3i(12000, 20000, 0), Vec3i(11000, 23000, 0), Vec3i(10000, 20000, 0)},
            {Vec3i(-5, 0, 0), Vec3i(2147483647, -2147483647, 0)}};
}

/// Areas as given to the writers, and as stored.
constexpr double kSampleAreas[] = {3000000.0, 499.0};
constexpr unsigned kStoredAreas[] = {3000, 0};

/// The pictures of the head, black unless given, each with its tag.
inline void addLinePreviews(Bytes& b, const std::vector<std::vector<unsigned char>>& pixels = {}) {
    const std::size_t sizes[] = {26912, 168200, 168200};
    for (std::size_t i = 0; i < 3; ++i) {
        if (i < pixels.size()) {
            b.raw(pixels[i]);
        } else {
            b.fill(sizes[i], 0);
        }
        b.tag();
    }
}

struct LineSample {
    Bytes bytes;
    std::size_t previews = 0;  ///< offsets where the sections begin
    std::size_t parameters = 0;
    std::size_t table = 0;
    std::size_t imageParam = 0;
    std::size_t layers = 0;
    std::size_t tail = 0;
};

/// Everything in front of the layers.
inline LineSample lineSampleHead(const std::vector<std::vector<unsigned char>>& previews = {}) {
    LineSample s;
    Bytes& b = s.bytes;
    b.string("VNLINEV2").u16(2).string("M1").u16(2).u16(1440).u16(2560);
    // height in micrometres, flags, density, blur, line exposure, volume, model x, y, z, reserved
    b.u32(175500).u32(0x101).f32(0.5F).u32(2).u16(0).f32(0).f32(0).f32(0).f32(0).fill(30, 0);
    s.previews = b.size();
    addLinePreviews(b, previews);
    s.parameters = b.size();
    b.text("68.040001").text("120.959999").text("0.050000");
    for (const unsigned value : {80, 2, 40, 5, 8, 65, 6, 120, 180, 255, 200}) b.u16(value);
    s.table = b.size();
    b.u32(kStoredAreas[0]).u32(kStoredAreas[1]).tag();
    s.imageParam = b.size();
    b.u16(0xFFFF).u16(1).u16(16).u16(255).tag();
    s.layers = b.size();
    return s;
}

inline void addLineTail(LineSample& s) {
    s.tail = s.bytes.size();
    s.bytes.string("VNLINEV2");
    sealWithCrc(s.bytes);
}

inline LineSample lineSample(const std::vector<std::vector<unsigned char>>& previews = {}) {
    LineSample s = lineSampleHead(previews);
    Bytes& b = s.bytes;
    b.u32(kStoredAreas[0]).u32(2);  // area, polylines
    b.u32(4).u32(10000).u32(20000).u32(12000).u32(20000).u32(11000).u32(23000).u32(10000).u32(20000);  // points
    b.u32(2).u32(0xFFFFFFFB).u32(0).u32(0x7FFFFFFF).u32(0x80000001).tag();
    b.u32(kStoredAreas[1]).u32(0).tag();
    addLineTail(s);
    return s;
}

/// Writes the sample through the wrapper; the result of `writeTail`.
inline int writeLineSample(const std::string& file) {
    VnLineV2WriteWrapper writer;
    if (writer.open(file) < 0) return -1;
    writer.setDlpLineV2Param(sampleLineParam());
    writer.setGrayPreview116X116(nullptr);
    writer.setGrayPreview290X290(nullptr, 0);
    writer.setGrayPreview290X290(nullptr, 1);
    if (!writer.writeDlpStructure()) return -2;
    writer.setLayerPath(0, samplePaths(), kSampleAreas[0]);
    writer.setLayerPath(1, {}, kSampleAreas[1]);
    return writer.writeTail();
}

}  // namespace vndlp::test
