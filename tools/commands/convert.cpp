#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/conversion.h"

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

std::vector<unsigned char> readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure(path + ": cannot be opened: " + reasonOf(errno));
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The key that SOURCE_DATE_EPOCH makes: never 0, which would leave layers unscrambled. Throws UsageFailure.
std::optional<std::uint32_t> keyOfDate() {
    const char* const text = std::getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0') return std::nullopt;
    const std::string digits = text;
    std::uint64_t seconds = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, seconds);
    if (error != std::errc() || stopped != end) throw UsageFailure("SOURCE_DATE_EPOCH=" + digits + ": is no number");
    const auto key = static_cast<std::uint32_t>(seconds ^ seconds >> 32);
    return key == 0 ? 1 : key;
}

class Convert : public Command {
public:
    void describe(Syntax& syntax) override {
        constexpr double kMostUm = 1e6;
        constexpr long long kMostKey = 4294967295;
        syntax.words("INPUT... OUTPUT", m_words,
                     "SL1 job (.sl1, .sl1s, .zip), folder or zip of PNG layers or SVG drawings, or slice file; and the "
                     "file to write, whose ending (" +
                         writableEndings() + ") chooses the format");
        syntax.text("--to", m_ending, "format of many outputs, such as .ctb; all words are inputs then");
        syntax.text("-o,--output", m_folder, "with --to: folder for the outputs; made if missing");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file; checks that the job fits it");
        syntax.text("--profile", m_profile, "printer profile, a JSON object of settings");
        syntax.texts("--set", m_assignments, "one setting, key=value");
        syntax.texts("--preview", m_previews, "PNG for the previews, smallest first; up to three");
        syntax.choice("--mirror", m_mirror, {"x", "y", "xy"}, "mirror layers along x or y");
        syntax.choice("--rotate", m_rotate, {"90", "180", "270"}, "turn layers clockwise by so many degrees");
        syntax.flag("--pad", m_pads, "set layers into the middle of the printer's larger screen");
        syntax.text("--resolution", m_resolution,
                    "line files to images: pixels of the screen, WxH; else the file's own");
        syntax.number("--tolerance", m_tolerance, 0, kMostUm,
                      ".vnline: how far outlines may lie off, in micrometres; an eighth of a pixel without it");
        syntax.choiceOrPlain("--salvage", m_salvage, {"blank", "previous"}, "blank",
                             "go on with a damaged input; what takes the place of layers that cannot be read");
        syntax.whole("--key", m_key, 0, kMostKey, ".ctb: key of the scrambling; 0 leaves layers unscrambled");
        syntax.threads(m_threads);
        syntax.flag("-f,--force", m_plan.force, "replace existing outputs");
        syntax.footer(settingsHelp() +
                      "\nExample:\n  vndlp convert tower.sl1 tower.vndlp --set machine=M01 --set lift_mm=7");
    }

    int run() override {
        makePlan();
        pairFiles();
        if (m_outputs.size() == 1) {
            convertOne(m_outputs[0].first, m_outputs[0].second, m_plan);
            return kSuccess;
        }
        std::vector<std::string> inputs;
        for (const auto& [input, output] : m_outputs) inputs.push_back(input);
        std::size_t next = 0;
        return forEachFile(inputs, [&](const std::string& input) {
            convertOne(input, m_outputs[next++].second, m_plan);
            return kSuccess;
        });
    }

private:
    void makePlan() {
        if (!m_printer.empty()) {
            m_plan.printer = findPrinter(m_printer);
            m_plan.settings.take(m_plan.printer->settings);
            m_plan.key = m_plan.printer->key;
            useConstants(*m_plan.printer);
        }
        if (!m_profile.empty()) {
            m_plan.profile = readPrinter(m_profile, Origin::profile);
            m_plan.settings.take(m_plan.profile->settings);
            if (m_plan.profile->key) m_plan.key = m_plan.profile->key;
            useConstants(*m_plan.profile);
        }
        for (const std::string& assignment : m_assignments) m_plan.settings.setOption(assignment);
        constexpr std::size_t kMostPictures = 3;
        if (m_previews.size() > kMostPictures) throw UsageFailure("--preview: three pictures at most");
        m_plan.mirror = m_mirror;
        m_plan.orientation.mirrorX = m_mirror.find('x') != std::string::npos;
        m_plan.orientation.mirrorY = m_mirror.find('y') != std::string::npos;
        m_plan.orientation.clockwiseTurns = m_rotate.empty() ? 0 : std::stoi(m_rotate) / 90;
        m_plan.pads = m_pads;
        if (m_pads && !(m_plan.settings.has("resolution_x") && m_plan.settings.has("resolution_y"))) {
            throw UsageFailure("--pad: the screen is not known; give --printer, or set resolution_x and resolution_y");
        }
        if (!m_resolution.empty()) m_plan.resolution = parseResolution(m_resolution);
        m_plan.toleranceUm = m_tolerance;
        if (m_salvage == "blank") m_plan.salvage = SliceSalvage::blank;
        if (m_salvage == "previous") m_plan.salvage = SliceSalvage::previous;
        if (m_key) m_plan.key = static_cast<std::uint32_t>(*m_key);
        m_plan.date = keyOfDate();
        m_plan.threads = threadsOf(m_threads);
    }

    /// Pairs inputs with outputs, and refuses what the names say wrongly.
    void pairFiles() {
        if (m_ending.empty()) {
            if (!m_folder.empty()) throw UsageFailure("-o: needs --to, the format of the outputs");
            if (m_words.size() != 2) throw UsageFailure("convert: takes INPUT and OUTPUT, or --to and a folder");
            m_outputs.emplace_back(m_words[0], m_words[1]);
        } else {
            if (m_folder.empty()) throw UsageFailure("--to: needs -o, the folder of the outputs");
            const std::string ending = m_ending.starts_with('.') ? m_ending : "." + m_ending;
            for (const std::string& input : m_words) {
                std::string stem = fs::path(input).has_filename() ? fs::path(input).stem().string()
                                                                  : fs::path(input).parent_path().stem().string();
                m_outputs.emplace_back(input, (fs::path(m_folder) / (stem + ending)).string());
            }
        }
        std::map<std::string, std::string> taken;
        for (const auto& [input, output] : m_outputs) {
            if (output == "-") throw UsageFailure("-: a slice file cannot be written to standard output");
            if (outputKindOf(output) == OutputKind::none) {
                throw UsageFailure(output + ": unknown output format; the name must end in one of " +
                                   writableEndings());
            }
            if (m_key && !output.empty() && sliceFormatOfPath(output) != SliceFormat::ctb) {
                throw UsageFailure("--key: is for .ctb files; " + output + " has none");
            }
            const auto [first, isNew] = taken.emplace(output, input);
            if (!isNew) {
                throw UsageFailure(std::string(output).append(": is the output of both ").append(first->second) +
                                   " and " + input);
            }
        }
        for (const std::string& path : m_previews) m_plan.previews.push_back(decodeColour(readWholeFile(path), path));
        if (!m_folder.empty()) makeFolder(m_folder);
    }

    ConversionPlan m_plan;
    std::vector<std::pair<std::string, std::string>> m_outputs;
    std::vector<std::string> m_words;
    std::string m_ending;
    std::string m_folder;
    std::string m_printer;
    std::string m_profile;
    std::vector<std::string> m_assignments;
    std::vector<std::string> m_previews;
    std::string m_mirror;
    std::string m_rotate;
    bool m_pads = false;
    std::string m_resolution;
    std::optional<double> m_tolerance;
    std::string m_salvage;
    std::optional<long long> m_key;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeConvert() { return std::make_unique<Convert>(); }

}  // namespace vndlp::tools
