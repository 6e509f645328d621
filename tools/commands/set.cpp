#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/describe.h"
#include "tools/commands/listen.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace vndlp::tools {

namespace {

namespace fs = std::filesystem;

/// Whether a word is key=value and no file: a key is letters, digits, points and underscores.
bool isAssignment(const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) return false;
    return std::all_of(word.begin(), word.begin() + static_cast<std::ptrdiff_t>(equals),
                       [](unsigned char c) { return std::isalnum(c) != 0 || c == '_' || c == '.'; });
}

std::string changeLine(const SliceChanged& change) {
    return change.key + " " + (change.was.empty() ? "-" : change.was) + " -> " + change.is +
           (change.layers.empty() ? "" : " (layers " + change.layers + ")");
}

Json jsonOf(const SliceChanged& change) {
    return {{"key", change.key},
            {"layers", change.layers.empty() ? Json(nullptr) : Json(change.layers)},
            {"old", change.was.empty() ? Json(nullptr) : Json(utf8Of(change.was))},
            {"new", utf8Of(change.is)}};
}

class Set : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.words("FILE... KEY=VALUE...", m_words, "slice files, and what to set in each of them");
        syntax.text("--layers", m_layers, "single layers, such as 40-59,70 or 100-last/10; the file's value stays");
        syntax.text("-o,--output", m_output, "file to write; without it FILE is changed in place");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file, for its scrambling constants");
        syntax.flag("-f,--force", m_force, "replace an existing OUTPUT");
        syntax.flag("--json", m_json, "as JSON, the changes with what `info` tells");
        syntax.footer(settingsHelp() +
                      "\nraw.RECORD.member=value sets a field of a record, as `vndlp info` names it.\n"
                      "Example:\n  vndlp set tower.vndlp exposure_s=3.2 lift_mm=7");
    }

    int run() override {
        sortWords();
        if (!m_printer.empty()) useConstants(findPrinter(m_printer));
        for (const std::string& file : m_files) checkFirst(file);
        return forEachFile(m_files, [this](const std::string& file) { return setOne(file); });
    }

private:
    void sortWords() {
        for (const std::string& word : m_words) {
            if (!isAssignment(word)) {
                m_files.push_back(word);
                continue;
            }
            const std::size_t equals = word.find('=');
            m_changes.push_back({word.substr(0, equals), word.substr(equals + 1), m_layers});
        }
        if (m_files.empty()) throw UsageFailure("set: FILE is required");
        if (m_changes.empty()) throw UsageFailure("set: KEY=VALUE is required");
        if (!m_output.empty() && m_files.size() > 1) throw UsageFailure("-o: takes one file at a time");
    }

    /// What is wrong with a change is found before any file is written. Files that cannot be read are left for later.
    void checkFirst(const std::string& path) const {
        try {
            const SliceFile file = openSlices(path);
            const SliceResult result = checkSliceChanges(file, m_changes);
            SliceHeadState head;
            // a head that is cut off lacks keys its format has
            if (result.code == SliceCode::key && (!file.headState(head).isOk() || !head.isWhole)) return;
            if (result.code == SliceCode::key || result.code == SliceCode::value || result.code == SliceCode::index) {
                require(path, result);
            }
        } catch (const UsageFailure&) {
            throw;
        } catch (const Failure&) {
            return;
        }
    }

    int setOne(const std::string& path) const {
        openSlices(path);  // says what is no slice file in the words of every command
        const std::string& output = m_output.empty() ? path : m_output;
        std::error_code ignored;
        const bool inPlace = m_output.empty() || fs::equivalent(path, m_output, ignored);
        PendingFile pending(output, m_force || inPlace);
        Heard heard;
        ProgressBar bar("setting", 1000);
        heard.bar = &bar;
        require(path, changeSliceFile(path, pending.temporaryPath(), m_changes, heard.listener()));
        // a change is to take little more than a copy, which waits for no disk either
        pending.commitUnflushed();
        for (const SliceFinding& note : heard.notes) printNote(path + ": " + note.text);
        if (m_json) {
            const Source source = openSource(output);
            Json json = describeSource(source, findingsOf(source), {});
            json["changes"] = Json::array();
            for (const SliceChanged& change : heard.changes) json["changes"].push_back(jsonOf(change));
            printResult(jsonText(json, m_files.size() > 1));
            return kSuccess;
        }
        const std::string name = m_files.size() > 1 ? printable(path) + ": " : "";
        for (const SliceChanged& change : heard.changes) printRemark(name + printable(changeLine(change)) + "\n");
        return kSuccess;
    }

    std::vector<std::string> m_words;
    std::vector<std::string> m_files;
    std::vector<SliceChange> m_changes;
    std::string m_layers;
    std::string m_output;
    std::string m_printer;
    bool m_force = false;
    bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeSet() { return std::make_unique<Set>(); }

}  // namespace vndlp::tools
