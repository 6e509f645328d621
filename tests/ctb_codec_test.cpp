#include "support/ctb.h"

#include <algorithm>
#include <climits>
#include <random>

namespace vndlp::test {
namespace {

Bytes encoded(Bytes pixels) {
    return CTB::LayerDef::encodeCtbImage(pixels.data(), static_cast<unsigned int>(pixels.size()), 0, 0);
}

class LayerCodeTest : public CtbTest {
protected:
    /// Decodes a code that stands at offset 5 of a file.
    Bytes decoded(const Bytes& code, unsigned int width, unsigned int height, unsigned int layerIndex = 0,
                  unsigned int key = 0) {
        CTB::LayerDef layer(input(Bytes().fill(5, 0).raw(code).raw("behind")));
        layer.dataOffset = 5;
        layer.dataSize = static_cast<unsigned int>(code.size());
        const std::vector<unsigned char> pixels = layer.decodeCtbImage(width, height, layerIndex, key);

        Bytes into(pixels.size(), 0xAA);
        EXPECT_EQ(layer.decodeCtbImageInto(into.data(), into.size(), layerIndex, key), 0);
        EXPECT_EQ(into, pixels);
        return into;
    }
};
using LayerScramblingTest = LayerCodeTest;

Bytes runOf(std::size_t count, unsigned char value) { return Bytes(count, value); }

TEST_F(LayerCodeTest, EncodesTheDocumentedExamples) {
    EXPECT_EQ(encoded({}), Bytes{});
    EXPECT_EQ(encoded({255, 255, 255}), (Bytes{0xFF, 0x03}));
    EXPECT_EQ(encoded({254}), Bytes{0x7F});
    EXPECT_EQ(encoded({0}), Bytes{0x00});
    EXPECT_EQ(encoded({2, 4}), (Bytes{0x01, 0x02}));
    EXPECT_EQ(encoded({2, 3, 2}), (Bytes{0x81, 0x03}));
}

TEST_F(LayerCodeTest, EncodesEveryLengthFormAtItsLimits) {
    EXPECT_EQ(encoded(runOf(0x7F, 0)), (Bytes{0x80, 0x7F}));
    EXPECT_EQ(encoded(runOf(0x80, 0)), (Bytes{0x80, 0x80, 0x80}));
    EXPECT_EQ(encoded(runOf(200, 0)), (Bytes{0x80, 0x80, 0xC8}));
    EXPECT_EQ(encoded(runOf(0x3FFF, 0)), (Bytes{0x80, 0xBF, 0xFF}));
    EXPECT_EQ(encoded(runOf(0x4000, 9)), (Bytes{0x84, 0xC0, 0x40, 0x00}));
    EXPECT_EQ(encoded(runOf(0x1FFFFF, 255)), (Bytes{0xFF, 0xDF, 0xFF, 0xFF}));
    EXPECT_EQ(encoded(runOf(0x200000, 255)), (Bytes{0xFF, 0xE0, 0x20, 0x00, 0x00}));
}

TEST_F(LayerCodeTest, AddRepFlagsTheValueInPlaceAndWritesNoLengthBeyondTheLongest) {
    Bytes out;
    const auto add = [&out](unsigned int count, unsigned char value) {
        CTB::LayerDef::addRep(count, value, out);
        return value;
    };
    EXPECT_EQ(add(0, 5), 5);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(add(1, 5), 5);
    EXPECT_EQ(add(2, 5), 0x85);
    EXPECT_EQ(add(0x0FFFFFFF, 6), 0x86);
    EXPECT_EQ(add(0x10000000, 7), 0x87);
    EXPECT_EQ(out, (Bytes{5, 0x85, 2, 0x86, 0xEF, 0xFF, 0xFF, 0xFF, 0x87}));
}

/// The encoding as it is defined: one comparison per pixel.
Bytes plainEncoded(const Bytes& pixels) {
    Bytes out;
    unsigned char grey = 127;
    unsigned int count = 0;
    for (const unsigned char pixel : pixels) {
        if (pixel >> 1 == grey) {
            ++count;
            continue;
        }
        CTB::LayerDef::addRep(count, grey, out);
        grey = static_cast<unsigned char>(pixel >> 1);
        count = 1;
    }
    CTB::LayerDef::addRep(count, grey, out);
    return out;
}

TEST_F(LayerCodeTest, FindsRunEndsLikeThePlainLoopAtEveryLengthAndAlignment) {
    // two runs of every length around the words the encoder compares, behind 0 to 8 single pixels
    for (std::size_t lead = 0; lead < 9; ++lead) {
        for (std::size_t length = 1; length < 90; ++length) {
            Bytes pixels;
            for (std::size_t i = 0; i < lead; ++i) pixels.push_back(static_cast<unsigned char>(20 + 2 * i));
            for (std::size_t i = 0; i < length; ++i) pixels.push_back(i % 2 == 0 ? 100 : 101);
            pixels.insert(pixels.end(), length, 102);
            ASSERT_EQ(encoded(pixels), plainEncoded(pixels)) << lead << ' ' << length;
        }
    }
}

TEST_F(LayerCodeTest, EncodesAndDecodesRandomImagesLikeThePlainLoop) {
    std::mt19937 random(20240607);
    for (int round = 0; round < 300; ++round) {
        Bytes pixels;
        const std::size_t longest = std::size_t{1} << random() % 12;
        while (pixels.size() < 30000) pixels.insert(pixels.end(), random() % longest + 1, random() & 0xFF);
        pixels.resize(30000);
        const Bytes code = encoded(pixels);
        ASSERT_EQ(code, plainEncoded(pixels)) << round;
        for (unsigned char& pixel : pixels) pixel = static_cast<unsigned char>(pixel < 2 ? 0 : pixel | 1);
        ASSERT_EQ(decoded(code, 300, 100), pixels) << round;
    }
}

TEST_F(LayerCodeTest, DecodesTheDocumentedExamples) {
    EXPECT_EQ(decoded({0x80, 0x05, 0x7F}, 6, 1), (Bytes{0, 0, 0, 0, 0, 255}));
    EXPECT_EQ(decoded({0x01, 0x02}, 1, 2), (Bytes{3, 5}));
}

TEST_F(LayerCodeTest, DecodesEveryLengthForm) {
    EXPECT_EQ(decoded({0x81, 0x80, 0x02}, 3, 1), (Bytes{3, 3, 0}));
    EXPECT_EQ(decoded({0x81, 0xC0, 0x00, 0x02}, 3, 1), (Bytes{3, 3, 0}));
    EXPECT_EQ(decoded({0x81, 0xE0, 0x00, 0x00, 0x02}, 3, 1), (Bytes{3, 3, 0}));
    EXPECT_EQ(decoded({0x81, 0x00, 0x02}, 3, 1), (Bytes{5, 0, 0})) << "a run of no pixels";
    for (const unsigned char first : Bytes{0xF0, 0xFF}) {
        EXPECT_EQ(decoded({0x81, first, 0x02}, 3, 1), (Bytes{3, 5, 0})) << "no length form: one pixel";
    }
}

TEST_F(LayerCodeTest, DecodesALargeBlankLayerFromFiveBytes) {
    const Bytes pixels = decoded({0x80, 0xE5, 0x9D, 0x57, 0x10}, 15120, 6230);
    EXPECT_EQ(pixels.size(), 94197600u);
    EXPECT_EQ(std::count(pixels.begin(), pixels.end(), 0), 94197600);
}

TEST_F(LayerCodeTest, StopsAtTheEndOfTheImageAndLeavesWhatTheCodeDoesNotCover) {
    EXPECT_EQ(decoded({0xFF, 0xEF, 0xFF, 0xFF, 0xFF, 0x01}, 2, 2), runOf(4, 255));
    EXPECT_EQ(decoded({0x7F}, 2, 2), (Bytes{255, 0, 0, 0}));
    EXPECT_EQ(decoded({}, 2, 1), (Bytes{0, 0}));
    EXPECT_EQ(decoded({0x7F}, 0, 9), Bytes{});
}

TEST_F(LayerCodeTest, LeavesOutARunThatTheCodeCutsOff) {
    for (const Bytes& cut : {Bytes{0xFF}, Bytes{0xFF, 0x80}, Bytes{0xFF, 0xC0, 0x00}, Bytes{0xFF, 0xE0, 0x00, 0x00}}) {
        EXPECT_EQ(decoded(Bytes().raw(Bytes{0x01}).raw(cut), 3, 1), (Bytes{3, 0, 0}));
    }
}

TEST_F(LayerCodeTest, RefusesImagesTooLargeToBeMeant) {
    for (const auto& [width, height] :
         {std::pair{65536u, 1u}, {1u, 65536u}, {65535u, 4097u}, {0xFFFFFFFFu, 0xFFFFFFFFu}}) {
        Bytes pixels{1};
        const std::string printed =
            printedBy([&, w = width, h = height] { pixels = CTB::LayerDef().decodeCtbImage(w, h, 0, 0); });
        EXPECT_TRUE(pixels.empty());
        EXPECT_TRUE(isOneErrorLine(printed, "pixels"));
    }
}

TEST_F(LayerCodeTest, DecodesWhatTheFileHoldsOfACodeAndSaysSo) {
    FileRead& in = input(Bytes{0x7F, 0x7F});
    CTB::LayerDef layer(in);
    layer.dataSize = 0xFFFFFFFF;
    Bytes pixels;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { pixels = layer.decodeCtbImage(3, 1, 17, 0); }), "layer 17"));
    EXPECT_EQ(pixels, (Bytes{255, 255, 0}));
    layer.dataOffset = 3;
    int result = 0;
    EXPECT_TRUE(isOneErrorLine(
        printedBy([&] { result = layer.decodeCtbImageInto(pixels.data(), pixels.size(), 17, 0); }), "layer 17"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(pixels, (Bytes{0, 0, 0}));
}

TEST_F(LayerCodeTest, FillSpanPaintsFromTheThresholdOnAndNeverOutside) {
    CTB::LayerDef layer;
    Bytes out(5);
    int position = 1;
    layer.FillSpan(out, position, 2, 9, 9);
    EXPECT_EQ(position, 3);
    layer.FillSpan(out, position, 1, 8, 9);
    EXPECT_EQ(position, 4);
    layer.FillSpan(out, position, 0, 9, 0);
    layer.FillSpan(out, position, -1, 9, 0);
    EXPECT_EQ(position, 4);
    layer.FillSpan(out, position, 10, 7, 0);
    EXPECT_EQ(position, 14);
    layer.FillSpan(out, position, INT_MAX, 7, 0);
    EXPECT_EQ(position, INT_MAX);
    position = -2;
    layer.FillSpan(out, position, 3, 6, 0);
    EXPECT_EQ(position, 1);
    EXPECT_EQ(out, (Bytes{6, 9, 9, 0, 7}));
}

constexpr bool kDefaultConstants = VNDLP_CTB_KM == 0x1A2B3C4D && VNDLP_CTB_KS == 0x5E6F7081 &&
                                   VNDLP_CTB_LM == 0x2468ACE1 && VNDLP_CTB_LS == 0x13579BDF;

/// The scrambling as it is defined: byte by byte.
Bytes plainScrambled(std::uint32_t key, std::uint32_t layerIndex, Bytes data) {
    if (key == 0) return data;
    const std::uint32_t step = key * VNDLP_CTB_KM - VNDLP_CTB_KS;
    std::uint32_t state = (layerIndex * VNDLP_CTB_LM - VNDLP_CTB_LS) * step;
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(data[i] ^ state >> 8 * (i % 4));
        if (i % 4 == 3) state += step;
    }
    return data;
}

TEST_F(LayerScramblingTest, GivesTheBytesOfTheDefaultConstants) {
    if (!kDefaultConstants) GTEST_SKIP() << "built with other constants";
    const Bytes zeros(10);
    EXPECT_EQ(CTB::CTBWrite::LayerRleCrypt(255, 0, zeros),
              (Bytes{0x72, 0x2E, 0x39, 0x62, 0xA4, 0xCE, 0xDA, 0x14, 0xD6, 0x6E}));
    EXPECT_EQ(CTB::CTBWrite::LayerRleCrypt(255, 1, zeros),
              (Bytes{0x64, 0x92, 0x38, 0x16, 0x96, 0x32, 0xDA, 0xC8, 0xC8, 0xD2}));
    EXPECT_EQ(CTB::CTBWrite::LayerRleCrypt(0x12345678, 7, zeros),
              (Bytes{0x78, 0xA4, 0xC4, 0xDD, 0x0F, 0x56, 0x7F, 0xF3, 0xA6, 0x07}));
    EXPECT_EQ(CTB::CTBWrite::LayerRleCrypt(255, 1, {0x80, 0x05, 0x40, 0xFF, 0x06}),
              (Bytes{0xE4, 0x97, 0x78, 0xE9, 0x90}));
}

TEST_F(LayerScramblingTest, AgreesWithThePlainLoopAtEverySizeAndUndoesItself) {
    std::mt19937 random(7);
    for (std::size_t size = 0; size < 70; ++size) {
        Bytes data(size);
        for (unsigned char& byte : data) byte = random() & 0xFF;
        const auto key = static_cast<unsigned int>(random());
        const auto layerIndex = static_cast<unsigned int>(random());
        Bytes scrambled = data;
        CTB::CTBWrite::LayerRleCryptBuffer(key, layerIndex, scrambled);
        ASSERT_EQ(scrambled, plainScrambled(key, layerIndex, data)) << size;
        ASSERT_EQ(CTB::CTBWrite::LayerRleCrypt(key, layerIndex, scrambled), data) << size;
    }
}

TEST_F(LayerScramblingTest, LeavesEverythingAloneForKeyZero) {
    EXPECT_EQ(CTB::CTBWrite::LayerRleCrypt(0, 5, {1, 2, 3, 4, 5}), (Bytes{1, 2, 3, 4, 5}));
}

TEST_F(LayerScramblingTest, CoversTheCodeOfALayerByItsIndex) {
    Bytes pixels = runOf(40, 255);
    const Bytes layer0 = CTB::LayerDef::encodeCtbImage(pixels.data(), 40, 300, 0);
    const Bytes layer1 = CTB::LayerDef::encodeCtbImage(pixels.data(), 40, 300, 1);
    EXPECT_EQ(layer1, plainScrambled(300, 1, {0xFF, 40}));
    EXPECT_NE(layer0, layer1);
    EXPECT_EQ(decoded(layer1, 8, 5, 1, 300), pixels);
}

Bytes previewCode(Bytes pixels) {
    return CTB::PreView().Encode(pixels.data(), static_cast<unsigned int>(pixels.size()));
}

Bytes pixelsOf(std::size_t count, const Bytes& pixel) {
    Bytes pixels;
    for (std::size_t i = 0; i < count; ++i) pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    return pixels;
}

Bytes previewPixels(const Bytes& code, unsigned int width, unsigned int height) {
    CTB::PreView preView;
    preView.resolutionX = width;
    preView.resolutionY = height;
    Bytes copy = code;
    return preView.decodeImg(copy.data(), static_cast<unsigned int>(copy.size()));
}

TEST(PreviewCodeTest, PacksTheThirdByteHighestAndClearsTheRepeatFlag) {
    EXPECT_EQ(previewCode({0x08, 0, 0}), (Bytes{0x01, 0x00}));
    EXPECT_EQ(previewCode({0, 0x08, 0}), (Bytes{0x40, 0x00}));
    EXPECT_EQ(previewCode({0, 0, 0x08}), (Bytes{0x00, 0x08}));
    EXPECT_EQ(previewCode({0xFF, 0xFF, 0xFF}), (Bytes{0xDF, 0xFF}));
    EXPECT_EQ(previewCode({7, 3, 7}), (Bytes{0, 0})) << "the dropped bits";
}

TEST(PreviewCodeTest, EncodesRunsByTheirLength) {
    const Bytes blue{0xF8, 0, 0};
    EXPECT_EQ(previewCode(pixelsOf(2, blue)), (Bytes{0x1F, 0x00, 0x1F, 0x00}));
    EXPECT_EQ(previewCode(pixelsOf(3, blue)), (Bytes{0x3F, 0x00, 0x02, 0x30}));
    EXPECT_EQ(previewCode(pixelsOf(4095, blue)), (Bytes{0x3F, 0x00, 0xFE, 0x3F}));
    EXPECT_EQ(previewCode(pixelsOf(4096, blue)), (Bytes{0x3F, 0x00, 0xFE, 0x3F, 0x1F, 0x00}));
    // 5000 black pixels: the first run continues the encoder's initial colour
    EXPECT_EQ(previewCode(pixelsOf(5000, {0, 0, 0})), (Bytes{0x20, 0x00, 0xFE, 0x3F, 0x20, 0x00, 0x88, 0x33}));
}

TEST(PreviewCodeTest, SeparatesNeighboursThatDifferOnlyInTheBitItDrops) {
    EXPECT_EQ(previewCode({0, 0, 0, 0, 4, 0, 0, 4, 0}), (Bytes{0, 0, 0, 0, 0, 0}));
}

TEST(PreviewCodeTest, CountsMissingBytesOfTheLastPixelAsZero) {
    EXPECT_EQ(previewCode({0x08}), (Bytes{0x01, 0x00}));
    EXPECT_EQ(previewCode({0, 0, 0x08, 0, 0x08}), (Bytes{0x00, 0x08, 0x40, 0x00}));
    EXPECT_EQ(previewCode({}), Bytes{});
}

TEST(PreviewCodeTest, EncodesTheRecordsOwnPixelsAndSetsTheSize) {
    CTB::PreView preView;
    preView.imageData = pixelsOf(3, {0xF8, 0, 0});
    preView.imageSize = 9;
    EXPECT_EQ(preView.Encode(), (Bytes{0x3F, 0x00, 0x02, 0x30}));
    EXPECT_EQ(preView.imageSize, 4u);
    EXPECT_EQ(preView.imageData.size(), 9u);
    preView.imageSize = 0xFFFFFFFF;
    EXPECT_EQ(preView.Encode().size(), 4u) << "no more than the buffer holds";
    EXPECT_EQ(preView.encodeImg(preView.imageData.data(), 9), (Bytes{0x3F, 0x00, 0x02, 0x30}));
}

TEST(PreviewCodeTest, RleRgb15AppendsOneRun) {
    CTB::PreView preView;
    Bytes out{9};
    unsigned short colour = 0xFFFF;
    for (unsigned int count : {0u, 1u, 3u}) preView.RleRGB15(out, count, colour);
    EXPECT_EQ(out, (Bytes{9, 0xDF, 0xFF, 0xFF, 0xFF, 0x02, 0x30}));
    EXPECT_EQ(colour, 0xFFFF);
}

TEST(PreviewCodeTest, DecodesFiveBitsAByteAndIgnoresTheLengthMark) {
    EXPECT_EQ(previewPixels({0xDF, 0xFF}, 1, 1), (Bytes{0xF8, 0xF8, 0xF8}));
    EXPECT_EQ(previewPixels({0x61, 0x10, 0x01, 0xF0}, 3, 1), (Bytes{8, 8, 16, 8, 8, 16, 0, 0, 0}));
    EXPECT_EQ(previewPixels({0x20, 0x00, 0xFE, 0x3F, 0xDF, 0xFF}, 64, 64),
              Bytes().fill(4095 * 3, 0).raw(Bytes{0xF8, 0xF8, 0xF8}));
}

TEST(PreviewCodeTest, StopsAtTheEndOfTheImageOrTheCode) {
    EXPECT_EQ(previewPixels({0xFF, 0xFF, 0xFF, 0x3F}, 1, 2), runOf(6, 0xF8));
    EXPECT_EQ(previewPixels({0xDF, 0xFF, 0xFF}, 1, 2), (Bytes{0xF8, 0xF8, 0xF8, 0, 0, 0}));
    EXPECT_EQ(previewPixels({0xFF, 0xFF, 0xFF}, 1, 1), (Bytes{0, 0, 0})) << "a run without its second length byte";
    EXPECT_EQ(previewPixels({}, 1, 1), (Bytes{0, 0, 0}));
}

TEST(PreviewCodeTest, RefusesImagesTooLargeToBeMeant) {
    Bytes pixels{1};
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { pixels = previewPixels({}, 4097, 4096); }), "preview"));
    EXPECT_TRUE(pixels.empty());
}

}  // namespace
}  // namespace vndlp::test
