#include "tools/base/failure.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/formats/slice_file.h"

#include <cstdio>

namespace vndlp::tools {

namespace {

std::string place(long long offset) {
    if (offset < 0) return {};
    char text[64];
    std::snprintf(text, sizeof text, "offset %lld (0x%llX): ", offset, static_cast<unsigned long long>(offset));
    return text;
}

int verifyOne(const std::string& file) {
    const std::string name = printable(file);
    const std::vector<Finding> findings = verifySliceFile(file);
    for (const Finding& finding : findings) {
        printResult(name + ": " + place(finding.offset) + printable(finding.text) + "\n");
    }
    if (findings.empty()) printRemark(name + ": ok\n");
    return findings.empty() ? kSuccess : kBadFile;
}

class Verify : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice files");
        syntax.footer(
            "Prints one line a finding, or \"ok\"; exit code 1 when any file is bad.\n"
            "Example:\n  vndlp verify *.vndlp");
    }
    int run() override { return forEachFile(m_files, verifyOne); }

private:
    std::vector<std::string> m_files;
};

}  // namespace

std::unique_ptr<Command> makeVerify() { return std::make_unique<Verify>(); }

}  // namespace vndlp::tools
