// The program: exact status, output and error text of its commands.

#include "support/program.h"
#include "support/files.h"
#include "tools/images/png.h"

#include <vndlp/vndlp.h>

#include <bitset>
#include <numeric>

using namespace vndlp;
using namespace vndlp::test;
namespace fs = std::filesystem;

namespace {

/// Writes a folder of grey layers, width x height, whose layer i has the first i + 1 columns lit.
void makeLayers(const std::string& folder, int count, int width = 40, int height = 30) {
    fs::create_directories(folder);
    for (int i = 0; i < count; ++i) {
        tools::GreyImage image{width, height, Bytes(static_cast<std::size_t>(width * height))};
        for (int at = 0; at < width * height; ++at) {
            if (at % width <= i) image.pixels[static_cast<std::size_t>(at)] = 255;
        }
        writeFile(folder + "/layer" + std::to_string(i) + ".png", tools::encodePng(image));
    }
}

class ProgramTest : public testing::Test {
protected:
    /// Makes a job of three layers. \return its bytes.
    Bytes convertLayers(const std::string& file, const std::string& options = "") {
        makeLayers("layers", 3);
        EXPECT_EQ(runProgram("convert layers " + file + options).status, 0);
        return readFile(file);
    }

    void expectOnly(const std::vector<std::string>& names) {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(".")) {
            const std::string name = entry.path().filename().string();
            if (name[0] != '.') found.push_back(name);
        }
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, names);
    }

    Workspace m_workspace;
};

TEST_F(ProgramTest, LayersGoInAndComeOutUnchanged) {
    makeLayers("layers", 12);
    const Outcome converted = runProgram("convert layers job.vndlp");
    EXPECT_EQ(converted.status, 0) << converted.error;
    EXPECT_EQ(converted.output, "job.vndlp: 12 layers of 40 x 30, 364.2 kB\n");
    EXPECT_EQ(runProgram("verify job.vndlp").output, "job.vndlp: ok\n");
    EXPECT_EQ(runProgram("extract job.vndlp -o out").status, 0);
    for (int i = 0; i < 12; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "out/layer_%05d.png", i);
        EXPECT_EQ(textOf(name), textOf("layers/layer" + std::to_string(i) + ".png")) << i;
    }
    // a slice file is an input, too, and its settings go along
    EXPECT_EQ(runProgram("convert job.vndlp again.vndlp").status, 0);
    EXPECT_EQ(textOf("again.vndlp"), textOf("job.vndlp"));
}

TEST_F(ProgramTest, RefusesScreensTooLargeForTheFormatUnlessTurned) {
    makeLayers("tall", 1, 16, 8200);
    const Outcome outcome = runProgram("convert tall tall.vndlp");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.error, "vndlp: tall: .vndlp files hold heights up to 8192\n");
    EXPECT_EQ(runProgram("convert tall wide.vndlp --rotate 270").status, 0);
}

TEST_F(ProgramTest, CtbKeepsSevenBitsOfEveryGrey) {
    fs::create_directories("grey");
    tools::GreyImage image{256, 3, Bytes(256 * 3)};
    std::iota(image.pixels.begin(), image.pixels.end(), static_cast<unsigned char>(0));
    writeFile("grey/0.png", tools::encodePng(image));
    ASSERT_EQ(runProgram("convert grey job.ctb --set machine=M05 --set bottom_layers=7").status, 0);
    EXPECT_EQ(runProgram("verify job.ctb").output,
              "job.ctb: note: scrambled with the illustrative constants, which no machine uses\n"
              "job.ctb: ok, this format has no checksum\n");
    ASSERT_EQ(runProgram("extract job.ctb -o out").status, 0);
    for (unsigned char& pixel : image.pixels) pixel = pixel < 2 ? 0 : static_cast<unsigned char>(pixel | 1);
    EXPECT_EQ(readFile("out/layer_00000.png"), Bytes(tools::encodePng(image)));

    // there and back: settings, machine and previews go along
    ASSERT_EQ(runProgram("convert job.ctb back.vndlp").status, 0);
    ASSERT_EQ(runProgram("convert back.vndlp again.ctb").status, 0);
    const auto first = infoOf("job.ctb");
    auto again = infoOf("again.ctb");
    EXPECT_EQ(first["settings"]["bottom_layers"], 7);
    EXPECT_EQ(first["settings"]["machine"], "M05");
    EXPECT_EQ(again["settings"], first["settings"]);
    EXPECT_EQ(again["previews"].size(), 2u);
    EXPECT_EQ(again["previews"][1]["blank"], false);
}

TEST_F(ProgramTest, V4FilesAreToldByTheirVersionAndCheckedThrough) {
    const Bytes sound = convertLayers("job.vndlpv4", " --set machine=M05");
    fs::copy("job.vndlpv4", "renamed.vndlp");
    EXPECT_EQ(runProgram("verify renamed.vndlp").output, "renamed.vndlp: ok\n");
    const auto json = infoOf("renamed.vndlp");
    EXPECT_EQ(json["format"], "vndlpv4");
    EXPECT_EQ(json["settings"]["machine"], "M05");
    EXPECT_EQ(json["trailer"]["state"], "ok");
    EXPECT_EQ(json["layer_table"][1]["area_mm2"], 0.15);
    ASSERT_EQ(runProgram("extract job.vndlpv4 --layers 2 -o out").status, 0);
    EXPECT_EQ(readFile("out/layer_00002.png"), readFile("layers/layer2.png"));

    const auto layer = json["layer_table"][1]["offset"].get<std::size_t>();
    const auto verifyResealed = [&](std::size_t offset, unsigned char value) {
        writeFile("bad.vndlpv4", sound);
        corruptByte("bad.vndlpv4", offset, value);
        fixTrailer("bad.vndlpv4");
        return runProgram("verify bad.vndlpv4").output;
    };
    EXPECT_TRUE(contains(verifyResealed(layer + 3, 9), "layer 1: the second copy of its extended record differs"));
    // the first run, two lit pixels, becomes one of three
    EXPECT_TRUE(
        contains(verifyResealed(layer + 45, 3), "layer 1: its encoded data make 1201 pixels, the screen has 1200"));
    fs::resize_file("bad.vndlpv4", sound.size() - 9);
    EXPECT_EQ(runProgram("verify bad.vndlpv4").status, 1);
    EXPECT_EQ(runProgram("beads layers/layer0.png --layer 0 -o mask.png").status, 1);
    EXPECT_EQ(runProgram("beads job.vndlpv4 --layer 3 -o mask.png").status, 2);
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    Bytes mask(field.m_maskBytes);
    for (unsigned row = 0; row < 30; ++row) field.getsubzonedata(row * 15120, row * 15120 + 2, mask);
    const auto lit = std::accumulate(mask.begin(), mask.end(), std::size_t{0}, [](std::size_t sum, unsigned char byte) {
        return sum + std::bitset<8>(byte).count();
    });
    EXPECT_EQ(runProgram("beads job.vndlpv4 --layer 1 -o mask.png").output,
              "mask.png: layer 1, " + std::to_string(lit) +
                  " of 542 beads lit, mask worked out from the layer (the file has none)\n");
}

}  // namespace
