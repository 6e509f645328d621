#include "support/numbered.h"
#include "support/v4.h"

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

/// A record writes these bytes, and a record read from them writes them again.
template <class Record>
void expectBothWays(Record& record, const Bytes& bytes) {
    EXPECT_EQ(written(record), bytes);
    EXPECT_EQ(bytes.size(), record.size());
    auto back = readBack<Record>(bytes);
    EXPECT_EQ(written(back), bytes);
}

TEST(V4Records, HeadersForceTheirVersionAndKeepTheirSizeInStepWithTheirStrings) {
    using R = HeaderSettings;
    R header;
    const Bytes numbers = numbered(
        header, &R::resolutionX, &R::resolutionY, &R::floatField0, &R::floatField1, &R::floatField2, &R::floatField3,
        &R::floatField4, &R::word0, &R::previewLargeOffset, &R::layerDefOffset, &R::layerCount, &R::previewSmallOffset,
        &R::word5, &R::word6, &R::printParametersOffset, &R::word8, &R::word9, &R::shortField0, &R::shortField1,
        &R::encryptionKey, &R::slicerInfoOffset, &R::word12, &R::tailFloat0, &R::tailFloat1, &R::tailFloat2);
    header.headerText1 = "ab";
    header.version = 9;
    const Bytes bytes = Bytes({0, 0, 0, 3, 'a', 'b', 0, 0, 4, 0, 0, 0, 1, 0}).raw(numbers);
    expectBothWays(header, bytes);
    EXPECT_EQ(header.version, 4);
    for (const R& each : {header, readBack<R>(bytes)}) {
        EXPECT_EQ(each.headerText1Size, 3u);
        EXPECT_EQ(each.headerText2Size, 1u);
        EXPECT_EQ(each.shortField0, header.shortField0);
    }
    Bytes other = bytes;
    other[8] = 7;
    EXPECT_EQ(readBack<R>(other).version, 7);
    header.headerText2 = "longer text";
    EXPECT_EQ(header.size(), bytes.size() + 11);
    EXPECT_EQ(written(header).size(), bytes.size() + 11);
}

TEST(V4Records, PreviewsHaveTheirImageBehindThemInTheCodeOfCtbPreviews) {
    using R = PreView;
    R preView;
    Bytes bytes = numbered(preView, &R::resolutionX, &R::resolutionY, &R::imageOffset, &R::imageSize, &R::reserved16,
                           &R::reserved20, &R::reserved24, &R::reserved28);
    EXPECT_EQ(bytes.size(), R::size());
    const Bytes pixels(3 * 6, 0xFF);
    preView.imageData = R::Encode(pixels.data(), pixels.size());
    EXPECT_EQ(preView.imageData, (Bytes{0xFF, 0xFF, 0x05, 0x30}));
    preView.imageSize = 4;
    setU32(bytes, 12, 4);
    preView.imageData.push_back(9);
    EXPECT_EQ(written(preView), bytes.raw(Bytes{0xFF, 0xFF, 0x05, 0x30}));
    auto back = readBack<R>(bytes);
    EXPECT_EQ(written(back), bytes);
    back.resolutionX = 3;
    back.resolutionY = 2;
    EXPECT_EQ(back.decodeImage(), Bytes(18, 0xF8));
}

TEST(V4Records, PrintParametersForceNothing) {
    using R = PrintParameters;
    R parameters;
    const Bytes bytes =
        numbered(parameters, &R::bottomLiftHeight, &R::bottomLiftSpeed, &R::liftHeight, &R::liftSpeed, &R::retractSpeed,
                 &R::volume, &R::weight, &R::price, &R::bottomLightOffDelay, &R::lightOffDelay, &R::bottomLayerCount,
                 &R::reserved44, &R::reserved48, &R::reserved52, &R::reserved56, &R::reserved60, &R::word64);
    expectBothWays(parameters, bytes);
}

TEST(V4Records, SlicerInfoWritesTwoWordsAsFloatsAndReadsTheirBits) {
    using R = SlicerInfo;
    R info;
    Bytes bytes = numbered(info, &R::bottomLiftHeight2, &R::bottomLiftSpeed2, &R::liftHeight2, &R::liftSpeed2,
                           &R::retractHeight2, &R::retractSpeed2, &R::restTimeAfterLift, &R::word28, &R::word32,
                           &R::word36, &R::word40, &R::word44, &R::word60, &R::word48, &R::restTimeAfterRetract,
                           &R::restTimeAfterLift2, &R::word64, &R::word68, &R::word72);
    auto back = readBack<R>(bytes);
    EXPECT_EQ(back.word32, info.word32);
    EXPECT_EQ(back.word44, info.word44);
    EXPECT_EQ(back.word60, info.word60);
    info.word44 = back.word44 = 3;
    info.word60 = back.word60 = 16777217;  // becomes the nearest float
    setU32(bytes, 32, 0x01A4FA00);         // word32
    setU32(bytes, 44, 0x40400000);
    setU32(bytes, 48, 0x4B800000);
    EXPECT_EQ(written(info), bytes);
    EXPECT_EQ(written(back), bytes);
    EXPECT_EQ(info.word32, 0x01A4FA00u);
    EXPECT_EQ(bytes.size(), R::size());
}

TEST(V4Records, LayersHaveFortyBytesOrAHundredAndTwentyWhichHoldTheBeadMaskInFileOrder) {
    using R = LayerDef;
    R layer;
    Bytes bytes = numbered(layer, &R::positionZ, &R::exposureTime, &R::lightOffDelay, &R::dataOffset, &R::dataSize,
                           &R::pageNumber, &R::tableSize, &R::reserved28, &R::extensionFlag, &R::word36);
    const Bytes extension =
        numbered(layer, &R::extension0, &R::extension1, &R::extension2, &R::extension3, &R::extension4, &R::extension5,
                 &R::extension6, &R::extension7, &R::extension8, &R::extension9);
    expectBothWays(layer, Bytes().raw(bytes).raw(extension));
    EXPECT_EQ(layer.beadMask(1000), extension);
    EXPECT_EQ(layer.beadMask(), slice(extension, 0, 68));

    layer.extensionFlag = 0;
    setU32(bytes, 32, 0);
    expectBothWays(layer, bytes);
    EXPECT_EQ(bytes.size(), 40u);
    EXPECT_TRUE(layer.beadMask().empty());

    Bytes mask(68);
    for (std::size_t i = 0; i < mask.size(); ++i) mask[i] = static_cast<unsigned char>(200 + i);
    EXPECT_TRUE(layer.setBeadMask(mask));
    EXPECT_FALSE(layer.setBeadMask(Bytes(81)));
    setU32(bytes, 32, 1);
    EXPECT_EQ(written(layer), bytes.raw(mask).fill(12, 0));
}

TEST(V4Records, ExtendedLayersHaveElevenFloats) {
    using R = LayerDefEx;
    R extended;
    const Bytes bytes = numbered(extended, &R::liftHeight, &R::liftSpeed, &R::liftHeight2, &R::liftSpeed2,
                                 &R::retractSpeed, &R::retractHeight2, &R::retractSpeed2, &R::restTimeBeforeLift,
                                 &R::restTimeAfterLift, &R::restTimeAfterRetract, &R::lightPwm);
    expectBothWays(extended, bytes);
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
