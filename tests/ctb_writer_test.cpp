#include "support/ctb.h"
#include "support/front_end.h"

#include <set>
#include <thread>

namespace vndlp::test {
namespace {

constexpr unsigned kWidth = 8;
constexpr unsigned kHeight = 5;

Bytes layerPixels(int grey) { return Bytes(std::size_t{kWidth} * kHeight, static_cast<unsigned char>(grey)); }

SliceImage layerImage(int grey) { return sliceImage(layerPixels(grey), kWidth, kHeight); }

class CtbWriterTest : public CtbTest {
protected:
    CtbWriterTest() : writer(newWriter(file)) {}

    static std::unique_ptr<DLPWriter> newWriter(const std::string& file) {
        std::unique_ptr<DLPWriter> made(createDLPWriter(file));
        made->filePath = file;
        made->machineType = "M01";
        made->machineName = "not used";
        made->layerCount = 3;
        made->resolutionX = kWidth;
        made->resolutionY = kHeight;
        made->printTime = 7;
        made->bedSizeX = 68.04;
        made->resinVolume = 0x40490FDB;
        made->resinWeight = 12.5F;
        made->fileStructure.parameters.thickness = "0.05";
        numberParameters<DlpParameters, unsigned short>(made->fileStructure.parameters, 80);
        made->fileStructure.parameters.first_layer_count = 1;
        made->fileStructure.sliceBasicParameters.enableAntiAliasing = 0xFF;
        return made;
    }

    static std::vector<SliceImage> previews() {
        return {sliceImage({8, 0, 0, 8, 0, 0, 8, 0, 0}, 3, 1), sliceImage({0, 0, 8}, 1, 1),
                sliceImage({1, 2, 3}, 1, 1)};
    }

    int start() { return openAndWriteHeader(*writer, previews()); }

    void addLayers(int count) {
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(writer->addLayerImage(static_cast<unsigned>(i), layerImage(9 + 2 * i), 1e6, 8), 0);
        }
    }

    /// A whole file; the result of `finish`.
    int writeFileOf(int layers) {
        EXPECT_EQ(start(), 0);
        addLayers(layers);
        return writer->finish();
    }

    /// Opens what was written and reads its header.
    const CTB::HeaderSettings& readHeader() {
        EXPECT_EQ((Codes{reader.openDlpFile(file, false), reader.parseFile(true)}), (Codes{0, 1}));
        return *reader.headerSettings();
    }

    /// Layer i of the file has only this grey, and more with every layer.
    void expectLayers(int firstGrey, int count) {
        const CTB::HeaderSettings& header = readHeader();
        const Owned<CTB::LayerDef> layers(reader.layerDef(false));
        ASSERT_EQ(layers.size(), static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            CTB::LayerDef* layer = layers[static_cast<std::size_t>(i)];
            EXPECT_EQ(reader.readLayerImage(&header, layer, i, nullptr), layerPixels(firstGrey + 2 * i)) << i;
            EXPECT_EQ(layer->positionZ, static_cast<float>(i + 1) * 0.05F);
        }
    }

    std::string file = path("a.ctb");
    std::unique_ptr<DLPWriter> writer;
    CTB::CTBRead reader;
    Printed printed;
};

TEST(Factory, ChoosesByTheExactEnding) {
    struct Row {
        const char* ending;
        unsigned headerType, headerVersion, formatFlag;
    };
    for (const auto& [ending, type, version, flag] :
         {Row{".ctb", 2, 3, 0}, {".vnline", 12, 0, 1}, {".vndlp", 2, 3, 2}, {".vndlpv4", 2, 3, 3}}) {
        for (const std::string before : {"", "a", "a.b", "a.vndlp", "a.ctb"}) {
            const std::unique_ptr<DLPWriter> made(createDLPWriter(before + ending));
            ASSERT_NE(made, nullptr) << before << ending;
            EXPECT_EQ((Codes{made->headerType, made->headerVersion, made->formatFlag, made->layerCount}),
                      (Codes{type, version, flag, 0}));
            EXPECT_EQ(made->bedSizeX + made->bedSizeY + made->bedSizeZ, 900.0);
            EXPECT_FALSE(made->modelBoxValid);
        }
        for (const std::string& name :
             {std::string(ending).substr(1), std::string(ending) + "2", std::string(ending) + "/"}) {
            EXPECT_EQ(createDLPWriter(name), nullptr) << name;
        }
    }
    for (const char* name : {"", "x", "a.CTB", "a.VNLINE", "x.VNDLP", "x.png"})
        EXPECT_EQ(createDLPWriter(name), nullptr) << name;
}

TEST_F(CtbWriterTest, WritesItsFieldsByteForByteHoweverOften) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(start(), 0);
        EXPECT_EQ(printed.take(), "error: file not open\n") << "of the vendor writer, which never has a file";
        addLayers(3);
        std::fflush(nullptr);
        EXPECT_EQ(readFile(file), Bytes{}) << "nothing is written before finishing";
        ASSERT_EQ(writer->finish(), 0);
        EXPECT_EQ(printed.take(), "");
    }
    const Bytes written = readFile(file);
    const unsigned key = u32At(written, 100);

    Bytes expected;
    expected.le(0x12FD0086, 4).le(3, 4);                 // magic, version
    expected.f32Le(68.04F).f32Le(300).f32Le(300);        // bed
    expected.le(0, 4).le(0, 4);                          // reserved
    expected.f32Le(3 * 0.05F).f32Le(0.05F);              // totalHeight, layerHeight
    expected.f32Le(8).f32Le(82).f32Le(81);               // exposures: one in tenths, the others not
    expected.le(1, 4).le(kWidth, 4).le(kHeight, 4);      // bottomLayerCount, resolution
    expected.le(112, 4).le(321, 4).le(3, 4).le(148, 4);  // offsets of preview and table, layerCount, second preview
    expected.le(330300, 4).le(1, 4);                     // printTime (forced), projectorType
    expected.le(182, 4).le(60, 4).le(1, 4);              // print parameters, antiAliasLevel
    expected.le(90, 2).le(255, 2).le(key, 4);            // lightPwm, bottomLightPwm (forced), encryptionKey
    expected.le(242, 4).le(76, 4);                       // slicer information
    expected.le(3, 4).le(1, 4).le(144, 4).le(4, 4).fill(16, 0);  // first preview: three pixels
    expected.le(0x0021, 2).le(0x3002, 2);
    expected.le(1, 4).le(1, 4).le(180, 4).le(2, 4).fill(16, 0);  // second preview
    expected.le(0x0800, 2);
    expected.f32Le(84).f32Le(85).f32Le(86).f32Le(87).f32Le(88);  // lifts, retract
    expected.f32Le(9.131F).f32Le(12.5F).f32Le(0.548F);           // volume (forced), weight, price (forced)
    expected.f32Le(0).f32Le(4).le(1, 4).fill(16, 0);             // light-off delays, bottomLayerCount
    expected.fill(28, 0).le(318, 4).le(3, 4);                    // second stages; machine name
    expected.le(0x2000000F, 4).le(0x01A4FA00, 4);                // forced
    expected.le(0xFFFFFFFF, 4).le(0x01090000, 4).fill(24, 0);    // word44, slicerVersion
    expected.raw("M01");
    const auto addEntry = [&expected](unsigned i) {
        expected.f32Le(static_cast<float>(i + 1) * 0.05F).f32Le(i == 0 ? 82.0F : 8.0F).f32Le(81);
        expected.le(429 + 84 * (i + 1) + 2 * i, 4).le(2, 4);  // dataOffset, dataSize
        expected.le(0, 4).le(84, 4).fill(8, 0);
    };
    for (unsigned i = 0; i < 3; ++i) addEntry(i);
    for (unsigned i = 0; i < 3; ++i) {
        addEntry(i);
        expected.le(86, 4).f32Le(86).f32Le(87).fill(8, 0).f32Le(88).fill(20, 0).f32Le(90);
        expected.raw(CTB::CTBWrite::LayerRleCrypt(
            key, i, {static_cast<unsigned char>(0x80 | (9 + 2 * i) >> 1), kWidth * kHeight}));
    }
    EXPECT_TRUE(sameBytes(written, expected));
}

TEST_F(CtbWriterTest, SixteenBitNumbersWrapOrAreTakenAsSigned) {
    writer->layerCount = 70000;
    writer->fileStructure.parameters.exposure_time = 0xFFF6;  // -10
    writer->fileStructure.parameters.first_exposure_time = 0xFFFF;
    writer->fileStructure.parameters.first_layer_count = 0xFFFF;  // -1: every layer is a bottom layer
    EXPECT_EQ(writeFileOf(1), 0);
    EXPECT_EQ(countOf(printed.take(), "warning: "), 1) << "of a header that counts other layers";
    const CTB::HeaderSettings& header = readHeader();
    EXPECT_EQ(header.layerCount, 4464u);
    EXPECT_EQ(header.totalHeight, 4464 * 0.05F);
    EXPECT_EQ(header.exposureTime, -1.0F);
    EXPECT_EQ(header.bottomExposureTime, 65535.0F);
    EXPECT_EQ(header.bottomLayerCount, 0xFFFFFFFFu);
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    EXPECT_EQ(layers[0]->exposureTime, 65535.0F);
}

TEST_F(CtbWriterTest, KeysLieInTheirRangeAndTheLastOneScramblesEveryWritersLayers) {
    const std::string otherFile = path("b.ctb");
    ASSERT_EQ(start(), 0);
    addLayers(3);
    std::unique_ptr<DLPWriter> first = std::move(writer);
    std::set<unsigned> keys;
    unsigned lastKey = 0;
    // until the clock that seeds the keys has moved on
    while (keys.size() < 2) {
        writer = newWriter(otherFile);
        ASSERT_EQ(writeFileOf(3), 0);
        lastKey = u32At(readFile(otherFile), 100);
        EXPECT_GE(lastKey, 255u);
        EXPECT_LE(lastKey, 33022u);
        keys.insert(lastKey);
    }
    writer = std::move(first);
    for (int i = 0; i < 3; ++i) writer->addLayerImage(static_cast<unsigned>(i), layerImage(51 + 2 * i), 0, 0);
    ASSERT_EQ(writer->finish(), 0);
    readHeader();
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    ASSERT_EQ(layers.size(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(layers[i]->decodeCtbImage(kWidth, kHeight, i, lastKey), layerPixels(51 + 2 * static_cast<int>(i)));
    }
}

TEST_F(CtbWriterTest, LayerZeroAgainEmptiesTheTableButNotTheExtendedRecords) {
    writer->layerCount = 1;
    ASSERT_EQ(start(), 0);
    addLayers(3);
    EXPECT_EQ(writer->addLayerImage(0, sliceImage({0, 255, 0, 255}, 4, 1), 0, 0), 0);
    ASSERT_EQ(writer->finish(), 0);
    readHeader();
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    const Owned<CTB::LayerDefEx> extended(reader.layerDefEx());
    ASSERT_EQ(extended.size(), 1u);
    EXPECT_EQ(layers[0]->dataSize, 4u);
    EXPECT_EQ(extended[0]->totalSize, 86u) << "of the first start";
    EXPECT_EQ(extended[0]->layerDef.dataOffset, layers[0]->dataOffset);
    EXPECT_EQ(readFile(file).size(), layers[0]->dataOffset + 4u);
}

TEST_F(CtbWriterTest, LayersMayComeInAnyOrderTwiceAndFromSeveralThreads) {
    ASSERT_EQ(start(), 0);
    writer->resizeLayers(5);
    writer->resizeLayers(3);
    for (const int i : {2, 0, 1, 2}) EXPECT_EQ(writer->setLayerImageAt(i, layerImage(9 + 2 * i), 0), 0);
    ASSERT_EQ(writer->finish(), 0);
    expectLayers(9, 3);

    constexpr int kLayers = 32;
    writer->layerCount = kLayers;
    ASSERT_EQ(start(), 0);
    writer->resizeLayers(kLayers);
    std::vector<std::thread> threads;
    for (int first = 0; first < 4; ++first) {
        threads.emplace_back([this, first] {
            for (int i = first; i < kLayers; i += 4) EXPECT_EQ(writer->setLayerImageAt(i, layerImage(2 * i + 3), 0), 0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(writer->finish(), 0);
    expectLayers(3, kLayers);
}

TEST_F(CtbWriterTest, OlderVersionsAndEmptyPreviewsMakeShorterFiles) {
    writer->fileStructure.v2Header.versionCode = 2;
    ASSERT_EQ(writeFileOf(3), 0);
    EXPECT_EQ(readFile(file).size(), 429u + 3 * 2) << "no extended records";
    ASSERT_EQ(openAndWriteHeader(*writer, std::vector<SliceImage>(3)), 0);
    addLayers(3);
    ASSERT_EQ(writer->finish(), 0);
    EXPECT_EQ(readHeader().printParametersOffset, 176u);
}

// failures

TEST_F(CtbWriterTest, FinishTellsTheFirstFailureThoughTheCallsGoOn) {
    ASSERT_EQ(start(), 0);
    SliceImage bad = layerImage(9);
    bad.pixels.reset();
    printed.take();
    EXPECT_EQ(writer->addLayerImage(0, bad, 0, 0), -30);
    EXPECT_TRUE(isOneErrorLine(printed.take(), "layer 0"));
    bad.width = 0;
    EXPECT_EQ(writer->addLayerImage(0, bad, 0, 0), -30) << "a size without pixels";
    EXPECT_EQ(writer->setLayerImageAt(0, layerImage(9), 0), -31) << "no table yet";
    addLayers(3);
    EXPECT_EQ(writer->setLayerImageAt(3, layerImage(9), 0), -31);
    EXPECT_EQ(writer->setLayerImageAt(-1, layerImage(9), 0), -31);
    EXPECT_EQ(writer->finish(), -30);
    expectLayers(9, 3);

    ASSERT_EQ(start(), 0);
    writer->resizeLayers(3);
    writer->setLayerImageAt(0, layerImage(9), 0);
    writer->setLayerImageAt(2, layerImage(9), 0);
    printed.take();
    EXPECT_EQ(writer->finish(), -1);
    EXPECT_TRUE(isOneErrorLine(printed.take(), "layer 1")) << "never delivered";

    ASSERT_EQ(writer->openFile(), 0);
    std::vector<SliceImage> two = previews();
    two.pop_back();
    EXPECT_EQ(writer->writeHeader(two), 2);
    EXPECT_NE(two[0].pixels, nullptr);
    EXPECT_EQ(printed.take(), "");
    EXPECT_EQ(writer->finish(), -1) << "a file needs its previews";
}

TEST_F(CtbWriterTest, CancelLeavesNoFile) {
    ASSERT_EQ(start(), 0);
    addLayers(2);
    EXPECT_EQ(writer->cancel(), 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_NE(writer->cancel(), 0) << "nothing left to delete";
    printed.take();
    writer->filePath = path("missing/a.ctb");
    EXPECT_EQ(start(), -3);
    EXPECT_EQ(printed.take(), "error: " + writer->filePath + " can't open\n");
    std::vector<SliceImage> images = previews();
    EXPECT_EQ(writer->writeHeader(images), 0);
    addLayers(3);
    EXPECT_EQ(writer->finish(), -1);
}

TEST_F(CtbWriterTest, FullDisksAreToldOnce) {
    writer->filePath = kFullDevice;
    ASSERT_EQ(start(), 0);
    addLayers(3);
    printed.take();
    EXPECT_EQ(writer->finish(), -1);
    EXPECT_TRUE(isOneErrorLine(printed.take(), "/dev/full could not be written completely"));
    writer->filePath = file;
    {
        const FileSizeLimit limit(500);  // what fails only when the buffer is emptied
        EXPECT_EQ(writeFileOf(3), -1);
    }
    EXPECT_EQ(writeFileOf(3), 0) << "the failure belonged to the file before";
}

}  // namespace
}  // namespace vndlp::test
