#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"

#include <algorithm>

namespace vndlp::tools {

const std::vector<CommandEntry>& commandTable() {
    static const std::vector<CommandEntry> table = {
        {"convert", "Write a slice file from a job or another slice file", makeConvert},
        {"info", "Describe slice files and jobs", makeInfo},
        {"verify", "Check slice files: trailer, structure, every layer", makeVerify},
        {"check", "Find what goes wrong when a job is printed: islands, traps, cups and more", makeCheck},
        {"fix", "Clear small islands, fill traps, drop empty layers at the end", makeFix},
        {"set", "Change settings and fields of slice files", makeSet},
        {"repair", "Write the whole layers of a damaged slice file", makeRepair},
        {"extract", "Write layers and previews as PNG, layers of line files as SVG", makeExtract},
        {"estimate", "Estimate the print time of slice files and jobs", makeEstimate},
        {"machines", "List the machines print times are known for", makeMachines},
        {"printers", "List the printers that profiles are there for", makePrinters},
        {"beads", "Draw the LED beads that a layer of a V4 file lights", makeBeads},
    };
    return table;
}

int threadsOf(const std::optional<long long>& value) { return threadCount(static_cast<int>(value.value_or(0))); }

int forEachFile(const std::vector<std::string>& files, const std::function<int(const std::string&)>& work) {
    int worst = kSuccess;
    std::size_t bad = 0;
    bool anyFailed = false;
    for (const std::string& file : files) {
        int code = kBadFile;
        try {
            code = work(file);
        } catch (const UsageFailure&) {
            throw;
        } catch (const Failure& failure) {
            if (*failure.what() == '\0') throw;  // nobody listens any more
            printError(failure.what());
        }
        if (code != kSuccess) ++bad;
        anyFailed = anyFailed || code == kBadFile;
        worst = std::max(worst, code);
    }
    if (files.size() > 1 && verbosity() != Verbosity::quiet) {
        printError(counted(files.size(), "file") + ": " + std::to_string(files.size() - bad) + " ok" +
                   (bad > 0 ? ", " + std::to_string(bad) + " bad" : ""));
    }
    return anyFailed ? kBadFile : worst;
}

}  // namespace vndlp::tools
