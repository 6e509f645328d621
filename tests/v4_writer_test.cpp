#include "support/front_end.h"
#include "support/v4.h"

#include <memory>
#include <thread>

namespace vndlp::test {
namespace {

using VNDLPV4::VNDLPV4Read;

/// A layer of 30 x 20 pixels: a bar that moves with the layer.
Bytes layerPixels(unsigned int layer) {
    Bytes pixels(600);
    std::fill_n(pixels.begin() + 31 + 30 * (layer % 18), 25, static_cast<unsigned char>(255 - 2 * layer));
    return pixels;
}

SliceImage layerImage(unsigned int layer) { return sliceImage(layerPixels(layer), 30, 20); }

std::vector<SliceImage> previews() {
    return {sliceImage(Bytes(18, 0xFF), 3, 2), sliceImage(Bytes(6), 2, 1), sliceImage(Bytes(3), 1, 1)};
}

/// A job of the front end, and what became of it.
class Job {
public:
    explicit Job(int layers) : writer(createDLPWriter(file.path())) {
        writer->filePath = file.path();
        writer->layerCount = layers;
        writer->machineType = "not used";
        writer->machineName = "M 4";
        writer->resolutionX = 30;
        writer->resolutionY = 20;
        fillSettings(*writer, 2);
    }
    void begin() const { ASSERT_EQ(openAndWriteHeader(*writer, previews()), 0); }
    /// Finishes, and reads the records of the file, its trailer verified. \return what finishing prints.
    std::string finishAndRead() {
        std::string printed = printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
        printedBy([&] { EXPECT_EQ((Codes{reader.openDlpFile(file.path(), true), reader.parseFile()}), Codes(2)); });
        EXPECT_TRUE(reader.isWhole());
        return printed;
    }
    /// The file holds this number of the layers above.
    void expectLayers(unsigned int layers) {
        ASSERT_EQ(reader.layerDef().size(), layers);
        for (unsigned int i = 0; i < layers; ++i) {
            Bytes expected = layerPixels(i);
            for (unsigned char& pixel : expected) pixel = static_cast<unsigned char>(pixel > 1 ? pixel | 1 : 0);
            EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), reader.layerDef()[i], static_cast<int>(i)),
                      expected)
                << i;
        }
    }

    TemporaryFile file;
    std::unique_ptr<DLPWriter> writer;
    VNDLPV4Read reader;
};

// the bytes of a whole file are those of its format's page
TEST(V4FrontEnd, StoresWhatALayerIsGivenInEitherOrderAndWithEveryFileOfTheObject) {
    Job ordered(5);
    Job indexed(5);
    EXPECT_EQ((Codes{ordered.writer->headerType, ordered.writer->headerVersion, ordered.writer->formatFlag,
                     ordered.writer->fileStructure.headerType, ordered.writer->fileStructure.headerVersion}),
              (Codes{2, 3, 3, 2, 3}));
    for (int round = 0; round < 2; ++round) {
        ordered.begin();
        indexed.begin();
        indexed.writer->resizeLayers(9);
        indexed.writer->resizeLayers(5);
        for (unsigned int i = 0; i < 5; ++i) {
            EXPECT_EQ(ordered.writer->addLayerImage(i, layerImage(i), 1500.0 * i, 8), 0);
            const unsigned int other = i * 3 % 5;
            EXPECT_EQ(indexed.writer->setLayerImageAt(static_cast<int>(other), layerImage(other), 1500.0 * other), 0);
        }
        for (Job* job : {&ordered, &indexed}) job->writer->setLayerArea(1, 8499);
        ordered.finishAndRead();
        indexed.finishAndRead();
        EXPECT_EQ(ordered.file.bytes(), indexed.file.bytes());
        indexed.expectLayers(5);
    }
    VNDLPV4Read& reader = indexed.reader;
    EXPECT_FLOAT_EQ(reader.headerSettings()->floatField3, 0.25F);
    EXPECT_EQ(reader.preViews()[0]->decodeImage(), Bytes(18, 0xF8));
    const unsigned int areas[] = {0, 8, 3, 5, 6};
    for (unsigned int i = 0; i < 5; ++i) {
        const VNDLPV4::LayerDef& layer = *reader.layerDef()[i];
        EXPECT_EQ(layer.positionZ, static_cast<float>(i + 1) * 0.05F);
        EXPECT_EQ(layer.exposureTime, i < 2 ? 30.0F : 2.5F);
        EXPECT_EQ(layer.extensionFlag, 0u);
        EXPECT_EQ(layer.word36, areas[i]);
        EXPECT_EQ(reader.layerDefEx()[i]->lightPwm, 200.0F);
    }
}

TEST(V4FrontEnd, ThreadsEncodeLayersWithTheirMasks) {
    Job job(60);
    job.begin();
    job.writer->setLightData({1, 2, 3}, 4);
    EXPECT_EQ(printedBy([&] { job.writer->prepareLampBeadCal(0); }), "");
    EXPECT_EQ(printedBy([&] { job.writer->prepareLampBeadCal(3); }).substr(0, 16), "init\npw 0 ph 0 \n");
    job.writer->resizeLayers(60);
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&job, t] {
            for (int i = t; i < 60; i += 6) job.writer->setLayerImageAt(i, layerImage(static_cast<unsigned int>(i)), 0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    job.finishAndRead();
    job.expectLayers(60);
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    for (unsigned int i = 0; i < 60; ++i) {
        Bytes mask;
        VNDLPV4::LayerDef::encodeImageSubZone(layerPixels(i).data(), 30, 20, 0, i, field, mask);
        EXPECT_NE(mask, Bytes(68));
        EXPECT_EQ(job.reader.layerDef()[i]->beadMask(), mask);
    }
}

TEST(V4FrontEnd, LayersFromBeforeTheBeadFieldGetTheirMasksToo) {
    Job job(2);
    job.begin();
    job.writer->addLayerImage(0, layerImage(0), 0, 0);
    printedBy([&] { job.writer->prepareLampBeadCal(1); });
    job.writer->addLayerImage(1, layerImage(0), 0, 0);
    job.finishAndRead();
    EXPECT_NE(job.reader.layerDef()[0]->beadMask(), Bytes(68));
    EXPECT_EQ(job.reader.layerDef()[0]->beadMask(), job.reader.layerDef()[1]->beadMask());
}

// failures

TEST(V4FrontEnd, RefusesWhatMakesNoFileAndCancelLeavesNone) {
    Job job(2);
    DLPWriter& writer = *job.writer;
    std::vector<SliceImage> two(2);
    EXPECT_EQ(writer.writeHeader(two), 2);
    job.begin();
    SliceImage empty = layerImage(0);
    empty.pixels.reset();
    EXPECT_TRUE(tellsOf("layer 1", [&] { EXPECT_EQ(writer.addLayerImage(1, layerImage(0), 0, 0), -31); }));
    EXPECT_TRUE(tellsOf("layer 0", [&] { EXPECT_EQ(writer.setLayerImageAt(0, layerImage(0), 0), -31); }));
    EXPECT_TRUE(tellsOf("layer 0", [&] { writer.setLayerArea(0, 1); }));
    EXPECT_TRUE(tellsOf("layer 0", [&] { EXPECT_EQ(writer.addLayerImage(0, empty, 0, 0), -30); }));
    writer.resizeLayers(2);
    writer.setLayerImageAt(1, layerImage(1), 0);
    EXPECT_TRUE(tellsOf("layer 0 is missing", [&] { EXPECT_EQ(writer.finish(), -31); }));
    writer.resolutionX = 65536;
    EXPECT_TRUE(tellsOf("65536 x 20", [&] { EXPECT_EQ(openAndWriteHeader(writer, previews()), -30); }));
    EXPECT_EQ(writer.cancel(), 0);
    EXPECT_FALSE(std::filesystem::exists(job.file.path()));
    writer.filePath = testing::TempDir() + "no/such/folder/x.vndlpv4";
    EXPECT_TRUE(tellsOf("can't open", [&] { EXPECT_EQ(writer.openFile(), -3); }));
}

TEST(V4FrontEnd, TellsOfAFullDiskOnce) {
    Job job(1);
    job.writer->filePath = kFullDevice;
    job.begin();
    job.writer->addLayerImage(0, layerImage(0), 0, 0);
    EXPECT_TRUE(tellsOf(kFullDevice, [&] { EXPECT_EQ(job.writer->finish(), -1); }));
}

TEST(V4FrontEnd, WarnsOnceOfImagesAndCountsThatAreNotTheJobs) {
    Job job(7);
    job.begin();
    std::string printed = printedBy([&] {
        for (unsigned int i = 0; i < 2; ++i) job.writer->addLayerImage(i, sliceImage(Bytes(300, 9), 30, 10), 0, 0);
    });
    printed += job.finishAndRead();
    const std::string warning = "warning: " + job.file.path();
    EXPECT_EQ(printed.substr(0, printed.find("checkFileSum")),
              warning + ": layer 0 has 30 x 10 pixels, the screen 30 x 20\n" + warning +
                  ": 7 layers were announced, 2 delivered\n");
    EXPECT_EQ(job.reader.headerSettings()->layerCount, 2u);
    EXPECT_EQ(job.reader.readLayerImage(job.reader.headerSettings(), job.reader.layerDef()[1], 1),
              Bytes().fill(300, 9).fill(300, 0));
}

}  // namespace
}  // namespace vndlp::test
