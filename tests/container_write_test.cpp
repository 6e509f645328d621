#include "support/container_sample.h"
#include "support/files.h"

#include <memory>

namespace vndlp::test {
namespace {

struct Kind {
    int kind;
    int version;
    const char* told;  ///< what sealing prints behind the file's name
};
const Kind kKinds[] = {{kV1, 3, "VNKT3D, subVersionNum:0, checktype:0\n"},
                       {kV2, 2, "VNKT3DV2, subVersionNum:2, checktype:1\n"},
                       {kV2, 3, "VNKT3DV2, subVersionNum:3, checktype:2\n"},
                       {kV3, 3, "VNKT3D3, subVersionNum:0, checktype:1\n"},
                       {kLine, 3, "VNLINEV2, subVersionNum:2, checktype:2\n"}};

class WriteTest : public FileTest {
protected:
    /// Gives the writer a job by its swaps.
    static void give(VndlpWrite& writer, const DlpFileStructure& structure, std::vector<unsigned int> areas,
                     std::vector<std::vector<WhiteData>> runs) {
        auto* owned = new DlpFileStructure(structure);
        writer.swapDlpFileStructure(owned);
        delete owned;  // what the writer held before
        writer.swapLayerAreas(areas);
        writer.swapWhiteDatas(runs);
    }

    std::string file = path("out");
    VndlpWrite writer;
};

TEST_F(WriteTest, LineFilesHoldPathsAndMeshes) {
    std::vector<std::vector<Vec3i>> paths = {{Vec3i(1, -2, 0), Vec3i(3, 4, 0)}, {}};
    paths[0][0].setZ(5);
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.5F, -2.0F, 0.25F);
    DlpFileStructure structure = sampleStructure(kLine);
    std::vector<unsigned int> areas = sampleAreas();

    SampleFile expected = sampleHead(kLine);
    expected.bytes.u16(0xFFFF).u16(2).u16(3).u16(4).tag();  // image parameters
    expected.bytes.u32(0x01020304).u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(3).u32(4).u32(0).tag();
    expected.bytes.u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(5).u32(3).u32(4).u32(4).u32(0).tag();  // with z, no area
    expected.bytes.u32(50).u32(1).f32(1.5F).f32(-2).tag();
    expected.bytes.u32(1).f32(1.5F).f32(-2).f32(0.25F).tag();
    addTail(expected, kLine);

    const Printed printed;
    EXPECT_EQ((Codes{writer.openDlpFile(file), writer.writeDlpStructure(structure, &areas),
                     writer.writeDlpImageParam({-1, 2, 3, 4}), writer.writeLayerPath(paths, &areas[0], false),
                     writer.writeLayerPath(paths, nullptr, true), writer.writeLayerTrimesh(mesh, &areas[2], false),
                     writer.writeLayerTrimesh(mesh, nullptr, true), writer.writeTail(kLine)}),
              (Codes{0, 0, 0, 0, 0, 1, 1, 0}));
    EXPECT_TRUE(sameBytes(readFile(file), expected.bytes));
}

TEST_F(WriteTest, ATableIsReservedWithZerosAndFilledInPlace) {
    DlpParameters parameters = sampleStructure(kV2).parameters;
    EXPECT_EQ(writer.openDlpFile(file), 0);
    EXPECT_EQ(writer.writeDlpParameters(parameters, nullptr, 0), 0);
    const int without = writer.filePosition();
    EXPECT_EQ(writer.writeDlpParameters(parameters, nullptr, 100), 0);
    EXPECT_EQ(writer.filePosition(), 2 * without + 402);
    EXPECT_EQ(writer.flush(), 0);
    const Bytes reserved = readFile(file);
    EXPECT_TRUE(sameBytes({reserved.end() - 402, reserved.end()}, Bytes(402)));
    std::vector<unsigned int> areas(100, 0x01020304);
    EXPECT_EQ(writer.writeLayerAreasDealyer(areas), 0);
    writer.flush();
    Bytes table;
    for (int i = 0; i < 100; ++i) table.u32(0x01020304);
    EXPECT_TRUE(sameBytes(readFile(file), Bytes(reserved.begin(), reserved.end() - 402).raw(table.tag())));

    Printed printed;
    areas.resize(101);
    EXPECT_EQ(writer.writeLayerAreasDealyer(areas), -7);
    EXPECT_EQ(printed.take(), "error: 101 layer areas given, room was reserved for 100\n");
    std::vector<unsigned int> none;
    EXPECT_EQ(writer.writeDlpParameters(parameters, &none, 5), 0);
    EXPECT_EQ(writer.filePosition(), 3 * without + 404) << "only the tag of an empty table";
}

/// `skipLayerAreas` on its own reserved nothing that the filling found.
TEST_F(WriteTest, ATableSkippedByTheCallerIsFilledAsFarAsThereAreValues) {
    Printed printed;
    EXPECT_EQ((Codes{writer.openDlpFile(file), writer.skipLayerAreas(100), writer.filePosition()}), (Codes{0, 0, 402}));
    std::vector<unsigned int> areas(100, 5);
    EXPECT_EQ((Codes{writer.writeLayerAreasDealyer(areas), writer.filePosition(), writer.flush()}), (Codes{0, 402, 0}));
    Bytes expected;
    for (int i = 0; i < 100; ++i) expected.u32(5);
    EXPECT_TRUE(sameBytes(readFile(file), expected.tag()));
    areas = {6, 7};
    EXPECT_EQ((Codes{writer.writeLayerAreasDealyer(areas), writer.flush()}), Codes(2));
    EXPECT_TRUE(
        sameBytes(Bytes(readFile(file)), Bytes().u32(6).u32(7).tag().raw({expected.begin() + 10, expected.end()})));
    EXPECT_EQ(printed.take(), "");
    EXPECT_EQ((Codes{writer.skipLayerAreas(1 << 29), writer.skipLayerAreas(-3), writer.skipLayerAreas(-2147483647),
                     writer.filePosition()}),
              (Codes{-7, 0, 0, 392}));
}

// ---- failures

TEST_F(WriteTest, WithoutAFileNothingIsWritten) {
    DlpFileStructure s = sampleStructure(kV2);
    std::vector<unsigned int> areas;
    Printed printed;
    EXPECT_EQ((Codes{writer.writeDlpStructure(s), writer.writeDlpV1Header(s.v1Header),
                     writer.writeDlpV2Header(s.v2Header), writer.writeDlpLineV2Header(s.lineHeader),
                     writer.writeDlpV3Header(s.v3Header), writer.skipLayerAreas(1)}),
              Codes(6, -1));
    EXPECT_EQ(countOf(printed.take(), "error: file not open\n"), 6);
    EXPECT_EQ((Codes{writer.writeDlpParameters(s.parameters, nullptr, 0),
                     writer.writeDlpSliceBasicParameters(s.sliceBasicParameters), writer.filePosition()}),
              (Codes{-1, -1, 0}));
    EXPECT_EQ(printed.take(), "");
    EXPECT_EQ((Codes{writer.writeLayerAreasDealyer(areas), writer.writeTail(kV2)}), (Codes{-2, -1}));
    EXPECT_EQ(countOf(printed.take(), "Error: no dlp file open\n"), 2);
    EXPECT_EQ(writer.openDlpFile(path("no/such")), -1);
    EXPECT_EQ(printed.take(), "error: " + path("no/such") + " can't open\n");
}

TEST_F(WriteTest, IncompleteJobsAreRefused) {
    Printed printed;
    EXPECT_EQ(writer.writeDlpFile(path("no/such")), -1);
    EXPECT_EQ(printed.take(), "error: " + path("no/such") + " can't open\n");
    EXPECT_EQ(writer.writeDlpFile(file), -6);
    EXPECT_EQ(printed.take(), "error: no dlp structure\nerror: judge dlp file fail\n");

    give(writer, sampleStructure(7), sampleAreas(), sampleRuns());
    EXPECT_EQ(writer.writeDlpFile(file), -10);
    EXPECT_EQ(printed.take(), "error: file is not vndlp file. please check file\nerror: judge dlp file fail\n");
    DlpFileStructure unknown = sampleStructure(0);
    EXPECT_EQ(writer.writeDlpStructure(unknown), -10);
    EXPECT_EQ(printed.take(), "error: file is not vndlp file. please check file\nerror: dlp file judge fail\n");

    for (const int kind : {kV2, kLine}) {
        give(writer, sampleStructure(kind), sampleAreas(), {{}, {}});
        EXPECT_EQ(writer.writeDlpFile(file), -9);
        EXPECT_EQ(printed.take(), "error: layer count not equal\nerror: judge dlp file fail\n");
        EXPECT_EQ(std::filesystem::file_size(file), 0U);

        DlpFileStructure four = sampleStructure(kind);
        four.setLayerCount(4);
        give(writer, four, sampleAreas(), sampleRuns());
        EXPECT_EQ(writer.writeDlpFile(file), -6);
        EXPECT_EQ(printed.take(), "Error: dlp layer count not equalerror: write dlp file structure fail\n");
        writer.close();
        EXPECT_EQ(std::filesystem::file_size(file), sampleHead(kind).parameters) << "the header stands";
    }
    give(writer, sampleStructure(kV1), {}, {{}, {}});
    EXPECT_EQ(writer.writeDlpFile(file), -11);
    EXPECT_EQ(printed.take(), "error: 2 run lists given for 3 layers\n");
    for (const int kind : {kV1, kV2, kV3, kLine}) {
        DlpFileStructure s = sampleStructure(kind);
        for (DlpImage* picture : {&s.v1Header.smallPreview, &s.v2Header.smallPreview, &s.v3Header.thirdPreview,
                                  &s.lineHeader.middlePreview})
            picture->release();
        EXPECT_EQ(writer.writeDlpStructure(s), -6);
        EXPECT_EQ(printed.take(), "error: no preview image\nerror: write DlpV1Header fail\n") << "one text for all";
    }
}

}  // namespace
}  // namespace vndlp::test
