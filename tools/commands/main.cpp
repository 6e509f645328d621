/// The program vndlp: command line to commands.

#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/settings.h"
#include "tools/base/terminal.h"
#include "tools/commands/commands.h"
#include "tools/formats/slice_output.h"

#include <vndlp/export.h>

#include <CLI/CLI.hpp>

#include <exception>
#include <map>
#include <new>

namespace {

using namespace vndlp::tools;

std::string settingsHelp() {
    std::string text = "Settings for --set and profiles (later wins: job, profile, --set):\n";
    for (const SettingSpec& spec : settingSpecs()) {
        char row[256];
        std::snprintf(row, sizeof row, "  %-20s %-8s %s%s%s\n", spec.key, spec.unit, spec.help,
                      spec.fallback != nullptr && spec.fallback[0] != '\0' ? "; else " : "",
                      spec.fallback != nullptr ? spec.fallback : "");
        text += row;
    }
    return text;
}

/// The commands, their options and what runs them; `code` receives the exit code.
class CommandLine {
public:
    CommandLine() : m_app("Reads, writes and checks the slice files of resin printers.", "vndlp") {
        m_app.set_version_flag("--version", "vndlp " VNDLP_VERSION);
        m_app.add_flag("-v,--verbose", m_verbose, "show what the library prints, on standard error");
        m_app.require_subcommand(1);
        m_app.fallthrough();
        m_app.footer(
            "Example:\n  vndlp convert job.sl1 job.vndlp && vndlp verify job.vndlp\n"
            "`vndlp COMMAND --help` tells more. Exit codes: 0 success, 1 bad or unwritable file, 2 wrong usage.");
        addConvert();
        addInfo();
        addVerify();
        addExtract();
        addEstimate();
        addMachines();
        addBeads();
    }

    int run(int argc, char** argv, OutputStreams& streams) {
        try {
            m_app.parse(argc, argv);
        } catch (const CLI::CallForHelp&) {
            printResult(m_app.help());
            return kSuccess;
        } catch (const CLI::CallForVersion&) {
            printResult("vndlp " VNDLP_VERSION "\n");
            return kSuccess;
        } catch (const CLI::ParseError& error) {
            printMessage(std::string("vndlp: ") + error.what() + "\n`vndlp --help` shows how it is used");
            return kWrongUsage;
        }
        if (m_verbose) streams.showLibraryMessages();
        return m_command();
    }

private:
    void addConvert() {
        CLI::App* c = m_app.add_subcommand("convert", "Write a slice file from a job or another slice file");
        c->add_option("INPUT", m_convert.input,
                      "SL1 job (.sl1, .sl1s, .zip), folder or zip of PNG layers or SVG drawings, or slice file")
            ->required();
        c->add_option("OUTPUT", m_convert.output,
                      "file to write; its ending (" + writableEndings() + ") chooses the format")
            ->required();
        c->add_option("--profile", m_convert.profile, "printer profile, a JSON object of settings");
        c->add_option("--set", m_convert.assignments, "one setting, key=value")->allow_extra_args(false);
        c->add_option("--preview", m_convert.previews, "PNG for the previews, smallest first; up to three")
            ->allow_extra_args(false)
            ->expected(1, 3);
        c->add_option("--mirror", m_mirror, "mirror layers along x or y")->check(CLI::IsMember({"x", "y", "xy"}));
        c->add_option("--rotate", m_rotate, "turn layers clockwise by 90, 180 or 270 degrees")
            ->check(CLI::IsMember({90, 180, 270}));
        c->add_option("--tolerance", m_convert.toleranceUm,
                      ".vnline: how far outlines may lie off, in micrometres; an eighth of a pixel without it")
            ->check(CLI::Range(0.0, 1e6));
        c->add_option("-j,--threads", m_convert.threads, "threads; one a core without it")->check(CLI::Range(1, 256));
        c->add_flag("--force", m_convert.force, "replace an existing OUTPUT");
        c->footer(settingsHelp() +
                  "\nExample:\n  vndlp convert tower.sl1 tower.vndlp --set machine=M01 --set lift_mm=7");
        c->final_callback([this] {
            m_convert.orientation.mirrorX = m_mirror.find('x') != std::string::npos;
            m_convert.orientation.mirrorY = m_mirror.find('y') != std::string::npos;
            m_convert.orientation.clockwiseTurns = m_rotate / 90;
            m_command = [this] { return convert(m_convert); };
        });
    }

    void addInfo() {
        CLI::App* c = m_app.add_subcommand("info", "Describe a slice file");
        c->add_option("FILE", m_info.file, "slice file")->required();
        c->add_flag("--json", m_info.json, "as JSON, values as stored");
        c->add_flag("--layers", m_info.layers, "a table of the layers as well");
        c->footer("Example:\n  vndlp info tower.vndlp --layers");
        c->final_callback([this] { m_command = [this] { return info(m_info); }; });
    }

    void addVerify() {
        CLI::App* c = m_app.add_subcommand("verify", "Check slice files: trailer, structure, every layer");
        c->add_option("FILE", m_verify.files, "slice files")->required();
        c->footer(
            "Prints one line a finding, or \"ok\"; exit code 1 when any file is bad.\n"
            "Example:\n  vndlp verify *.vndlp");
        c->final_callback([this] { m_command = [this] { return verify(m_verify); }; });
    }

    void addExtract() {
        CLI::App* c = m_app.add_subcommand("extract", "Write layers and previews as PNG, layers of line files as SVG");
        c->add_option("FILE", m_extract.file, "slice file")->required();
        c->add_option("--layers", m_extract.layers, "layers, numbered from 0, such as 0-99,150; all without it");
        c->add_flag("--previews", m_extract.previews, "the previews; alone, no layers");
        c->add_option("-o,--output", m_extract.folder, "folder for the pictures; made if missing")->required();
        c->add_option("-j,--threads", m_extract.threads, "threads; one a core without it")->check(CLI::Range(1, 256));
        c->add_flag("--force", m_extract.force, "replace existing pictures");
        c->footer("Example:\n  vndlp extract tower.vndlp --layers 0-2,50 --previews -o pictures");
        c->final_callback([this] { m_command = [this] { return extract(m_extract); }; });
    }

    void addEstimate() {
        CLI::App* c = m_app.add_subcommand("estimate", "Estimate the print time of a slice file or job");
        c->add_option("FILE", m_estimate.file, "slice file, SL1 job, folder or zip of PNG layers")->required();
        c->add_option("--machine", m_estimate.machine, "machine of the table (`vndlp machines`); else the file's");
        c->add_option("--model", m_estimate.model, "general, M31, M32, M33 or steps; else the machine's own")
            ->check(CLI::IsMember({"general", "M31", "M32", "M33", "steps"}));
        c->add_option("--set", m_estimate.assignments, "one setting, key=value, as for convert")
            ->allow_extra_args(false);
        c->add_option("-j,--threads", m_estimate.threads, "threads; one a core without it")->check(CLI::Range(1, 256));
        c->add_flag("--json", m_estimate.json, "as JSON, seconds");
        c->footer("Example:\n  vndlp estimate tower.vndlp --machine M01");
        c->final_callback([this] { m_command = [this] { return estimate(m_estimate); }; });
    }

    void addMachines() {
        CLI::App* c = m_app.add_subcommand("machines", "List the machines print times are known for");
        c->add_flag("--json", m_machines.json, "as JSON");
        c->footer("Example:\n  vndlp machines");
        c->final_callback([this] { m_command = [this] { return machines(m_machines); }; });
    }

    void addBeads() {
        CLI::App* c = m_app.add_subcommand("beads", "Draw the LED beads that a layer of a V4 file lights");
        c->add_option("FILE", m_beads.file, "V4 slice file")->required();
        c->add_option("--layer", m_beads.layer, "layer, from 0")->required()->check(CLI::NonNegativeNumber);
        c->add_option("-o,--output", m_beads.output, "PNG to write")->required();
        c->add_flag("--force", m_beads.force, "replace an existing PNG");
        c->footer("Example:\n  vndlp beads tower.vndlpv4 --layer 50 -o mask.png");
        c->final_callback([this] { m_command = [this] { return beads(m_beads); }; });
    }

    CLI::App m_app;
    bool m_verbose = false;
    ConvertOptions m_convert;
    std::string m_mirror;
    int m_rotate = 0;
    InfoOptions m_info;
    VerifyOptions m_verify;
    ExtractOptions m_extract;
    EstimateOptions m_estimate;
    MachinesOptions m_machines;
    BeadsOptions m_beads;
    std::function<int()> m_command;
};

}  // namespace

int main(int argc, char** argv) {
    OutputStreams streams;
    installSignalHandlers();
    try {
        return CommandLine().run(argc, argv, streams);
    } catch (const Failure& failure) {
        printMessage(std::string("vndlp: ") + failure.what());
    } catch (const std::bad_alloc&) {
        printMessage("vndlp: out of memory");
    } catch (const std::exception& unexpected) {
        printMessage(std::string("vndlp: unexpected: ") + unexpected.what());
    }
    return kBadFile;
}
