#include "image/white_data.h"

#include "io/report.h"

#include <cmath>

namespace vndlp {

namespace {

/// A coordinate as a whole number, truncated; what no int can hold (or is no number) becomes the nearest it can.
int wholePixel(float value) {
    if (!(value > -2147483648.0F)) return std::isnan(value) ? 0 : INT32_MIN;
    return value < 2147483648.0F ? static_cast<int>(value) : INT32_MAX;
}

}  // namespace

int grayDataVecWhiteData(unsigned char* data, int width, int height, std::vector<WhiteData>& runs) {
    RunBuilder(data, width, height, width).run([&runs](const PixelRun& run) {
        WhiteData& out = runs.emplace_back();
        const auto x = static_cast<float>(run.x);
        out.start = Vec2(x, static_cast<float>(run.firstRow));
        out.end = Vec2(x, static_cast<float>(run.lastRowInclusive));
        out.grey = run.grey;
    });
    return 0;
}

int dlpImageGray2VecWhiteData(DlpImage& image, std::vector<WhiteData>& runs) {
    if (image.pixelWidth() != DlpImage::PIXEL_GRAY8) {
        report("image must be gray\n");
        return -1;
    }
    if (!image.haveDatas()) return 0;
    return grayDataVecWhiteData(reinterpret_cast<unsigned char*>(image.bits()), image.width(), image.height(), runs);
}

void grayDataPackedRuns(const unsigned char* data, int width, int height, std::vector<unsigned char>& packed) {
    RunBuilder(data, width, height, width).run([&packed](const PixelRun& run) {
        unsigned char bytes[kPackedRunBytes];
        packRun(static_cast<unsigned>(run.firstRow), static_cast<unsigned>(run.lastRowInclusive),
                static_cast<unsigned>(run.x), run.grey, bytes);
        packed.insert(packed.end(), bytes, bytes + kPackedRunBytes);
    });
}

void whiteData2Bits(const WhiteData& run, unsigned char* const out) {
    packRun(static_cast<unsigned>(wholePixel(run.start.y)), static_cast<unsigned>(wholePixel(run.end.y)),
            static_cast<unsigned>(wholePixel(run.start.x)), static_cast<unsigned>(run.grey), out);
}

void bits2WhiteData(const unsigned char* const in, WhiteData& run) {
    const unsigned firstRow = static_cast<unsigned>(in[0]) << 5 | static_cast<unsigned>(in[1]) >> 3;
    const unsigned lastRow = (in[1] & 7u) << 10 | static_cast<unsigned>(in[2]) << 2 | static_cast<unsigned>(in[3]) >> 6;
    const auto x = static_cast<float>((in[3] & 63u) << 8 | in[4]);
    run.start = Vec2(x, static_cast<float>(firstRow));
    run.end = Vec2(x, static_cast<float>(lastRow));
    run.grey = in[5];
}

void paintWhiteData(const std::vector<WhiteData>& runs, unsigned char* pixels, int width, int height) {
    for (const WhiteData& run : runs) {
        const int x = wholePixel(run.start.x);
        if (x < 0 || x >= width) continue;
        const int first = std::max(wholePixel(run.start.y), 0);
        const int last = std::min(wholePixel(run.end.y), height - 1);
        const auto stride = static_cast<std::ptrdiff_t>(width);
        for (int y = first; y <= last; ++y) pixels[y * stride + x] = static_cast<unsigned char>(run.grey);
    }
}

}  // namespace vndlp
