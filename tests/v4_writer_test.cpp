#include "support/v4.h"

#include <vndlp/writer.h>

#include <memory>
#include <thread>

namespace vndlp::test {
namespace {

using VNDLPV4::VNDLPV4Read;

SliceImage sliceImage(unsigned int width, unsigned int height, const Bytes& bytes) {
    SliceImage image;
    image.width = width;
    image.height = height;
    image.size = static_cast<unsigned int>(bytes.size());
    image.pixels.reset(new unsigned char[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), image.pixels.get());
    return image;
}

/// A layer of 30 x 20 pixels: a bar that moves with the layer.
Bytes layerPixels(unsigned int layer) {
    Bytes pixels(600);
    std::fill_n(pixels.begin() + 31 + 30 * (layer % 18), 25, static_cast<unsigned char>(255 - 2 * layer));
    return pixels;
}

std::vector<SliceImage> previews() {
    return {sliceImage(3, 2, Bytes(18, 0xFF)), sliceImage(2, 1, Bytes(6)), sliceImage(1, 1, Bytes(3))};
}

/// A job of the front end, not opened yet.
std::unique_ptr<DLPWriter> newJob(const std::string& path, int layers) {
    std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    EXPECT_NE(writer, nullptr);
    writer->filePath = path;
    writer->layerCount = layers;
    writer->machineType = "not used";
    writer->machineName = "M 4";
    writer->resolutionX = 30;
    writer->resolutionY = 20;
    fillSettings(*writer, 2);
    return writer;
}

SliceImage layerImage(unsigned int layer) { return sliceImage(30, 20, layerPixels(layer)); }

void begin(DLPWriter& writer) {
    std::vector<SliceImage> images = previews();
    ASSERT_EQ(writer.openFile(), 0);
    ASSERT_EQ(writer.writeHeader(images), 0);
    EXPECT_EQ(images[2].pixels, nullptr);
}

/// Opens a finished file, its trailer verified, and reads its records.
void open(VNDLPV4Read& reader, const std::string& path) {
    printedBy([&] { ASSERT_EQ(reader.openDlpFile(path, true), 0); });
    ASSERT_EQ(reader.parseFile(), 0);
    ASSERT_TRUE(reader.isWhole());
}

void expectLayers(VNDLPV4Read& reader, unsigned int layers) {
    ASSERT_EQ(reader.layerDef().size(), layers);
    for (unsigned int i = 0; i < layers; ++i) {
        Bytes expected = layerPixels(i);
        for (unsigned char& pixel : expected) pixel = static_cast<unsigned char>(pixel > 1 ? pixel | 1 : 0);
        EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), reader.layerDef()[i], static_cast<int>(i)), expected)
            << i;
    }
}

TEST(V4FrontEnd, ConstructorSetsTheLeadingWords) {
    const auto writer = newJob("x.vndlpv4", 1);
    EXPECT_EQ(writer->headerType, 2u);
    EXPECT_EQ(writer->headerVersion, 3u);
    EXPECT_EQ(writer->formatFlag, 3u);
    EXPECT_EQ(writer->fileStructure.headerType, 2);
    EXPECT_EQ(writer->fileStructure.headerVersion, 3);
}

TEST(V4FrontEnd, FillsEveryRecordFromTheJob) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 3);
    begin(*writer);
    for (unsigned int i = 0; i < 3; ++i) EXPECT_EQ(writer->addLayerImage(i, layerImage(i), 1500.0 * i, 8), 0);
    writer->setLayerArea(1, 8499);
    printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
    VNDLPV4Read reader;
    open(reader, file.path());
    const VNDLPV4::HeaderSettings& header = *reader.headerSettings();
    EXPECT_EQ(header.headerText1, "VNKT3DV2");
    EXPECT_EQ(header.version, 4);
    EXPECT_EQ(header.headerText2, "M 4");
    EXPECT_EQ(header.resolutionX, 30);
    EXPECT_EQ(header.resolutionY, 20);
    EXPECT_EQ(header.floatField0, 211.5F);
    EXPECT_EQ(header.floatField1, 118.25F);
    EXPECT_EQ(header.floatField2, 200.0F);
    EXPECT_FLOAT_EQ(header.floatField3, 0.15F);
    EXPECT_EQ(header.floatField4, 0.05F);
    EXPECT_EQ(header.word0, 2u);
    EXPECT_EQ(header.layerCount, 3u);
    EXPECT_EQ(header.word5, 3600u);
    EXPECT_EQ(header.word6, 1u);
    EXPECT_EQ(header.word8, 68u);
    EXPECT_EQ(header.word9, 1u);
    EXPECT_EQ(header.shortField0, 200);
    EXPECT_EQ(header.shortField1, 255);
    EXPECT_EQ(header.encryptionKey, 0u);
    EXPECT_EQ(header.word12, 76u);
    EXPECT_EQ(header.tailFloat0, 2.5F);
    EXPECT_EQ(header.tailFloat1, 30.0F);
    EXPECT_EQ(header.tailFloat2, 2.0F);
    EXPECT_EQ(reader.preViews()[0]->resolutionX, 3u);
    EXPECT_EQ(reader.preViews()[0]->decodeImage(), Bytes(18, 0xF8));
    EXPECT_EQ(reader.preViews()[1]->resolutionX, 2u);
    const VNDLPV4::PrintParameters& parameters = *reader.printParameters();
    EXPECT_EQ(parameters.bottomLiftHeight, 6.0F);
    EXPECT_EQ(parameters.bottomLiftSpeed, 60.0F);
    EXPECT_EQ(parameters.volume, 10.0F);
    EXPECT_EQ(parameters.weight, 12.5F);
    EXPECT_EQ(parameters.bottomLayerCount, 2u);
    EXPECT_EQ(reader.slicerInfo()->word44, 0x3F800000u);
    expectLayers(reader, 3);
    const unsigned int areas[] = {0, 8, 3};
    for (unsigned int i = 0; i < 3; ++i) {
        const VNDLPV4::LayerDef& layer = *reader.layerDef()[i];
        EXPECT_EQ(layer.positionZ, static_cast<float>(i + 1) * 0.05F);
        EXPECT_EQ(layer.exposureTime, i < 2 ? 30.0F : 2.5F);
        EXPECT_EQ(layer.lightOffDelay, 2.0F);
        EXPECT_EQ(layer.extensionFlag, 0u);
        EXPECT_EQ(layer.word36, areas[i]);
        const VNDLPV4::LayerDefEx& extended = *reader.layerDefEx()[i];
        EXPECT_EQ(extended.liftHeight, 5.0F);
        EXPECT_EQ(extended.liftSpeed, 80.0F);
        EXPECT_EQ(extended.retractSpeed, 150.0F);
        EXPECT_EQ(extended.lightPwm, 200.0F);
    }
}

TEST(V4FrontEnd, IndexedDeliveryInAnyOrderGivesTheSameFile) {
    const TemporaryFile ordered;
    const TemporaryFile indexed;
    const auto first = newJob(ordered.path(), 5);
    const auto second = newJob(indexed.path(), 5);
    begin(*first);
    begin(*second);
    second->resizeLayers(9);
    second->resizeLayers(5);
    for (unsigned int i = 0; i < 5; ++i) {
        first->addLayerImage(i, layerImage(i), 1000, 0);
        const unsigned int other = i * 3 % 5;
        EXPECT_EQ(second->setLayerImageAt(static_cast<int>(other), layerImage(other), 1000), 0);
    }
    printedBy([&] {
        EXPECT_EQ(first->finish(), 0);
        EXPECT_EQ(second->finish(), 0);
    });
    EXPECT_EQ(ordered.bytes(), indexed.bytes());
}

TEST(V4FrontEnd, ThreadsEncodeLayersWithTheirMasks) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 60);
    begin(*writer);
    writer->setLightData({1, 2, 3}, 4);
    testing::internal::CaptureStdout();
    writer->prepareLampBeadCal(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    writer->prepareLampBeadCal(3);
    EXPECT_EQ(testing::internal::GetCapturedStdout().substr(0, 16), "init\npw 0 ph 0 \n");
    writer->resizeLayers(60);
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&writer, t] {
            for (int i = t; i < 60; i += 6) writer->setLayerImageAt(i, layerImage(static_cast<unsigned int>(i)), 0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
    VNDLPV4Read reader;
    open(reader, file.path());
    expectLayers(reader, 60);
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    for (unsigned int i = 0; i < 60; ++i) {
        Bytes mask;
        VNDLPV4::LayerDef::encodeImageSubZone(layerPixels(i).data(), 30, 20, 0, i, field, mask);
        EXPECT_NE(mask, Bytes(68));
        EXPECT_EQ(reader.layerDef()[i]->beadMask(), mask);
    }
}

TEST(V4FrontEnd, LayersFromBeforeTheBeadFieldGetTheirMasksToo) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 2);
    begin(*writer);
    writer->addLayerImage(0, layerImage(0), 0, 0);
    printedBy([&] { writer->prepareLampBeadCal(1); });
    writer->addLayerImage(1, layerImage(0), 0, 0);
    printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
    VNDLPV4Read reader;
    open(reader, file.path());
    EXPECT_NE(reader.layerDef()[0]->beadMask(), Bytes(68));
    EXPECT_EQ(reader.layerDef()[0]->beadMask(), reader.layerDef()[1]->beadMask());
}

TEST(V4FrontEnd, WritesASecondFileWithTheSameObject) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 2);
    Bytes first;
    for (int job = 0; job < 2; ++job) {
        begin(*writer);
        for (unsigned int i = 0; i < 2; ++i) writer->addLayerImage(i, layerImage(i), 0, 0);
        printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
        if (job == 0) first = file.bytes();
    }
    EXPECT_EQ(file.bytes(), first);
}

TEST(V4FrontEndFailures, RefusesWhatMakesNoFile) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 2);
    std::vector<SliceImage> two(2);
    EXPECT_EQ(writer->writeHeader(two), 2);
    begin(*writer);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->addLayerImage(1, layerImage(0), 0, 0), 0); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->setLayerImageAt(0, layerImage(0), 0), 0); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { writer->setLayerArea(0, 1); })));
    SliceImage empty = layerImage(0);
    empty.pixels.reset();
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->addLayerImage(0, empty, 0, 0), 0); })));
    writer->resizeLayers(2);
    writer->setLayerImageAt(1, layerImage(1), 0);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->finish(), 0); }), "layer 0 is missing"));
    writer->resolutionX = 65536;
    std::vector<SliceImage> images = previews();
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->writeHeader(images), 0); }), "65536 x 20"));
    writer->filePath = testing::TempDir() + "no/such/folder/x.vndlpv4";
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(writer->openFile(), -3); })));
}

TEST(V4FrontEndFailures, WarnsOnceOfImagesAndCountsThatAreNotTheJobs) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 7);
    begin(*writer);
    const std::string printed = printedBy([&] {
        for (unsigned int i = 0; i < 2; ++i) writer->addLayerImage(i, sliceImage(30, 10, Bytes(300, 9)), 0, 0);
        EXPECT_EQ(writer->finish(), 0);
    });
    EXPECT_EQ(printed.rfind("warning: " + file.path() + ": layer 0 has 30 x 10 pixels, the screen 30 x 20\nwarning: " +
                                file.path() + ": 7 layers were announced, 2 delivered\ncheckFileSum",
                            0),
              0u)
        << printed;
    VNDLPV4Read reader;
    open(reader, file.path());
    EXPECT_EQ(reader.headerSettings()->layerCount, 2u);
    EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), reader.layerDef()[1], 1),
              Bytes().raw(Bytes(300, 9)).fill(300, 0));
}

TEST(V4FrontEndFailures, TellsOfAFullDiskOnce) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    const auto writer = newJob("x.vndlpv4", 1);
    writer->filePath = "/dev/full";
    begin(*writer);
    writer->addLayerImage(0, layerImage(0), 0, 0);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_LT(writer->finish(), 0); }), "/dev/full"));
}

TEST(V4FrontEnd, CancelDeletesTheFile) {
    const TemporaryFile file;
    const auto writer = newJob(file.path(), 1);
    begin(*writer);
    writer->addLayerImage(0, layerImage(0), 0, 0);
    EXPECT_EQ(writer->cancel(), 0);
    EXPECT_FALSE(std::filesystem::exists(file.path()));
}

}  // namespace
}  // namespace vndlp::test
