// The documents' code and bytes are those of the library.

#include <vndlp/vndlp.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace vndlp;

namespace {

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(std::string(VNDLP_SOURCE_DIR) + "/" + path);
    EXPECT_TRUE(file) << path;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::vector<unsigned char> bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string withoutIndent(const std::string& line) {
    const std::size_t first = line.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : line.substr(first);
}

/// The bytes a page's hex lines give: "OFFSET  XX XX ...  meaning" or "OFFSET  00 x COUNT  meaning".
std::vector<unsigned char> workedFile(const std::string& page) {
    std::vector<unsigned char> bytes;
    for (const std::string& line : linesOf(page)) {
        if (line.size() < 10 || line.find_first_not_of("0123456789ABCDEF") != 6) continue;
        EXPECT_EQ(std::stoul(line.substr(0, 6), nullptr, 16), bytes.size()) << line;
        std::istringstream words(line.substr(8, 48));
        std::string word;
        while (words >> word) {
            if (word == "x") {
                std::size_t count = 0;
                words >> count;
                bytes.pop_back();
                bytes.insert(bytes.end(), count, 0);
                break;
            }
            bytes.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
        }
    }
    return bytes;
}

TEST(DocsTest, ReadmeCodeStandsInTheExample) {
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

TEST(DocsTest, WorkedVndlpFileIsWhatTheWriterWrites) {
    const std::string path = (std::filesystem::temp_directory_path() / "vndlp_docs_test.vndlp").string();
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
    ASSERT_EQ(writer.openDlpFile(path), 0);
    ASSERT_EQ(writer.writeDlpStructure(s, &areas), 0);
    ASSERT_EQ(writer.writeLayerWhiteData(runs, areas.data()), 0);
    ASSERT_EQ(writer.writeTail(2), 0);
    EXPECT_EQ(bytesOf(path), workedFile("docs/format-vndlp.md"));
    std::filesystem::remove(path);
}

}  // namespace
