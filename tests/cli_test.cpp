// Command cases, tests/cli/*.case: command lines of the program and exactly what becomes of them. In a case
//
//     # says why
//     golden v2_version3 a.vndlp      the golden file of this name becomes a.vndlp
//     sample tower.sl1                the sample job becomes tower.sl1
//     $ vndlp verify a.vndlp          runs in the shell, in a folder that holds nothing else
//     > a.vndlp: ok                   a line of its standard output
//     ! vndlp: ...                    a line of its standard error
//     = 1                             its exit status
//     file a.vndlp 363534 FE78C8E5    size and CRC-32 of a file
//
// stand in this order. No line: no output, status 0. DIR stands for the folder. VNDLP_UPDATE_CASES=1 writes what became
// of the commands into the cases, for someone to read line by line.

#include "support/golden.h"
#include "support/program.h"

#include <algorithm>

namespace vndlp::test {
namespace {

namespace fs = std::filesystem;

/// The lines of a text, each behind the mark.
std::string marked(char mark, const std::string& text) {
    std::string lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines += std::string(1, mark) + " " + line + "\n";
    return lines + (text.empty() || text.back() == '\n' ? "" : std::string(1, mark) + "\\ no newline\n");
}

/// What a `file` line says.
std::string describe(const std::string& name) {
    if (!fs::exists(name)) return "file " + name + " none\n";
    const Bytes bytes = readFile(name);
    char text[32];
    std::snprintf(text, sizeof text, " %zu %08X\n", bytes.size(), ~plainCrc(bytes.data(), bytes.size(), 0xFFFFFFFF));
    return "file " + name + text;
}

std::string run(const std::string& command) {
    const fs::path program = VNDLP_PROGRAM;
    const std::string folder = fs::current_path().string();
    const Outcome outcome = runShell("export PATH=" + program.parent_path().string() + ":$PATH HOME=" + folder +
                                     " XDG_CONFIG_HOME=" + folder + "/.config TERM=dumb\n" + command);
    std::string told = marked('>', outcome.output) + marked('!', outcome.error);
    for (std::size_t at = 0; (at = told.find(folder, at)) != std::string::npos;) told.replace(at, folder.size(), "DIR");
    return told + (outcome.status == 0 ? "" : "= " + std::to_string(outcome.status) + "\n");
}

/// The case as it should read.
std::string play(const std::string& text) {
    std::string played;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string word, first, second;
        words >> word >> first >> second;
        if (word == ">" || word == "!" || word == "=" || word == ">\\" || word == "!\\") continue;
        if (word == "file") {
            played += describe(first);
            continue;
        }
        played += line + "\n";
        if (word == "golden") writeFile(second, golden(first).bytes);
        if (word == "sample") fs::copy_file(VNDLP_EXAMPLES_DIR "/lattice_tower.sl1", first);
        if (word == "$") played += run(line.substr(2));
    }
    return played;
}

class Cases : public ::testing::TestWithParam<std::string> {};

TEST_P(Cases, AreAsTheyWere) {
    const std::string path = VNDLP_CASES_DIR "/" + GetParam() + ".case";
    const std::string expected = textOf(path);
    const Workspace workspace;
    const std::string played = play(expected);
    if (std::getenv("VNDLP_UPDATE_CASES") != nullptr) {
        std::ofstream(path, std::ios::binary) << played;
    } else {
        EXPECT_EQ(played, expected);
    }
}

std::vector<std::string> everyCase() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(VNDLP_CASES_DIR)) names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Cli, Cases, ::testing::ValuesIn(everyCase()), [](const auto& name) { return name.param; });

}  // namespace
}  // namespace vndlp::test
