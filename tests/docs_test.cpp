// The documents' code and bytes are those of the library.

#include "support/golden.h"

#include <vndlp/vndlp.h>

#include <gtest/gtest.h>

#include <fstream>

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

Bytes workedFile(const std::string& page) { return Golden(VNDLP_SOURCE_DIR "/docs/" + page + ".md").bytes; }

TEST_F(DocsTest, WorkedFilesAreWhatTheLibraryWrites) {
    EXPECT_TRUE(sameBytes(workedFile("format-ctb"), golden("ctb_version3").bytes));
    EXPECT_TRUE(sameBytes(workedFile("format-v4"), golden("v4_beads").bytes));
    const Printed printed;
    VndlpRead reader;
    VndlpWrite writer;
    const Bytes bytes = workedFile("format-vndlp");
    EXPECT_EQ(
        (Codes{reader.openDlpFile(writeFile(path("f"), bytes), true), reader.readDlpFile(path("f"), false, true)}),
        Codes(2));
    std::vector<unsigned int> areas;
    std::vector<std::vector<WhiteData>> runs;
    reader.swapLayerAreas(areas);
    reader.swapWhiteDatas(runs);
    DlpFileStructure* structure = reader.takeDlpFileStructure();
    EXPECT_EQ(structure->getVndlpBackUse()->getMachineHeight(), 175.5F);
    writer.swapDlpFileStructure(structure);
    writer.swapLayerAreas(areas);
    writer.swapWhiteDatas(runs);
    EXPECT_EQ(writer.writeDlpFile(path("again")), 0);
    EXPECT_TRUE(sameBytes(readFile(path("again")), bytes));
}

}  // namespace
