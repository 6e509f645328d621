#include "support/ctb.h"

#include <limits>

namespace vndlp::test {
namespace {

using HeaderSettingsTest = CtbTest;
using LayerDefTest = CtbTest;
using LayerDefExTest = CtbTest;
using PreViewTest = CtbTest;
using PrintParametersTest = CtbTest;
using RecordsTest = CtbTest;
using SlicerInfoTest = CtbTest;

Bytes headerBytes() {
    return Bytes()
        .le(0x12FD0086, 4)  // magic
        .le(3, 4)           // version
        .f32Le(130.5F)      // bedSizeX
        .f32Le(80.25F)      // bedSizeY
        .f32Le(165)         // bedSizeZ
        .le(20, 4)          // reserved20
        .le(24, 4)          // reserved24
        .f32Le(10)          // totalHeight
        .f32Le(0.05F)       // layerHeight
        .f32Le(8)           // exposureTime
        .f32Le(40)          // bottomExposureTime
        .f32Le(2)           // lightOffDelay
        .le(5, 4)           // bottomLayerCount
        .le(2560, 4)        // resolutionX
        .le(1620, 4)        // resolutionY
        .le(112, 4)         // previewLargeOffset
        .le(455, 4)         // layerDefOffset
        .le(200, 4)         // layerCount
        .le(244, 4)         // previewSmallOffset
        .le(330300, 4)      // printTime
        .le(1, 4)           // projectorType
        .le(316, 4)         // printParametersOffset
        .le(60, 4)          // printParametersSize
        .le(4, 4)           // antiAliasLevel
        .le(0xFFF0, 2)      // lightPwm
        .le(255, 2)         // bottomLightPwm
        .le(0xDEADBEEF, 4)  // encryptionKey
        .le(376, 4)         // slicerInfoOffset
        .le(76, 4);         // slicerInfoSize
}

CTB::HeaderSettings header() {
    CTB::HeaderSettings h;
    h.magic = CTB::kMagic;
    h.version = 3;
    h.bedSizeX = 130.5F;
    h.bedSizeY = 80.25F;
    h.bedSizeZ = 165;
    h.reserved20 = 20;
    h.reserved24 = 24;
    h.totalHeight = 10;
    h.exposureTime = 8;
    h.bottomExposureTime = 40;
    h.lightOffDelay = 2;
    h.bottomLayerCount = 5;
    h.resolutionX = 2560;
    h.resolutionY = 1620;
    h.previewLargeOffset = 112;
    h.layerDefOffset = 455;
    h.layerCount = 200;
    h.previewSmallOffset = 244;
    h.printTime = 10;
    h.projectorType = 1;
    h.printParametersOffset = 316;
    h.printParametersSize = 60;
    h.antiAliasLevel = 4;
    h.lightPwm = 0xFFF0;
    h.bottomLightPwm = 100;
    h.encryptionKey = 0xDEADBEEF;
    h.slicerInfoOffset = 376;
    h.slicerInfoSize = 76;
    return h;
}

TEST_F(HeaderSettingsTest, WritesItsFieldsAndForcedValuesAndKeepsThose) {
    CTB::HeaderSettings h = header();
    EXPECT_EQ(serialized(h), headerBytes());
    EXPECT_EQ(h.printTime, 330300u);
    EXPECT_EQ(h.bottomLightPwm, 255);
}

TEST_F(HeaderSettingsTest, ReadsWhatItWrites) {
    FileRead& in = input(headerBytes());
    CTB::HeaderSettings h(in);
    h.DeSerialization();
    EXPECT_EQ(in.currentPosition(), 112);
    EXPECT_EQ(h.lightPwm, 0xFFF0);
    EXPECT_EQ(h.encryptionKey, 0xDEADBEEF);
    EXPECT_EQ(serialized(h), headerBytes());
}

TEST_F(HeaderSettingsTest, SeekBeginLetsItBeWrittenOverItsFirstCopy) {
    const std::string file = path("a.ctb");
    FileWrite out(file, 0);
    CTB::HeaderSettings h = header();
    h.setFileWrite(out);
    h.layerCount = 1;
    h.Serialization();
    out.writeChar('x');
    h.seekBegin();
    h.layerCount = 200;
    h.Serialization();
    out.close();
    EXPECT_EQ(readFile(file), Bytes().raw(headerBytes()).raw("x"));
}

TEST_F(HeaderSettingsTest, ReadsZerosBehindTheEndOfTheFile) {
    FileRead& in = input(slice(headerBytes(), 0, 6));
    CTB::HeaderSettings h(in);
    EXPECT_EQ(h.layerHeight, 0.05F);
    h.DeSerialization();
    EXPECT_EQ(h.magic, 0x12FD0086u);
    EXPECT_EQ(h.version, 3u);
    EXPECT_EQ(h.layerHeight, 0);
}

TEST_F(RecordsTest, FloatsFollowTheStreamsByteOrderAndIntegersDoNot) {
    const std::string file = path("a.ctb");
    FileWrite out(file, 0);
    out.setFileByteOrder(BigEndian);
    CTB::LayerDef layer;
    layer.positionZ = 1;
    layer.dataOffset = 1;
    layer.setFileWrite(out);
    layer.Serialization();
    out.close();
    EXPECT_EQ(slice(readFile(file), 0, 4), (Bytes{0x3F, 0x80, 0, 0}));
    EXPECT_EQ(slice(readFile(file), 12, 4), (Bytes{1, 0, 0, 0}));
}

TEST_F(RecordsTest, DoNothingWithoutAnOpenStream) {
    CTB::PreView preView;
    preView.imageSize = 3;
    preView.Serialization();
    preView.DeSerialization();
    FileRead closed;
    CTB::LayerDefEx extended(closed);
    extended.totalSize = 7;
    extended.DeSerialization();
    EXPECT_EQ(preView.imageSize, 3u);
    EXPECT_EQ(extended.totalSize, 7u);
}

Bytes parameterBytes() {
    Bytes list;
    for (const float value : {6.0F, 65.0F, 5.0F, 80.0F, 150.0F}) list.f32Le(value);  // lift and retract moves
    list.le(0x41121893, 4);                                                          // volume 9.131
    list.f32Le(12.5F);                                                               // weight
    list.le(0x3F0C49BA, 4);                                                          // price 0.548
    list.f32Le(1.5F).f32Le(4);                                                       // light-off delays
    list.le(5, 4);                                                                   // bottomLayerCount
    return list.f32Le(44).f32Le(48).f32Le(52).f32Le(56);                             // reserved
}

TEST_F(PrintParametersTest, WritesTheCountAsAnIntegerAndForcedVolumeAndPrice) {
    CTB::PrintParameters p;
    p.bottomLiftHeight = 6;
    p.bottomLiftSpeed = 65;
    p.liftHeight = 5;
    p.liftSpeed = 80;
    p.retractSpeed = 150;
    p.volume = 1;
    p.weight = 12.5F;
    p.price = 1;
    p.bottomLightOffDelay = 1.5F;
    p.lightOffDelay = 4;
    p.bottomLayerCount = 5;
    p.reserved44 = 44;
    p.reserved48 = 48;
    p.reserved52 = 52;
    p.reserved56 = 56;
    EXPECT_EQ(serialized(p), parameterBytes());
    EXPECT_EQ(p.volume, 9.131F);
    EXPECT_EQ(p.price, 0.548F);
}

TEST_F(PrintParametersTest, ReadsTheCountAsAFloatSoAWrittenOneBecomesZero) {
    FileRead& in = input(parameterBytes());
    CTB::PrintParameters p(in);
    p.bottomLayerCount = 9;
    p.DeSerialization();
    EXPECT_EQ(p.bottomLayerCount, 0u);
    EXPECT_EQ(p.bottomLiftHeight, 6);
    EXPECT_EQ(p.lightOffDelay, 4);
    EXPECT_EQ(p.reserved56, 56);
}

TEST_F(PrintParametersTest, DropsTheFractionOfACountAndWhatNoCountHolds) {
    const auto countOf = [this](float value) {
        FileRead& in = input(Bytes().fill(40, 0).f32Le(value).fill(16, 0));
        CTB::PrintParameters p(in);
        p.DeSerialization();
        return p.bottomLayerCount;
    };
    EXPECT_EQ(countOf(4.75F), 4u);
    EXPECT_EQ(countOf(4294967040.0F), 4294967040u);
    EXPECT_EQ(countOf(-3), 0u);
    EXPECT_EQ(countOf(4294967296.0F), 0u);
    EXPECT_EQ(countOf(std::numeric_limits<float>::quiet_NaN()), 0u);
}

TEST_F(SlicerInfoTest, WritesForcedWordsAndTheBareName) {
    CTB::SlicerInfo s;
    s.bottomLiftHeight2 = 1;
    s.bottomLiftSpeed2 = 2;
    s.liftHeight2 = 3;
    s.liftSpeed2 = 4;
    s.retractHeight2 = 5;
    s.retractSpeed2 = 6;
    s.restTimeAfterLift = 7;
    s.machineNameOffset = 452;
    s.machineNameSize = 3;
    s.word44 = 44;
    s.slicerVersion = 0x01090000;
    s.restTimeAfterRetract = 52;
    s.restTimeAfterLift2 = 56;
    s.transitionLayerCount = 60;
    s.word64 = 64;
    s.word68 = 68;
    s.word72 = 72;
    s.machineName = "M01";
    Bytes expected;
    for (int i = 1; i <= 7; ++i) expected.f32Le(static_cast<float>(i));
    expected.le(452, 4).le(3, 4);                  // where the name is, its length
    expected.le(0x2000000F, 4).le(0x01A4FA00, 4);  // settingsFlags, word40
    expected.le(44, 4).le(0x01090000, 4);          // word44, slicerVersion
    expected.f32Le(52).f32Le(56);                  // rests
    expected.le(60, 4).le(64, 4).le(68, 4).le(72, 4);
    EXPECT_EQ(serialized(s), expected.raw("M01"));
    EXPECT_EQ(s.settingsFlags, 0x2000000Fu);
    EXPECT_EQ(s.word40, 0x01A4FA00u);
}

TEST_F(SlicerInfoTest, WritesSeventySixBytesForAnEmptyName) {
    CTB::SlicerInfo s;
    EXPECT_EQ(serialized(s).size(), 76u);
}

TEST_F(SlicerInfoTest, WritesOnlyTheDeclaredPartOfALongerName) {
    CTB::SlicerInfo s;
    s.machineName = "M01";
    s.machineNameSize = 2;
    EXPECT_EQ(slice(serialized(s), 76, 2), (Bytes{'M', '0'}));
}

TEST_F(SlicerInfoTest, ReadsRestTimesAsIntegersAndTheNameWithItsLength) {
    FileRead& in = input(Bytes()
                             .fill(36, 0)
                             .le(0x11, 4)  // settingsFlags as it is
                             .le(0x22, 4)  // word40 as it is
                             .fill(8, 0)
                             .f32Le(3)  // 0x40400000, read as that integer
                             .le(7, 4)
                             .fill(16, 0)
                             .le(4, 4)  // length, terminator included
                             .raw("M01?rest"));
    CTB::SlicerInfo s(in);
    s.DeSerialization();
    EXPECT_EQ(s.settingsFlags, 0x11u);
    EXPECT_EQ(s.word40, 0x22u);
    EXPECT_EQ(s.restTimeAfterRetract, 1077936128.0F);
    EXPECT_EQ(s.restTimeAfterLift2, 7.0F);
    EXPECT_EQ(s.machineName, "M01");
    EXPECT_EQ(in.currentPosition(), 84);
}

TEST_F(PreViewTest, WritesRecordAndImageAndReadsThemBackWhereverTheOffsetPoints) {
    CTB::PreView preView;
    preView.resolutionX = 400;
    preView.resolutionY = 300;
    preView.imageOffset = 0xFFFFFFFF;
    preView.imageSize = 3;
    preView.reserved16 = 16;
    preView.reserved20 = 20;
    preView.reserved24 = 24;
    preView.reserved28 = 28;
    preView.imageData = {1, 2, 3, 4};
    const Bytes expected = Bytes()
                               .le(400, 4)
                               .le(300, 4)
                               .le(0xFFFFFFFF, 4)
                               .le(3, 4)
                               .le(16, 4)
                               .le(20, 4)
                               .le(24, 4)
                               .le(28, 4)
                               .raw(Bytes{1, 2, 3});
    EXPECT_EQ(serialized(preView), expected);

    FileRead& in = input(Bytes().raw(expected).raw("more"));
    CTB::PreView read(in);
    read.DeSerialization();
    EXPECT_EQ(read.imageData, (Bytes{1, 2, 3}));
    EXPECT_EQ(read.reserved28, 28u);
    EXPECT_EQ(in.currentPosition(), 35);
}

TEST_F(PreViewTest, PadsAnImageShorterThanDeclaredWithZerosAndSaysSo) {
    CTB::PreView preView;
    preView.imageSize = 9000;
    preView.imageData = {1, 2};
    Bytes written;
    const std::string printed = printedBy([&] { written = serialized(preView); });
    EXPECT_TRUE(isOneErrorLine(printed, "preview"));
    EXPECT_EQ(slice(written, 32, written.size() - 32), Bytes().raw(Bytes{1, 2}).fill(8998, 0));
}

TEST_F(PreViewTest, ReadsNoMoreThanTheFileHolds) {
    FileRead& in = input(Bytes().fill(12, 0).le(0xFFFFFFFF, 4).fill(16, 0).raw(Bytes{1, 2}));
    CTB::PreView preView(in);
    preView.DeSerialization();
    EXPECT_EQ(preView.imageData, (Bytes{1, 2}));
}

Bytes layerBytes(unsigned int dataOffset, unsigned int dataSize) {
    return Bytes()
        .f32Le(0.05F)
        .f32Le(40)
        .f32Le(2)  // positionZ, exposureTime, lightOffDelay
        .le(dataOffset, 4)
        .le(dataSize, 4)
        .le(20, 4)
        .le(84, 4)
        .le(28, 4)
        .le(32, 4);  // pageNumber, tableSize, reserved
}

CTB::LayerDef layer(unsigned int dataOffset, unsigned int dataSize) {
    CTB::LayerDef l;
    l.positionZ = 0.05F;
    l.exposureTime = 40;
    l.lightOffDelay = 2;
    l.dataOffset = dataOffset;
    l.dataSize = dataSize;
    l.pageNumber = 20;
    l.tableSize = 84;
    l.reserved28 = 28;
    l.reserved32 = 32;
    return l;
}

TEST_F(LayerDefTest, WritesThirtySixBytesWithoutItsImage) {
    CTB::LayerDef l = layer(647, 3);
    l.data = {1, 2, 3};
    EXPECT_EQ(serialized(l), layerBytes(647, 3));
}

TEST_F(LayerDefTest, ReadsItsImageFromItsOffsetAndStaysThere) {
    FileRead& in = input(Bytes().raw(layerBytes(40, 3)).raw("____abcd"));
    CTB::LayerDef l(in);
    l.data = {9, 9, 9, 9, 9};
    l.DeSerialization(true);
    EXPECT_EQ(l.data, (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(l.reserved32, 32u);
    EXPECT_EQ(in.currentPosition(), 43);
}

TEST_F(LayerDefTest, LeavesItsImageAloneUnlessAsked) {
    FileRead& in = input(layerBytes(0, 4));
    CTB::LayerDef l(in);
    l.data = {9};
    l.DeSerialization(false);
    EXPECT_EQ(l.data, Bytes{9});
    EXPECT_EQ(in.currentPosition(), 36);
}

TEST_F(LayerDefTest, ReadsWhatThereIsOfAnImageBeyondTheEnd) {
    FileRead& in = input(layerBytes(30, 0xFFFFFFFF));
    CTB::LayerDef l(in);
    l.DeSerialization(true);
    EXPECT_EQ(l.data, slice(layerBytes(30, 0xFFFFFFFF), 30, 6));
    FileRead& outside = input(layerBytes(37, 1));
    l.setFileRead(outside);
    l.DeSerialization(true);
    EXPECT_TRUE(l.data.empty());
}

TEST_F(LayerDefExTest, IsALayerDefAndFortyEightBytesMore) {
    CTB::LayerDefEx ex;
    ex.layerDef = layer(647, 10);
    ex.totalSize = 94;
    ex.liftHeight = 1;
    ex.liftSpeed = 2;
    ex.liftHeight2 = 3;
    ex.liftSpeed2 = 4;
    ex.retractSpeed = 5;
    ex.retractHeight2 = 6;
    ex.retractSpeed2 = 7;
    ex.restTimeBeforeLift = 8;
    ex.restTimeAfterLift = 9;
    ex.restTimeAfterRetract = 10;
    ex.lightPwm = 255;
    Bytes expected = Bytes().raw(layerBytes(647, 10)).le(94, 4);
    for (int i = 1; i <= 10; ++i) expected.f32Le(static_cast<float>(i));
    expected.f32Le(255);
    EXPECT_EQ(serialized(ex), expected);
    EXPECT_EQ(CTB::LayerDefEx::size(), CTB::LayerDef::size() + 48);

    FileRead& in = input(expected);
    CTB::LayerDefEx read(in);
    read.DeSerialization();
    EXPECT_EQ(serialized(read), expected);
}

TEST_F(RecordsTest, CopiesAreDeepAndShareTheStreams) {
    const std::string file = path("a.ctb");
    FileWrite out(file, 0);
    CTB::LayerDef original = layer(1, 2);
    original.data = {1, 2};
    original.setFileWrite(out);
    CTB::LayerDef copy(original);
    CTB::LayerDef assigned;
    assigned = original;
    original.data[0] = 7;
    EXPECT_EQ(copy.data, (Bytes{1, 2}));
    EXPECT_EQ(assigned.data, (Bytes{1, 2}));
    copy.Serialization();
    EXPECT_EQ(out.currentPosition(), 36);
}

}  // namespace
}  // namespace vndlp::test
