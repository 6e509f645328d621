#include "support/golden.h"
#include "support/line_sample.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace vndlp::test {
namespace {

using Settings = std::unordered_map<std::string, std::string>;

// the parameter record

TEST(LineParam, EverySettingReachesItsFieldAndIsZeroWithoutIt) {
    using P = DlpLineV2ParamWrapper;
    const std::pair<const char*, int P::*> numbers[] = {{"exposure_time", &P::exposure_time},
                                                        {"light_off_delay", &P::light_off_delay},
                                                        {"first_exposure_time", &P::first_exposure_time},
                                                        {"first_layer_count", &P::first_layer_count},
                                                        {"first_lift_distance", &P::first_lift_distance},
                                                        {"first_lift_speed", &P::first_lift_speed},
                                                        {"lifting_distance", &P::lifting_distance},
                                                        {"lifting_speed", &P::lifting_speed},
                                                        {"retract_speed", &P::retract_speed},
                                                        {"zthrough_deep_value", &P::zThrough},
                                                        {"minimum_grayscale", &P::minGray},
                                                        {"maximum_grayscale", &P::maxGray}};
    Settings settings = {{"layer_height", " 0.025mm"},
                         {"anti_aliasing", "true"},
                         {"machine_name", "X1"},
                         {"resolutionX", "not a name"},
                         {"versionCode", "5"}};
    for (int next = 0; const auto& [name, field] : numbers) settings[name] = std::to_string(++next);
    P p = sampleLineParam();
    p.setVal(settings);
    for (int next = 0; const auto& [name, field] : numbers) EXPECT_EQ(p.*field, ++next) << name;
    EXPECT_EQ(std::tie(p.thickness, p.enableAliasing, p.machineName), std::make_tuple(0.025F, 1, "X1"));
    p.setVal({});
    for (const auto& [name, field] : numbers) EXPECT_EQ(p.*field, 0) << name;
    EXPECT_EQ(std::tie(p.thickness, p.enableAliasing, p.machineName), std::make_tuple(0.0F, 0, ""));
    EXPECT_EQ(std::tie(p.versionCode, p.resolutionX, p.platformX), std::make_tuple(2U, 1440, 68.04F)) << "no settings";
}

TEST(LineParam, TextsAreReadAsTheyAlwaysWere) {
    DlpLineV2ParamWrapper p;
    const std::pair<const char*, int> numbers[] = {{"30s", 30}, {"2.5", 2}, {"  7", 7}, {"-4", -4},
                                                   {"+4", 4},   {"abc", 0}, {"", 0},    {"0x10", 0}};
    for (const auto& [text, number] : numbers) {
        p.setVal({{"exposure_time", text}});
        EXPECT_EQ(p.exposure_time, number) << text;
    }
    for (const char* text : {"TRUE", "True", "1", "true ", " true", "truex", "yes", ""}) {
        p.enableAliasing = 1;
        p.setVal({{"anti_aliasing", text}});
        EXPECT_EQ(p.enableAliasing, 0) << text;
    }
    // the maker's name takes nine characters from the front
    const std::pair<const char*, const char*> names[] = {
        {"Vantakor X1", "X1"},  {"Vantakor-X1", "X1"},
        {"My Vantakor", "or"},  {"Vantakor", ""},
        {"Vantakor ", ""},      {"vantakor X1", "vantakor X1"},
        {"Vantako", "Vantako"}, {"Vantakor Vantakor X1", "Vantakor X1"}};
    for (const auto& [name, kept] : names) {
        p.setVal({{"machine_name", name}});
        EXPECT_EQ(p.machineName, kept) << name;
    }
    // a text ends at its first NUL
    const Settings settings = {{"anti_aliasing", std::string("true\0", 5)},
                               {"machine_name", std::string("X\0Vantakor", 10)}};
    EXPECT_EQ(p.findKey(settings, "machine_name"), "X");
    EXPECT_EQ(p.findKey(settings, "c"), "");
    p.setVal(settings);
    EXPECT_EQ(std::tie(p.enableAliasing, p.machineName), std::make_tuple(1, "X"));
}

// writing

class LineWrapperTest : public FileTest {
protected:
    /// Gives the writer all four parts of the head but one by its number; black pictures without pixels.
    static void giveHead(VnLineV2WriteWrapper& writer, int leaveOut = -1) {
        if (leaveOut != 0) writer.setDlpLineV2Param(sampleLineParam());
        if (leaveOut != 1) writer.setGrayPreview116X116(nullptr);
        if (leaveOut != 2) writer.setGrayPreview290X290(nullptr, 0);
        if (leaveOut != 3) writer.setGrayPreview290X290(nullptr, 1);
    }

    /// A file of the sample in which one number was replaced.
    void spoil(std::size_t offset, unsigned number) {
        Bytes bytes = lineSample().bytes;
        const Bytes put = Bytes().u32(number);
        std::copy(put.begin(), put.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        writeFile(file, bytes);
    }

    std::string file = path("a.vnline");
    Printed printed;
};

TEST_F(LineWrapperTest, WritesTheSampleByteForByteAndAnotherFileAfterClear) {
    VnLineV2WriteWrapper writer;
    std::vector<std::vector<unsigned char>> pixels;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(writer.open(file), 0);
        giveHead(writer);
        if (round == 1) {
            for (const std::size_t size : {26912U, 168200U, 168200U}) {
                std::vector<unsigned char>& picture = pixels.emplace_back(size);
                for (std::size_t i = 0; i < size; ++i) picture[i] = static_cast<unsigned char>(i * 7 + pixels.size());
            }
            writer.setGrayPreview290X290(pixels[2].data(), 1);
            writer.setGrayPreview290X290(pixels[1].data(), 0);
            writer.setGrayPreview290X290(nullptr, 2);
            writer.setGrayPreview116X116(pixels[0].data());
        }
        ASSERT_TRUE(writer.writeDlpStructure());
        writer.setLayerPath(99, samplePaths(), kSampleAreas[0]);
        EXPECT_EQ(writer.flush(), 0);
        EXPECT_GT(readFile(file).size(), lineSample().layers);
        writer.setLayerPath(0, {}, kSampleAreas[1]);
        EXPECT_EQ(writer.writeTail(), 0);
        EXPECT_EQ(printed.take(),
                  "checkFileSum, file:" + file + ", versionName:VNLINEV2, subVersionNum:2, checktype:2\n");
        writer.clear();
        writer.close();
        EXPECT_TRUE(sameBytes(readFile(file), lineSample(pixels).bytes));
    }
}

TEST_F(LineWrapperTest, WritingTellsWhatIsMissing) {
    for (int missing = 0; missing < 4; ++missing) {
        VnLineV2WriteWrapper writer;
        ASSERT_EQ(writer.open(file), 0);
        giveHead(writer, missing);
        EXPECT_FALSE(writer.writeDlpStructure()) << missing;
        writer.close();
        EXPECT_TRUE(readFile(file).empty());
    }
    VnLineV2WriteWrapper oneLayer;
    ASSERT_EQ(oneLayer.open(file), 0);
    giveHead(oneLayer);
    ASSERT_TRUE(oneLayer.writeDlpStructure());
    oneLayer.setLayerPath(0, samplePaths(), kSampleAreas[0]);
    EXPECT_EQ(oneLayer.writeTail(), 0) << "the table holds what was given";
    printed.take();

    VnLineV2WriteWrapper closed;
    const std::string nowhere = path("missing/a.vnline");
    EXPECT_EQ(closed.open(nowhere), -1);
    EXPECT_EQ(printed.take(), "error: " + nowhere + " can't open\n");
    giveHead(closed);
    EXPECT_FALSE(closed.writeDlpStructure());
}

// reading

/// Everything in front of the layers.
struct Head {
    DlpV2LineHeader header;
    DlpParameters parameters;
    std::vector<unsigned int> areas;
    DlpImageParam imageParam;

    /// Opens a file and reads them; the first result that is not 0.
    int read(VnLineV2ReadWrapper& reader, const std::string& file, bool verify, bool withPreview) {
        int status = reader.open(file, verify);
        if (status == 0) status = reader.readHeader(header, withPreview);
        areas.resize(header.layerCount);
        if (status == 0) status = reader.readDlpParam(parameters, areas);
        if (status == 0) status = reader.readDlpImageParam(imageParam);
        return status;
    }
};

TEST_F(LineWrapperTest, MeshLayersComeBackBehindWhatTheMeshHolds) {
    LineSample s = lineSampleHead();
    s.bytes.u32(7).u32(2).f32(1.5F).f32(-2).f32(0.25F).f32(1e6F).tag();
    s.bytes.u32(8).u32(0).tag();
    addLineTail(s);
    writeFile(file, s.bytes);
    VnLineV2ReadWrapper reader;
    Head head;
    ASSERT_EQ(head.read(reader, file, true, false), 0);
    EXPECT_FALSE(head.header.smallPreview.haveDatas());
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.0F, 2.0F, 3.0F);
    unsigned int area = 0;
    // the flag asks for z, and is not heard
    ASSERT_EQ((Codes{reader.readLayerMesh(mesh, &area, true), area, std::ssize(mesh.vertices)}), (Codes{2, 7, 3}));
    const auto& v = mesh.vertices;
    EXPECT_EQ((std::vector{v[0][2], v[1][0], v[1][1], v[1][2], v[2][1]}), (std::vector{3.0F, 1.5F, -2.0F, 0.0F, 1e6F}));
    EXPECT_EQ(reader.readLayerMesh(mesh, &area, false), 0);
}

TEST_F(LineWrapperTest, BadRecordsTellTheirMessages) {
    writeFile(file, lineSample().bytes);
    VnLineV2ReadWrapper reader;
    Head head;
    head.areas.resize(1);  // the table has two
    EXPECT_EQ((Codes{reader.open(file, false), reader.readHeader(head.header, false),
                     reader.readDlpParam(head.parameters, head.areas)}),
              (Codes{0, 0, -1}));
    EXPECT_EQ(printed.take(), "error: split tag error\nerror: readDlpParam error:-2\n");
    spoil(22, 0xFFFF0000);  // layer count
    EXPECT_EQ((Codes{reader.open(file, false), reader.readHeader(head.header, false)}), (Codes{0, -3}));
    EXPECT_EQ(printed.take(), "error: layerCount error: 65535\nerror: readHeader error\n");
    EXPECT_EQ(reader.open(file, true), -1) << "the trailer tells of the damage";
}

TEST_F(LineWrapperTest, SkippingEndsWhereReadingEnds) {
    const LineSample s = lineSample();
    writeFile(file, s.bytes);
    const auto layers = static_cast<long long>(s.layers);
    VndlpRead reader;
    unsigned int area = 0;
    unsigned int polylines = 0;
    unsigned long long points = 0;
    EXPECT_EQ((Codes{reader.openDlpFile(file, false), reader.seek(layers),
                     reader.skipLayerPath(area, polylines, points), area, polylines, static_cast<long long>(points)}),
              (Codes{0, 0, 0, 3000, 2, 6}));
    // an empty layer is both
    EXPECT_EQ((Codes{reader.skipLayerMesh(area, polylines), reader.currentPosition()}),
              (Codes{0, static_cast<long long>(s.tail)}));
    EXPECT_EQ((Codes{reader.seek(layers), reader.skipLayerMesh(area, polylines)}), (Codes{0, -2}));
    EXPECT_EQ(reader.skipLayerPath(area, polylines, points), -1) << "the failure closed the file";
}

}  // namespace
}  // namespace vndlp::test
