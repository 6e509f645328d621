#include "support/v4.h"

#include <limits>

namespace vndlp::test {
namespace {

using namespace VNDLPV4;

/// What a record writes; the stream's own byte order does not matter.
template <class Record>
Bytes written(Record& record) {
    const TemporaryFile file;
    vndlp::FileWrite out(file.path(), 0);
    out.setFileByteOrder(vndlp::BigEndian);
    record.Serialization(out);
    EXPECT_EQ(out.close(), 0);
    return file.bytes();
}

/// A record read from behind five other bytes.
template <class Record>
Record readBack(const Bytes& bytes) {
    const TemporaryFile file;
    file.setBytes(Bytes().fill(5, 0).raw(bytes));
    vndlp::FileRead in(file.path(), 0);
    in.setFileByteOrder(vndlp::BigEndian);
    in.seek(5, 0);
    Record record;
    record.DeSerialization(in);
    EXPECT_EQ(record.beginPosition, 5u);
    EXPECT_EQ(record.endPosition, 5 + bytes.size());
    return record;
}

HeaderSettings someHeader() {
    HeaderSettings header;
    header.headerText1 = "ab";
    header.headerText2 = "";
    header.version = 9;
    header.resolutionX = 0x0102;
    header.resolutionY = 0x0304;
    header.floatField0 = 0.5F;
    header.floatField1 = 1;
    header.floatField2 = 2;
    header.floatField3 = 3;
    header.floatField4 = 4;
    header.word0 = 10;
    header.previewLargeOffset = 11;
    header.layerDefOffset = 12;
    header.layerCount = 13;
    header.previewSmallOffset = 14;
    header.word5 = 15;
    header.word6 = 16;
    header.printParametersOffset = 17;
    header.word8 = 18;
    header.word9 = 19;
    header.shortField0 = -2;
    header.shortField1 = 20;
    header.encryptionKey = 21;
    header.slicerInfoOffset = 22;
    header.word12 = 0x89ABCDEF;
    header.tailFloat0 = 5;
    header.tailFloat1 = 6;
    header.tailFloat2 = 7;
    return header;
}

Bytes someHeaderBytes() {
    Bytes list;
    list.raw(Bytes{0, 0, 0, 3, 'a', 'b', 0, 0, 4, 0, 0, 0, 1, 0});
    list.le(0x0102, 2).le(0x0304, 2).f32Le(0.5F).f32Le(1).f32Le(2).f32Le(3).f32Le(4);
    for (unsigned int word = 10; word <= 19; ++word) list.le(word, 4);
    list.le(0xFFFE, 2).le(20, 2).le(21, 4).le(22, 4).le(0x89ABCDEF, 4).f32Le(5).f32Le(6).f32Le(7);
    return list;
}

TEST(V4Header, WritesItsFieldsInOrderAndForcesTheVersion) {
    HeaderSettings header = someHeader();
    EXPECT_EQ(header.size(), 106u);
    const Bytes bytes = written(header);
    EXPECT_EQ(bytes, someHeaderBytes());
    EXPECT_EQ(bytes.size(), 106u);
    EXPECT_EQ(header.version, 4);
    EXPECT_EQ(header.headerText1Size, 3u);
    EXPECT_EQ(header.headerText2Size, 1u);
}

TEST(V4Header, ReadsItsFieldsInOrder) {
    const auto header = readBack<HeaderSettings>(someHeaderBytes());
    EXPECT_EQ(header.headerText1, "ab");
    EXPECT_EQ(header.headerText2, "");
    EXPECT_EQ(header.headerText1Size, 3u);
    EXPECT_EQ(header.size(), 106u);
    EXPECT_EQ(header.version, 4);
    EXPECT_EQ(header.resolutionY, 0x0304);
    EXPECT_EQ(header.shortField0, -2);
    EXPECT_EQ(header.word12, 0x89ABCDEF);
    HeaderSettings again = header;
    EXPECT_EQ(written(again), someHeaderBytes());
}

TEST(V4Header, KeepsItsSizeInStepWithItsStrings) {
    HeaderSettings header;
    EXPECT_EQ(header.size(), 104u);
    header.headerText2 = "longer text";
    EXPECT_EQ(header.size(), 115u);
    EXPECT_EQ(written(header).size(), 115u);
}

TEST(V4PreView, WritesRecordAndImage) {
    PreView preView;
    preView.resolutionX = 1;
    preView.resolutionY = 2;
    preView.imageOffset = 3;
    preView.imageSize = 4;
    preView.reserved28 = 8;
    preView.imageData = {9, 8, 7, 6};
    const Bytes bytes = Bytes().le(1, 4).le(2, 4).le(3, 4).le(4, 4).fill(12, 0).le(8, 4).raw(Bytes{9, 8, 7, 6});
    EXPECT_EQ(written(preView), bytes);
    EXPECT_EQ(PreView::size(), 32u);
    EXPECT_EQ(readBack<PreView>(bytes).imageData, (Bytes{9, 8, 7, 6}));
}

TEST(V4PreView, CodesPixelsAsCtbDoes) {
    Bytes pixels(3 * 6, 0xFF);
    PreView preView;
    preView.resolutionX = 3;
    preView.resolutionY = 2;
    preView.imageData = PreView::Encode(pixels.data(), pixels.size());
    EXPECT_EQ(preView.imageData, (Bytes{0xFF, 0xFF, 0x05, 0x30}));
    EXPECT_EQ(preView.decodeImage(), Bytes(18, 0xF8));
}

TEST(V4PrintParameters, ForcesNothingAndReadsTheBottomLayersAsWritten) {
    PrintParameters parameters;
    parameters.bottomLiftHeight = 1;
    parameters.volume = 2;
    parameters.price = 3;
    parameters.lightOffDelay = 4;
    parameters.bottomLayerCount = 5;
    parameters.reserved60 = 6;
    parameters.word64 = 7;
    const Bytes bytes =
        Bytes().f32Le(1).fill(16, 0).f32Le(2).fill(4, 0).f32Le(3).fill(4, 0).f32Le(4).le(5, 4).fill(16, 0).f32Le(6).le(
            7, 4);
    EXPECT_EQ(written(parameters), bytes);
    EXPECT_EQ(PrintParameters::size(), 68u);
    const auto back = readBack<PrintParameters>(bytes);
    EXPECT_EQ(back.bottomLayerCount, 5u);
    EXPECT_EQ(back.word64, 7u);
    EXPECT_EQ(back.price, 3.0F);
}

TEST(V4SlicerInfo, WritesTwoWordsAsFloatsAndReadsTheirBits) {
    SlicerInfo info;
    info.bottomLiftHeight2 = 1;
    info.restTimeAfterLift = 2;
    info.word28 = 3;
    info.word36 = 4;
    info.word40 = 5;
    info.word44 = 3;
    info.word60 = 16777217;  // becomes the nearest float
    info.word48 = 6;
    info.restTimeAfterRetract = 7;
    info.restTimeAfterLift2 = 8;
    info.word64 = 9;
    info.word68 = 10;
    info.word72 = 11;
    const Bytes bytes = Bytes()
                            .f32Le(1)
                            .fill(20, 0)
                            .f32Le(2)
                            .le(3, 4)
                            .le(0x01A4FA00, 4)
                            .le(4, 4)
                            .le(5, 4)
                            .f32Le(3.0F)
                            .f32Le(16777216.0F)
                            .le(6, 4)
                            .f32Le(7)
                            .f32Le(8)
                            .le(9, 4)
                            .le(10, 4)
                            .le(11, 4);
    EXPECT_EQ(written(info), bytes);
    EXPECT_EQ(bytes.size(), SlicerInfo::size());
    EXPECT_EQ(info.word32, 0x01A4FA00u);
    const auto back = readBack<SlicerInfo>(bytes);
    EXPECT_EQ(back.word44, 0x40400000u);
    EXPECT_EQ(back.word60, 0x4B800000u);
    EXPECT_EQ(back.word48, 6u);
    EXPECT_EQ(back.restTimeAfterLift2, 8.0F);
    EXPECT_EQ(back.word72, 11u);
}

TEST(V4LayerDef, HasFortyBytesOrAHundredAndTwenty) {
    LayerDef layer;
    layer.positionZ = 1;
    layer.exposureTime = 2;
    layer.lightOffDelay = 3;
    layer.dataOffset = 4;
    layer.dataSize = 5;
    layer.pageNumber = 6;
    layer.tableSize = 7;
    layer.reserved28 = 8;
    layer.word36 = 9;
    layer.extension0 = -2;
    layer.extension9 = std::numeric_limits<long long>::min();
    Bytes bytes;
    bytes.f32Le(1).f32Le(2).f32Le(3).le(4, 4).le(5, 4).le(6, 4).le(7, 4).le(8, 4).le(0, 4).le(9, 4);
    EXPECT_EQ(layer.size(), 40u);
    EXPECT_EQ(written(layer), bytes);

    layer.extensionFlag = 5;
    bytes[32] = 5;
    bytes.le(0xFFFFFFFE, 4).le(0xFFFFFFFF, 4).fill(68, 0).le(0x80000000, 4);
    EXPECT_EQ(layer.size(), 120u);
    EXPECT_EQ(written(layer), bytes);
    const auto back = readBack<LayerDef>(bytes);
    EXPECT_EQ(back.tableSize, 7u);
    EXPECT_EQ(back.word36, 9u);
    EXPECT_EQ(back.extension0, -2);
    EXPECT_EQ(back.extension9, std::numeric_limits<long long>::min());
}

TEST(V4LayerDef, HoldsABeadMaskInFileOrder) {
    LayerDef layer;
    EXPECT_TRUE(layer.beadMask().empty());
    layer.extension8 = -1;
    Bytes mask(68);
    for (std::size_t i = 0; i < mask.size(); ++i) mask[i] = static_cast<unsigned char>(200 + i);
    EXPECT_TRUE(layer.setBeadMask(mask));
    EXPECT_EQ(layer.extensionFlag, 1u);
    EXPECT_EQ(layer.beadMask(), mask);
    EXPECT_EQ(slice(written(layer), 40, 80), Bytes().raw(mask).fill(12, 0));
    EXPECT_EQ(layer.beadMask(1000).size(), 80u);
    EXPECT_FALSE(layer.setBeadMask(Bytes(81)));
    EXPECT_EQ(layer.beadMask(), mask);
}

TEST(V4LayerDefEx, HasElevenFloats) {
    LayerDefEx extended;
    float* fields[] = {&extended.liftHeight,        &extended.liftSpeed,
                       &extended.liftHeight2,       &extended.liftSpeed2,
                       &extended.retractSpeed,      &extended.retractHeight2,
                       &extended.retractSpeed2,     &extended.restTimeBeforeLift,
                       &extended.restTimeAfterLift, &extended.restTimeAfterRetract,
                       &extended.lightPwm};
    Bytes bytes;
    for (int i = 0; i < 11; ++i) {
        *fields[i] = static_cast<float>(i + 1);
        bytes.f32Le(static_cast<float>(i + 1));
    }
    EXPECT_EQ(written(extended), bytes);
    EXPECT_EQ(LayerDefEx::size(), 44u);
    EXPECT_EQ(readBack<LayerDefEx>(bytes).lightPwm, 11.0F);
}

TEST(V4Records, ReadZerosBeyondTheEndOfTheFile) {
    const TemporaryFile file;
    file.setBytes({0, 0, 0, 9, 'a'});
    FileRead in(file.path(), 0);
    HeaderSettings header;
    header.DeSerialization(in);
    EXPECT_EQ(header.headerText1, std::string("a\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(header.resolutionX, 0);
    PreView preView;
    preView.imageSize = 9;
    preView.DeSerialization(in);
    EXPECT_TRUE(preView.imageData.empty());
}

}  // namespace
}  // namespace vndlp::test
