/// The line file the tests share: the records that make the worked file of docs/format-vnline.md.

#pragma once

#include "support/golden.h"

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

/// The worked file of the format's page.
inline const Golden& linePage() {
    static const Golden page(VNDLP_DOCS_DIR "/format-vnline.md");
    return page;
}

struct LineSample {
    Bytes bytes = linePage().bytes;
    std::size_t previews = 0x5C;  ///< offsets where the sections begin
    std::size_t parameters = linePage().section("parameters").offset();
    std::size_t layers = linePage().section("layers").offset();
    std::size_t tail = linePage().section("tail").offset();
};

/// Everything in front of the layers.
inline LineSample lineSampleHead() {
    LineSample s;
    s.bytes.resize(s.layers);
    return s;
}

inline void addLineTail(LineSample& s) {
    s.tail = s.bytes.size();
    s.bytes.string("VNLINEV2");
    sealWithCrc(s.bytes);
}

/// The sample with these pixels as its previews, black unless given.
inline LineSample lineSample(const std::vector<std::vector<unsigned char>>& previews = {}) {
    LineSample s;
    auto to = s.bytes.begin() + static_cast<std::ptrdiff_t>(s.previews);
    for (const std::vector<unsigned char>& pixels : previews) to = std::copy(pixels.begin(), pixels.end(), to) + 2;
    s.bytes.resize(s.bytes.size() - 4);
    sealWithCrc(s.bytes);
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
