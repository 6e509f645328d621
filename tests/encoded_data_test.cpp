#include "ctb/encoded_data.h"
#include "support/bytes.h"

#include <vndlp/ctb.h>

#include <random>

namespace vndlp::test {
namespace {

/// An image whose encoded data have several pieces: single pixels, short runs and long ones over row ends.
Bytes mixedImage(std::size_t width, std::size_t height) {
    std::mt19937 random(11);
    Bytes pixels;
    while (pixels.size() < width * height) {
        const std::size_t run = random() % 500 == 0 ? 1 + random() % 3000 : 1 + random() % 2;
        pixels.fill(run, random() % 3 == 0 ? 0 : random() & 0xFF);
    }
    pixels.resize(width * height);
    return pixels;
}

/// What seven bits keep of an image.
Bytes keptOf(Bytes pixels) {
    for (unsigned char& pixel : pixels) pixel = pixel < 2 ? 0 : pixel | 1;
    return pixels;
}

TEST(EncodedData, InMemoryGivePixelsRowsAndCountsAndStayAsTheyAre) {
    constexpr std::size_t width = 1000;
    constexpr std::size_t height = 1500;
    Bytes pixels = mixedImage(width, height);
    const Bytes kept = keptOf(pixels);
    for (const unsigned key : {0u, 777u}) {
        const Bytes data = CTB::LayerDef::encodeCtbImage(pixels.data(), width * height, key, 3);
        ASSERT_GT(data.size(), 3u << 16);
        const CTB::EncodedLayer layer{data.data(), data.size(), key, 3};
        const Bytes before = data;

        Bytes decoded(width * height);
        CTB::PixelDecoder decoder(decoded.data(), decoded.size());
        CTB::takePieces(layer, [&](const unsigned char* piece, std::size_t size) { return decoder.take(piece, size); });
        EXPECT_EQ(decoder.position(), decoded.size());
        EXPECT_TRUE(sameBytes(decoded, kept));

        CTB::RunCounter counter;
        CTB::takePieces(layer, [&](const unsigned char* piece, std::size_t size) { return counter.take(piece, size); });
        EXPECT_FALSE(counter.isCutOff());
        EXPECT_EQ(counter.totals().pixels, static_cast<long long>(kept.size()));
        EXPECT_EQ(counter.totals().litPixels,
                  std::count_if(kept.begin(), kept.end(), [](unsigned char grey) { return grey > 15; }));
        long long changes = 1;
        for (std::size_t i = 1; i < kept.size(); ++i) changes += kept[i] != kept[i - 1] ? 1 : 0;
        EXPECT_EQ(counter.totals().runs, changes);

        Bytes rows(width * height, 0xAA);
        const auto put = [&](std::size_t row, std::size_t column, std::size_t count, unsigned grey) {
            ASSERT_LE(column + count, width);
            std::fill_n(rows.begin() + static_cast<std::ptrdiff_t>(row * width + column), count,
                        CTB::decodedGrey(grey));
        };
        EXPECT_EQ(CTB::takeRowRuns(layer, width, height, put), width * height);
        EXPECT_TRUE(sameBytes(rows, kept));
        EXPECT_EQ(CTB::takeRowRuns(layer, width, height - 1, put), width * (height - 1)) << "more than the image";
        EXPECT_EQ(CTB::takeRowRuns(layer, 0, height, put), 0u);
        EXPECT_EQ(data, before);
    }
    const Bytes cut{0x81, 0xC0, 0x40};
    CTB::RunCounter counter;
    CTB::takePieces({cut.data(), cut.size(), 0, 0},
                    [&](const unsigned char* piece, std::size_t size) { return counter.take(piece, size); });
    EXPECT_TRUE(counter.isCutOff());
}

TEST(EncodedData, AreLitAboveTheThresholdOfEveryFormat) {
    const Bytes greys{0x07, 0x08, 0x88, 100, 0x80, 100};  // 15, 17, 100 of 17, 100 dark ones
    CTB::RunCounter counter;
    counter.take(greys.data(), greys.size());
    EXPECT_EQ(counter.totals().litPixels, 101);
    EXPECT_EQ(counter.totals().runs, 4);
}

}  // namespace
}  // namespace vndlp::test
