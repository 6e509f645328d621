#include "tools/base/output_file.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/jobs/source.h"

#include <vndlp/check_file.h>
#include <vndlp/slice_write.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <limits>

namespace vndlp::tools {

namespace {

/// What `check` calls lit without another wish.
constexpr int kThreshold = CheckOptions().threshold;
constexpr unsigned char kCleared = 0;
constexpr unsigned char kFilled = 255;

/// Reads the layers of a file for `planFix`, and what went wrong.
struct PlanReader {
    const SliceFile& file;
    const CheckJob& job;
    SliceResult result = {};

    static int read(void* context, std::uint32_t layer, CheckLayer& out) {
        auto& self = *static_cast<PlanReader*>(context);
        double areaMm2 = 0;
        self.result = readCheckLayer(self.file, self.job, layer, kThreshold, out, areaMm2);
        return self.result.isOk() ? 0 : 1;
    }
};

class Fix : public Command {
public:
    void describe(Syntax& syntax) override {
        constexpr long long kMostPixels = 1LL << 62;
        syntax.word("FILE", m_path, "slice file");
        syntax.text("-o,--output", m_output, "file to write; a slice file as well");
        syntax.require("--output");
        syntax.whole("--islands", m_islands, 0, kMostPixels,
                     "clear islands that have at most so many pixels in each layer");
        syntax.flag("--traps", m_traps, "fill the traps of what is left");
        syntax.flag("-f,--force", m_force, "replace an existing OUTPUT");
        syntax.footer(
            "Islands and traps are those of `vndlp check`. Empty layers at the end are dropped, always; everything\n"
            "else stays as it is.\n"
            "Example:\n  vndlp fix tower.ctb -o fixed.ctb --islands 50 --traps");
    }

    int run() override {
        if (sliceFormatOfPath(m_output) == SliceFormat::none) {
            throw UsageFailure(m_output + ": unknown output format; the name must end in .vndlp, .vnline, .ctb or " +
                               ".vndlpv4");
        }
        m_file = openSlices(m_path);
        std::error_code ignored;
        if (std::filesystem::equivalent(m_path, m_output, ignored)) {
            throw Failure(m_output + ": is the input itself; choose another name");
        }
        requireSound();
        plan();
        PendingFile pending(m_output, m_force);
        write(pending.temporaryPath());
        pending.commit();
        printRemark(printable(m_output) + ": " + summary() + "\n");
        return kSuccess;
    }

private:
    void requireSound() const {
        SliceFinding first;
        const auto keepFirst = [](void* context, const SliceFinding& finding) {
            auto& kept = *static_cast<SliceFinding*>(context);
            if (finding.severity == SliceSeverity::error && kept.text.empty()) kept = finding;
            return 0;
        };
        std::uint64_t errors = 0;
        const SliceResult result = m_file.verifyStructure(keepFirst, &first, errors);
        require(m_path, result);
        if (errors > 0) throw Failure(m_path + ": " + placeText(first.layer, first.offset, first.text));
    }

    void plan() {
        const CheckJob job = checkJobOf(m_file);
        FixOptions options;
        options.islandPixels = m_islands.value_or(-1);
        options.fillTraps = m_traps;
        PlanReader reader{m_file, job};
        if (!planFix(job, m_file.info().layers, options, PlanReader::read, &reader, m_fix)) {
            throw Failure(describeResult(m_path, reader.result));
        }
        if (m_fix.layers == 0) throw Failure(m_path + ": nothing lit is left, so nothing is written");
        if (!m_fix.changed.empty() && m_file.info().layerKind != SliceLayers::images) {
            throw Failure(m_path + ": its layers are lines, whose islands and traps cannot be mended");
        }
    }

    void write(const std::string& path) const {
        SliceTarget target;
        target.format = sliceFormatOfPath(m_output);
        target.layers = m_fix.layers;
        target.like = &m_file;
        SliceWriter writer;
        requireOutput(writer.create(path, target));
        requireOutput(writer.start());
        for (const std::string& note : writer.notes()) printNote(m_output + ": " + note);
        ProgressBar bar("writing", static_cast<int>(m_fix.layers));
        for (std::uint32_t i = 0; i < m_fix.layers; ++i) {
            const auto changed = m_fix.changed.find(i);
            if (changed == m_fix.changed.end()) {
                requireOutput(writer.putLayer(i, m_file, i));
            } else {
                putChanged(writer, i, changed->second);
            }
            bar.advanceTo(static_cast<int>(i) + 1);
        }
        requireOutput(writer.finish());
    }

    void putChanged(SliceWriter& writer, std::uint32_t index, const FixedLayer& changes) const {
        const SliceInfo& info = m_file.info();
        std::vector<unsigned char> pixels(std::size_t{info.width} * info.height);
        require(m_path, m_file.layerPixels(index, pixels.data(), 0, pixels.size()));
        paint(changes.cleared, kCleared, pixels);
        paint(changes.filled, kFilled, pixels);
        requireOutput(
            writer.putPixels(index, pixels.data(), 0, pixels.size(), std::numeric_limits<double>::quiet_NaN()));
    }

    void paint(const std::vector<LitRun>& runs, unsigned char grey, std::vector<unsigned char>& pixels) const {
        const bool areColumns = m_file.litAxis() == SliceAxis::columns;
        const std::size_t line = areColumns ? 1 : m_file.info().width;
        const std::size_t place = areColumns ? m_file.info().width : 1;
        for (const LitRun& run : runs) {
            for (std::uint32_t i = run.first; i <= run.last; ++i) pixels[run.line * line + i * place] = grey;
        }
    }

    /// A failure of the output, by its own name.
    void requireOutput(const SliceResult& result) const {
        if (result.code != SliceCode::file) return require(m_path, result);
        throw Failure(m_output + ": could not be written completely: " + reasonOf(result.systemCode));
    }

    std::string summary() const {
        std::string text;
        const auto add = [&text](std::uint64_t count, const std::string& what, const std::string& done) {
            if (count > 0) text += (text.empty() ? "" : ", ") + counted(count, what) + " " + done;
        };
        const auto pixels = [](std::uint64_t voxels) { return " (" + counted(voxels, "pixel") + ")"; };
        add(m_fix.islands, "island", "cleared" + pixels(m_fix.islandVoxels));
        add(m_fix.traps, "trap", "filled" + pixels(m_fix.trapVoxels));
        add(m_file.info().layers - m_fix.layers, "empty layer", "at the end dropped");
        return text.empty() ? "nothing to mend, all layers are as they were" : text;
    }

    std::string m_path;
    std::string m_output;
    std::optional<long long> m_islands;
    bool m_traps = false;
    bool m_force = false;
    SliceFile m_file;
    JobFix m_fix;
};

}  // namespace

std::unique_ptr<Command> makeFix() { return std::make_unique<Fix>(); }

}  // namespace vndlp::tools
