#include "support/bytes.h"
#include "support/files.h"
#include "support/line_sample.h"

#include <fstream>
#include <sstream>
#include <unordered_map>

namespace vndlp::test {
namespace {

using Settings = std::unordered_map<std::string, std::string>;

// the parameter record

TEST(LineParam, NewRecordsHaveTheirDefaults) {
    const DlpLineV2ParamWrapper p;
    EXPECT_EQ(p.versionCode, 2U);
    EXPECT_EQ(p.machineName, "");
    EXPECT_EQ(p.machineHeight, 0);
    EXPECT_EQ(p.brightnessPVM, 0);
    EXPECT_EQ(p.maxGray, 0);
}

TEST(LineParam, EverySettingReachesItsField) {
    DlpLineV2ParamWrapper p;
    p.setVal({{"exposure_time", "1"},
              {"light_off_delay", "2"},
              {"first_exposure_time", "3"},
              {"first_layer_count", "4"},
              {"first_lift_distance", "5"},
              {"first_lift_speed", "6"},
              {"lifting_distance", "7"},
              {"lifting_speed", "8"},
              {"retract_speed", "9"},
              {"layer_height", "0.05"},
              {"zthrough_deep_value", "10"},
              {"anti_aliasing", "true"},
              {"minimum_grayscale", "11"},
              {"maximum_grayscale", "12"},
              {"machine_name", "X1"},
              {"resolutionX", "not a name"},
              {"versionCode", "5"}});
    const int numbers[] = {
        p.exposure_time,    p.light_off_delay,  p.first_exposure_time, p.first_layer_count, p.first_lift_distance,
        p.first_lift_speed, p.lifting_distance, p.lifting_speed,       p.retract_speed,     p.zThrough,
        p.minGray,          p.maxGray};
    int expected = 1;
    for (const int number : numbers) EXPECT_EQ(number, expected++);
    EXPECT_EQ(p.thickness, 0.05F);
    EXPECT_EQ(p.enableAliasing, 1);
    EXPECT_EQ(p.machineName, "X1");
    EXPECT_EQ(p.resolutionX, 0);
    EXPECT_EQ(p.versionCode, 2U);
}

TEST(LineParam, MissingSettingsGiveZeroAndLeaveOtherFieldsAlone) {
    DlpLineV2ParamWrapper p = sampleLineParam();
    p.setVal({});
    for (const int number : {p.exposure_time, p.light_off_delay, p.first_exposure_time, p.first_layer_count,
                             p.first_lift_distance, p.first_lift_speed, p.lifting_distance, p.lifting_speed,
                             p.retract_speed, p.zThrough, p.enableAliasing, p.minGray, p.maxGray}) {
        EXPECT_EQ(number, 0);
    }
    EXPECT_EQ(p.thickness, 0);
    EXPECT_EQ(p.machineName, "");
    EXPECT_EQ(p.resolutionX, 1440);
    EXPECT_EQ(p.brightnessPVM, 65536 + 200);
    EXPECT_EQ(p.platformX, 68.04F);
}

TEST(LineParam, NumbersEndAtWhatDoesNotFit) {
    const std::pair<const char*, int> cases[] = {{"30s", 30}, {"2.5", 2}, {"  7", 7}, {"-4", -4},
                                                 {"+4", 4},   {"abc", 0}, {"", 0},    {"0x10", 0}};
    for (const auto& [text, number] : cases) {
        DlpLineV2ParamWrapper p;
        p.setVal({{"exposure_time", text}});
        EXPECT_EQ(p.exposure_time, number) << text;
    }
    DlpLineV2ParamWrapper p;
    p.setVal({{"layer_height", " 0.025mm"}});
    EXPECT_EQ(p.thickness, 0.025F);
}

TEST(LineParam, AntiAliasingIsOnForExactlyOneText) {
    for (const char* text : {"TRUE", "True", "1", "true ", " true", "truex", "yes", ""}) {
        DlpLineV2ParamWrapper p;
        p.enableAliasing = 1;
        p.setVal({{"anti_aliasing", text}});
        EXPECT_EQ(p.enableAliasing, 0) << text;
    }
}

TEST(LineParam, TheMakersNameTakesNineCharactersFromTheFront) {
    const std::pair<const char*, const char*> cases[] = {
        {"Vantakor X1", "X1"},  {"Vantakor-X1", "X1"},
        {"My Vantakor", "or"},  {"Vantakor", ""},
        {"Vantakor ", ""},      {"vantakor X1", "vantakor X1"},
        {"Vantako", "Vantako"}, {"Vantakor Vantakor X1", "Vantakor X1"}};
    for (const auto& [name, kept] : cases) {
        DlpLineV2ParamWrapper p;
        p.setVal({{"machine_name", name}});
        EXPECT_EQ(p.machineName, kept) << name;
    }
}

TEST(LineParam, FindKeyEndsAtTheFirstNul) {
    const Settings settings = {{"a", std::string("one\0two", 7)}, {"b", std::string("true\0", 5)}};
    DlpLineV2ParamWrapper p;
    EXPECT_EQ(p.findKey(settings, "a"), "one");
    EXPECT_EQ(p.findKey(settings, "c"), "");
    EXPECT_EQ(settings.size(), 2U);
    p.setVal({{"anti_aliasing", settings.at("b")}, {"machine_name", std::string("X\0Vantakor", 10)}});
    EXPECT_EQ(p.enableAliasing, 1);
    EXPECT_EQ(p.machineName, "X");
}

// writing

class LineWrapperTest : public FileTest {
protected:
    std::string file = path("a.vnline");
    Printed printed;
};

TEST_F(LineWrapperTest, WritesTheSampleByteForByte) {
    EXPECT_EQ(writeLineSample(file), 0);
    EXPECT_TRUE(sameBytes(readFile(file), lineSample().bytes));
    EXPECT_EQ(printed.take(), "checkFileSum, file:" + file + ", versionName:VNLINEV2, subVersionNum:2, checktype:2\n");
}

TEST_F(LineWrapperTest, PreviewPixelsAreStoredAsTheyAre) {
    std::vector<std::vector<unsigned char>> pixels;
    for (const std::size_t size : {26912U, 168200U, 168200U}) {
        std::vector<unsigned char>& picture = pixels.emplace_back(size);
        for (std::size_t i = 0; i < size; ++i) picture[i] = static_cast<unsigned char>(i * 7 + pixels.size());
    }
    VnLineV2WriteWrapper writer;
    ASSERT_EQ(writer.open(file), 0);
    writer.setGrayPreview290X290(pixels[2].data(), 1);
    writer.setGrayPreview290X290(pixels[1].data(), 0);
    writer.setGrayPreview290X290(nullptr, 2);
    writer.setGrayPreview116X116(pixels[0].data());
    writer.setDlpLineV2Param(sampleLineParam());
    ASSERT_TRUE(writer.writeDlpStructure());
    writer.setLayerPath(99, samplePaths(), kSampleAreas[0]);
    EXPECT_EQ(writer.flush(), 0);
    EXPECT_GT(readFile(file).size(), lineSample().layers);
    writer.setLayerPath(0, {}, kSampleAreas[1]);
    EXPECT_EQ(writer.writeTail(), 0);
    writer.close();
    EXPECT_TRUE(sameBytes(readFile(file), lineSample(pixels).bytes));
}

TEST_F(LineWrapperTest, TheHeadNeedsAllFourParts) {
    for (int missing = 0; missing < 4; ++missing) {
        VnLineV2WriteWrapper writer;
        ASSERT_EQ(writer.open(file), 0);
        if (missing != 0) writer.setDlpLineV2Param(sampleLineParam());
        if (missing != 1) writer.setGrayPreview116X116(nullptr);
        if (missing != 2) writer.setGrayPreview290X290(nullptr, 0);
        if (missing != 3) writer.setGrayPreview290X290(nullptr, 1);
        EXPECT_FALSE(writer.writeDlpStructure()) << missing;
        writer.close();
        EXPECT_TRUE(readFile(file).empty());
    }
}

TEST_F(LineWrapperTest, ClearMakesTheObjectReadyForAnotherFile) {
    VnLineV2WriteWrapper writer;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(writer.open(file), 0);
        writer.setDlpLineV2Param(sampleLineParam());
        writer.setGrayPreview116X116(nullptr);
        writer.setGrayPreview290X290(nullptr, 0);
        writer.setGrayPreview290X290(nullptr, 1);
        ASSERT_TRUE(writer.writeDlpStructure());
        writer.setLayerPath(0, samplePaths(), kSampleAreas[0]);
        writer.setLayerPath(1, {}, kSampleAreas[1]);
        EXPECT_EQ(writer.writeTail(), 0);
        writer.clear();
        writer.close();
        EXPECT_TRUE(sameBytes(readFile(file), lineSample().bytes));
    }
}

TEST_F(LineWrapperTest, CallsWithoutAnOpenFileDoNothing) {
    VnLineV2WriteWrapper writer;
    const std::string nowhere = path("missing/a.vnline");
    EXPECT_EQ(writer.open(nowhere), -1);
    EXPECT_EQ(printed.take(), "error: " + nowhere + " can't open\n");
    writer.setDlpLineV2Param(sampleLineParam());
    std::vector<unsigned char> pixels(168200);
    writer.setGrayPreview116X116(pixels.data());
    writer.setGrayPreview290X290(pixels.data(), 0);
    writer.setGrayPreview290X290(pixels.data(), 1);
    EXPECT_FALSE(writer.writeDlpStructure());
    writer.setLayerPath(0, samplePaths(), 1000);
    EXPECT_LT(writer.writeTail(), 0);
    EXPECT_EQ(printed.take(), "Error: no dlp file open\nError: no dlp file open\n");
    EXPECT_LT(writer.flush(), 0);
    writer.clear();
    writer.close();
}

TEST_F(LineWrapperTest, ALayerTooFewIsTold) {
    VnLineV2WriteWrapper writer;
    ASSERT_EQ(writer.open(file), 0);
    writer.setDlpLineV2Param(sampleLineParam());
    writer.setGrayPreview116X116(nullptr);
    writer.setGrayPreview290X290(nullptr, 0);
    writer.setGrayPreview290X290(nullptr, 1);
    ASSERT_TRUE(writer.writeDlpStructure());
    writer.setLayerPath(0, samplePaths(), kSampleAreas[0]);
    EXPECT_EQ(writer.writeTail(), -7);
}

TEST_F(LineWrapperTest, AFullDiskShowsInTheTail) {
    EXPECT_LT(writeLineSample(kFullDevice), 0);
    EXPECT_EQ(countOf(printed.take(), "error: /dev/full could not be written completely"), 1);
    // room for the head, none for the layers: the stream's buffer hides it until the end
    const FileSizeLimit limit(lineSample().layers + 8);
    EXPECT_EQ(writeLineSample(file), -21);
    EXPECT_EQ(countOf(printed.take(), "could not be written completely"), 1);
}

// reading

/// Reads a file to its last layer; the first failing result, else the layers' sum of results.
int readAll(const std::string& file, bool asMeshes, bool verify = false, bool withPreview = false) {
    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    DlpParameters parameters;
    DlpImageParam imageParam;
    int status = reader.open(file, verify);
    if (status == 0) status = reader.readHeader(header, withPreview);
    if (status < 0) return status;
    std::vector<unsigned int> areas(header.layerCount);
    status = reader.readDlpParam(parameters, areas);
    if (status == 0) status = reader.readDlpImageParam(imageParam);
    for (std::size_t i = 0; status >= 0 && i < areas.size(); ++i) {
        Paths paths;
        trimesh::TriMesh mesh;
        unsigned int area = 0;
        const int result = asMeshes ? reader.readLayerMesh(mesh, &area, true) : reader.readLayerPath(paths, area);
        status = result < 0 ? result : status + result;
    }
    return status;
}

TEST_F(LineWrapperTest, EveryRecordComesBack) {
    ASSERT_EQ(writeLineSample(file), 0);
    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    ASSERT_EQ(reader.open(file, true), 0);
    ASSERT_EQ(reader.readHeader(header, true), 0);
    EXPECT_EQ(header.versionCode, 2);
    EXPECT_EQ(header.machine_type, "M1");
    EXPECT_EQ(header.resolution_x, 1440);
    EXPECT_EQ(header.resolution_y, 2560);
    EXPECT_EQ(header.backUse.getBlurPixel(), 2);
    EXPECT_EQ(header.backUse.getMachineHeight(), 175.5F);
    EXPECT_TRUE(header.backUse.isEnableXYCompensate());
    EXPECT_TRUE(header.backUse.isAutoAllSupport());
    EXPECT_FALSE(header.backUse.isSupportPad());
    EXPECT_TRUE(header.largePreview.haveDatas());

    DlpParameters parameters;
    std::vector<unsigned int> areas(header.layerCount);
    ASSERT_EQ(reader.readDlpParam(parameters, areas), 0);
    EXPECT_EQ(areas, (std::vector<unsigned int>{3000, 0}));
    EXPECT_EQ(parameters.thickness, "0.050000");
    EXPECT_EQ(parameters.brightnessPVM, 200);
    DlpImageParam imageParam;
    ASSERT_EQ(reader.readDlpImageParam(imageParam), 0);
    EXPECT_EQ(imageParam.zThrough, -1);
    EXPECT_EQ(imageParam.maxGray, 255);

    Paths paths = {{Vec3i(9, 9, 9)}};
    unsigned int area = 0;
    ASSERT_EQ(reader.readLayerPath(paths, area), 2);
    EXPECT_EQ(area, 3000U);
    ASSERT_EQ(paths.size(), 2U);
    ASSERT_EQ(paths[0].size(), 4U);
    EXPECT_EQ(paths[0][2].x, 11000);
    EXPECT_EQ(paths[0][2].y, 23000);
    EXPECT_EQ(paths[0][2].z, 23000) << "z equals y";
    EXPECT_EQ(paths[1][1].y, -2147483647);
    EXPECT_EQ(reader.readLayerPath(paths, area), 0);
    EXPECT_TRUE(paths.empty());
    reader.close();
}

TEST_F(LineWrapperTest, MeshLayersComeBackBehindWhatTheMeshHolds) {
    LineSample s = lineSampleHead();
    s.bytes.u32(7).u32(2).f32(1.5F).f32(-2).f32(0.25F).f32(1e6F).tag();
    s.bytes.u32(8).u32(0).tag();
    addLineTail(s);
    writeFile(file, s.bytes);

    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    DlpParameters parameters;
    std::vector<unsigned int> areas(2);
    DlpImageParam imageParam;
    ASSERT_EQ(reader.open(file, true), 0);
    ASSERT_EQ(reader.readHeader(header, false), 0);
    EXPECT_FALSE(header.smallPreview.haveDatas());
    ASSERT_EQ(reader.readDlpParam(parameters, areas), 0);
    ASSERT_EQ(reader.readDlpImageParam(imageParam), 0);
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.0F, 2.0F, 3.0F);
    unsigned int area = 0;
    // the flag asks for z, and is not heard
    ASSERT_EQ(reader.readLayerMesh(mesh, &area, true), 2);
    EXPECT_EQ(area, 7U);
    ASSERT_EQ(mesh.vertices.size(), 3U);
    EXPECT_EQ(mesh.vertices[0][2], 3.0F);
    EXPECT_EQ(mesh.vertices[1][0], 1.5F);
    EXPECT_EQ(mesh.vertices[1][1], -2.0F);
    EXPECT_EQ(mesh.vertices[1][2], 0.0F);
    EXPECT_EQ(mesh.vertices[2][1], 1e6F);
    EXPECT_EQ(reader.readLayerMesh(mesh, &area, false), 0);
}

TEST_F(LineWrapperTest, ReadingWithoutAFileTellsItsMessages) {
    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    EXPECT_EQ(reader.readHeader(header, false), -1);
    EXPECT_EQ(printed.take(), "error: file not open\nerror: read tag error\n");
    DlpParameters parameters;
    std::vector<unsigned int> areas;
    EXPECT_EQ(reader.readDlpParam(parameters, areas), -1);
    EXPECT_EQ(printed.take(), "error: readDlpParam error:-1\n");
    DlpSliceBasicParameters settings;
    EXPECT_EQ(reader.readDlpSliceBasicParam(settings), -1);
    EXPECT_EQ(printed.take(), "error: readDlpSliceBasicParam error:-1\n");
    // one message for three readers
    const std::string shared = "error: no dlp file open\nerror: readDlpImageParam error\n";
    DlpImageParam imageParam;
    EXPECT_EQ(reader.readDlpImageParam(imageParam), -1);
    EXPECT_EQ(printed.take(), shared);
    trimesh::TriMesh mesh;
    EXPECT_EQ(reader.readLayerMesh(mesh, nullptr, false), -1);
    EXPECT_EQ(printed.take(), shared);
    Paths paths;
    unsigned int area = 0;
    EXPECT_EQ(reader.readLayerPath(paths, area), -1);
    EXPECT_EQ(printed.take(), shared);
    EXPECT_EQ(reader.open(path("missing"), false), -3);
}

TEST_F(LineWrapperTest, BadRecordsTellTheirMessages) {
    const LineSample s = lineSample();
    writeFile(file, s.bytes);
    VnLineV2ReadWrapper reader;
    DlpV2LineHeader header;
    DlpParameters parameters;
    std::vector<unsigned int> areas(1);
    ASSERT_EQ(reader.open(file, false), 0);
    ASSERT_EQ(reader.readHeader(header, false), 0);
    printed.take();
    EXPECT_EQ(reader.readDlpParam(parameters, areas), -1) << "the table has two areas";
    EXPECT_EQ(printed.take(), "error: split tag error\nerror: readDlpParam error:-2\n");

    corruptByte(file, 22 + 1, 0xFF);  // layer count, high byte
    corruptByte(file, 22, 0xFF);
    ASSERT_EQ(reader.open(file, false), 0);
    EXPECT_EQ(reader.readHeader(header, false), -3);
    EXPECT_EQ(printed.take(), "error: layerCount error: 65535\nerror: readHeader error\n");
    EXPECT_EQ(reader.open(file, true), -1) << "the trailer tells of the damage";
}

TEST_F(LineWrapperTest, NoCutFilePasses) {
    const LineSample s = lineSample();
    writeFile(file, s.bytes);
    for (std::size_t length = s.bytes.size(); length-- > 0;) {
        // within the previews one length in a thousand will do
        if (length > s.previews + 10 && length < s.parameters - 10 && length % 1000 != 0) continue;
        truncate(file, length);
        if (length < s.tail) {
            EXPECT_LT(readAll(file, false), 0) << length;
            EXPECT_LT(readAll(file, true), 0) << length;
            EXPECT_LT(readAll(file, false, false, true), 0) << length;
        }
        EXPECT_EQ(readAll(file, false, true), -1) << length;
    }
}

TEST_F(LineWrapperTest, CountsBeyondTheFileAreRefused) {
    const LineSample s = lineSample();
    const std::size_t polylines = s.layers + 4;
    const std::size_t points = s.layers + 8;
    for (const std::size_t at : {polylines, points}) {
        // among them counts that times eight, or times twelve, overflow 32 bits
        for (const unsigned count :
             {3U, 200U, 0x20000000U, 0x20000001U, 0x15555556U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            Bytes bytes = s.bytes;
            for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(count >> 8 * (3 - i));
            writeFile(file, bytes);
            EXPECT_LT(readAll(file, false), 0) << at << ": " << count;
        }
    }
    // vertices: a count beyond length / 6 has its own code, a smaller one that the rest cannot hold fails at the tag
    const auto limit = static_cast<unsigned>(s.bytes.size() / 6);
    for (const auto& [count, code] : {std::pair{limit + 1, -5}, {limit, -2}, {0xFFFFFFFFU, -5}, {200U, -2}}) {
        Bytes bytes = s.bytes;
        for (std::size_t i = 0; i < 4; ++i) bytes[polylines + i] = static_cast<unsigned char>(count >> 8 * (3 - i));
        writeFile(file, bytes);
        printed.take();
        EXPECT_EQ(readAll(file, true), code) << count;
        EXPECT_EQ(printed.take(), std::string(code == -5 ? "error: pointcount error" : "error: split tag error\n") +
                                      "error: readDlpImageParam error\n");
    }
}

TEST_F(LineWrapperTest, SkippingEndsWhereReadingEnds) {
    LineSample s = lineSample();
    writeFile(file, s.bytes);
    VndlpRead reader;
    ASSERT_EQ(reader.openDlpFile(file, false), 0);
    EXPECT_EQ(reader.seek(static_cast<long long>(s.layers)), 0);
    unsigned int area = 0;
    unsigned int polylines = 0;
    unsigned long long points = 0;
    EXPECT_EQ(reader.skipLayerPath(area, polylines, points), 0);
    EXPECT_EQ(area, 3000U);
    EXPECT_EQ(polylines, 2U);
    EXPECT_EQ(points, 6U);
    EXPECT_EQ(reader.skipLayerMesh(area, polylines), 0) << "an empty layer is both";
    EXPECT_EQ(reader.currentPosition(), static_cast<long long>(s.tail));
    reader.seek(static_cast<long long>(s.layers));
    EXPECT_EQ(reader.skipLayerMesh(area, polylines), -2);
    EXPECT_EQ(reader.skipLayerPath(area, polylines, points), -1) << "the failure closed the file";

    for (const unsigned count : {3U, 0x20000001U, 0xFFFFFFFFU}) {
        for (const std::size_t at : {s.layers + 4, s.layers + 8}) {
            Bytes bytes = s.bytes;
            for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(count >> 8 * (3 - i));
            writeFile(file, bytes);
            reader.openDlpFile(file, false);
            reader.seek(static_cast<long long>(s.layers));
            EXPECT_EQ(reader.skipLayerPath(area, polylines, points), -2) << at << ": " << count;
        }
    }
}

// the page about the format

/// The bytes of the page's worked file: lines of "OFFSET: bytes in hex", or "OFFSET: N x 00" for what is elided.
Bytes workedFile(const std::string& page) {
    std::ifstream in(page);
    Bytes bytes;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("```")) inside = line == "```hex";
        const std::size_t colon = line.find(": ");
        if (!inside || colon == std::string::npos) continue;
        EXPECT_EQ(std::stoul(line.substr(0, colon), nullptr, 16), bytes.size()) << line;
        std::istringstream rest(line.substr(colon + 1, line.find('|', colon) - colon - 1));
        std::string word;
        std::size_t zeros = 0;
        if (line.find(" x 00", colon) != std::string::npos && rest >> zeros) {
            bytes.fill(zeros, 0);
            continue;
        }
        while (rest >> word) bytes.u8(static_cast<unsigned>(std::stoul(word, nullptr, 16)));
    }
    return bytes;
}

TEST(LineFormatPage, ShowsTheSampleByteForByte) {
    EXPECT_TRUE(sameBytes(workedFile(VNDLP_DOCS_DIR "/format-vnline.md"), lineSample().bytes));
}

}  // namespace
}  // namespace vndlp::test
