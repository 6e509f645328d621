/// Running the program as a user does.

#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/wait.h>

namespace vndlp::test {

struct Outcome {
    int status = -1;     ///< exit code; 128 + signal when it was killed
    std::string output;  ///< standard output
    std::string error;   ///< standard error
};

inline std::string textOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A folder of its own for each test, the current one while the test runs, removed at its end.
class Workspace {
public:
    Workspace() : m_before(std::filesystem::current_path()) {
        std::string name = (std::filesystem::temp_directory_path() / "vndlp_test_XXXXXX").string();
        m_path = mkdtemp(name.data());
        std::filesystem::current_path(m_path);
    }
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
    ~Workspace() {
        std::error_code ignored;
        std::filesystem::current_path(m_before, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

/// Runs shell commands in the current folder.
inline Outcome runShell(const std::string& commands) {
    std::ofstream(".commands") << commands << "\n";
    const int raw = std::system("sh .commands >.stdout 2>.stderr </dev/null");
    Outcome outcome;
    outcome.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    outcome.output = textOf(".stdout");
    outcome.error = textOf(".stderr");
    return outcome;
}

/// Runs `vndlp ARGUMENTS`; `before` stands in front of the command.
inline Outcome runProgram(const std::string& arguments, const std::string& before = "") {
    return runShell(before + "exec " VNDLP_PROGRAM " " + arguments);
}

/// What `info` tells of a file and its layers.
inline nlohmann::json infoOf(const std::string& file) {
    return nlohmann::json::parse(runProgram("info " + file + " --json --layers").output);
}

/// As `verify` tells where it found something.
inline std::string placeOf(const std::string& file, std::size_t offset) {
    char text[64];
    std::snprintf(text, sizeof text, ": offset %zu (0x%zX): ", offset, offset);
    return file + text;
}

inline ::testing::AssertionResult contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << '"' << part << "\" is not in \"" << text << '"';
}

}  // namespace vndlp::test
