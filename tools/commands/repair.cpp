#include "tools/base/output_file.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/listen.h"
#include "tools/jobs/source.h"

#include <filesystem>

namespace vndlp::tools {

namespace {

class Repair : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.word("FILE", m_file, "slice file or job that is cut or damaged");
        syntax.text("-o,--output", m_output, "file to write the whole layers to");
        syntax.require("--output");
        syntax.flag("-f,--force", m_force, "replace an existing OUTPUT");
        syntax.footer("Example:\n  vndlp repair cut.vndlp -o tower.vndlp");
    }

    int run() override {
        const Source source = openSource(m_file);
        std::error_code ignored;
        if (std::filesystem::equivalent(m_file, m_output, ignored)) {
            throw Failure(m_output + ": is the input itself; choose another name");
        }
        PendingFile pending(m_output, m_force);
        Heard heard;
        ProgressBar bar("repairing", 1000);
        heard.bar = &bar;
        SliceRepaired repaired;
        if (source.isJob()) {
            for (const SliceFinding& finding : source.damage) heard.notes.push_back(finding);
            ZipOutput zip(m_output, pending.temporaryPath());
            const std::vector<std::uint32_t> whole = openJob(m_file)->writeWhole(zip);
            zip.finish();
            repaired.whole = listText(whole);
            repaired.layersOf = static_cast<std::uint32_t>(source.layerCount);
        } else {
            require(m_file, repairSliceFile(m_file, pending.temporaryPath(), repaired, heard.listener()));
        }
        pending.commit();
        const std::string name = printable(m_file);
        for (const SliceFinding& finding : heard.notes) {
            printRemark(name + ": " + printable(placeText(finding.layer, finding.offset, finding.text)) + "\n");
        }
        printResult(summary(repaired));
        return kSuccess;
    }

private:
    /// "0 to 3, 6".
    static std::string listText(const std::vector<std::uint32_t>& layers) {
        std::string text;
        for (std::size_t i = 0; i < layers.size();) {
            std::size_t last = i;
            while (last + 1 < layers.size() && layers[last + 1] == layers[last] + 1) ++last;
            text += (i == 0 ? "" : ", ") + std::to_string(layers[i]);
            if (last > i) text += " to " + std::to_string(layers[last]);
            i = last + 1;
        }
        return text;
    }

    static std::string summary(const SliceRepaired& repaired) {
        const bool isOne = repaired.whole.find_first_of(" ,") == std::string::npos;
        const std::string layers = (isOne ? "layer " : "layers ") + repaired.whole;
        return layers + " of " + std::to_string(repaired.layersOf) + (isOne ? " is" : " are") + " whole\n";
    }

    std::string m_file;
    std::string m_output;
    bool m_force = false;
};

}  // namespace

std::unique_ptr<Command> makeRepair() { return std::make_unique<Repair>(); }

}  // namespace vndlp::tools
