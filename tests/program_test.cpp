// The program: exact status, output and error text of its commands.

#include "tests/support/program.h"

#include <vndlp/vndlp.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <bitset>
#include <numeric>

#include "tools/png.h"

using namespace vndlp;
using namespace vndlp::test;
namespace fs = std::filesystem;

namespace {

class ProgramTest : public testing::Test {
protected:
    /// Writes a folder of grey layers, width x height, whose layer i has the first i + 1 columns lit.
    void makeLayers(const std::string& folder, int count, int width = 40, int height = 30) {
        fs::create_directories(folder);
        for (int i = 0; i < count; ++i) {
            tools::GreyImage image{width, height, {}};
            image.pixels.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x <= i; ++x) {
                    image.pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                 static_cast<std::size_t>(x)] = 255;
                }
            }
            const std::vector<unsigned char> png = tools::encodePng(image);
            std::ofstream file(folder + "/layer" + std::to_string(i) + ".png", std::ios::binary);
            file.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
        }
    }

    void convertLayers() {
        makeLayers("layers", 3);
        ASSERT_EQ(runProgram("convert layers job.vndlp").status, 0);
    }

    void expectOnly(const std::vector<std::string>& names) {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(".")) {
            const std::string name = entry.path().filename().string();
            if (name != ".stdout" && name != ".stderr") found.push_back(name);
        }
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, names);
    }

    Workspace m_workspace;
};

TEST_F(ProgramTest, HelpAndVersionAreResults) {
    for (const char* arguments : {"--help", "convert --help", "info --help", "verify --help", "extract --help",
                                  "estimate --help", "machines --help"}) {
        const Outcome outcome = runProgram(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments;
        EXPECT_NE(outcome.output.find("Example:"), std::string::npos) << arguments;
        EXPECT_EQ(outcome.error, "");
    }
    EXPECT_EQ(runProgram("--version").output, "vndlp " VNDLP_VERSION "\n");
}

TEST_F(ProgramTest, WrongUsageIsTwoAndWritesNothing) {
    makeLayers("layers", 1);
    for (const char* arguments :
         {"", "nonsense", "convert", "convert layers", "convert layers out.xyz", "convert layers a.vndlp --rotate 45",
          "info", "verify", "extract layers", "info --frobnicate x", "convert layers a.vndlp -j 0"}) {
        const Outcome outcome = runProgram(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_NE(outcome.error, "") << arguments;
    }
    expectOnly({"layers"});
}

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
    convertLayers();
    const Outcome outcome = runProgram("info job.vndlp --json --layers");
    ASSERT_EQ(outcome.status, 0);
    const auto json = nlohmann::json::parse(outcome.output);
    EXPECT_EQ(json["format"], "vndlp V2");
    EXPECT_EQ(json["version"], 3);
    EXPECT_EQ(json["resolution"], nlohmann::json({{"x", 40}, {"y", 30}}));
    EXPECT_EQ(json["parameters"]["exposure_time"], 25);
    EXPECT_EQ(json["trailer"], nlohmann::json({{"kind", "crc32"}, {"matches", true}}));
    // pixels of 50 x 50 micrometres: 30 of them are 75 thousandths of a square millimetre
    EXPECT_EQ(json["layers"][1]["litPixels"], 60);
    EXPECT_EQ(json["layers"][1]["area"], 150);
    EXPECT_EQ(json["layers"][1]["runs"], 2);
    EXPECT_NEAR(json["volumeMl"].get<double>(), (75 + 150 + 225) * 0.05 / 1e6, 1e-12);
    long long end = 0;
    for (const auto& section : json["sections"]) {
        EXPECT_EQ(section["offset"], end) << section;
        end += section["size"].get<long long>();
    }
    EXPECT_EQ(end, static_cast<long long>(fs::file_size("job.vndlp")));
}

TEST_F(ProgramTest, SettingsWinInTheirOrder) {
    makeLayers("layers", 1);
    std::ofstream("printer.json") << R"({"machine": "M05", "lift_mm": 7, "exposure_s": 4.5, "light_off_s": 3})";
    ASSERT_EQ(runProgram("convert layers a.vndlp --profile printer.json --set lift_mm=9 --set exposure_s=1.2").status,
              0);
    const auto json = nlohmann::json::parse(runProgram("info a.vndlp --json").output);
    EXPECT_EQ(json["header"]["machine_type"], "M05");
    EXPECT_EQ(json["parameters"]["lifting_distance"], 9);
    EXPECT_EQ(json["parameters"]["exposure_time"], 12);
    EXPECT_EQ(json["parameters"]["light_off_delay"], 3);

    const std::pair<const char*, const char*> wrong[] = {
        {"--set lift=7", "vndlp: --set lift=7: unknown setting \"lift\"; `vndlp convert --help` lists them\n"},
        {"--set lift_mm=high", "vndlp: --set lift_mm=high: lift_mm = \"high\" is not a number\n"},
        {"--set pwm=256", "vndlp: --set pwm=256: pwm = 256 is outside 0 to 255\n"},
        {"--set pwm", "vndlp: --set pwm: expected key=value\n"},
        {"--set resolution_x=41",
         "vndlp: layers: layers are 40 x 30 pixels, but resolution_x is set to 41; --rotate 90 turns them\n"},
        {"--profile layers/layer0.png", "vndlp: layers/layer0.png: the profile is not a JSON object of settings\n"},
        {"--profile none.json", "vndlp: none.json: the profile cannot be opened\n"},
    };
    for (const auto& [option, message] : wrong) {
        const Outcome outcome = runProgram(std::string("convert layers b.vndlp ") + option);
        EXPECT_EQ(outcome.status, 1) << option;
        EXPECT_EQ(outcome.error, message);
    }
    EXPECT_FALSE(fs::exists("b.vndlp"));
}

TEST_F(ProgramTest, AnExistingOutputNeedsForce) {
    convertLayers();
    std::ofstream("old.vndlp") << "precious";
    const Outcome refused = runProgram("convert layers old.vndlp");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.error, "vndlp: old.vndlp: exists already; --force replaces it\n");
    EXPECT_EQ(textOf("old.vndlp"), "precious");
    EXPECT_EQ(runProgram("convert layers old.vndlp --force").status, 0);
    EXPECT_EQ(textOf("old.vndlp"), textOf("job.vndlp"));
    const Outcome onto = runProgram("convert job.vndlp ./job.vndlp --force");
    EXPECT_EQ(onto.error, "vndlp: ./job.vndlp: is the input itself; choose another name\n");
    expectOnly({"job.vndlp", "layers", "old.vndlp"});
}

TEST_F(ProgramTest, AFailureLeavesWhatWasThere) {
    makeLayers("layers", 3, 400, 300);
    std::ofstream("old.vndlp") << "precious";
    // 200 blocks of 1 KiB are not enough for the previews alone; 364 are for all but the last bytes
    for (const char* limit : {"200", "356"}) {
        const Outcome outcome =
            runProgram("convert layers old.vndlp --force", std::string("ulimit -f ") + limit + "; ");
        EXPECT_EQ(outcome.status, 1) << limit;
        EXPECT_NE(outcome.error.find("vndlp: old.vndlp: could not be written completely: "), std::string::npos)
            << outcome.error;
        EXPECT_EQ(textOf("old.vndlp"), "precious");
    }
    std::ofstream("layers/layer1.png") << "no picture";
    EXPECT_EQ(runProgram("convert layers old.vndlp --force").status, 1);
    EXPECT_EQ(textOf("old.vndlp"), "precious");
    expectOnly({"layers", "old.vndlp"});
    EXPECT_EQ(runProgram("info old.vndlp >/dev/full").status, 1);
}

TEST_F(ProgramTest, VerifyTellsWhatIsDamagedAndWhere) {
    convertLayers();
    const std::string sound = textOf("job.vndlp");
    const auto json = nlohmann::json::parse(runProgram("info job.vndlp --json --layers").output);
    const auto layerOffset = json["layers"][1]["offset"].get<std::size_t>();
    const auto tailOffset = json["sections"][7]["offset"].get<std::size_t>();
    const auto damage = [&](std::size_t offset, char value) {
        std::string bytes = sound;
        bytes.at(offset) = value;
        std::ofstream("bad.vndlp", std::ios::binary) << bytes;
        CheckSum& sums = CheckSum::instance();
        bytes.resize(bytes.size() - 4);
        std::ofstream("resealed.vndlp", std::ios::binary) << bytes;
        ASSERT_EQ(sums.appendFileSum("resealed.vndlp"), 0);
    };
    const auto expectFinding = [&](const std::string& finding) {
        const Outcome bad = runProgram("verify bad.vndlp job.vndlp");
        EXPECT_EQ(bad.status, 1);
        EXPECT_NE(bad.output.find("the crc32 trailer does not match the file"), std::string::npos) << bad.output;
        EXPECT_NE(bad.output.find("job.vndlp: ok\n"), std::string::npos);
        const Outcome resealed = runProgram("verify resealed.vndlp");
        EXPECT_EQ(resealed.status, 1);
        EXPECT_EQ(resealed.output, "resealed.vndlp: " + finding + "\n");
    };
    const auto at = [](std::size_t offset) {
        char text[64];
        std::snprintf(text, sizeof text, "offset %zu (0x%zX): ", offset, offset);
        return std::string(text);
    };
    damage(layerOffset + 3, 7);
    expectFinding(at(layerOffset) + "layer 1: its area is 7, the area table says 150");
    damage(layerOffset + 7, 1);
    expectFinding(at(layerOffset) + "layer 1: does not end where its run count says; nothing behind it can be checked");
    damage(layerOffset + 8 + 5, 15);
    expectFinding(at(layerOffset + 8) + "layer 1: run 0 (column 0, rows 0 to 29) has the background grey 15");
    damage(layerOffset + 14 + 4, 0);
    expectFinding(at(layerOffset + 14) + "layer 1: run 1 (column 0, rows 0 to 29) is not behind the run before it");
    damage(layerOffset + 14 + 4, 40);
    expectFinding(at(layerOffset + 14) + "layer 1: run 1 (column 40, rows 0 to 29) is outside the screen of 40 x 30");
    damage(tailOffset + 11, 'X');
    expectFinding(at(tailOffset) + "the tail magic \"VNKT3DV2\" is missing");
    std::string longer = sound.substr(0, sound.size() - 4) + "junk";
    std::ofstream("resealed.vndlp", std::ios::binary) << longer;
    ASSERT_EQ(CheckSum::instance().appendFileSum("resealed.vndlp"), 0);
    EXPECT_EQ(runProgram("verify resealed.vndlp").output,
              "resealed.vndlp: " + at(sound.size() - 4) + "4 bytes are left over behind the tail magic\n");
    EXPECT_EQ(runProgram("verify nothing.vndlp").error, "nothing.vndlp: cannot be opened\n");
    EXPECT_EQ(runProgram("verify layers/layer0.png").status, 1);
}

TEST_F(ProgramTest, ExtractTakesRangesAndRefusesOthers) {
    convertLayers();
    EXPECT_EQ(runProgram("extract job.vndlp --layers 2,0-1 -o a").output, "a: 3 layers\n");
    EXPECT_EQ(runProgram("extract job.vndlp --previews -o b").output, "b: 0 layers, 3 previews\n");
    EXPECT_TRUE(fs::exists("b/preview_large.png"));
    EXPECT_EQ(runProgram("extract job.vndlp --layers 0 -o a").error,
              "vndlp: a/layer_00000.png: exists already; --force replaces it\n");
    for (const char* layers : {"3", "1-", "2-1", "x", "0,,1", "-1", "0 1"}) {
        const Outcome outcome = runProgram(std::string("extract job.vndlp -o c --layers='") + layers + "'");
        EXPECT_EQ(outcome.status, 1) << layers;
        EXPECT_EQ(outcome.error.rfind("vndlp: --layers ", 0), 0u) << outcome.error;
    }
}

TEST_F(ProgramTest, TurnsAndMirrorsLayers) {
    makeLayers("layers", 1, 8, 4);  // the left column lit
    ASSERT_EQ(runProgram("convert layers turned.vndlp --rotate 90").status, 0);
    auto json = nlohmann::json::parse(runProgram("info turned.vndlp --json --layers").output);
    EXPECT_EQ(json["resolution"], nlohmann::json({{"x", 4}, {"y", 8}}));
    EXPECT_EQ(json["layers"][0]["runs"], 4);  // now the top row
    ASSERT_EQ(runProgram("convert layers mirrored.vndlp --mirror x").status, 0);
    VndlpRead reader;
    ASSERT_EQ(reader.readDlpFile("mirrored.vndlp", false, false), 0);
    std::vector<std::vector<WhiteData>> runs;
    reader.swapWhiteDatas(runs);
    ASSERT_EQ(runs[0].size(), 1u);
    EXPECT_EQ(runs[0][0].start.x, 7);
}

TEST_F(ProgramTest, TooLargeAScreenIsRefusedBeforeItIsWritten) {
    makeLayers("layers", 1, 16, 8200);
    const Outcome outcome = runProgram("convert layers tall.vndlp");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(
        outcome.error.find("tall.vndlp: layers of 16 x 8200 pixels do not fit this format, which holds 16384 x 8192"),
        std::string::npos);
    EXPECT_EQ(runProgram("convert layers wide.vndlp --rotate 270").status, 0);
}

TEST_F(ProgramTest, EstimatesByTheFormulaOfTheModel) {
    convertLayers();
    const auto estimateOf = [](const std::string& options) {
        const Outcome outcome = runProgram("estimate job.vndlp --json " + options);
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        return nlohmann::json::parse(outcome.output);
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
    EXPECT_NEAR(sum, general["totalSeconds"].get<double>(), 1e-6);
    EXPECT_EQ(estimateOf("--machine M33")["model"], "M33");
    EXPECT_EQ(runProgram("estimate job.vndlp --model M34").status, 2);
    EXPECT_NE(runProgram("machines").output.find("\nM02            170           1  no\n"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(runProgram("machines --json").output).size(), 28u);
}

TEST_F(ProgramTest, CtbKeepsSevenBitsOfEveryGrey) {
    fs::create_directories("grey");
    tools::GreyImage image{256, 3, std::vector<unsigned char>(256 * 3)};
    for (std::size_t i = 0; i < image.pixels.size(); ++i) image.pixels[i] = static_cast<unsigned char>(i);
    const std::vector<unsigned char> png = tools::encodePng(image);
    std::ofstream("grey/0.png", std::ios::binary)
        .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    ASSERT_EQ(runProgram("convert grey job.ctb --set machine=M05 --set bottom_layers=7").status, 0);
    EXPECT_EQ(runProgram("verify job.ctb").output, "job.ctb: ok\n");
    ASSERT_EQ(runProgram("extract job.ctb -o out").status, 0);
    for (unsigned char& pixel : image.pixels) pixel = pixel < 2 ? 0 : static_cast<unsigned char>(pixel | 1);
    const std::vector<unsigned char> expected = tools::encodePng(image);
    EXPECT_EQ(textOf("out/layer_00000.png"), std::string(expected.begin(), expected.end()));

    // there and back: settings, machine and previews go along
    ASSERT_EQ(runProgram("convert job.ctb back.vndlp").status, 0);
    ASSERT_EQ(runProgram("convert back.vndlp again.ctb").status, 0);
    const auto first = nlohmann::json::parse(runProgram("info job.ctb --json").output);
    auto again = nlohmann::json::parse(runProgram("info again.ctb --json").output);
    EXPECT_EQ(first["header"]["bottomLayerCount"], 7);
    EXPECT_EQ(first["header"]["machineName"], "M05");
    again["header"]["encryptionKey"] = first["header"]["encryptionKey"];
    EXPECT_EQ(again["header"], first["header"]);
    EXPECT_EQ(again["previews"].size(), 2u);
    EXPECT_EQ(again["previews"][1]["blank"], false);
}

TEST_F(ProgramTest, VerifyFindsDamageInCtbFiles) {
    makeLayers("layers", 3);
    ASSERT_EQ(runProgram("convert layers job.ctb").status, 0);
    const std::string sound = textOf("job.ctb");
    const auto json = nlohmann::json::parse(runProgram("info job.ctb --json --layers").output);
    const auto record = json["layers"][1]["offset"].get<std::size_t>();
    const auto verifyWith = [&](std::size_t offset, char value) {
        std::string bytes = sound;
        bytes.at(offset) = value;
        std::ofstream("bad.ctb", std::ios::binary) << bytes;
        const Outcome outcome = runProgram("verify bad.ctb");
        EXPECT_EQ(outcome.status, 1);
        return outcome.output;
    };
    EXPECT_NE(verifyWith(record + 8, 99).find("layer 1: its extended record differs from its entry"),
              std::string::npos);
    EXPECT_NE(verifyWith(record + 36, 99).find("layer 1: its total size is 99"), std::string::npos);
    EXPECT_NE(verifyWith(52, 41).find("its code makes 1200 pixels, the screen has 1230"), std::string::npos);
    EXPECT_NE(verifyWith(67, 127).find("the layer table"), std::string::npos);
    EXPECT_NE(verifyWith(70, 1).find("the layer table"), std::string::npos);
    for (const std::size_t length : {50u, 200u, static_cast<unsigned>(sound.size() - 1)}) {
        std::ofstream("bad.ctb", std::ios::binary) << sound.substr(0, length);
        EXPECT_EQ(runProgram("verify bad.ctb").status, 1) << length;
        EXPECT_NE(runProgram("extract bad.ctb -o out --force").status, 0) << length;
    }
    std::ofstream("bad.ctb", std::ios::binary) << sound << "junk";
    EXPECT_NE(runProgram("verify bad.ctb").output.find("4 bytes are left over behind the last layer"),
              std::string::npos);
    const Outcome full = runProgram("convert layers full.ctb", "ulimit -f 4; ");
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.error.find("full.ctb: could not be written completely"), std::string::npos) << full.error;
    EXPECT_FALSE(fs::exists("full.ctb"));
}

TEST_F(ProgramTest, V4FilesAreToldByTheirVersionAndCheckedThrough) {
    makeLayers("layers", 3);
    ASSERT_EQ(runProgram("convert layers job.vndlpv4 --set machine=M05").status, 0);
    fs::copy("job.vndlpv4", "renamed.vndlp");
    EXPECT_EQ(runProgram("verify renamed.vndlp").output, "renamed.vndlp: ok\n");
    const auto json = nlohmann::json::parse(runProgram("info renamed.vndlp --json --layers").output);
    EXPECT_EQ(json["format"], "vndlpv4");
    EXPECT_EQ(json["header"]["machineName"], "M05");
    EXPECT_EQ(json["trailer"], nlohmann::json({{"kind", "crc32"}, {"matches", true}}));
    EXPECT_EQ(json["layers"][1]["area"], 150);
    ASSERT_EQ(runProgram("extract job.vndlpv4 --layers 2 -o out").status, 0);
    EXPECT_EQ(textOf("out/layer_00002.png"), textOf("layers/layer2.png"));

    // the vendor container's reader says what it met
    VndlpRead vendorReader;
    testing::internal::CaptureStdout();
    EXPECT_LT(vendorReader.readDlpFile("job.vndlpv4", false, true), 0);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("error: this is a V4 file"), std::string::npos);

    const std::string sound = textOf("job.vndlpv4");
    const auto layer = json["layers"][1]["offset"].get<std::size_t>();
    const auto verifyResealed = [&](std::size_t offset, char value) {
        std::string bytes = sound.substr(0, sound.size() - 4);
        bytes.at(offset) = value;
        std::ofstream("bad.vndlpv4", std::ios::binary) << bytes;
        EXPECT_EQ(CheckSum::instance().appendFileSum("bad.vndlpv4"), 0);
        return runProgram("verify bad.vndlpv4").output;
    };
    EXPECT_NE(verifyResealed(layer + 3, 9).find("layer 1: the second copy of its extended record differs"),
              std::string::npos);
    // the first run, two lit pixels, becomes one of three
    EXPECT_NE(verifyResealed(layer + 45, 3).find("layer 1: its code makes 1201 pixels, the screen has 1200"),
              std::string::npos);
    std::ofstream("bad.vndlpv4", std::ios::binary) << sound.substr(0, sound.size() - 9);
    EXPECT_EQ(runProgram("verify bad.vndlpv4").status, 1);
    EXPECT_EQ(runProgram("beads layers/layer0.png --layer 0 -o mask.png").status, 1);
    EXPECT_EQ(runProgram("beads job.vndlpv4 --layer 3 -o mask.png").status, 1);
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    std::vector<unsigned char> mask(field.m_maskBytes, 0);
    for (unsigned row = 0; row < 30; ++row) field.getsubzonedata(row * 15120, row * 15120 + 2, mask);
    const auto lit = std::accumulate(mask.begin(), mask.end(), 0, [](int sum, unsigned char byte) {
        return sum + static_cast<int>(std::bitset<8>(byte).count());
    });
    EXPECT_EQ(runProgram("beads job.vndlpv4 --layer 1 -o mask.png").output,
              "mask.png: layer 1, " + std::to_string(lit) +
                  " of 542 beads lit, mask worked out from the layer (the file has none)\n");
}

}  // namespace
