#include "support/ctb.h"
#include "support/numbered.h"

#include <limits>

namespace vndlp::test {
namespace {

class CtbRecordsTest : public CtbTest {
protected:
    /// A record read from these bytes.
    template <class Record>
    Record readFrom(const Bytes& bytes) {
        Record record(input(bytes));
        record.DeSerialization();
        return record;
    }
};

Bytes numberedHeader(CTB::HeaderSettings& header) {
    using R = CTB::HeaderSettings;
    return numbered(header, &R::magic, &R::version, &R::bedSizeX, &R::bedSizeY, &R::bedSizeZ, &R::reserved20,
                    &R::reserved24, &R::totalHeight, &R::layerHeight, &R::exposureTime, &R::bottomExposureTime,
                    &R::lightOffDelay, &R::bottomLayerCount, &R::resolutionX, &R::resolutionY, &R::previewLargeOffset,
                    &R::layerDefOffset, &R::layerCount, &R::previewSmallOffset, &R::printTime, &R::projectorType,
                    &R::printParametersOffset, &R::printParametersSize, &R::antiAliasLevel, &R::lightPwm,
                    &R::bottomLightPwm, &R::encryptionKey, &R::slicerInfoOffset, &R::slicerInfoSize);
}

Bytes numberedLayer(CTB::LayerDef& layer) {
    using R = CTB::LayerDef;
    return numbered(layer, &R::positionZ, &R::exposureTime, &R::lightOffDelay, &R::dataOffset, &R::dataSize,
                    &R::pageNumber, &R::tableSize, &R::reserved28, &R::reserved32);
}

// fields

TEST_F(CtbRecordsTest, HeaderSettingsForceTwoOfTheirFieldsAndKeepThose) {
    CTB::HeaderSettings header;
    Bytes bytes = numberedHeader(header);
    auto read = readFrom<CTB::HeaderSettings>(bytes);
    EXPECT_EQ(read.printTime, header.printTime);
    EXPECT_EQ(read.bottomLightPwm, header.bottomLightPwm);
    setU32(bytes, 76, 330300);  // printTime
    bytes[98] = 255;            // bottomLightPwm
    bytes[99] = 0;
    EXPECT_EQ(serialized(header), bytes);
    EXPECT_EQ(serialized(read), bytes);
    EXPECT_EQ(header.printTime, 330300u);
    EXPECT_EQ(header.bottomLightPwm, 255);
    EXPECT_EQ(bytes.size(), CTB::HeaderSettings::size());
}

TEST_F(CtbRecordsTest, PrintParametersForceVolumeAndPriceAndReadTheirCountAsAFloat) {
    using R = CTB::PrintParameters;
    R parameters;
    Bytes bytes =
        numbered(parameters, &R::bottomLiftHeight, &R::bottomLiftSpeed, &R::liftHeight, &R::liftSpeed, &R::retractSpeed,
                 &R::volume, &R::weight, &R::price, &R::bottomLightOffDelay, &R::lightOffDelay, &R::bottomLayerCount,
                 &R::reserved44, &R::reserved48, &R::reserved52, &R::reserved56);
    EXPECT_EQ(readFrom<R>(bytes).volume, parameters.volume);
    EXPECT_EQ(readFrom<R>(bytes).price, parameters.price);
    setU32(bytes, 20, 0x41121893);  // volume
    setU32(bytes, 28, 0x3F0C49BA);  // price
    EXPECT_EQ(serialized(parameters), bytes);
    EXPECT_EQ(parameters.volume, 9.131F);
    EXPECT_EQ(parameters.price, 0.548F);
    EXPECT_EQ(bytes.size(), R::size());
    const std::pair<float, unsigned> counts[] = {{4.75F, 4},
                                                 {4294967040.0F, 4294967040},
                                                 {-3, 0},
                                                 {4294967296.0F, 0},
                                                 {std::numeric_limits<float>::quiet_NaN(), 0}};
    for (const auto& [stored, count] : counts) {
        setU32(bytes, 40, std::bit_cast<std::uint32_t>(stored));
        auto read = readFrom<R>(bytes);
        EXPECT_EQ(read.bottomLayerCount, count) << stored;
        setU32(bytes, 40, count);
        EXPECT_EQ(serialized(read), bytes);
    }
}

TEST_F(CtbRecordsTest, SlicerInfoForcesTwoWordsAndReadsItsRestsAsIntegersAndTheNameWithALength) {
    using R = CTB::SlicerInfo;
    R info;
    Bytes bytes =
        numbered(info, &R::bottomLiftHeight2, &R::bottomLiftSpeed2, &R::liftHeight2, &R::liftSpeed2, &R::retractHeight2,
                 &R::retractSpeed2, &R::restTimeAfterLift, &R::machineNameOffset, &R::machineNameSize,
                 &R::settingsFlags, &R::word40, &R::word44, &R::slicerVersion, &R::restTimeAfterRetract,
                 &R::restTimeAfterLift2, &R::transitionLayerCount, &R::word64, &R::word68, &R::word72);
    setU32(bytes, 32, 3);  // machineNameSize
    auto read = readFrom<R>(Bytes().raw(bytes).le(4, 4).raw("M01?rest"));
    EXPECT_EQ(read.settingsFlags, info.settingsFlags);
    EXPECT_EQ(read.word40, info.word40);
    EXPECT_EQ(read.machineName, "M01");

    info.machineNameSize = 3;
    info.machineName = "M01more";
    setU32(bytes, 36, 0x2000000F);  // settingsFlags
    setU32(bytes, 40, 0x01A4FA00);  // word40
    EXPECT_EQ(serialized(info), Bytes().raw(bytes).raw("M01"));
    EXPECT_EQ(info.settingsFlags, 0x2000000Fu);
    EXPECT_EQ(info.word40, 0x01A4FA00u);
    EXPECT_EQ(bytes.size(), R::size());
    for (const std::size_t rest : {52u, 56u}) {
        setU32(bytes, rest, std::bit_cast<std::uint32_t>(static_cast<float>(u32At(bytes, rest))));
    }
    EXPECT_EQ(serialized(read), bytes.raw("M01"));
}

TEST_F(CtbRecordsTest, LayersAndExtendedLayersComeBackAsWritten) {
    using R = CTB::LayerDefEx;
    R extended;
    extended.layerDef.data = {1, 2, 3};  // not in the record
    Bytes bytes = numberedLayer(extended.layerDef);
    EXPECT_EQ(serialized(extended.layerDef), bytes);
    EXPECT_EQ(bytes.size(), CTB::LayerDef::size());
    bytes.raw(numbered(extended, &R::totalSize, &R::liftHeight, &R::liftSpeed, &R::liftHeight2, &R::liftSpeed2,
                       &R::retractSpeed, &R::retractHeight2, &R::retractSpeed2, &R::restTimeBeforeLift,
                       &R::restTimeAfterLift, &R::restTimeAfterRetract, &R::lightPwm));
    EXPECT_EQ(serialized(extended), bytes);
    EXPECT_EQ(bytes.size(), R::size());
    auto read = readFrom<R>(bytes);
    EXPECT_EQ(serialized(read), bytes);
    EXPECT_TRUE(read.layerDef.data.empty());
}

// images

TEST_F(CtbRecordsTest, PreviewsCarryTheDeclaredPartOfTheirImageWhereverTheirOffsetPoints) {
    using R = CTB::PreView;
    R preView;
    Bytes bytes = numbered(preView, &R::resolutionX, &R::resolutionY, &R::imageOffset, &R::imageSize, &R::reserved16,
                           &R::reserved20, &R::reserved24, &R::reserved28);
    EXPECT_EQ(bytes.size(), R::size());
    preView.imageSize = 3;
    setU32(bytes, 12, 3);
    preView.imageData = {1, 2, 3, 4};
    EXPECT_EQ(serialized(preView), Bytes().raw(bytes).raw(Bytes{1, 2, 3}));
    FileRead& in = input(Bytes().raw(bytes).raw("abcmore"));
    R read(in);
    read.DeSerialization();
    EXPECT_EQ(in.currentPosition(), 35);
    EXPECT_EQ(serialized(read), Bytes().raw(bytes).raw("abc"));

    preView.imageSize = 9000;
    setU32(bytes, 12, 9000);
    Bytes padded;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { padded = serialized(preView); }), "preview"));
    EXPECT_EQ(padded, Bytes().raw(bytes).raw(Bytes{1, 2, 3, 4}).fill(8996, 0));
    EXPECT_EQ(readFrom<R>(Bytes().raw(bytes).raw("ab")).imageData, Bytes().raw("ab")) << "no more than the file holds";
}

TEST_F(CtbRecordsTest, LayersReadTheirImageFromItsOffsetWhenAskedTo) {
    CTB::LayerDef layer;
    const Bytes entry = numberedLayer(layer);
    struct Row {
        unsigned offset, size;
        Bytes image;
        long long end;
    };
    const Row rows[] = {{40, 3, Bytes().raw("abc"), 43}, {41, 0xFFFFFFFF, Bytes().raw("bcd"), 44}, {45, 1, {}, 36}};
    for (const Row& row : rows) {
        Bytes bytes = Bytes().raw(entry).raw("____abcd");
        setU32(bytes, 12, row.offset);
        setU32(bytes, 16, row.size);
        FileRead& in = input(bytes);
        layer.setFileRead(in);
        layer.data = {9, 9, 9, 9, 9};
        layer.DeSerialization(true);
        EXPECT_EQ(layer.data, row.image) << row.offset;
        EXPECT_EQ(in.currentPosition(), row.end);
    }
    FileRead& in = input(Bytes().raw(entry).raw("more"));
    CTB::LayerDef alone(in);
    alone.data = {9};
    alone.DeSerialization(false);
    EXPECT_EQ(alone.data, Bytes{9});
    EXPECT_EQ(in.currentPosition(), 36);
}

// streams

TEST_F(CtbRecordsTest, ReadZerosBehindTheEndOfTheFile) {
    CTB::HeaderSettings header;
    const auto cut = readFrom<CTB::HeaderSettings>(slice(numberedHeader(header), 0, 6));
    EXPECT_EQ(cut.magic, header.magic);
    EXPECT_EQ(cut.version, header.version & 0xFFFF);
    EXPECT_EQ(cut.layerHeight, 0) << "not as constructed";
}

TEST_F(CtbRecordsTest, CopiesAreDeepAndShareTheStreamWhoseByteOrderOnlyFloatsFollow) {
    FileWrite out(path("a.ctb"), 0);
    out.setFileByteOrder(BigEndian);
    CTB::LayerDef layer;
    layer.positionZ = layer.exposureTime = layer.lightOffDelay = 1;
    layer.dataOffset = 1;
    layer.data = {1, 2};
    layer.setFileWrite(out);
    CTB::LayerDef copy;
    copy = CTB::LayerDef(layer);
    layer.data[0] = 7;
    EXPECT_EQ(copy.data, (Bytes{1, 2})) << "copies are deep";
    copy.Serialization();
    out.close();
    EXPECT_EQ(readFile(path("a.ctb")), Bytes().f32(1).f32(1).f32(1).le(1, 4).fill(20, 0)) << "to the same stream";
}

TEST_F(CtbRecordsTest, SeekBeginLetsAHeaderBeWrittenOverItsFirstCopy) {
    FileWrite out(path("a.ctb"), 0);
    CTB::HeaderSettings header;
    numberedHeader(header);
    header.setFileWrite(out);
    header.Serialization();
    out.writeChar('x');
    header.seekBegin();
    header.layerCount = 200;
    header.Serialization();
    out.close();
    EXPECT_EQ(readFile(path("a.ctb")), Bytes().raw(serialized(header)).raw("x"));
}

TEST_F(CtbRecordsTest, DoNothingWithoutAnOpenStream) {
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

}  // namespace
}  // namespace vndlp::test
