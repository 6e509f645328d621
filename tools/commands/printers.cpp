#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"

namespace vndlp::tools {

namespace {

std::string factsOf(const Printer& printer) {
    const PrintSettings& s = printer.settings;
    std::string text = printable(printer.name);
    const auto add = [&](const std::string& fact) { text += "  " + printable(fact); };
    if (s.has("machine")) add("machine " + s.text("machine"));
    if (s.has("resolution_x") && s.has("resolution_y")) {
        add(s.text("resolution_x") + " x " + s.text("resolution_y") + " px");
    }
    if (s.has("display_width_mm") && s.has("display_height_mm")) {
        add(s.text("display_width_mm") + " x " + s.text("display_height_mm") + " mm");
    }
    if (s.has("machine_height_mm")) add("height " + s.text("machine_height_mm") + " mm");
    if (!printer.mirror.empty()) add("mirrored " + printer.mirror);
    if (printer.constants) add("CTB constants");
    return text + "\n";
}

class Printers : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.flag("--names", m_namesOnly, "the names alone, one a line");
        syntax.footer(
            "They are JSON files in $XDG_CONFIG_HOME/vndlp/printers, ~/.config/vndlp/printers without it.\n"
            "Example:\n  vndlp printers");
    }

    int run() override {
        int code = kSuccess;
        for (const std::string& name : printerNames()) {
            if (m_namesOnly) {
                printResult(printable(name) + "\n");
                continue;
            }
            try {
                printResult(factsOf(findPrinter(name)));
            } catch (const UsageFailure& failure) {
                printError(failure.what());
                code = kBadFile;
            }
        }
        return code;
    }

private:
    bool m_namesOnly = false;
};

}  // namespace

std::unique_ptr<Command> makePrinters() { return std::make_unique<Printers>(); }

}  // namespace vndlp::tools
