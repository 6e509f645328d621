#include "support/bytes.h"
#include "support/files.h"
#include "support/line_sample.h"

#include <vndlp/writer.h>

#include <memory>

namespace vndlp::test {
namespace {

class LineWriterTest : public FileTest {
protected:
    LineWriterTest() : writer(createDLPWriter(file)) {
        writer->filePath = file;
        writer->machineType = "M1";
        writer->machineName = "not used";
        writer->layerCount = 3;
        writer->resolutionX = 1440;
        writer->resolutionY = 2560;
        writer->zThrough = 0x10001;  // the low 16 bits stay
        writer->enableAliasing = 1;
        writer->minGray = 16;
        writer->maxGray = 0xFFFF;
        DlpParameters& p = writer->fileStructure.parameters;
        p.platformX = "68.04";
        p.platformY = "120.96";
        p.thickness = "0.05";
        p.exposure_time = 80;
    }

    static std::vector<SliceImage> previews(std::size_t count = 3) {
        std::vector<SliceImage> images(count);
        for (SliceImage& image : images) {
            image.size = image.width = image.height = 1;
            image.pixels.reset(new unsigned char[1]{255});
        }
        return images;
    }

    /// Everything in front of the layers; previews are black, though others were given.
    static LineSample head(const std::vector<unsigned>& areas, unsigned resolutionX = 1440) {
        LineSample s;
        Bytes& b = s.bytes;
        b.string("VNLINEV2").u16(2).string("M1").u16(static_cast<unsigned>(areas.size())).u16(resolutionX).u16(2560);
        b.fill(64, 0);
        addLinePreviews(b);
        b.text("68.04").text("120.96").text("0.05");
        b.u16(80).fill(16, 0).u16(255).u16(255);
        for (const unsigned area : areas) b.u32(area);
        b.tag();
        b.u16(1).u16(1).u16(16).u16(0xFFFF).tag();
        s.layers = b.size();
        return s;
    }

    int openAndWriteHeader() {
        std::vector<SliceImage> images = previews();
        const int opened = writer->openFile();
        return opened < 0 ? opened : writer->writeHeader(images);
    }

    static trimesh::TriMesh mesh() {
        trimesh::TriMesh m;
        m.vertices.emplace_back(1.5F, -2.0F, 9.0F);
        m.vertices.emplace_back(0.0F, 1e6F, 9.0F);
        return m;
    }

    std::string file = path("a.vnline");
    std::unique_ptr<DLPWriter> writer;
    Printed printed;
};

TEST_F(LineWriterTest, TheFactoryKnowsTheEnding) {
    for (const char* name : {".vnline", "a.vnline", "a.vndlp.vnline"}) {
        const std::unique_ptr<DLPWriter> made(createDLPWriter(name));
        ASSERT_NE(made, nullptr) << name;
        EXPECT_EQ(made->headerType, 12U);
        EXPECT_EQ(made->headerVersion, 0U);
        EXPECT_EQ(made->formatFlag, 1U);
    }
    for (const char* name : {"a.VNLINE", "a.vnline2", "vnline", "a.vnline/"}) {
        EXPECT_EQ(std::unique_ptr<DLPWriter>(createDLPWriter(name)), nullptr) << name;
    }
}

TEST_F(LineWriterTest, MeshesAndPathsByteForByte) {
    ASSERT_EQ(openAndWriteHeader(), 0);
    EXPECT_EQ(writer->addLayerMesh(mesh(), 2500.0), 2);
    EXPECT_EQ(writer->addLayerPaths(77, {{Vec3i(1, -2, 0), Vec3i(3, 4, 0)}, {}}, 2499.0), 0);
    EXPECT_EQ(writer->addLayerMesh({}, 0.0), 0);
    EXPECT_EQ(writer->finish(), 0);

    LineSample expected = head({3, 2, 0});
    expected.bytes.u32(3).u32(2).f32(1.5F).f32(-2).f32(0).f32(1e6F).tag();
    expected.bytes.u32(2).u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(3).u32(4).u32(0).tag();
    expected.bytes.u32(0).u32(0).tag();
    addLineTail(expected);
    EXPECT_TRUE(sameBytes(readFile(file), expected.bytes));
    EXPECT_EQ(printed.take(), "checkFileSum, file:" + file + ", versionName:VNLINEV2, subVersionNum:2, checktype:2\n");
}

TEST_F(LineWriterTest, AResolutionInTheStructureWins) {
    writer->fileStructure.headerType = 12;
    writer->fileStructure.setResolution(3840, 0);
    ASSERT_EQ(openAndWriteHeader(), 0);
    writer->resizeLayers(3);
    EXPECT_EQ(writer->finish(), 0);
    const Bytes written = readFile(file);
    const LineSample expected = head({0, 0, 0}, 3840);
    ASSERT_GE(written.size(), expected.layers);
    EXPECT_TRUE(
        sameBytes({written.begin(), written.begin() + static_cast<std::ptrdiff_t>(expected.layers)}, expected.bytes));
}

TEST_F(LineWriterTest, FewerThanThreePreviewsWriteNothing) {
    ASSERT_EQ(writer->openFile(), 0);
    std::vector<SliceImage> two = previews(2);
    EXPECT_EQ(writer->writeHeader(two), 2);
    EXPECT_NE(two[0].pixels, nullptr);
    EXPECT_EQ(writer->cancel(), 0);
    std::vector<SliceImage> four = previews(4);
    ASSERT_EQ(writer->openFile(), 0);
    EXPECT_EQ(writer->writeHeader(four), 0);
    EXPECT_EQ(four[2].pixels, nullptr);
    EXPECT_NE(four[3].pixels, nullptr);
}

TEST_F(LineWriterTest, ImagesAreIgnored) {
    writer->layerCount = 0;
    ASSERT_EQ(openAndWriteHeader(), 0);
    EXPECT_EQ(writer->addLayerImage(0, previews()[0], 5000, 0), 0);
    EXPECT_EQ(writer->setLayerImageAt(7, previews()[0], 5000), 0);
    writer->setLayerArea(0, 5000);
    writer->setLightData({1}, 2);
    writer->prepareLampBeadCal(2);
    EXPECT_EQ(writer->finish(), 0);
    LineSample expected = head({});
    // no layers: no table, and no tag in its place
    expected.bytes.erase(expected.bytes.end() - 12, expected.bytes.end() - 10);
    addLineTail(expected);
    EXPECT_TRUE(sameBytes(readFile(file), expected.bytes));
}

TEST_F(LineWriterTest, CancelLeavesNoFile) {
    ASSERT_EQ(openAndWriteHeader(), 0);
    writer->addLayerMesh(mesh(), 1000);
    writer->addLayerMesh(mesh(), 1000);
    EXPECT_EQ(writer->cancel(), 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_NE(writer->cancel(), 0) << "nothing left to delete";
}

TEST_F(LineWriterTest, ASecondFileStartsWithEmptyTables) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(openAndWriteHeader(), 0);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(writer->addLayerMesh({}, 1000), 0);
        EXPECT_EQ(writer->finish(), 0) << round;
        LineSample expected = head({1, 1, 1});
        for (int i = 0; i < 3; ++i) expected.bytes.u32(1).u32(0).tag();
        addLineTail(expected);
        EXPECT_TRUE(sameBytes(readFile(file), expected.bytes));
    }
}

TEST_F(LineWriterTest, ResizeLayersSetsTheTablesLength) {
    ASSERT_EQ(openAndWriteHeader(), 0);
    writer->addLayerMesh({}, 4000);
    writer->resizeLayers(3);
    EXPECT_EQ(writer->finish(), 0);
    const LineSample expected = head({4, 0, 0});
    const Bytes written = readFile(file);
    EXPECT_TRUE(
        sameBytes({written.begin(), written.begin() + static_cast<std::ptrdiff_t>(expected.layers)}, expected.bytes));
    writer->resizeLayers(-1);
}

// failures

TEST_F(LineWriterTest, AFileThatCannotBeOpenedIsTold) {
    writer->filePath = path("missing/a.vnline");
    EXPECT_EQ(writer->openFile(), -1);
    EXPECT_EQ(printed.take(), "error: " + writer->filePath + " can't open\n");
    std::vector<SliceImage> images = previews();
    EXPECT_EQ(writer->writeHeader(images), 0) << "the image parameters' result";
    EXPECT_EQ(printed.take(), "error: file not open\n");
    EXPECT_LT(writer->addLayerMesh(mesh(), 1000), 0);
    EXPECT_LT(writer->addLayerPaths(0, samplePaths(), 1000), 0);
    EXPECT_EQ(writer->finish(), -1) << "the head's failure was the first";
}

TEST_F(LineWriterTest, FullDisksAreTold) {
    writer->filePath = kFullDevice;
    ASSERT_EQ(openAndWriteHeader(), 0);
    EXPECT_EQ(writer->addLayerMesh(mesh(), 1000), -21);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(writer->addLayerPaths(0, samplePaths(), 1000), -21);
    EXPECT_EQ(writer->finish(), -21);
    EXPECT_EQ(countOf(printed.take(), "error: /dev/full could not be written completely"), 1);

    // what fails only when the buffer is emptied
    writer->filePath = file;
    {
        const FileSizeLimit limit(head({0, 0, 0}).layers + 5);
        ASSERT_EQ(openAndWriteHeader(), 0);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(writer->addLayerMesh({}, 1000), 0);
        EXPECT_EQ(writer->finish(), -21);
    }
    ASSERT_EQ(openAndWriteHeader(), 0);
    for (int i = 0; i < 3; ++i) writer->addLayerMesh({}, 1000);
    EXPECT_EQ(writer->finish(), 0) << "the failure belonged to the file before";
}

TEST_F(LineWriterTest, ALayerTooFewOrTooManyIsTold) {
    for (const int layers : {2, 4}) {
        ASSERT_EQ(openAndWriteHeader(), 0);
        for (int i = 0; i < layers; ++i) writer->addLayerMesh({}, 1000);
        EXPECT_EQ(writer->finish(), -7) << layers;
    }
}

}  // namespace
}  // namespace vndlp::test
