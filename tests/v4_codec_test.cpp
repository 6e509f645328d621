#include "support/v4.h"

#include <random>

namespace vndlp::test {
namespace {

using namespace VNDLPV4;

Bytes encoded(const Bytes& pixels, unsigned int key = 0, unsigned int layer = 0) {
    return LayerDef::encodeImage(pixels.data(), pixels.size(), key, layer);
}

LampBeadCal quietField() {
    LampBeadCal field;
    field.m_printBuild = false;
    initPrinterBeadField(field);
    return field;
}

/// The mask of an image in the plain form: each row's lit runs reported one by one.
Bytes plainMask(LampBeadCal& field, const Bytes& pixels, unsigned int width, unsigned int height) {
    field.reset();
    Bytes mask(field.m_maskBytes);
    const auto lit = [&](unsigned int x, unsigned int y) {
        return x < width && pixels[std::size_t{y} * width + x] >= 2;
    };
    for (unsigned int y = 0; y < height; ++y) {
        for (unsigned int x = 0; x < width; ++x) {
            if (!lit(x, y)) continue;
            const unsigned int first = x;
            while (lit(x, y)) ++x;
            field.getsubzonedata(y * 15120 + first, y * 15120 + x, mask);
        }
    }
    return mask;
}

/// Random rows of runs, their greys from dark to bright.
Bytes randomImage(std::mt19937& random, unsigned int width, unsigned int height, unsigned int longest) {
    Bytes pixels;
    pixels.reserve(std::size_t{width} * height);
    while (pixels.size() < std::size_t{width} * height) {
        const auto grey = static_cast<unsigned char>(random() % 2 == 0 ? random() % 4 : random());
        pixels.insert(pixels.end(), 1 + random() % longest, grey);
    }
    pixels.resize(std::size_t{width} * height);
    return pixels;
}

TEST(V4LayerCode, SplitsRunsThatHaveNoLength) {
    static const Bytes row(65535);
    const auto black = [](unsigned int) { return row.data(); };
    // 4097 x 65535 = 268496895 pixels: one run of 0x0FFFFFFF and one of 61440
    EXPECT_EQ(LayerDef::encodeImage_16k(65535, 4097, black, 0, 0),
              (Bytes{0x80, 0xEF, 0xFF, 0xFF, 0xFF, 0x80, 0xC0, 0xF0, 0x00}));
}

TEST(V4LayerCode, WideOrLargeImagesAreTakenRowByRow) {
    EXPECT_FALSE(LayerDef::is16k(15360, 4369));
    EXPECT_TRUE(LayerDef::is16k(15361, 1));
    EXPECT_FALSE(LayerDef::is16k(8192, 8192));
    EXPECT_TRUE(LayerDef::is16k(8192, 8193));
    EXPECT_TRUE(LayerDef::is16k(15120, 6230));
}

TEST(V4SubZone, MasksTheLitRunsOfEachRow) {
    LampBeadCal field = quietField();
    LampBeadCal plain = field;
    std::mt19937 random(3);
    for (const auto& [width, height, longest] :
         {std::array{15120u, 900u, 9000u}, {15120u, 300u, 40u}, {640u, 2000u, 900u}}) {
        const Bytes pixels = randomImage(random, width, height, longest);
        Bytes mask;
        const Bytes code = LayerDef::encodeImageSubZone(pixels.data(), width, height, 0, 0, field, mask);
        EXPECT_EQ(code, encoded(pixels));
        EXPECT_EQ(mask, plainMask(plain, pixels, width, height));
        EXPECT_EQ(LayerDef::beadMaskOfCode(code, width, field), mask);
    }
}

TEST(V4SubZone, LeavesOutWhatLiesBeyondTheScreen) {
    LampBeadCal field = quietField();
    Bytes pixels(16000 * 2);
    Bytes mask;
    std::fill(pixels.begin() + 15120, pixels.begin() + 16000, static_cast<unsigned char>(255));
    LayerDef::encodeImageSubZone(pixels.data(), 16000, 2, 0, 0, field, mask);
    EXPECT_EQ(mask, Bytes(68));
    EXPECT_EQ(LayerDef::beadMaskOfCode({0x80, 0xE5, 0x9D, 0x57, 0x60, 0x7F}, 15120, field), Bytes(68)) << "row 6230";
    EXPECT_EQ(LayerDef::beadMaskOfCode({0x7F}, 0, field), Bytes(68));
}

}  // namespace
}  // namespace vndlp::test
