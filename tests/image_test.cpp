#include "support/bytes.h"
#include "support/files.h"

#include <vndlp/image.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>

namespace vndlp::test {
namespace {

using RunTuple = std::tuple<float, float, float, float, int>;

RunTuple tupleOf(const WhiteData& run) { return {run.start.x, run.start.y, run.end.x, run.end.y, run.grey}; }

TEST(Points, AndImagesOfAnySizeAreDefined) {
    Vec3i point;
    point.setX(3e9F);
    point.setY(-3e9F);
    point.setZ(std::nanf(""));
    EXPECT_EQ((Codes{point.x, point.y, point.z}), (Codes{2147483647, -2147483648LL, 0}));
    DlpImage none(4, 4, static_cast<DlpImage::PIXEL_TYPE>(0));
    DlpImage wide(2000000000, 1, DlpImage::PIXEL_RGB16);
    EXPECT_EQ((Codes{none.size(), none.widthBytes(), wide.size(), wide.widthBytes()}), Codes(4));
    DlpImage negative(-1, 7);
    for (DlpImage* image : {&none, &wide, &negative}) {
        image->needData();
        EXPECT_FALSE(image->haveDatas());
    }
    std::vector<WhiteData> runs;
    unsigned char pixel = 255;
    EXPECT_EQ(grayDataVecWhiteData(&pixel, -1, 1, runs), 0);
    paintWhiteData({{{0, 0}, {0, 0}, 9}}, &pixel, 1, -1);
    EXPECT_TRUE(runs.empty() && pixel == 255);
}

TEST(Runs, FollowGreyValuesAndGaps) {
    Bytes pixels = {16, 16, 15, 200,  // four columns, five rows
                    16, 17, 15, 0,    //
                    0,  17, 15, 200,  //
                    16, 0,  15, 200,  //
                    0,  15, 15, 255};
    const std::vector<RunTuple> expected = {{0, 0, 0, 1, 16},  {0, 3, 0, 3, 16},  {1, 0, 1, 0, 16}, {1, 1, 1, 2, 17},
                                            {3, 0, 3, 0, 200}, {3, 2, 3, 3, 200}, {3, 4, 3, 4, 255}};
    std::vector<WhiteData> runs(1);
    EXPECT_EQ(grayDataVecWhiteData(pixels.data(), 4, 5, runs), 0);
    std::vector<RunTuple> tuples;
    // behind what the vector held
    std::transform(runs.begin() + 1, runs.end(), std::back_inserter(tuples), tupleOf);
    EXPECT_EQ(tuples, expected);
    std::vector<unsigned char> packed;
    std::vector<unsigned char> packedRows;
    grayDataPackedRuns(pixels.data(), 4, 5, packed);
    grayDataPackedRuns(pixels.data(), 4, 5, 4, packedRows);
    EXPECT_EQ(packed.size(), expected.size() * kPackedRunBytes);
    EXPECT_EQ(packed, packedRows);
}

TEST(Runs, NothingOutsideTheImageIsPainted) {
    Bytes pixels(4);
    std::vector<WhiteData> runs(3);
    runs[0] = {{0, -5}, {0, 9}, 20};
    runs[1] = {{2, 0}, {2, 1}, 30};
    runs[2] = {{-1, 0}, {-1, 1}, 40};
    paintWhiteData(runs, pixels.data(), 2, 2);
    EXPECT_TRUE(sameBytes(pixels, {20, 0, 20, 0}));
}

TEST(PackedRun, HasItsFieldsInPlace) {
    struct Row {
        WhiteData run;
        std::vector<unsigned char> bits;
        RunTuple back;
    };
    const Row rows[] = {
        {{{5, 1}, {5, 8191}, 255}, {0x00, 0x0F, 0xFF, 0xC0, 0x05, 0xFF}, {5, 1, 5, 8191, 255}},
        {{{300, 0}, {300, 2}, 16}, {0x00, 0x00, 0x00, 0x81, 0x2C, 0x10}, {300, 0, 300, 2, 16}},
        {{{16383, 8191}, {16383, 8191}, 16}, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x10}, {16383, 8191, 16383, 8191, 16}},
        {{{2.9F, 4097.9F}, {7, 4098}, 17}, {0x80, 0x0C, 0x00, 0x80, 0x02, 0x11}, {2, 4097, 2, 4098, 17}},
        {{{16384, 8192}, {0, 8193}, 256}, {0x00, 0x00, 0x00, 0x40, 0x00, 0x00}, {0, 0, 0, 1, 0}},  // too large
    };
    for (const Row& row : rows) {
        std::vector<unsigned char> bits(6);
        whiteData2Bits(row.run, bits.data());
        EXPECT_TRUE(sameBytes(bits, row.bits));
        WhiteData back;
        bits2WhiteData(row.bits.data(), back);
        EXPECT_EQ(tupleOf(back), row.back);
    }
    std::vector<unsigned char> all;
    for (const Row& row : rows) all.insert(all.end(), row.bits.begin(), row.bits.end());
    EXPECT_EQ(countPackedPixels(all), 8191U + 3 + 1 + 2 + 2);
    // half a run, and one that ends above its first row
    EXPECT_EQ(countPackedPixels({0x00, 0x0F, 0xFF}), 0U);
    EXPECT_EQ(countPackedPixels({0xFF, 0xF8, 0x00, 0x00, 0x05, 0xFF}), 0U);
}

TEST(Image, OnlyGreyOnesHaveRuns) {
    std::vector<WhiteData> runs;
    Printed printed;
    DlpImage colour(1, 1, DlpImage::PIXEL_RGB16);
    EXPECT_EQ(dlpImageGray2VecWhiteData(colour, runs), -1);
    EXPECT_EQ(printed.take(), "image must be gray\n");
    DlpImage grey(1, 1);
    EXPECT_EQ(dlpImageGray2VecWhiteData(grey, runs), 0);
    EXPECT_TRUE(runs.empty());
    grey.needData();
    grey.bits()[0] = '\xFF';
    EXPECT_EQ(dlpImageGray2VecWhiteData(grey, runs), 0);
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs[0].grey, 255);
    EXPECT_EQ(printed.take(), "");
}

}  // namespace
}  // namespace vndlp::test
