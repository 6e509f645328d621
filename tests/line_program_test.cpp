// The program and line files: status, output and error text, and that what goes in comes out.

#include "support/files.h"
#include "support/line_sample.h"
#include "support/program.h"
#include "tools/images/png.h"

#include <vndlp/vndlp.h>

#include <cmath>

namespace vndlp::test {
namespace {

namespace fs = std::filesystem;
using Points = std::vector<std::pair<int, int>>;

class LineProgramTest : public testing::Test {
protected:
    /// One layer of 40 x 30 pixels: a plate with a hole; and one that is empty.
    static void makeImages() {
        tools::GreyImage image{40, 30, Bytes(40 * 30)};
        fs::create_directories("layers");
        writeFile("layers/1.png", tools::encodePng(image));
        for (std::size_t y = 5; y < 25; ++y) {
            for (std::size_t x = 10; x < 30; ++x) {
                const bool inHole = x >= 15 && x < 20 && y >= 10 && y < 20;
                if (!inHole) image.pixels[y * 40 + x] = 255;
            }
        }
        writeFile("layers/0.png", tools::encodePng(image));
    }

    /// Layers of a file as polylines.
    static std::vector<Paths> layersOf(const std::string& file) {
        VndlpRead reader;
        DlpImageParam imageParam;
        EXPECT_EQ(reader.openDlpFile(file, true), 0);
        EXPECT_EQ(reader.readDlpStructure(false), 0);
        EXPECT_EQ(reader.readDlpImageParam(imageParam), 0);
        std::vector<Paths> layers(static_cast<std::size_t>(reader.getLayerCount()));
        unsigned int area = 0;
        for (Paths& paths : layers) EXPECT_GE(reader.readLayerPath(paths, &area, false), 0);
        return layers;
    }

    static Points pointsOf(const std::vector<Vec3i>& path) {
        Points points;
        for (const Vec3i& p : path) points.emplace_back(p.x, p.y);
        return points;
    }

    Workspace m_workspace;
};

TEST_F(LineProgramTest, ImagesBecomeOutlinesInMicrometres) {
    makeImages();
    const Outcome converted = runProgram(
        "convert layers job.vnline --set display_width_mm=4 --set display_height_mm=3 --set anti_aliasing=1 "
        "--set machine=M01");
    ASSERT_EQ(converted.status, 0) << converted.error;
    EXPECT_EQ(converted.output, "job.vnline: 2 layers of 40 x 30, 363.6 kB\n");
    EXPECT_EQ(runProgram("verify job.vnline").output, "job.vnline: ok\n");

    const std::vector<Paths> layers = layersOf("job.vnline");
    ASSERT_EQ(layers.size(), 2U);
    ASSERT_EQ(layers[0].size(), 2U);
    // pixels of 100 micrometres; the plate's upper row is the image's sixth, so its upper edge lies at 3000 - 500
    EXPECT_EQ(pointsOf(layers[0][0]), (Points{{1000, 2500}, {1000, 500}, {3000, 500}, {3000, 2500}, {1000, 2500}}));
    EXPECT_EQ(pointsOf(layers[0][1]), (Points{{1500, 1000}, {1500, 2000}, {2000, 2000}, {2000, 1000}, {1500, 1000}}))
        << "clockwise";
    EXPECT_TRUE(layers[1].empty());

    const nlohmann::json json = infoOf("job.vnline");
    EXPECT_EQ(json["format"], "vnline");
    EXPECT_EQ(json["version"], 2);
    EXPECT_EQ(json["settings"]["machine"], "M01");
    EXPECT_EQ(json["trailer"]["state"], "ok");
    EXPECT_EQ(json["previews"][2]["blank"], false);
    // 350 pixels of a hundredth of a square millimetre
    EXPECT_EQ(json["layer_table"][0]["bytes"], 4 + 4 + 2 * (4 + 5 * 8) + 2);
    EXPECT_EQ(json["layer_table"][0]["runs"], 2);
    EXPECT_EQ(json["layer_table"][0]["area_mm2"], 3.5);
    EXPECT_NEAR(json["volume_ml"].get<double>(), 3500 * 0.05 / 1e6, 1e-12);
    EXPECT_EQ(runProgram("estimate job.vnline --machine M01").status, 0);
}

TEST_F(LineProgramTest, DrawingsOfOthersAreTakenInNaturalOrder) {
    fs::create_directories("svg");
    const std::string head = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 3000 2000\">";
    std::ofstream("svg/s10.svg") << head << "<polyline points=\"0,2000 30,1990\"/></svg>";
    std::ofstream("svg/s9.SVG") << head << "<polygon points=\"0,0 100,0 100,100 0,100\"/></svg>";
    std::ofstream("svg/readme.txt") << "not a layer";
    const Outcome outcome = runProgram("convert -v svg job.vnline");
    ASSERT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_TRUE(contains(outcome.error, "note: the drawings do not give their size"));
    const std::vector<Paths> layers = layersOf("job.vnline");
    ASSERT_EQ(layers.size(), 2U);
    EXPECT_EQ(layers[0][0].size(), 5U);
    EXPECT_EQ(pointsOf(layers[1][0]), (Points{{0, 0}, {30, 10}}));
    EXPECT_EQ(infoOf("job.vnline")["layer_table"][0]["area_mm2"], 0.01);
    EXPECT_EQ(infoOf("job.vnline")["settings"]["display_width_mm"], 3);

    std::ofstream("svg/s11.svg") << "<svg viewBox=\"0 0 3000 2500\"/>";
    const Outcome sizes = runProgram("convert svg bad.vnline");
    EXPECT_EQ(sizes.status, 1);
    EXPECT_NE(sizes.error.find("vndlp: svg: s11.svg: its size is 3 x 2.5 mm, that of the first layer 3 x 2 mm; layers "
                               "must be of one size\n"),
              std::string::npos)
        << sizes.error;
    std::ofstream("svg/s11.svg") << head << "<g transform=\"rotate(5)\"/></svg>";
    EXPECT_TRUE(
        contains(runProgram("convert svg bad.vnline").error, "it is moved or turned by transform=\"rotate(5)\""));
    EXPECT_FALSE(fs::exists("bad.vnline"));
}

TEST_F(LineProgramTest, MeshesAreToldAndDrawn) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter("mesh.vnline"));
    writer->filePath = "mesh.vnline";
    writer->layerCount = 3;
    writer->resolutionX = 100;
    writer->resolutionY = 100;
    writer->fileStructure.parameters.platformX = "1";
    writer->fileStructure.parameters.platformY = "1";
    writer->fileStructure.parameters.thickness = "0.05";
    std::vector<SliceImage> previews(3);
    trimesh::TriMesh mesh;
    mesh.vertices.emplace_back(1.5F, 2.0F, 0.0F);
    mesh.vertices.emplace_back(900.0F, 2.5F, 0.0F);
    ASSERT_EQ(writer->openFile(), 0);
    ASSERT_EQ(writer->writeHeader(previews), 0);
    ASSERT_EQ(writer->addLayerMesh(mesh, 1000), 2);
    ASSERT_EQ(writer->addLayerPaths(1, {{Vec3i(1, 2, 0), Vec3i(3, 4, 0)}}, 0), 0);
    mesh.vertices[1][0] = std::nanf("");
    ASSERT_EQ(writer->addLayerMesh(mesh, 0), 2);
    ASSERT_EQ(writer->finish(), 0);

    EXPECT_EQ(runProgram("extract mesh.vnline -o out --salvage").status, 0);
    EXPECT_TRUE(contains(textOf("out/layer_00000.svg"), "M1.5 2h0\nM900 2.5h0\n"));
    EXPECT_TRUE(contains(textOf("out/layer_00000.svg"), "width=\"1mm\""));
    const Outcome verified = runProgram("verify mesh.vnline");
    EXPECT_EQ(verified.status, 1);
    EXPECT_TRUE(contains(verified.output, "layer 2: vertex 1 is not a number\n"));
    EXPECT_TRUE(contains(runProgram("convert mesh.vnline a.vndlp --salvage").error, "layer 0 is a mesh"));
}

}  // namespace
}  // namespace vndlp::test
