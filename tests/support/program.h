/// Running the program as a user does.

#pragma once

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

/// Runs `vndlp ARGUMENTS` through the shell in the current folder; `before` stands in front of the command.
inline Outcome runProgram(const std::string& arguments, const std::string& before = "") {
    const std::string command = before + VNDLP_PROGRAM " " + arguments + " >.stdout 2>.stderr </dev/null";
    const int raw = std::system(command.c_str());
    Outcome outcome;
    outcome.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    outcome.output = textOf(".stdout");
    outcome.error = textOf(".stderr");
    return outcome;
}

}  // namespace vndlp::test
