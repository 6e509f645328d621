#include "support/ctb.h"

#include <algorithm>
#include <climits>
#include <random>

namespace vndlp::test {
namespace {

Bytes encoded(Bytes pixels) {
    return CTB::LayerDef::encodeCtbImage(pixels.data(), static_cast<unsigned int>(pixels.size()), 0, 0);
}

Bytes runOf(std::size_t count, unsigned char value) { return Bytes(count, value); }

/// Calls `check(left, right)` with both sides of examples like "02 04 = 01 02", in hexadecimal digits.
template <class Check>
void forEach(const std::vector<std::string>& examples, Check&& check) {
    for (const std::string& example : examples) {
        SCOPED_TRACE(example);
        const std::size_t middle = example.find('=');
        check(hex(example.substr(0, middle)), hex(example.substr(middle + 1)));
    }
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

// runs of a layer

TEST_F(LayerCodeTest, EncodesEveryLengthFormAtItsLimits) {
    forEach({"=", "FE = 7F", "00 = 00", "02 04 = 01 02", "02 03 02 = 81 03", "FF FF FF = FF 03"},
            [](const Bytes& pixels, const Bytes& code) { EXPECT_EQ(encoded(pixels), code); });
    struct Row {
        std::size_t count;
        unsigned char value;
        const char* code;
    };
    const Row rows[] = {{0x7F, 0, "80 7F"},
                        {0x80, 0, "80 80 80"},
                        {200, 0, "80 80 C8"},
                        {0x3FFF, 0, "80 BF FF"},
                        {0x4000, 9, "84 C0 40 00"},
                        {0x1FFFFF, 255, "FF DF FF FF"},
                        {0x200000, 255, "FF E0 20 00 00"}};
    for (const Row& row : rows) EXPECT_EQ(encoded(runOf(row.count, row.value)), hex(row.code));

    // runs too long for an image: the longest that has a length, and one more
    Bytes out;
    for (auto [count, value, flagged] :
         {std::array{0u, 5u, 5u}, {1, 5, 5}, {0x0FFFFFFF, 6, 0x86}, {1 << 28, 7, 0x87}}) {
        auto grey = static_cast<unsigned char>(value);
        CTB::LayerDef::addRep(count, grey, out);
        EXPECT_EQ(grey, flagged);
    }
    EXPECT_EQ(out, (Bytes{5, 0x86, 0xEF, 0xFF, 0xFF, 0xFF, 0x87}));
}

TEST_F(LayerCodeTest, DecodesEveryLengthFormAndStaysInsideTheImage) {
    // among them a run of no pixels, two first bytes of no length form (one pixel), and four runs cut off
    forEach({"80 05 7F = 00 00 00 00 00 FF", "01 02 = 03 05", "81 80 02 = 03 03 00", "81 C0 00 02 = 03 03 00",
             "81 E0 00 00 02 = 03 03 00", "FF EF FF FF FF 01 = FF FF FF FF", "7F = FF 00 00 00", "= 00 00",
             "7F =", "81 00 02 = 05 00 00", "81 F0 02 = 03 05 00", "81 FF 02 = 03 05 00", "01 FF = 03 00 00",
             "01 FF 80 = 03 00 00", "01 FF C0 00 = 03 00 00", "01 FF E0 00 00 = 03 00 00"},
            [this](const Bytes& code, const Bytes& pixels) {
                EXPECT_EQ(decoded(code, static_cast<unsigned int>(pixels.size()), 1), pixels);
            });
    const Bytes blank = decoded({0x80, 0xE5, 0x9D, 0x57, 0x10}, 15120, 6230);
    EXPECT_EQ(std::count(blank.begin(), blank.end(), 0), 94197600);
}

TEST_F(LayerCodeTest, RefusesImagesTooLargeToBeMeantAndTellsOfCodesCutShort) {
    Bytes pixels;
    for (const auto& [width, height] :
         {std::pair{(1u << 28) + 1, 1u}, {1u, (1u << 28) + 1}, {65535u, 4097u}, {0xFFFFFFFFu, 0xFFFFFFFFu}}) {
        pixels = {1};
        const auto decode = [&, w = width, h = height] { pixels = CTB::LayerDef().decodeCtbImage(w, h, 0, 0); };
        EXPECT_TRUE(isOneErrorLine(printedBy(decode), "pixels"));
        EXPECT_TRUE(pixels.empty());
    }
    // only the pixels count, not the sides
    CTB::PreView preView;
    for (const auto& [width, height] : {std::pair{65536u, 1u}, {1u, 65536u}, {2097153u, 1u}}) {
        EXPECT_EQ(CTB::LayerDef().decodeCtbImage(width, height, 0, 0), Bytes(width * height));
        preView.resolutionX = width;
        preView.resolutionY = height;
        EXPECT_EQ(preView.decodeImg(nullptr, 0), Bytes(3 * width * height));
    }
    CTB::LayerDef layer(input(Bytes{0x7F, 0x7F}));
    layer.dataSize = 0xFFFFFFFF;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { pixels = layer.decodeCtbImage(3, 1, 17, 0); }), "layer 17"));
    EXPECT_EQ(pixels, (Bytes{255, 255, 0}));
    layer.dataOffset = 3;
    const auto decodeInto = [&] { EXPECT_EQ(layer.decodeCtbImageInto(pixels.data(), 3, 17, 0), -1); };
    EXPECT_TRUE(isOneErrorLine(printedBy(decodeInto), "layer 17"));
    EXPECT_EQ(pixels, (Bytes{0, 0, 0}));
}

TEST_F(LayerCodeTest, FillSpanPaintsFromTheThresholdOnAndNeverOutside) {
    struct Row {
        int from, count;
        unsigned char value, threshold;
        int to;
    };
    const Row rows[] = {{1, 2, 9, 9, 3},  {3, 1, 8, 9, 4},   {4, 0, 9, 0, 4},
                        {4, -1, 9, 0, 4}, {4, 10, 7, 0, 14}, {14, INT_MAX, 7, 0, INT_MAX},
                        {-2, 3, 6, 0, 1}};
    CTB::LayerDef layer;
    Bytes out(5);
    for (const Row& row : rows) {
        int position = row.from;
        layer.FillSpan(out, position, row.count, row.value, row.threshold);
        EXPECT_EQ(position, row.to);
    }
    EXPECT_EQ(out, (Bytes{6, 9, 9, 0, 7}));
}

// scrambling

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

TEST(LayerScrambling, GivesTheBytesOfTheDefaultConstants) {
    if (!kDefaultConstants) GTEST_SKIP() << "built with other constants";
    const auto crypt = CTB::CTBWrite::LayerRleCrypt;
    const Bytes zeros(10);
    EXPECT_EQ(crypt(255, 0, zeros), (Bytes{0x72, 0x2E, 0x39, 0x62, 0xA4, 0xCE, 0xDA, 0x14, 0xD6, 0x6E}));
    EXPECT_EQ(crypt(255, 1, zeros), (Bytes{0x64, 0x92, 0x38, 0x16, 0x96, 0x32, 0xDA, 0xC8, 0xC8, 0xD2}));
    EXPECT_EQ(crypt(0x12345678, 7, zeros), (Bytes{0x78, 0xA4, 0xC4, 0xDD, 0x0F, 0x56, 0x7F, 0xF3, 0xA6, 0x07}));
    EXPECT_EQ(crypt(255, 1, {0x80, 0x05, 0x40, 0xFF, 0x06}), (Bytes{0xE4, 0x97, 0x78, 0xE9, 0x90}));
}

TEST(LayerScrambling, TakesItsConstantsAtRunTimeAndTellsIllustrativeOnes) {
    const auto crypt = CTB::CTBWrite::LayerRleCrypt;
    const CTB::ScramblingConstants built = CTB::scramblingConstants();
    EXPECT_EQ(CTB::areScramblingConstantsIllustrative(), kDefaultConstants);
    const Bytes zeros(10);
    const Bytes before = crypt(255, 1, zeros);
    // step = 255 * 3 - 5 = 760, state = (1 * 7 - 2) * 760 = 3800
    CTB::setScramblingConstants({3, 5, 7, 2});
    EXPECT_FALSE(CTB::areScramblingConstantsIllustrative());
    EXPECT_EQ(crypt(255, 1, zeros), Bytes().le(3800, 4).le(4560, 4).le(5320, 2));
    EXPECT_EQ(CTB::scramblingConstants().lm, 7u);
    for (unsigned CTB::ScramblingConstants::*member : {&CTB::ScramblingConstants::km, &CTB::ScramblingConstants::ks,
                                                       &CTB::ScramblingConstants::lm, &CTB::ScramblingConstants::ls}) {
        CTB::ScramblingConstants other{0x1A2B3C4D, 0x5E6F7081, 0x2468ACE1, 0x13579BDF};
        CTB::setScramblingConstants(other);
        EXPECT_TRUE(CTB::areScramblingConstantsIllustrative());
        ++(other.*member);
        CTB::setScramblingConstants(other);
        EXPECT_FALSE(CTB::areScramblingConstantsIllustrative());
    }
    CTB::setScramblingConstants(built);
    EXPECT_EQ(crypt(255, 1, zeros), before);
}

TEST_F(LayerCodeTest, IsScrambledLikeThePlainLoopAtEverySizeWhichUndoesItself) {
    std::mt19937 random(7);
    for (std::size_t size = 0; size < 70; ++size) {
        Bytes data(size);
        for (unsigned char& byte : data) byte = random() & 0xFF;
        const auto key = size == 9 ? 0 : static_cast<unsigned int>(random());  // 0 leaves everything alone
        const auto layerIndex = static_cast<unsigned int>(random());
        Bytes scrambled = data;
        CTB::CTBWrite::LayerRleCryptBuffer(key, layerIndex, scrambled);
        ASSERT_EQ(scrambled, plainScrambled(key, layerIndex, data)) << size;
        ASSERT_EQ(CTB::CTBWrite::LayerRleCrypt(key, layerIndex, scrambled), data) << size;
    }
    Bytes pixels = runOf(40, 255);
    const Bytes code = CTB::LayerDef::encodeCtbImage(pixels.data(), 40, 300, 1);
    EXPECT_EQ(code, plainScrambled(300, 1, {0xFF, 40}));
    EXPECT_EQ(decoded(code, 8, 5, 1, 300), pixels);
}

TEST_F(LayerCodeTest, IsReadInPiecesWhoseEndsMayCutARun) {
    constexpr std::size_t piece = 65536;
    for (std::size_t before = 0; before < 6; ++before) {
        Bytes pixels;
        while (pixels.size() < 2 * piece - before) pixels.u8(pixels.size() % 2 == 0 ? 101 : 201);
        pixels.fill(0x4000, 255).raw({3, 5, 7});  // four bytes of code, and three
        const auto size = static_cast<unsigned int>(pixels.size());
        const Bytes code = CTB::LayerDef::encodeCtbImage(pixels.data(), size, 777, 3);
        ASSERT_EQ(code.size(), 2 * piece - before + 7);
        pixels.fill(160000 - size, 0);
        EXPECT_EQ(decoded(code, 400, 400, 3, 777), pixels) << before;

        CTB::LayerDef layer(input(code));
        layer.dataSize = static_cast<unsigned int>(code.size());
        EXPECT_EQ(layer.codedPixelCount(3, 777), size);
        layer.dataSize -= 5;  // within the long run
        EXPECT_EQ(layer.codedPixelCount(3, 777), -1);
    }
}

// previews

Bytes pixelsOf(std::size_t count, const Bytes& pixel) {
    Bytes pixels;
    for (std::size_t i = 0; i < count; ++i) pixels.raw(pixel);
    return pixels;
}

TEST(PreviewCode, PacksTheThirdByteHighestAndRunsByTheirLength) {
    const Bytes blue{0xF8, 0, 0};
    // dropped bits, one of them only behind the comparison; missing bytes count as zero; the initial colour goes on
    CTB::PreView preView;
    forEach({"08 00 00 = 01 00", "00 08 00 = 40 00", "00 00 08 = 00 08", "FF FF FF = DF FF", "07 03 07 = 00 00",
             "00 00 00 00 04 00 00 04 00 = 00 00 00 00 00 00", "08 = 01 00", "00 00 08 00 08 = 00 08 40 00", "=",
             "F8 00 00 F8 00 00 = 1F 00 1F 00"},
            [&](Bytes pixels, const Bytes& code) {
                const auto size = static_cast<unsigned int>(pixels.size());
                EXPECT_EQ(preView.Encode(pixels.data(), size), code);
                EXPECT_EQ(preView.encodeImg(pixels.data(), size), code);
            });
    const auto coded = [&](Bytes pixels) {
        return preView.Encode(pixels.data(), static_cast<unsigned>(pixels.size()));
    };
    EXPECT_EQ(coded(pixelsOf(4095, blue)), hex("3F 00 FE 3F"));
    EXPECT_EQ(coded(pixelsOf(4096, blue)), hex("3F 00 FE 3F 1F 00"));
    EXPECT_EQ(coded(runOf(15000, 0)), hex("20 00 FE 3F 20 00 88 33"));
    preView.imageData = pixelsOf(3, blue);
    for (const unsigned int size : {9u, 0xFFFFFFFFu}) {  // no more than the buffer holds
        preView.imageSize = size;
        EXPECT_EQ(preView.Encode(), (Bytes{0x3F, 0x00, 0x02, 0x30}));
        EXPECT_EQ(preView.imageSize, 4u);
        EXPECT_EQ(preView.imageData.size(), 9u);
    }
    Bytes out{9};
    unsigned short white = 0xFFFF;
    for (unsigned int count : {0u, 1u, 3u}) preView.RleRGB15(out, count, white);
    EXPECT_EQ(out, (Bytes{9, 0xDF, 0xFF, 0xFF, 0xFF, 0x02, 0x30}));
    EXPECT_EQ(white, 0xFFFF);
}

TEST(PreviewCode, IsDecodedToTheEndOfTheImageOrTheCode) {
    CTB::PreView preView;
    // the length mark is ignored; the last but one is a run without its second length byte
    const std::pair<const char*, Bytes> examples[] = {{"DF FF", runOf(3, 0xF8)},
                                                      {"61 10 01 F0", hex("08 08 10 08 08 10 00 00 00")},
                                                      {"20 00 FE 3F DF FF", runOf(12285, 0).fill(3, 0xF8)},
                                                      {"FF FF FF 3F", runOf(6, 0xF8)},
                                                      {"DF FF FF", hex("F8 F8 F8 00 00 00")},
                                                      {"FF FF FF", runOf(3, 0)},
                                                      {"", runOf(3, 0)}};
    for (const auto& [code, pixels] : examples) {
        Bytes bytes = hex(code);
        preView.resolutionX = static_cast<unsigned int>(pixels.size() / 3);
        preView.resolutionY = 1;
        EXPECT_EQ(preView.decodeImg(bytes.data(), static_cast<unsigned int>(bytes.size())), pixels) << code;
    }
    preView.resolutionX = 4097;
    preView.resolutionY = 4096;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(preView.decodeImg(nullptr, 0).empty()); }), "preview"));
}

}  // namespace
}  // namespace vndlp::test
