// The vendor container beside its files, whose bytes are golden: which header a call reaches, single records, what is
// refused and how it is told.

#include "support/allocations.h"
#include "support/golden.h"

#include <vndlp/container.h>

#include <memory>
#include <tuple>

namespace vndlp::test {
namespace {

constexpr int kV1 = 1;
constexpr int kV2 = 2;
constexpr int kV3 = 3;
constexpr int kLine = 12;

const Golden& sample(int kind) {
    static const Golden v1 = golden("v1"), v2 = golden("v2_version3"), v3 = golden("v3"), line = golden("line_paths");
    return kind == kV1 ? v1 : kind == kV2 ? v2 : kind == kV3 ? v3 : line;
}

std::size_t offsetOf(const Golden& g, const std::string& section, const std::string& field = "") {
    for (const GoldenField& each : g.section(section).fields) {
        if (field.empty() || each.name == field) return each.offset;
    }
    throw std::out_of_range(field);
}

class Container : public FileTest {
protected:
    std::string sampleFile(int kind) {
        file = writeFile(path("in"), sample(kind).bytes);
        return file;
    }
    /// The head of the golden file of this kind; of another kind that of a V2 file.
    DlpFileStructure structureOf(int kind) {
        const bool isKnown = kind == kV1 || kind == kV2 || kind == kV3 || kind == kLine;
        VndlpRead from;
        from.openDlpFile(writeFile(path("head"), sample(isKnown ? kind : kV2).bytes), false);
        EXPECT_EQ(from.readDlpStructure(true), 0);
        DlpFileStructure structure = *from.getDlpFileStructure();
        structure.headerType = kind;
        structure.headerVersion = 3;
        return structure;
    }
    /// Gives the writer a job by its swaps.
    void give(int kind, std::size_t runLists, int layers = 3) {
        auto* owned = new DlpFileStructure(structureOf(kind));
        owned->setLayerCount(layers);
        writer.swapDlpFileStructure(owned);
        delete owned;  // what the writer held before
        std::vector<unsigned int> areas = {0x01020304, 0, 50};
        std::vector<std::vector<WhiteData>> runs(runLists);
        writer.swapLayerAreas(areas);
        writer.swapWhiteDatas(runs);
    }

    std::string file;
    VndlpRead reader;
    VndlpWrite writer;
};

// ---- records

TEST(BackUse, HoldsWhatIsSetInItsUnits) {
    VndlpBackUse made;
    made.setMachineHeight(175.5F);
    made.setEnableXYCompensate(true);
    made.setSupportPad(true);
    made.setAutoAllSupport(true);
    made.settSupportDensity(0.5F);
    made.setBlurPixel(-3);
    made.setExposeTimeVnLine(7.9F);
    made.setTotalVolume(2.25F);
    made.setSliceModelX(1.5F);
    made.setSliceModelY(-2);
    made.setSliceModelZ(0.25F);
    EXPECT_EQ((Codes{made.machineHeightUm, made.flags, made.lineExposureTime, made.getBlurPixel()}),
              (Codes{175500, 0x111, 7, -3}));
    EXPECT_EQ((std::vector{made.getMachineHeight(), made.getSupportDensity(), made.getExposeTimeVnLine(),
                           made.getTotalVolume(), made.getSliceModelX(), made.getSliceModelY(), made.getSliceModelZ()}),
              (std::vector{175.5F, 0.5F, 7.0F, 2.25F, 1.5F, -2.0F, 0.25F}));
    EXPECT_TRUE(made.isEnableXYCompensate() && made.isSupportPad() && made.isAutoAllSupport());
    made.setSupportPad(false);
    EXPECT_EQ(made.flags, 0x101U);
}

TEST(FileStructure, ReachesOnlyTheHeaderOfItsKind) {
    VndlpBackUse given;
    given.flags = 0x111;
    for (unsigned i = 0; i < 30; ++i) given.reserved[i] = static_cast<unsigned char>(i + 1);
    for (const int kind : {kV1, kV2, kV3, kLine, 0, 7}) {
        DlpFileStructure s;
        s.headerType = kind;
        s.setLayerCount(0x12345);  // 16 bits are kept
        s.setResolution(1440, 2560);
        s.setVersionCode(9);
        s.setMachineType("X");
        s.needData();
        const bool available = kind != 0 && kind != 7;
        const bool versioned = kind == kV2 || kind == kLine;
        EXPECT_EQ(s.isAvailable(), available);
        EXPECT_EQ((Codes{s.layerCount(), s.getResolutionX(), s.getResulutionY()}),
                  available ? (Codes{0x2345, 1440, 2560}) : Codes(3));
        EXPECT_EQ(s.getVersionCode(), versioned ? 9 : 0);
        const std::tuple<int, std::string, bool> set(1440, "X", true), unset(0, "", false);
        const auto& [v1, v2, v3, line] = std::tie(s.v1Header, s.v2Header, s.v3Header, s.lineHeader);
        EXPECT_EQ(std::make_tuple(v2.resolution_x, v2.machine_type, v2.largePreview.haveDatas()),
                  kind == kV2 ? set : unset);
        EXPECT_EQ(std::make_tuple(line.resolution_x, line.machine_type, line.largePreview.haveDatas()),
                  kind == kLine ? set : unset);
        EXPECT_EQ(v1.resolution_x == 1440 && v1.largePreview.haveDatas(), kind == kV1);
        EXPECT_EQ(v3.resolution_x == 1440 && v3.thirdPreview.haveDatas(), kind == kV3);
        EXPECT_EQ(s.getVndlpBackUse(), versioned ? kind == kV2 ? &s.v2Header.backUse : &s.lineHeader.backUse : nullptr);
        EXPECT_EQ(s.setBackUse(given), versioned ? 1 : 0);
        const VndlpBackUse* backUse = std::as_const(s).getVndlpBackUse();
        EXPECT_TRUE(!versioned ||
                    (backUse->flags == 0x111 && backUse->reserved[19] == 20 && backUse->reserved[20] == 0))
            << "the last 10 reserved bytes stay";
        const DlpFileStructure copy = s;
        s.release();
        EXPECT_FALSE(v1.largePreview.haveDatas() || v2.largePreview.haveDatas() || v3.thirdPreview.haveDatas() ||
                     line.largePreview.haveDatas());
        EXPECT_EQ(copy.v2Header.largePreview.haveDatas(), kind == kV2) << "copies have their own pictures";
    }
}

TEST_F(Container, ShowsEveryFieldOnALine) {
    const std::string screen = "layerCount = 3\nresolution_x = 515\nresolution_y = 261\n";
    const std::string versioned = "machine_type = Maker M1\nversionCode = 3\n" + screen;
    const std::string parameters =
        "platformX = 68.04\nplatformY = 120.96\nthickness = 0.05\nexposure_time = 2561\nlight_off_delay = 2562\n"
        "first_exposure_time = 2563\nfirst_layer_count = 2564\nfirst_lift_distance = 2565\nfirst_lift_speed = 2566\n"
        "lifting_distance = 2567\nlifting_speed = 2568\nretract_speed = 2569\nfirstBrightnessPVM = 2570\n"
        "brightnessPVM = 2571\n";
    Printed printed;
    structureOf(kV1).show();
    EXPECT_EQ(printed.take(), screen + parameters);
    structureOf(kV2).show();
    EXPECT_EQ(printed.take(), versioned + parameters);
    structureOf(kV3).show();
    EXPECT_EQ(printed.take(), "z_begin = 258\nz_end = 772\n" + screen + parameters);
    DlpFileStructure line = structureOf(kLine);
    line.v2Header = structureOf(kV2).v2Header;
    line.sliceBasicParameters = structureOf(kV2).sliceBasicParameters;
    line.lineHeader.machine_type = "not shown";
    line.show();
    EXPECT_EQ(printed.take(), versioned + parameters) << "the V2 header's numbers";
    line.lineHeader.show();
    EXPECT_EQ(printed.take(), "machine_type = not shown\nversionCode = 2\n" + screen);
    structureOf(0).show();
    EXPECT_EQ(printed.take(), parameters);
    line.sliceBasicParameters.show();
    EXPECT_EQ(printed.take(),
              "sliceSoftVersion:\tV1.2\nconsumables:\tresin\nenableBOffset:\t1\nbOffsetThickness:\t-2\n"
              "bOffsetFocalLength:\t3\nenableXYCompensation:\t4\nXYCompensation:\t-5\nenableZCompensation:\t6\n"
              "ZCompensation:\t7\nenableAntiAliasing:\t8\nantiAliasingMixGray:\t9\nantiAliasingMaxGray:\t10\n"
              "enableImageBlur:\t11\nimageBlurPixelNum:\t12\n");
    DlpImageParam{-1, 2, 3, 4}.show();
    EXPECT_EQ(printed.take(), "zThrough = -1\nenableAliasing = 2\nminGray = 3\nmaxGray = 4\n");
}

// ---- reading

TEST_F(Container, LayersCanBeSkippedAndTakenWithoutTheirArea) {
    const Golden& g = sample(kV2);
    const Printed printed;
    ASSERT_EQ((Codes{reader.openDlpFile(sampleFile(kV2), true), reader.readDlpStructure(false)}), Codes(2));
    EXPECT_FALSE(reader.getDlpFileStructure()->v2Header.smallPreview.haveDatas());
    std::vector<WhiteData> layer;
    unsigned int area = 9;
    unsigned int runs = 0;
    EXPECT_EQ((Codes{reader.skipLayerWhiteData(&area, runs), area, runs, reader.getWhiteDatas(layer, nullptr),
                     reader.getWhiteDatas(layer, &area), area, std::ssize(layer)}),
              (Codes{0, 0x01020304, 3, 0, 0, 50, 1}));
    EXPECT_EQ(reader.remaining(), static_cast<long long>(g.bytes.size() - offsetOf(g, "tail")));
    EXPECT_EQ(reader.seek(1LL << 40), -1);
    reader.openDlpFile(sampleFile(kV1), true);
    reader.readDlpStructure(false);
    EXPECT_EQ((Codes{reader.getWhiteDatas(layer, &area), area}), (Codes{0, 50})) << "only V2 has one";
}

TEST_F(Container, HeadsComeAsPlainValues) {
    const std::vector<unsigned int> tableAreas = {0x01020304, 0, 50};
    for (const int kind : {kV1, kV3, kV2, kLine}) {
        reader.openDlpFile(sampleFile(kind), false);
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
                                                                  3, 515, 261}));
        for (const auto& [i, last] : {std::pair{0, 0x34}, {1, 0xBC}, {2, 0x45}}) {
            EXPECT_EQ(pictures[i].back(), versioned ? static_cast<char>(last) : 0);
        }
        unsigned short n[11] = {};
        std::vector<unsigned int> areas = {9, 9};
        unsigned long long sum = 1;
        EXPECT_TRUE(reader.getStructDataPara(x, y, thickness, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8],
                                             n[9], n[10], areas, sum));
        EXPECT_EQ(x + " " + y + " " + thickness, "68.04 120.96 0.05");
        for (unsigned i = 0; i < 11; ++i) EXPECT_EQ(n[i], 0x0A01 + i);
        EXPECT_EQ(areas, versioned ? tableAreas : std::vector<unsigned int>());
        EXPECT_EQ(sum, versioned ? 1ULL + 0x01020304 + 50 : 1ULL) << "added to what was there";
    }
}

TEST_F(Container, LineLayersHavePathsOrVerticesWithAndWithoutZ) {
    std::vector<std::vector<Vec3i>> paths = {{Vec3i(1, -2, 0), Vec3i(3, 4, 0)}, {}};
    paths[0][0].setZ(5);
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.5F, -2.0F, 0.25F);
    DlpFileStructure structure = structureOf(kLine);
    std::vector<unsigned int> areas = {0x01020304, 0, 50};

    const auto begin = sample(kLine).bytes.begin();
    Bytes expected(begin, begin + static_cast<std::ptrdiff_t>(offsetOf(sample(kLine), "layer 0")));
    expected.u32(0x01020304).u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(3).u32(4).u32(0).tag();
    expected.u32(2).u32(2).u32(1).u32(0xFFFFFFFE).u32(5).u32(3).u32(4).u32(4).u32(0).tag();  // with z, no area
    expected.u32(50).u32(1).f32(1.5F).f32(-2).tag();
    expected.u32(1).f32(1.5F).f32(-2).f32(0.25F).tag();
    expected.string("VNLINEV2");
    sealWithCrc(expected);

    file = path("out");
    const Printed printed;
    DlpImageParam image{-1, 2, 3, 4};
    EXPECT_EQ((Codes{writer.openDlpFile(file), writer.writeDlpStructure(structure, &areas),
                     writer.writeDlpImageParam(image), writer.writeLayerPath(paths, &areas[0], false),
                     writer.writeLayerPath(paths, nullptr, true), writer.writeLayerTrimesh(mesh, &areas[2], false),
                     writer.writeLayerTrimesh(mesh, nullptr, true), writer.writeTail(kLine)}),
              (Codes{0, 0, 0, 0, 0, 1, 1, 0}));
    EXPECT_TRUE(sameBytes(readFile(file), expected));

    paths.resize(5);
    mesh.vertices.clear();
    unsigned int area = 0;
    std::string tail;
    ASSERT_EQ((Codes{reader.openDlpFile(file, true), reader.readDlpStructure(true), reader.readDlpImageParam(image),
                     reader.readLayerPath(paths, &area, false), area, reader.readLayerPath(paths, nullptr, true),
                     reader.readLayerMesh(mesh, &area, false), area, reader.readLayerMesh(mesh, nullptr, true),
                     reader.readTag(tail)}),
              (Codes{0, 0, 0, 2, 0x01020304, 2, 1, 50, 1, 0}));
    ASSERT_EQ((Codes{std::ssize(paths), std::ssize(paths[0]), std::ssize(mesh.vertices)}), (Codes{2, 2, 2}));
    EXPECT_EQ((Codes{paths[0][0].x, paths[0][0].y, paths[0][0].z}), (Codes{1, -2, -2})) << "z equals y";
    EXPECT_EQ((std::vector{mesh.vertices[0][1], mesh.vertices[0][2], mesh.vertices[1][2]}),
              (std::vector{-2.0F, 0.0F, 0.25F}));
    EXPECT_EQ(tail, "VNLINEV2");
}

TEST_F(Container, UnknownMagicsAndBadHeadersAreRefusedAndOtherAreasWarnedOf) {
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
        corruptByte(sampleFile(kind), offsetOf(sample(kind), "header", "tag"), 0);  // the first tag
        EXPECT_EQ(reader.readDlpFile(file, false, true), -2);
        EXPECT_EQ(printed.take(), "error: split tag error\nerror: read " + std::string(name) +
                                      " fail\nerror: read dlp structure error\n");
    }

    // an area unlike the table's only warns
    corruptByte(sampleFile(kV2), offsetOf(sample(kV2), "layer 0") + 3, 5);
    EXPECT_EQ(reader.readDlpFile(file, false, false), 0);
    EXPECT_EQ(printed.take().substr(0, 43), "warning: layer area not equal\ntotalValum = ");
}

TEST_F(Container, EveryDamageHasItsCodeBehindASoundTrailer) {
    const Golden& g = sample(kV2);
    const std::size_t screen = offsetOf(g, "header", "layerCount");
    const std::size_t parameters = offsetOf(g, "parameters");
    const std::size_t settings = offsetOf(g, "slicing settings");
    const std::size_t layers = offsetOf(g, "layer 0");
    const std::size_t tail = offsetOf(g, "tail");
    struct Row {
        std::size_t offset;
        std::vector<unsigned char> bytes;
        int head, whole;
        const char* told;  ///< by reading the whole file
    };
    const std::string layerError = "error: parse layer white data error\n";
    const Row rows[] = {
        {screen, {0xFF, 0xFF}, -3, -3, "error: layerCount error: 65535\nerror: read DlpV2Header fail\n"},
        {screen + 2, {0, 0}, -4, -4, "error: resolution error [0 261]\nerror: read DlpV2Header fail\n"},
        {screen + 4, {0, 0}, -4, -4, "error: resolution error [515 0]\nerror: read DlpV2Header fail\n"},
        {15, {0xFF, 0xFF, 0xFF, 0xFF}, -4, -4, "error: resolution error [0 0]\nerror: read DlpV2Header fail\n"},
        {offsetOf(g, "header", "tag"), {0}, -2, -2, "error: split tag error\nerror: read DlpV2Header fail\n"},
        {parameters - 1, {0}, -2, -2, "error: split tag error\nerror: read DlpV2Header fail\n"},
        {parameters, {0, 0, 0, 0}, -4, -4, "error: parse dlp parameter error:-3\n"},
        {parameters, {0xFF, 0xFF, 0xFF, 0xFF}, -4, -4, "error: parse dlp parameter error:-3\n"},
        {settings - 2, {0}, -4, -4, "error: split tag error\nerror: parse dlp parameter error:-2\n"},
        {layers - 1, {0}, -5, -5, "error: split tag error\nerror: parse dlp parameter error:-2\n"},
        {layers + 4, {0xFF, 0xFF, 0xFF, 0xFF}, 0, -5, "error: pointcount error"},
        {layers + 4, {0, 0, 0x80, 0}, 0, -5, "error: split tag error\n"},  // beyond the rest, not beyond the file
        {tail - 1, {0}, 0, -5, "error: split tag error\n"},
    };
    for (const Row& row : rows) {
        sampleFile(kV2);
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

TEST_F(Container, HostileCountsAllocateNoMoreThanTheFileHolds) {
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    for (const unsigned count : {0xFFFFFFFFU, 0x80000000U, 0x2AAAAAABU, 10001U, 1000U}) {
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

// ---- writing

TEST_F(Container, ATableIsReservedWithZerosAndFilledInPlace) {
    DlpParameters parameters = structureOf(kV2).parameters;
    file = path("out");
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
TEST_F(Container, ATableSkippedByTheCallerIsFilledAsFarAsThereAreValues) {
    Printed printed;
    file = path("out");
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
    // no area but the tag behind them; the room is that file's
    areas.clear();
    EXPECT_EQ((Codes{writer.openDlpFile(file), writer.skipLayerAreas(0), writer.writeLayerAreasDealyer(areas),
                     writer.openDlpFile(path("second"))}),
              Codes(4));
    EXPECT_TRUE(sameBytes(readFile(file), Bytes().tag()));
    areas.resize(1);
    EXPECT_EQ((Codes{writer.skipLayerAreas(1), writer.openDlpFile(file), writer.writeLayerAreasDealyer(areas)}),
              (Codes{0, 0, -7}));
}

TEST_F(Container, IncompleteJobsAreRefused) {
    Printed printed;
    file = path("out");
    EXPECT_EQ(writer.writeDlpFile(path("no/such")), -1);
    EXPECT_EQ(printed.take(), "error: " + path("no/such") + " can't open\n");
    EXPECT_EQ(writer.writeDlpFile(file), -6);
    EXPECT_EQ(printed.take(), "error: no dlp structure\nerror: judge dlp file fail\n");

    give(7, 3);
    EXPECT_EQ(writer.writeDlpFile(file), -10);
    EXPECT_EQ(printed.take(), "error: file is not vndlp file. please check file\nerror: judge dlp file fail\n");
    DlpFileStructure unknown = structureOf(0);
    EXPECT_EQ(writer.writeDlpStructure(unknown), -10);
    EXPECT_EQ(printed.take(), "error: file is not vndlp file. please check file\nerror: dlp file judge fail\n");

    for (const int kind : {kV2, kLine}) {
        give(kind, 2);
        EXPECT_EQ(writer.writeDlpFile(file), -9);
        EXPECT_EQ(printed.take(), "error: layer count not equal\nerror: judge dlp file fail\n");
        EXPECT_EQ(std::filesystem::file_size(file), 0U);

        give(kind, 3, 4);
        EXPECT_EQ(writer.writeDlpFile(file), -6);
        EXPECT_EQ(printed.take(), "Error: dlp layer count not equalerror: write dlp file structure fail\n");
        writer.close();
        EXPECT_EQ(std::filesystem::file_size(file), offsetOf(sample(kind), "parameters")) << "the header stands";
    }
    give(kV1, 2);
    EXPECT_EQ(writer.writeDlpFile(file), -11);
    EXPECT_EQ(printed.take(), "error: 2 run lists given for 3 layers\n");
    for (const int kind : {kV1, kV2, kV3, kLine}) {
        DlpFileStructure s = structureOf(kind);
        for (DlpImage* picture : {&s.v1Header.smallPreview, &s.v2Header.smallPreview, &s.v3Header.thirdPreview,
                                  &s.lineHeader.middlePreview})
            picture->release();
        EXPECT_EQ(writer.writeDlpStructure(s), -6);
        EXPECT_EQ(printed.take(), "error: no preview image\nerror: write DlpV1Header fail\n") << "one text for all";
    }
}

}  // namespace
}  // namespace vndlp::test
