#include "support/container_sample.h"
#include "support/files.h"
#include "support/front_end.h"

#include <thread>

namespace vndlp::test {
namespace {

/// 1 x 1 pixel; below a grey of 16 the layer has no runs.
SliceImage layerImage(std::size_t i) { return sliceImage({static_cast<unsigned char>(i + 14)}, 1, 1); }

/// The runs of `layerImage`, packed: row 0, column 0.
Bytes layerRuns(std::size_t i) { return i < 2 ? Bytes() : Bytes().fill(5, 0).u8(static_cast<unsigned>(i + 14)); }

double layerArea(std::size_t i) { return static_cast<double>(i) * 1000 + 499; }  // rounds to i

/// A file of `count` such layers with each layer's runs standing `repeats` times.
Bytes expectedFile(std::size_t count, unsigned repeats, unsigned width = 1440) {
    Bytes b;
    b.string("VNKT3DV2").u16(3).string("Maker M1").u16(static_cast<unsigned>(count)).u16(width).u16(2560);
    b.fill(22, 0).f32(10).f32(20).f32(30).fill(30, 0);
    b.fill(26912, 0).tag().fill(168200, 0).tag().fill(168200, 0).tag();
    b.text("68.04").text("120.96").text("0.05");
    for (unsigned i = 1; i <= 11; ++i) b.u16(0x0A00 + i);
    for (std::size_t i = 0; i < count; ++i) b.u32(static_cast<unsigned>(i));
    b.tag();
    b.string("V1.2").string("resin").u8(1).u32(0xFFFFFFFE).u32(3).u8(4).u16(0xFFFB).u8(6).u16(7);
    b.u8(8).u8(9).u8(10).u8(11).u8(12).tag();
    for (std::size_t i = 0; i < count; ++i) {
        Bytes runs;
        for (unsigned r = 0; r < repeats; ++r) runs.raw(layerRuns(i));
        b.u32(static_cast<unsigned>(i)).u32(static_cast<unsigned>(runs.size() / 6)).raw(runs).tag();
    }
    b.string("VNKT3DV2");
    sealWithCrc(b);
    return b;
}

class WriterTest : public FileTest {
protected:
    WriterTest() : writer(createDLPWriter(path("out.vndlp"))) { prepare(0); }

    void prepare(int layerCount, const std::string& target = {}) {
        writer->filePath = target.empty() ? file : target;
        writer->layerCount = layerCount;
        writer->machineType = "Maker M1";
        writer->resolutionX = 1440;
        writer->resolutionY = 2560;
        const float box[] = {-5, -10, 0, 5, 10, 30};
        std::copy(box, box + 6, writer->modelBox);
        writer->modelBoxValid = true;
        const DlpFileStructure sample = sampleStructure(kV2);
        writer->fileStructure.parameters = sample.parameters;
        writer->fileStructure.sliceBasicParameters = sample.sliceBasicParameters;
    }
    /// Opens the file and writes the head.
    int start(int layerCount, const std::string& target = {}) {
        prepare(layerCount, target);
        return openAndWriteHeader(*writer, std::vector<SliceImage>(3, sliceImage(Bytes(12, 200), 2, 2)));
    }
    /// Finishes; the file holds these bytes.
    void expectFile(const Bytes& expected) const {
        const Printed printed;
        EXPECT_EQ(writer->finish(), 0);
        EXPECT_TRUE(sameBytes(readFile(file), expected));
    }

    std::string file = path("out.vndlp");
    std::unique_ptr<DLPWriter> writer;
};

TEST_F(WriterTest, OrderedDeliveryGivesTheSameFileInEveryBatchSize) {
    constexpr std::size_t kLayers = 25;
    for (const int batch : {10, 0, 1, 25, 26, -1}) {
        ASSERT_EQ(start(kLayers), 0);
        std::vector<SliceImage> images;
        for (std::size_t i = 0; i < kLayers; ++i) {
            images.push_back(layerImage(i));
            EXPECT_EQ(writer->addLayerImage(static_cast<unsigned>(i), images[i], layerArea(i), batch), 0);
            // the writer shares an image until its batch is written
            const bool held = batch < 0 || (batch > 1 && (i + 1) % static_cast<std::size_t>(batch) != 0);
            EXPECT_EQ(images[i].pixels.use_count(), held ? 2 : 1) << "image " << i << ", batch " << batch;
        }
        EXPECT_EQ(images[0].pixels.use_count(), batch < 0 || batch > 25 ? 2 : 1);
        expectFile(expectedFile(kLayers, 1));
    }
}

TEST_F(WriterTest, IndexedDeliveryWritesEveryRunTwiceAndMayComeFromManyThreads) {
    constexpr int kLayers = 200;
    constexpr int kThreads = 4;
    ASSERT_EQ(start(kLayers), 0);
    writer->resizeLayers(kLayers + 6);
    writer->resizeLayers(kLayers);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = kLayers - 1 - t; i >= 0; i -= kThreads) {
                EXPECT_EQ(writer->setLayerImageAt(i, layerImage(static_cast<std::size_t>(i)), i * 1000 - 0.5), 0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    expectFile(expectedFile(kLayers, 2));
}

TEST_F(WriterTest, MoreIndexedCallsThanLayersWriteThemOut) {
    // tables of two layers, and a run table that openFile has made longer
    writer->resizeLayers(2);
    ASSERT_EQ(start(4), 0);
    Printed printed;
    EXPECT_EQ(writer->setLayerImageAt(0, layerImage(0), 0), 0);
    EXPECT_EQ(writer->setLayerImageAt(1, layerImage(2), 1000), 0);
    EXPECT_EQ(printed.take(), "");
    EXPECT_EQ(writer->setLayerImageAt(1, layerImage(2), 1000), 0);
    EXPECT_LT(writer->setLayerImageAt(1, layerImage(2), 1000), 0) << "the tables are empty now";
    EXPECT_EQ(countOf(printed.take(), "invalid vector subscript\n"), 1);
    EXPECT_LT(writer->finish(), 0);
    const Bytes layers = Bytes().u32(0).u32(0).tag().u32(1).u32(2).raw(layerRuns(2)).raw(layerRuns(2)).tag();
    const Bytes bytes = readFile(file);
    EXPECT_TRUE(sameBytes({bytes.end() - 17 - static_cast<std::ptrdiff_t>(layers.size()), bytes.end() - 17}, layers));
}

TEST_F(WriterTest, HeadersTakeThreePreviewsAndKeepWhatTheSlicerPutIntoThem) {
    prepare(1);
    DlpV2Header& header = writer->fileStructure.v2Header;
    header.backUse.setMachineHeight(155);
    header.smallPreview.needData();
    header.smallPreview.bits()[0] = 0x7C;
    writer->fileStructure.headerType = 2;
    writer->fileStructure.setResolution(99, 0);
    writer->modelBoxValid = false;
    ASSERT_EQ(writer->openFile(), 0);
    std::vector<SliceImage> previews(2, layerImage(0));
    EXPECT_EQ(writer->writeHeader(previews), 2);
    EXPECT_NE(previews[0].pixels, nullptr);
    previews.resize(4, layerImage(0));
    EXPECT_EQ(writer->writeHeader(previews), 0);
    EXPECT_EQ(previews[2].pixels, nullptr) << "taken";
    EXPECT_NE(previews[3].pixels, nullptr);
    writer->addLayerImage(0, layerImage(0), layerArea(0), 0);
    Bytes expected = expectedFile(1, 1, 99);
    expected.resize(expected.size() - 4);
    const Bytes height = Bytes().u32(155000);  // micrometres, in front of the other back use
    std::copy(height.begin(), height.end(), expected.begin() + 34);
    std::fill_n(expected.begin() + 56, 12, 0);  // the model's size
    expected[98] = 0x7C;
    sealWithCrc(expected);
    expectFile(expected);
}

// ---- failures

TEST_F(WriterTest, CancelLeavesNoFile) {
    ASSERT_EQ(start(5), 0);
    for (unsigned i = 0; i < 3; ++i) writer->addLayerImage(i, layerImage(i), 0, 2);
    EXPECT_EQ((Codes{writer->addLayerMesh({}, 1), writer->addLayerPaths(0, {{}}, 1), writer->cancel()}), Codes(3));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_NE(writer->cancel(), 0) << "nothing left to delete";
    Printed printed;
    EXPECT_EQ(start(1, path("no/such.vndlp")), -1);
    EXPECT_EQ(printed.take(), "error: " + path("no/such.vndlp") + " can't open\n");
}

TEST_F(WriterTest, WrongLayersAreRefusedAndRemembered) {
    ASSERT_EQ(start(2), 0);
    writer->resizeLayers(2);
    Printed printed;
    for (const int index : {-1, 2}) {
        EXPECT_LT(writer->setLayerImageAt(index, layerImage(0), 0), 0);
        EXPECT_EQ(countOf(printed.take(), "invalid vector subscript\n"), 1);
    }
    SliceImage empty{4, 2, 2, nullptr};
    EXPECT_LT(writer->setLayerImageAt(0, empty, 0), 0);
    EXPECT_EQ(printed.take(), "error: layer 0 has no pixels\n");
    SliceImage tooSmall = sliceImage({1, 2, 3}, 2, 2);
    EXPECT_LT(writer->addLayerImage(0, tooSmall, 0, 1), 0);
    EXPECT_EQ(printed.take(), "error: layer 0: 3 bytes given for 2 x 2 pixels\n");
    EXPECT_LT(writer->finish(), 0) << "the first failure";
    ASSERT_EQ(start(0), 0);
    EXPECT_EQ(writer->finish(), 0) << "forgotten with the next file";
}

TEST_F(WriterTest, AFullDiskIsReturnedByFinish) {
    const rlim_t whole = expectedFile(1, 1).size();
    struct Row {
        std::string target;
        rlim_t room;
        int code;
    };
    // full in the head, in the tail, or with no room for the trailer
    for (const Row& row :
         {Row{kFullDevice, whole, -21}, {file, 1000, -21}, {file, whole - 5, -21}, {file, whole - 1, -20}}) {
        Printed printed;
        const FileSizeLimit limit(row.room);
        start(1, row.target);
        writer->addLayerImage(0, layerImage(0), 0, 0);
        EXPECT_EQ(writer->finish(), row.code);
        const std::string text = printed.take();
        EXPECT_EQ(countOf(text, "error: "), 1) << text;
        EXPECT_EQ(countOf(text, "could not be written completely"), row.code == -21 ? 1 : 0) << text;
    }
}

}  // namespace
}  // namespace vndlp::test
