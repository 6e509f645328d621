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

TEST_F(ProgramTest, InfoAsJsonParsesAlone) {
    convertLayers("job.vndlp");
    const auto json = infoOf("job.vndlp");
    EXPECT_EQ(json["format"], "vndlp");
    EXPECT_EQ(json["version"], 3);
    EXPECT_EQ(json["width_px"], 40);
    EXPECT_EQ(json["height_px"], 30);
    EXPECT_EQ(json["settings"]["exposure_s"], 2.5);
    EXPECT_EQ(json["raw"]["DlpParameters.exposure_time"]["value"], 25);
    EXPECT_EQ(json["trailer"]["state"], "ok");
    EXPECT_EQ(json["trailer"]["stored"], json["trailer"]["computed"]);
    // pixels of 50 x 50 micrometres: 30 of them are 75 thousandths of a square millimetre
    EXPECT_EQ(json["layer_table"][1]["lit_px"], 60);
    EXPECT_EQ(json["layer_table"][1]["area_mm2"], 0.15);
    EXPECT_EQ(json["layer_table"][1]["runs"], 2);
    EXPECT_NEAR(json["volume_ml"].get<double>(), (75 + 150 + 225) * 0.05 / 1e6, 1e-12);
}

TEST_F(ProgramTest, SettingsWinInTheirOrder) {
    makeLayers("layers", 1);
    std::ofstream("printer.json") << R"({"machine": "M05", "lift_mm": 7, "exposure_s": 4.5, "light_off_s": 3})";
    ASSERT_EQ(runProgram("convert layers a.vndlp --profile printer.json --set lift_mm=9 --set exposure_s=1.2").status,
              0);
    const auto json = nlohmann::json::parse(runProgram("info a.vndlp --json").output);
    EXPECT_FALSE(json.contains("layer_table"));
    EXPECT_EQ(json["settings"]["machine"], "M05");
    EXPECT_EQ(json["settings"]["lift_mm"], 9);
    EXPECT_EQ(json["settings"]["exposure_s"], 1.2);
    EXPECT_EQ(json["settings"]["light_off_s"], 3);

    const std::pair<const char*, const char*> wrong[] = {
        {"--set lift=7", "vndlp: --set lift=7: unknown setting \"lift\"; `vndlp convert --help` lists them\n"},
        {"--set lift_mm=high", "vndlp: --set lift_mm=high: lift_mm = \"high\" is not a number\n"},
        {"--set pwm=256", "vndlp: --set pwm=256: pwm = 256 is outside 0 to 255\n"},
        {"--set pwm", "vndlp: --set pwm: expected key=value\n"},
        {"--set resolution_x=41",
         "vndlp: layers: layers are 40 x 30 pixels, but resolution_x is set to 41; --rotate 90 turns them, --pad sets "
         "them into a larger screen\n"},
        {"--profile layers/layer0.png", "vndlp: layers/layer0.png: line 1: is no JSON\n"},
        {"--profile none.json", "vndlp: none.json: cannot be opened: No such file or directory\n"},
    };
    for (const auto& [option, message] : wrong) {
        const Outcome outcome = runProgram(std::string("convert layers b.vndlp ") + option);
        const bool isUsage = std::string(option) != "--set resolution_x=41";
        EXPECT_EQ(outcome.status, isUsage ? 2 : 1) << option;
        EXPECT_EQ(outcome.error, message + std::string(isUsage ? "vndlp: for help: vndlp convert --help\n" : ""));
    }
    EXPECT_FALSE(fs::exists("b.vndlp"));
}

TEST_F(ProgramTest, TurnsAndMirrorsLayersAndRefusesTooLargeScreens) {
    makeLayers("layers", 1, 8, 4);  // the left column lit
    ASSERT_EQ(runProgram("convert layers turned.vndlp --rotate 90").status, 0);
    const auto json = infoOf("turned.vndlp");
    EXPECT_EQ(json["width_px"], 4);
    EXPECT_EQ(json["height_px"], 8);
    EXPECT_EQ(json["layer_table"][0]["runs"], 4);  // now the top row
    ASSERT_EQ(runProgram("convert layers mirrored.vndlp --mirror x").status, 0);
    VndlpRead reader;
    ASSERT_EQ(reader.readDlpFile("mirrored.vndlp", false, false), 0);
    std::vector<std::vector<WhiteData>> runs;
    reader.swapWhiteDatas(runs);
    ASSERT_EQ(runs[0].size(), 1u);
    EXPECT_EQ(runs[0][0].start.x, 7);

    makeLayers("tall", 1, 16, 8200);
    const Outcome outcome = runProgram("convert tall tall.vndlp");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.error, "vndlp: tall: .vndlp files hold heights up to 8192\n");
    EXPECT_EQ(runProgram("convert tall wide.vndlp --rotate 270").status, 0);
}

TEST_F(ProgramTest, EstimatesByTheFormulaOfTheModel) {
    convertLayers("job.vndlp");
    const auto estimateOf = [](const std::string& options) {
        const Outcome outcome = runProgram("estimate job.vndlp --json " + options);
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        return nlohmann::json::parse(outcome.output)["print_time"];
    };
    // no more layers than bottom layers: the whole bottom time counts once more for every layer
    const auto m31 = estimateOf("--model M31 --machine M05 --set bottom_layers=3");
    EXPECT_NEAR(m31["parts"]["exposure"].get<double>(), 90 + 3 * 90, 1e-9);
    EXPECT_NEAR(m31["parts"]["delays"].get<double>(), 3, 1e-9);
    // M01 at full speed: 236 mm at 5 mm/s of travel; a layer takes 1.05 s, its exposure, 1 s and 2 x 6 / 5 s
    const auto general = estimateOf("--machine QV-m0-1 --set bottom_layers=1");
    EXPECT_EQ(general["machine"], "M01");
    EXPECT_NEAR(general["parts"]["level"].get<double>(), 47.2, 1e-4);
    EXPECT_NEAR(general["parts"]["exposure"].get<double>(), 30 + 2 * 2, 1e-4);
    EXPECT_NEAR(general["parts"]["lift"].get<double>(), 3 * 2.4, 1e-3);
    double sum = 0;
    for (const auto& part : general["parts"]) sum += part.get<double>();
    EXPECT_NEAR(sum, general["estimate_s"].get<double>(), 1e-6);
    EXPECT_EQ(estimateOf("--machine M33")["model"], "M33");
    EXPECT_EQ(runProgram("estimate job.vndlp --model M34").status, 2);
    EXPECT_TRUE(contains(runProgram("machines").output, "\nM02            170           1  no\n"));
    EXPECT_EQ(nlohmann::json::parse(runProgram("machines --json").output).size(), 28u);
}

TEST_F(ProgramTest, CtbKeepsSevenBitsOfEveryGrey) {
    fs::create_directories("grey");
    tools::GreyImage image{256, 3, Bytes(256 * 3)};
    std::iota(image.pixels.begin(), image.pixels.end(), static_cast<unsigned char>(0));
    writeFile("grey/0.png", tools::encodePng(image));
    ASSERT_EQ(runProgram("convert grey job.ctb --set machine=M05 --set bottom_layers=7").status, 0);
    EXPECT_EQ(runProgram("verify job.ctb").output, "job.ctb: note: scrambled with the illustrative constants, which no machine uses\n"
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
    EXPECT_TRUE(contains(verifyResealed(layer + 45, 3), "layer 1: its encoded data make 1201 pixels, the screen has 1200"));
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
