#include "support/allocations.h"
#include "support/container_sample.h"
#include "support/files.h"

#include <tuple>

namespace vndlp::test {
namespace {

class ReadTest : public FileTest {
protected:
    std::string sample(int kind, unsigned version = 3) {
        file = writeFile(path("in"), sampleFile(kind, version).bytes);
        return file;
    }

    std::string file;
    VndlpRead reader;
};

std::vector<std::vector<unsigned char>> pack(const std::vector<std::vector<WhiteData>>& layers) {
    std::vector<std::vector<unsigned char>> packed;
    for (const std::vector<WhiteData>& runs : layers) {
        std::vector<unsigned char>& bytes = packed.emplace_back(runs.size() * 6);
        for (std::size_t i = 0; i < runs.size(); ++i) whiteData2Bits(runs[i], bytes.data() + 6 * i);
    }
    return packed;
}

TEST_F(ReadTest, LayersAreReadOneByOne) {
    const SampleFile f = sampleFile(kV2);
    Printed printed;
    ASSERT_EQ((Codes{reader.openDlpFile(sample(kV2), true), reader.readDlpStructure(false)}), Codes(2));
    EXPECT_EQ(printed.take(), "checkFileSum, file:" + file + ", versionName:VNKT3DV2, subVersionNum:3, checktype:2\n");
    EXPECT_FALSE(reader.getDlpFileStructure()->v2Header.smallPreview.haveDatas());
    EXPECT_EQ(reader.currentPosition(), static_cast<long long>(f.layers));
    std::vector<std::vector<WhiteData>> layers(3);
    unsigned int areas[2] = {};
    EXPECT_EQ((Codes{reader.getWhiteDatas(layers[0], &areas[0]), reader.getWhiteDatas(layers[1], nullptr),
                     reader.readLayerWhiteData(layers[2], &areas[1])}),
              Codes(3));
    EXPECT_EQ(pack(layers), samplePackedRuns());
    EXPECT_EQ((Codes{areas[0], areas[1]}), (Codes{0x01020304, 50}));
    EXPECT_EQ(reader.currentPosition(), static_cast<long long>(f.tail));

    reader.seek(static_cast<long long>(f.layers));
    unsigned int runs = 0;
    EXPECT_EQ((Codes{reader.skipLayerWhiteData(&areas[1], runs), areas[1], runs, reader.seek(1LL << 40)}),
              (Codes{0, 0x01020304, 2, -1}));
    EXPECT_EQ(reader.remaining(), static_cast<long long>(f.bytes.size() - f.layers) - 22);

    reader.openDlpFile(sample(kV1), true);
    reader.readDlpStructure(false);
    EXPECT_EQ((Codes{reader.getWhiteDatas(layers[1], &areas[0]), areas[0]}), (Codes{0, 0x01020304}))
        << "only V2 has one";
}

TEST_F(ReadTest, HeadsComeAsPlainValues) {
    for (const int kind : {kV1, kV3, kV2, kLine}) {
        reader.openDlpFile(sample(kind), false);
        ASSERT_EQ(reader.readDlpStructure(true), 0);
        std::string magic, machine = "old", x, y, thickness;
        unsigned short version = 9, layers = 0, width = 0, height = 0;
        std::vector<char> pictures[] = {std::vector<char>(26912), std::vector<char>(168200), std::vector<char>(168200)};
        const bool versioned = kind == kV2 || kind == kLine;
        EXPECT_EQ(reader.getHeaderParaV2(magic, version, machine, layers, width, height, pictures[0].data(),
                                         pictures[1].data(), pictures[2].data()),
                  versioned);
        const char* magics[] = {"", "VNKT3D", "VNKT3DV2", "VNKT3D3"};
        EXPECT_EQ(magic, kind == kLine ? "VNLINEV2" : magics[kind]);
        EXPECT_EQ(machine, versioned ? "Maker M1" : "");
        EXPECT_EQ((Codes{version, layers, width, height}), (Codes{kind == kV2     ? 3
                                                                  : kind == kLine ? 2
                                                                                  : 0,
                                                                  3, 0x0B40, 0x0A28}));
        for (unsigned i = 0; i < 3; ++i) {
            const unsigned char last = pictureByte(pictures[i].size() - 1, i + 1);
            EXPECT_EQ(pictures[i].back(), versioned ? static_cast<char>(last) : 0);
        }
        unsigned short n[11] = {};
        std::vector<unsigned int> areas = {9, 9};
        unsigned long long sum = 1;
        EXPECT_TRUE(reader.getStructDataPara(x, y, thickness, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8],
                                             n[9], n[10], areas, sum));
        EXPECT_EQ(x + " " + y + " " + thickness, "68.04 120.96 0.05");
        for (unsigned i = 0; i < 11; ++i) EXPECT_EQ(n[i], 0x0A01 + i);
        EXPECT_EQ(areas, versioned ? sampleAreas() : std::vector<unsigned int>());
        EXPECT_EQ(sum, versioned ? 1ULL + 0x01020304 + 50 : 1ULL) << "added to what was there";
    }
}

TEST_F(ReadTest, LineLayersAreReadByTheirForm) {
    SampleFile line = sampleHead(kLine);
    line.bytes.u16(0xFFFF).u16(2).u16(3).u16(4).tag();
    line.bytes.u32(7).u32(2).u32(1).u32(1).u32(0xFFFFFFFE).u32(5).u32(0).tag();  // a path with z
    line.bytes.u32(1).f32(1.5F).f32(-2).tag();
    line.bytes.u32(8).u32(1).f32(1.5F).f32(-2).f32(0.25F).tag();
    addTail(line, kLine);
    DlpImageParam image;
    std::vector<std::vector<Vec3i>> paths(5);
    unsigned int area = 0;
    trimesh::TriMesh mesh;
    std::string tail;
    const Printed printed;
    ASSERT_EQ((Codes{reader.openDlpFile(writeFile(path("line"), line.bytes), true), reader.readDlpStructure(true),
                     reader.readDlpImageParam(image), reader.readLayerPath(paths, &area, true), area,
                     reader.readLayerMesh(mesh, nullptr, false), reader.readLayerMesh(mesh, &area, true), area,
                     reader.readTag(tail)}),
              (Codes{0, 0, 0, 2, 7, 1, 1, 8, 0}));
    EXPECT_EQ((Codes{image.zThrough, image.enableAliasing, image.minGray, image.maxGray}), (Codes{-1, 2, 3, 4}));
    ASSERT_EQ((Codes{std::ssize(paths), std::ssize(paths[0]), std::ssize(mesh.vertices)}), (Codes{2, 1, 2}));
    EXPECT_EQ((Codes{paths[0][0].x, paths[0][0].y, paths[0][0].z}), (Codes{1, -2, -2})) << "z equals y";
    EXPECT_EQ((std::vector{mesh.vertices[0][1], mesh.vertices[0][2], mesh.vertices[1][2]}),
              (std::vector{-2.0F, 0.0F, 0.25F}));
    EXPECT_EQ(tail, "VNLINEV2");
}

// ---- failures

TEST_F(ReadTest, WithoutAFileNothingIsRead) {
    DlpFileStructure s;
    DlpImageParam image;
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    std::string text;
    int version = 0;
    Printed printed;
    EXPECT_EQ((Codes{reader.readDlpV1Header(s.v1Header, true), reader.readDlpV2Header(s.v2Header, true),
                     reader.readDlpLineV2Header(s.lineHeader, true), reader.readDlpV3Header(s.v3Header, true),
                     reader.readTag(text)}),
              Codes(5, -1));
    EXPECT_EQ(countOf(printed.take(), "error: file not open\n"), 5);
    EXPECT_EQ((Codes{reader.readDlpParameters(s.parameters, nullptr),
                     reader.readDlpSliceBasicParameters(s.sliceBasicParameters)}),
              Codes(2, -1));
    EXPECT_EQ(printed.take(), "");
    EXPECT_EQ(
        (Codes{reader.readDlpStructure(true), reader.readDlpImageParam(image), reader.readLayerWhiteData(runs, nullptr),
               reader.readLayerPath(paths, nullptr, false), reader.readLayerMesh(mesh, nullptr, false)}),
        Codes(5, -1));
    EXPECT_EQ(countOf(printed.take(), "error: no dlp file open\n"), 5);
    EXPECT_EQ(reader.openDlpFile(path("missing"), false), -3);
    EXPECT_EQ(printed.take(), "error: " + path("missing") + " can't open\n");
    EXPECT_EQ(reader.getFileVersion(path("missing").c_str(), text, version), -1);
    EXPECT_EQ(printed.take(), "getFileVersion failed, ret:-2\n");
    EXPECT_EQ(reader.getFileVersion(sample(kV2).c_str(), text, version), 0);
    EXPECT_EQ(text + std::to_string(version), "VNKT3DV23");
}

TEST_F(ReadTest, UnknownMagicsAndBadHeadersAreRefusedAndOtherAreasWarnedOf) {
    using namespace std::string_view_literals;
    for (const auto magic : {"VNKT3DV3"sv, "MKSDLP"sv, "VNKT3DV"sv, "VNKT3D\0"sv, "PK"sv, ""sv}) {
        const Printed printed;
        reader.openDlpFile(writeFile(path("other"), Bytes().string(magic).fill(99, 1)), false);
        EXPECT_EQ(reader.readDlpStructure(true), -2) << magic;
        EXPECT_EQ(reader.readDlpStructure(true), -1) << "the file is closed";
    }
    Printed printed;
    EXPECT_EQ(reader.readDlpFile(writeFile(path("other"), Bytes().string("PK")), false, false), -2);
    EXPECT_EQ(printed.take(), "error: file is not vndlp file. please check file\nerror: read dlp structure error\n");

    const std::pair<int, const char*> headers[] = {
        {kV1, "DlpV1Header"}, {kV3, "DlpV3Header"}, {kLine, "DlpV2LineHeader"}};
    for (const auto& [kind, name] : headers) {
        corruptByte(sample(kind), sampleFile(kind).pictures + 26912, 0);  // the first tag
        EXPECT_EQ(reader.readDlpFile(file, false, true), -2);
        EXPECT_EQ(printed.take(), "error: split tag error\nerror: read " + std::string(name) +
                                      " fail\nerror: read dlp structure error\n");
    }

    // an area unlike the table's only warns
    corruptByte(sample(kV2), sampleFile(kV2).layers + 3, 5);
    EXPECT_EQ(reader.readDlpFile(file, false, false), 0);
    EXPECT_EQ(printed.take().substr(0, 43), "warning: layer area not equal\ntotalValum = ");
}

TEST_F(ReadTest, EveryDamageHasItsCodeBehindASoundTrailer) {
    const SampleFile f = sampleFile(kV2);
    const std::size_t screen = f.pictures - 64 - 6;
    struct Row {
        std::size_t offset;
        std::vector<unsigned char> bytes;
        int head, whole;
        const char* told;  ///< by reading the whole file
    };
    const std::string layerError = "error: parse layer white data error\n";
    const Row rows[] = {
        {screen, {0xFF, 0xFF}, -3, -3, "error: layerCount error: 65535\nerror: read DlpV2Header fail\n"},
        {screen + 2, {0, 0}, -4, -4, "error: resolution error [0 2600]\nerror: read DlpV2Header fail\n"},
        {screen + 4, {0, 0}, -4, -4, "error: resolution error [2880 0]\nerror: read DlpV2Header fail\n"},
        {15, {0xFF, 0xFF, 0xFF, 0xFF}, -4, -4, "error: resolution error [0 0]\nerror: read DlpV2Header fail\n"},
        {f.pictures + 26912, {0}, -2, -2, "error: split tag error\nerror: read DlpV2Header fail\n"},
        {f.parameters - 1, {0}, -2, -2, "error: split tag error\nerror: read DlpV2Header fail\n"},
        {f.parameters, {0, 0, 0, 0}, -4, -4, "error: parse dlp parameter error:-3\n"},
        {f.parameters, {0xFF, 0xFF, 0xFF, 0xFF}, -4, -4, "error: parse dlp parameter error:-3\n"},
        {f.settings - 2, {0}, -4, -4, "error: split tag error\nerror: parse dlp parameter error:-2\n"},
        {f.layers - 1, {0}, -5, -5, "error: split tag error\nerror: parse dlp parameter error:-2\n"},
        {f.layers + 4, {0xFF, 0xFF, 0xFF, 0xFF}, 0, -5, "error: pointcount error"},
        {f.layers + 4, {0, 0, 0x80, 0}, 0, -5, "error: split tag error\n"},  // beyond the rest, not beyond the file
        {f.tail - 1, {0}, 0, -5, "error: split tag error\n"},
    };
    for (const Row& row : rows) {
        sample(kV2);
        for (std::size_t i = 0; i < row.bytes.size(); ++i) corruptByte(file, row.offset + i, row.bytes[i]);
        Printed printed;
        EXPECT_EQ(reader.openDlpFile(file, true), -1);
        EXPECT_EQ(countOf(printed.take(), "error:open dlp file:" + file + ", checksum failed, ret:-5\n"), 1);
        EXPECT_EQ(reader.readDlpFile(file, false, true), row.whole) << row.told;
        EXPECT_EQ(printed.take(), row.told + (row.head == 0 ? layerError : "error: read dlp structure error\n"));
        EXPECT_EQ(reader.currentPosition(), -1) << "closed";
        fixTrailer(file);
        EXPECT_EQ(reader.openDlpFile(file, true), 0);
        EXPECT_EQ(reader.readDlpStructure(true), row.head) << row.told;
    }
}

TEST_F(ReadTest, HostileCountsAllocateNoMoreThanTheFileHolds) {
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    for (const unsigned count : {0xFFFFFFFFU, 0x80000000U, 10001U, 1000U}) {
        const Bytes content = Bytes().u32(count).u32(count).fill(6000, 0).tag();
        writeFile(path("hostile"), content);
        const auto open = [this] { return reader.openDlpFile(path("hostile"), false); };
        const Printed printed;
        countAllocations();
        const int tooMany = count > content.size() / 6 ? -5 : -2;
        EXPECT_EQ(
            (Codes{open(), reader.readLayerWhiteData(runs, nullptr), open(), reader.readLayerMesh(mesh, nullptr, true),
                   open(), reader.readLayerPath(paths, nullptr, true)}),
            (Codes{0, tooMany, 0, tooMany, 0, -2}));
        // empty paths
        EXPECT_EQ((Codes{open(), reader.seek(4), reader.readLayerPath(paths, nullptr, true)}), (Codes{0, 0, -2}));
        EXPECT_LT(allocations().largest, 16 * content.size());
    }
    // fewer paths than announced, then what looks like the end of the layer
    reader.openDlpFile(writeFile(path("few"), Bytes().u32(3).u32(0).u32(0).tag()), false);
    EXPECT_EQ(reader.readLayerPath(paths, nullptr, false), -2);
}

}  // namespace
}  // namespace vndlp::test
