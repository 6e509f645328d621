// The documents' code and bytes are those of the library.

#include "support/v4.h"

#include <vndlp/vndlp.h>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace vndlp;
using namespace vndlp::test;

namespace {

using DocsTest = FileTest;

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(std::string(VNDLP_SOURCE_DIR) + "/" + path);
    EXPECT_TRUE(file) << path;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::string withoutIndent(const std::string& line) {
    const std::size_t first = line.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : line.substr(first);
}

/// The bytes a page's hex lines give: "OFFSET  XX XX ...  meaning" or "OFFSET  00 x COUNT  meaning".
Bytes workedFile(const std::string& page) {
    Bytes bytes;
    for (const std::string& line : linesOf(page)) {
        if (line.size() < 10 || line.find_first_not_of("0123456789ABCDEF") != 6) continue;
        EXPECT_EQ(std::stoul(line.substr(0, 6), nullptr, 16), bytes.size()) << line;
        std::istringstream words(line.substr(8, 48));
        for (std::string word; words >> word;) {
            if (word != "x") {
                bytes.u8(static_cast<unsigned>(std::stoul(word, nullptr, 16)));
                continue;
            }
            std::size_t count = 0;
            words >> count;
            bytes.fill(count - 1, 0);
        }
    }
    return bytes;
}

TEST_F(DocsTest, ReadmeCodeStandsInTheExample) {
    const std::vector<std::string> example = linesOf("examples/write_vndlp.cpp");
    auto next = example.begin();
    int compared = 0;
    bool inCode = false;
    for (const std::string& line : linesOf("README.md")) {
        if (line.rfind("```", 0) == 0) {
            inCode = line == "```cpp";
            continue;
        }
        const std::string code = withoutIndent(line);
        if (!inCode || code.empty()) continue;
        next = std::find_if(next, example.end(), [&](const std::string& l) { return withoutIndent(l) == code; });
        ASSERT_NE(next, example.end()) << code;
        ++compared;
    }
    EXPECT_GT(compared, 15);
}

TEST_F(DocsTest, WorkedVndlpFileIsWhatTheWriterWrites) {
    DlpFileStructure s;
    s.headerType = 2;
    s.headerVersion = 3;
    s.setMachineType("M1");
    s.setLayerCount(1);
    s.setResolution(5, 4);
    s.getVndlpBackUse()->setMachineHeight(175.5F);
    s.needData();
    DlpParameters& p = s.parameters;
    p.platformX = "5";
    p.platformY = "4";
    p.thickness = "0.1";
    p.exposure_time = 30;
    p.light_off_delay = 1;
    p.first_exposure_time = 30;
    p.first_layer_count = 3;
    p.first_lift_distance = 6;
    p.first_lift_speed = 60;
    p.lifting_distance = 6;
    p.lifting_speed = 80;
    p.retract_speed = 150;
    s.sliceBasicParameters.sliceSoftVersion = "doc";
    std::vector<unsigned char> image(20, 0);
    for (const std::size_t row : {1, 2, 3}) image[row * 5 + 2] = 255;
    image[4] = 128;
    std::vector<WhiteData> runs;
    grayDataVecWhiteData(image.data(), 5, 4, runs);
    std::vector<unsigned int> areas{2000};
    VndlpWrite writer;
    ASSERT_EQ(writer.openDlpFile(path("f")), 0);
    ASSERT_EQ(writer.writeDlpStructure(s, &areas), 0);
    ASSERT_EQ(writer.writeLayerWhiteData(runs, areas.data()), 0);
    ASSERT_EQ(writer.writeTail(2), 0);
    EXPECT_TRUE(sameBytes(readFile(path("f")), workedFile("docs/format-vndlp.md")));
}

TEST_F(DocsTest, WorkedCtbFileIsWhatTheWriterWrites) {
    CTB::CTBWrite writer;
    CTB::HeaderSettings& header = *writer.headerSettings();
    header.magic = CTB::kMagic;
    header.version = 3;
    header.bedSizeX = 68.04F;
    header.bedSizeY = 120.96F;
    header.bedSizeZ = 150;
    header.totalHeight = 0.1F;
    header.exposureTime = 2.5F;
    header.bottomExposureTime = 30;
    header.lightOffDelay = 1;
    header.bottomLayerCount = 1;
    header.resolutionX = 4;
    header.resolutionY = 3;
    header.layerCount = 2;
    header.projectorType = 1;
    header.printParametersSize = CTB::PrintParameters::size();
    header.antiAliasLevel = 1;
    header.lightPwm = 255;
    header.slicerInfoSize = CTB::SlicerInfo::size();
    CTB::PrintParameters& parameters = *writer.printParameters();
    parameters.bottomLiftHeight = 6;
    parameters.bottomLiftSpeed = 60;
    parameters.liftHeight = 5;
    parameters.liftSpeed = 80;
    parameters.retractSpeed = 150;
    parameters.weight = 1.25F;
    parameters.lightOffDelay = 4;
    parameters.bottomLayerCount = 1;
    writer.slicerInfo()->word44 = 1;
    writer.slicerInfo()->slicerVersion = 0x01090000;
    writer.slicerInfo()->machineName = "M-01";
    writer.slicerInfo()->machineNameSize = 4;
    const auto addPreview = [&writer](unsigned int width, unsigned int height, std::vector<unsigned char> pixels) {
        auto* preView = new CTB::PreView;
        preView->resolutionX = width;
        preView->resolutionY = height;
        preView->imageData = preView->Encode(pixels.data(), static_cast<unsigned int>(pixels.size()));
        preView->imageSize = static_cast<unsigned int>(preView->imageData.size());
        writer.preViews()->push_back(preView);
    };
    addPreview(3, 2, {0xF8, 0, 0, 0xF8, 0, 0, 0xF8, 0, 0, 0xF8, 0, 0, 0xF8, 0, 0, 0xF8, 0, 0});
    addPreview(2, 1, {0xFF, 0xFF, 0xFF, 0, 0, 0});
    const auto addLayer = [&writer, &header](float exposure, std::vector<unsigned char> pixels) {
        auto* layer = new CTB::LayerDef;
        const auto index = static_cast<unsigned int>(writer.layerDef().size());
        layer->positionZ = static_cast<float>(index + 1) * header.layerHeight;
        layer->exposureTime = exposure;
        layer->lightOffDelay = 1;
        layer->tableSize = CTB::LayerDefEx::size();
        layer->data = CTB::LayerDef::encodeCtbImage(pixels.data(), 12, 0, index);
        layer->dataSize = static_cast<unsigned int>(layer->data.size());
        writer.layerDef().push_back(layer);
        auto* extended = new CTB::LayerDefEx;
        extended->layerDef = *layer;
        extended->totalSize = CTB::LayerDefEx::size() + layer->dataSize;
        extended->liftHeight = 5;
        extended->liftSpeed = 80;
        extended->retractSpeed = 150;
        extended->lightPwm = 255;
        writer.layerDefEx().push_back(extended);
    };
    addLayer(30, std::vector<unsigned char>(12, 255));
    addLayer(2.5F, {0, 0, 0, 0, 0, 128, 255, 255, 255, 255, 255, 255});

    ASSERT_EQ(writer.openDlpFile(path("f"), false), 0);
    ASSERT_EQ(writer.encode(), 0);
    ASSERT_EQ(writer.close(), 0);
    EXPECT_TRUE(sameBytes(readFile(path("f")), workedFile("docs/format-ctb.md")));
}

SliceImage imageOf(unsigned int width, unsigned int height, const Bytes& bytes) {
    const auto size = static_cast<unsigned int>(bytes.size());
    SliceImage image{size, width, height, std::shared_ptr<unsigned char[]>(new unsigned char[size])};
    std::copy(bytes.begin(), bytes.end(), image.pixels.get());
    return image;
}

TEST_F(DocsTest, WorkedV4FileIsWhatTheFrontEndWrites) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter("f.vndlpv4"));
    writer->filePath = path("f.vndlpv4");
    writer->layerCount = 2;
    writer->machineName = "M4";
    writer->resolutionX = 4;
    writer->resolutionY = 3;
    fillSettings(*writer, 1);
    std::vector<SliceImage> previews = {imageOf(3, 2, std::vector<unsigned char>(18, 255)),
                                        imageOf(2, 1, std::vector<unsigned char>(6)), SliceImage()};
    ASSERT_EQ(writer->openFile(), 0);
    ASSERT_EQ(writer->writeHeader(previews), 0);
    writer->prepareLampBeadCal(1);
    writer->addLayerImage(0, imageOf(4, 3, std::vector<unsigned char>(12, 255)), 1500, 0);
    writer->addLayerImage(1, imageOf(4, 3, {0, 0, 0, 0, 0, 128, 255, 255, 255, 255, 255, 255}), 700, 0);
    ASSERT_EQ(writer->finish(), 0);
    EXPECT_TRUE(sameBytes(readFile(path("f.vndlpv4")), workedFile("docs/format-v4.md")));
}

}  // namespace
