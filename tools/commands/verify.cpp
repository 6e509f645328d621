#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/describe.h"

#include <algorithm>

namespace vndlp::tools {

namespace {

using Findings = std::vector<SliceFinding>;

int keep(void* context, const SliceFinding& finding) {
    static_cast<Findings*>(context)->push_back(finding);
    return 0;
}

Findings verifyLayerOf(const Source& source, int index, GreyImage& scratch) {
    Findings findings;
    if (!source.isJob()) {
        std::uint64_t errors = 0;
        require(source.path, source.file->verifyLayer(static_cast<std::uint32_t>(index), keep, &findings, errors));
        return findings;
    }
    try {
        if (source.kind == SliceLayers::images) {
            source.readLayer(index, scratch);
        } else {
            source.readShapes(index);
        }
    } catch (const Failure& failure) {
        const std::string text = failure.what();
        const std::string prefix = source.path + ": ";
        findings.push_back(
            {SliceSeverity::error, -1, index, text.starts_with(prefix) ? text.substr(prefix.size()) : text});
    }
    return findings;
}

Findings verifySource(const Source& source, int threads) {
    Findings findings = findingsOf(source);
    SliceHeadState state;
    if (!source.isJob()) require(source.path, source.file->headState(state));
    const int count = source.isJob() ? source.layerCount : static_cast<int>(state.layersFound);
    ProgressBar bar("verifying", count);
    runOrdered<GreyImage, Findings>(
        count, threads, [&](int index, GreyImage& scratch) { return verifyLayerOf(source, index, scratch); },
        [&](int index, Findings&& more) {
            findings.insert(findings.end(), more.begin(), more.end());
            bar.advanceTo(index + 1);
        });
    return findings;
}

bool isBad(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const SliceFinding& finding) { return finding.severity == SliceSeverity::error; });
}

class Verify : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE", m_files, "slice files, SL1 jobs, folders or zips of layers");
        syntax.flag("--json", m_json, "as JSON, the findings with what `info` tells");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file, for its scrambling constants");
        syntax.threads(m_threads);
        syntax.footer(
            "Prints one line a finding, or \"ok\"; exit code 1 when any file is bad.\n"
            "Example:\n  vndlp verify *.vndlp");
    }

    int run() override {
        if (!m_printer.empty()) useConstants(findPrinter(m_printer));
        return forEachFile(m_files, [this](const std::string& file) { return verifyOne(file); });
    }

private:
    int verifyOne(const std::string& path) const {
        const Source source = openSource(path);
        const int threads = threadsOf(m_threads);
        const Findings findings = verifySource(source, threads);
        const bool bad = isBad(findings);
        if (m_json) {
            DescribeOptions options;
            options.threads = threads;
            printResult(jsonText(describeSource(source, findings, options), m_files.size() > 1));
        } else {
            printLines(source, findings, bad);
        }
        return bad ? kBadFile : kSuccess;
    }

    static void printLines(const Source& source, const Findings& findings, bool bad) {
        const std::string name = printable(source.path);
        static constexpr const char* kMarks[] = {"", "", "warning: ", "note: "};
        for (const SliceFinding& finding : findings) {
            printResult(name + ": " + kMarks[static_cast<int>(finding.severity)] +
                        printable(placeText(finding.layer, finding.offset, finding.text)) + "\n");
        }
        if (bad) return;
        const bool hasTrailer = source.isJob() || source.file->info().format != SliceFormat::ctb;
        printRemark(name + (hasTrailer ? ": ok\n" : ": ok, this format has no checksum\n"));
    }

    std::vector<std::string> m_files;
    bool m_json = false;
    std::string m_printer;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeVerify() { return std::make_unique<Verify>(); }

}  // namespace vndlp::tools
