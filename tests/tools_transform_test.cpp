#include "tools/images/transform.h"

#include "support/bytes.h"

#include <gtest/gtest.h>
#include <random>
#include <tuple>
#include <utility>

using namespace vndlp::test;
using namespace vndlp::tools;

namespace {

unsigned char at(const GreyImage& image, int x, int y) {
    return image
        .pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x)];
}

GreyImage turned(GreyImage image, const Orientation& orientation) {
    transform(image, orientation);
    return image;
}

}  // namespace

TEST(Transform, TurnsAndMirrorsALiteralImage) {
    const GreyImage image{3, 2, {1, 2, 3, 4, 5, 6}};
    EXPECT_EQ(turned(image, {false, false, 0}).pixels, image.pixels);
    EXPECT_EQ(turned(image, {true, false, 0}).pixels, (Bytes{3, 2, 1, 6, 5, 4}));
    EXPECT_EQ(turned(image, {false, true, 0}).pixels, (Bytes{4, 5, 6, 1, 2, 3}));
    EXPECT_EQ(turned(image, {false, false, 2}).pixels, (Bytes{6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(turned(image, {true, true, 2}).pixels, image.pixels);
    const GreyImage clockwise = turned(image, {false, false, 1});
    EXPECT_EQ(std::pair(clockwise.width, clockwise.height), std::pair(2, 3));
    EXPECT_EQ(clockwise.pixels, (Bytes{4, 1, 5, 2, 6, 3}));
    EXPECT_EQ(turned(image, {false, false, 3}).pixels, (Bytes{3, 6, 2, 5, 1, 4}));
    EXPECT_EQ(turned(image, {true, false, 1}).pixels, (Bytes{6, 3, 5, 2, 4, 1}));
}

TEST(Transform, AgreesWithOneStepAfterTheOtherAtAnySize) {
    std::mt19937 random(3);
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 70}, {70, 1}, {64, 8}, {65, 9}, {130, 77}, {63, 129}}) {
        GreyImage image{width, height, {}};
        for (int i = 0; i < width * height; ++i) image.pixels.push_back(static_cast<unsigned char>(random()));
        for (int choice = 0; choice < 16; ++choice) {
            const Orientation orientation{(choice & 1) != 0, (choice & 2) != 0, choice / 4};
            const GreyImage result = turned(image, orientation);
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    int toX = orientation.mirrorX ? width - 1 - x : x;
                    int toY = orientation.mirrorY ? height - 1 - y : y;
                    int rows = height;
                    int columns = width;
                    for (int turn = 0; turn < orientation.clockwiseTurns; ++turn) {
                        std::tie(toX, toY) = std::pair(rows - 1 - toY, toX);
                        std::swap(rows, columns);
                    }
                    ASSERT_EQ(at(result, toX, toY), at(image, x, y)) << width << " x " << height << ", " << choice;
                }
            }
        }
    }
}

TEST(ResizeColour, AveragesCentresAndRepeatsBeforeBlack) {
    const Bytes black = {0, 0, 0, 255, 0, 0, 0, 255};
    const ColourImage wide{3, 1, {0, 0, 0, 255, 90, 60, 30, 255, 255, 255, 255, 255}};
    // each of the two covers one and a half
    EXPECT_EQ(resizeColour(wide, 2, 1).pixels, (Bytes{30, 20, 10, 255, 200, 190, 180, 255}));
    const ColourImage image{2, 1, {200, 100, 50, 255, 100, 100, 150, 255}};
    const ColourImage framed = resizeColour(image, 2, 3);
    EXPECT_EQ(std::pair(framed.width, framed.height), std::pair(2, 3));
    EXPECT_EQ(framed.pixels, Bytes(black).raw(image.pixels).raw(black));
    const ColourImage pixel{1, 1, {9, 8, 7, 255}};
    EXPECT_EQ(resizeColour(pixel, 2, 2).pixels, (Bytes{9, 8, 7, 255, 9, 8, 7, 255, 9, 8, 7, 255, 9, 8, 7, 255}));
    const ColourImage transparent{2, 1, {200, 200, 200, 0, 200, 100, 50, 255}};
    EXPECT_EQ(resizeColour(transparent, 1, 1).pixels, (Bytes{100, 50, 25, 255}));
}

TEST(RenderLayerPreview, TellsScreenCuredPartAndFrameApart) {
    GreyImage layer{40, 20, Bytes(800, 0)};
    for (std::size_t i = 0; i < layer.pixels.size(); ++i) layer.pixels[i] = i % 40 < 20 ? 255 : 0;
    const ColourImage preview = renderLayerPreview(layer, 4, 4);
    const Bytes frame = {0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255};
    const Bytes row = {235, 240, 255, 255, 235, 240, 255, 255, 40, 40, 44, 255, 40, 40, 44, 255};
    EXPECT_EQ(preview.pixels, Bytes(frame).raw(row).raw(row).raw(frame));

    GreyImage padded{40, 20, {}, 3};
    for (int y = 0; y < 20; ++y) {
        padded.pixels.insert(padded.pixels.end(), 3, 99);
        padded.pixels.insert(padded.pixels.end(), layer.row(y), layer.row(y) + 40);
    }
    EXPECT_EQ(renderLayerPreview(padded, 4, 4).pixels, preview.pixels);
}
