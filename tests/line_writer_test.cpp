#include "support/files.h"
#include "support/front_end.h"
#include "support/line_sample.h"

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

    int start(std::size_t previews = 3) {
        return openAndWriteHeader(*writer, std::vector<SliceImage>(previews, sliceImage({255}, 1, 1)));
    }
    int addEmptyLayers(int count) {
        int result = 0;
        for (int i = 0; i < count; ++i) result |= writer->addLayerMesh({}, 1000);
        return result;
    }
    /// The file begins with this head.
    void expectHead(const LineSample& head) const {
        Bytes written = readFile(file);
        written.resize(head.layers);
        EXPECT_TRUE(sameBytes(written, head.bytes));
    }

    std::string file = path("a.vnline");
    std::unique_ptr<DLPWriter> writer;
    Printed printed;
};

TEST_F(LineWriterTest, MeshesAndPathsByteForByteHoweverOften) {
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.5F, -2.0F, 9.0F);
    mesh.vertices.emplace_back(0.0F, 1e6F, 9.0F);
    LineSample expected = head({3, 2, 0});
    expected.bytes.u32(3).u32(2).f32(1.5F).f32(-2).f32(0).f32(1e6F).tag();
    expected.bytes.u32(2).u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(3).u32(4).u32(0).tag();
    expected.bytes.u32(0).u32(0).tag();
    addLineTail(expected);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ((Codes{start(), writer->addLayerMesh(mesh, 2500.0),
                         writer->addLayerPaths(77, {{Vec3i(1, -2, 0), Vec3i(3, 4, 0)}, {}}, 2499.0),
                         writer->addLayerMesh({}, 0.0), writer->finish()}),
                  (Codes{0, 2, 0, 0, 0}));
        EXPECT_TRUE(sameBytes(readFile(file), expected.bytes));
        EXPECT_EQ(printed.take(),
                  "checkFileSum, file:" + file + ", versionName:VNLINEV2, subVersionNum:2, checktype:2\n");
    }
}

TEST_F(LineWriterTest, AResolutionInTheStructureAndATableOfAnotherLengthWin) {
    writer->fileStructure.headerType = 12;
    writer->fileStructure.setResolution(3840, 0);
    ASSERT_EQ((Codes{start(), writer->addLayerMesh({}, 4000)}), Codes(2));
    writer->resizeLayers(3);
    EXPECT_EQ(writer->finish(), 0);
    expectHead(head({4, 0, 0}, 3840));
    writer->resizeLayers(-1);
}

TEST_F(LineWriterTest, ThreePreviewsAreTakenAndImagesIgnored) {
    EXPECT_EQ((Codes{start(2), writer->cancel()}), (Codes{2, 0}));
    std::vector<SliceImage> four(4, sliceImage({255}, 1, 1));
    writer->layerCount = 0;
    ASSERT_EQ((Codes{writer->openFile(), writer->writeHeader(four)}), Codes(2));
    EXPECT_EQ(four[2].pixels, nullptr);
    EXPECT_NE(four[3].pixels, nullptr);
    EXPECT_EQ((Codes{writer->addLayerImage(0, four[3], 5000, 0), writer->setLayerImageAt(7, four[3], 5000)}), Codes(2));
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

// failures

TEST_F(LineWriterTest, CancelLeavesNoFile) {
    EXPECT_EQ((Codes{start(), addEmptyLayers(2), writer->cancel()}), Codes(3));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_NE(writer->cancel(), 0) << "nothing left to delete";
}

TEST_F(LineWriterTest, AFileThatCannotBeOpenedIsTold) {
    writer->filePath = path("missing/a.vnline");
    EXPECT_EQ(writer->openFile(), -1);
    EXPECT_EQ(printed.take(), "error: " + writer->filePath + " can't open\n");
    std::vector<SliceImage> images(3);
    EXPECT_EQ(writer->writeHeader(images), 0) << "the image parameters' result";
    EXPECT_EQ(printed.take(), "error: file not open\n");
    EXPECT_LT(writer->addLayerMesh({}, 1000), 0);
    EXPECT_LT(writer->addLayerPaths(0, samplePaths(), 1000), 0);
    EXPECT_EQ(writer->finish(), -1) << "the head's failure was the first";
}

TEST_F(LineWriterTest, FullDisksAreTold) {
    writer->filePath = kFullDevice;
    EXPECT_EQ((Codes{start(), writer->addLayerMesh({}, 1000), writer->addLayerPaths(0, samplePaths(), 1000),
                     writer->addLayerPaths(0, {}, 1000), writer->finish()}),
              (Codes{0, -21, -21, -21, -21}));
    EXPECT_EQ(countOf(printed.take(), "error: /dev/full could not be written completely"), 1);
    writer->filePath = file;
    {
        const FileSizeLimit limit(head({0, 0, 0}).layers + 5);  // what fails only when the buffer is emptied
        EXPECT_EQ((Codes{start(), addEmptyLayers(3), writer->finish()}), (Codes{0, 0, -21}));
    }
    EXPECT_EQ((Codes{start(), addEmptyLayers(3), writer->finish()}), Codes(3)) << "the failure was the file before's";
}

TEST_F(LineWriterTest, ALayerTooFewOrTooManyIsTold) {
    for (const int layers : {2, 4})
        EXPECT_EQ((Codes{start(), addEmptyLayers(layers), writer->finish()}), (Codes{0, 0, -7}));
}

}  // namespace
}  // namespace vndlp::test
