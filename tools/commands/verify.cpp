#include "tools/base/failure.h"
#include "tools/base/terminal.h"
#include "tools/commands/commands.h"
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

/// True when the file is sound.
bool verifyOne(const std::string& file) {
    const std::vector<Finding> findings = verifySliceFile(file);
    for (const Finding& finding : findings) printResult(file + ": " + place(finding.offset) + finding.text + "\n");
    if (findings.empty()) printResult(file + ": ok\n");
    return findings.empty();
}

}  // namespace

int verify(const VerifyOptions& options) {
    int code = kSuccess;
    for (const std::string& file : options.files) {
        try {
            if (!verifyOne(file)) code = kBadFile;
        } catch (const Failure& failure) {
            printMessage(failure.what());
            code = kBadFile;
        }
    }
    return code;
}

}  // namespace vndlp::tools
