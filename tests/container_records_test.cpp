#include "support/container_sample.h"
#include "support/files.h"

#include <tuple>
#include <utility>

namespace vndlp::test {
namespace {

using RecordsTest = FileTest;

TEST_F(RecordsTest, BackUseTakes64BytesAndComesBack) {
    Bytes expected;
    addBackUse(expected);
    writeFile(path("sound"), expected);
    FileRead in(path("sound"), 0);
    in.setFileByteOrder(BigEndian);
    VndlpBackUse read;
    EXPECT_EQ((Codes{read.read(in), in.currentPosition()}), (Codes{0, 64}));
    for (VndlpBackUse backUse : {sampleBackUse(), read}) {
        EXPECT_EQ((std::vector{backUse.getMachineHeight(), backUse.getSupportDensity(), backUse.getExposeTimeVnLine(),
                               backUse.getTotalVolume(), backUse.getSliceModelX(), backUse.getSliceModelY(),
                               backUse.getSliceModelZ()}),
                  (std::vector{175.5F, 0.5F, 7.0F, 2.0F, 1.5F, -2.0F, 0.25F}));
        EXPECT_TRUE(backUse.isEnableXYCompensate() && backUse.isSupportPad() && backUse.isAutoAllSupport());
        EXPECT_EQ(backUse.getBlurPixel(), -3);
        FileWrite out(path("written"), 0);
        out.setFileByteOrder(BigEndian);
        EXPECT_EQ((Codes{backUse.write(out), out.close()}), Codes(2));
        EXPECT_TRUE(sameBytes(readFile(path("written")), expected));
        backUse.setSupportPad(false);
        EXPECT_EQ(backUse.flags, 0x101U);
    }
}

TEST(FileStructure, ReachesOnlyTheHeaderOfItsKind) {
    for (const int kind : {kV1, kV2, kV3, kLine, 0, 7}) {
        DlpFileStructure s;
        s.headerType = kind;
        s.setLayerCount(0x12345);  // 16 bits are kept
        s.setResolution(1440, 2560);
        s.setVersionCode(9);
        s.setMachineType("X");
        s.needData();
        const bool available = kind != 0 && kind != 7;
        const bool versioned = kind == kV2 || kind == kLine;
        EXPECT_EQ(s.isAvailable(), available);
        EXPECT_EQ((Codes{s.layerCount(), s.getResolutionX(), s.getResulutionY()}),
                  available ? (Codes{0x2345, 1440, 2560}) : Codes(3));
        EXPECT_EQ(s.getVersionCode(), versioned ? 9 : 0);
        const std::tuple<int, std::string, bool> set(1440, "X", true), unset(0, "", false);
        const auto& [v1, v2, v3, line] = std::tie(s.v1Header, s.v2Header, s.v3Header, s.lineHeader);
        EXPECT_EQ(std::make_tuple(v2.resolution_x, v2.machine_type, v2.largePreview.haveDatas()),
                  kind == kV2 ? set : unset);
        EXPECT_EQ(std::make_tuple(line.resolution_x, line.machine_type, line.largePreview.haveDatas()),
                  kind == kLine ? set : unset);
        EXPECT_EQ(v1.resolution_x == 1440 && v1.largePreview.haveDatas(), kind == kV1);
        EXPECT_EQ(v3.resolution_x == 1440 && v3.thirdPreview.haveDatas(), kind == kV3);
        EXPECT_EQ(s.getVndlpBackUse(), versioned ? kind == kV2 ? &s.v2Header.backUse : &s.lineHeader.backUse : nullptr);
        EXPECT_EQ(s.setBackUse(sampleBackUse()), versioned ? 1 : 0);
        const VndlpBackUse* backUse = std::as_const(s).getVndlpBackUse();
        EXPECT_TRUE(!versioned ||
                    (backUse->flags == 0x111 && backUse->reserved[19] == 20 && backUse->reserved[20] == 0))
            << "the last 10 reserved bytes stay";
        const DlpFileStructure copy = s;
        s.release();
        EXPECT_FALSE(v1.largePreview.haveDatas() || v2.largePreview.haveDatas() || v3.thirdPreview.haveDatas() ||
                     line.largePreview.haveDatas());
        EXPECT_EQ(copy.v2Header.largePreview.haveDatas(), kind == kV2) << "copies have their own pictures";
    }
}

TEST(Show, PrintsEveryFieldOnALine) {
    const std::string screen = "layerCount = 3\nresolution_x = 2880\nresolution_y = 2600\n";
    const std::string versioned = "machine_type = Maker M1\nversionCode = 3\n" + screen;
    const std::string parameters =
        "platformX = 68.04\nplatformY = 120.96\nthickness = 0.05\nexposure_time = 2561\nlight_off_delay = 2562\n"
        "first_exposure_time = 2563\nfirst_layer_count = 2564\nfirst_lift_distance = 2565\nfirst_lift_speed = 2566\n"
        "lifting_distance = 2567\nlifting_speed = 2568\nretract_speed = 2569\nfirstBrightnessPVM = 2570\n"
        "brightnessPVM = 2571\n";
    Printed printed;
    sampleStructure(kV1).show();
    EXPECT_EQ(printed.take(), screen + parameters);
    sampleStructure(kV2).show();
    EXPECT_EQ(printed.take(), versioned + parameters);
    sampleStructure(kV3).show();
    EXPECT_EQ(printed.take(), "z_begin = 258\nz_end = 772\n" + screen + parameters);
    DlpFileStructure line = sampleStructure(kLine);
    line.lineHeader.machine_type = "not shown";
    line.show();
    EXPECT_EQ(printed.take(), versioned + parameters) << "the V2 header's numbers";
    line.lineHeader.show();
    EXPECT_EQ(printed.take(), "machine_type = not shown\nversionCode = 2\n" + screen);
    sampleStructure(0).show();
    EXPECT_EQ(printed.take(), parameters);
    line.sliceBasicParameters.show();
    EXPECT_EQ(printed.take(),
              "sliceSoftVersion:\tV1.2\nconsumables:\tresin\nenableBOffset:\t1\nbOffsetThickness:\t-2\n"
              "bOffsetFocalLength:\t3\nenableXYCompensation:\t4\nXYCompensation:\t-5\nenableZCompensation:\t6\n"
              "ZCompensation:\t7\nenableAntiAliasing:\t8\nantiAliasingMixGray:\t9\nantiAliasingMaxGray:\t10\n"
              "enableImageBlur:\t11\nimageBlurPixelNum:\t12\n");
    DlpImageParam{-1, 2, 3, 4}.show();
    EXPECT_EQ(printed.take(), "zThrough = -1\nenableAliasing = 2\nminGray = 3\nmaxGray = 4\n");
}

}  // namespace
}  // namespace vndlp::test
