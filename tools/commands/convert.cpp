#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/formats/slice_file.h"
#include "tools/formats/slice_output.h"
#include "tools/images/transform.h"
#include "tools/jobs/input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

struct ConvertOptions {
    std::string input;
    std::string output;
    std::string profile;
    std::vector<std::string> assignments;
    std::vector<std::string> previews;
    Orientation orientation;
    double toleranceUm = -1;  ///< of traced outlines; negative: the output's own
    int threads = 0;          ///< 0: one a core
    bool force = false;
};

constexpr double kAssumedPixelMm = 0.05;
constexpr std::size_t kMostPictures = 3;
constexpr int kPreviewSide = 290;

std::vector<unsigned char> readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure(path + ": cannot be opened");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The pictures for the previews: the user's, else the job's, else one of the middle layer.
std::vector<ColourImage> choosePictures(const ConvertOptions& options, Input& input) {
    std::vector<ColourImage> pictures;
    for (const std::string& path : options.previews) pictures.push_back(decodeColour(readWholeFile(path), path));
    if (pictures.empty()) pictures = std::move(input.pictures);
    if (pictures.size() > kMostPictures) pictures.resize(kMostPictures);
    if (!pictures.empty()) return pictures;
    GreyImage middle;
    input.readLayer(input.layerCount / 2, middle);
    pictures.push_back(renderLayerPreview(middle, kPreviewSide, kPreviewSide));
    return pictures;
}

/// Completes the settings and holds the screen's size against the images'.
void completeSettings(const ConvertOptions& options, int width, int height, Input& input) {
    PrintSettings& s = input.settings;
    if (!options.profile.empty()) applyProfile(options.profile, s);
    for (const std::string& assignment : options.assignments) applyOption(assignment, s);
    for (const auto& [key, pixels] : {std::pair{"resolution_x", width}, {"resolution_y", height}}) {
        // geometry fits a screen of any number of pixels
        if (input.readOutlines && s.has(key)) continue;
        if (input.readOutlines) {
            input.notes.push_back(std::string(key) + " = " + std::to_string(pixels) + ", taking pixels of " +
                                  shortNumber(kAssumedPixelMm) + " mm");
        }
        if (s.has(key) && s.origin(key) > Origin::job && s.whole(key) != pixels) {
            throw Failure(options.input + ": layers are " + std::to_string(width) + " x " + std::to_string(height) +
                          " pixels, but " + key + " is set to " + s.text(key) + "; --rotate 90 turns them");
        }
        s.set(key, pixels, Origin::option, options.input);
    }
    for (const auto& [key, pixels] : {std::pair{"display_width_mm", width}, {"display_height_mm", height}}) {
        if (s.has(key)) continue;
        s.set(key, pixels * kAssumedPixelMm, Origin::assumed, options.input);
        input.notes.push_back(std::string(key) + " = " + s.text(key) + " mm, taking pixels of " +
                              shortNumber(kAssumedPixelMm) + " mm");
    }
    const std::vector<std::string> assumed = s.assumeTheRest();
    input.notes.insert(input.notes.end(), assumed.begin(), assumed.end());
    for (const char* key : {"light_off_s", "bottom_exposure_s", "bottom_lift_mm", "lift_mm"}) {
        if (s.number(key) == s.whole(key)) continue;
        input.notes.push_back(std::string(key) + " = " + s.text(key) + " is stored as " + std::to_string(s.whole(key)) +
                              " where the format has whole numbers only");
    }
}

/// What cannot go together, in one sentence; empty when all can.
std::string usageProblem(const ConvertOptions& options, const Input& input, const SliceOutput& output) {
    const bool isTurned =
        options.orientation.mirrorX || options.orientation.mirrorY || options.orientation.clockwiseTurns != 0;
    if (input.readOutlines && !output.holdsOutlines()) {
        return options.input + ": its layers are geometry, which only .vnline files hold";
    }
    if (input.readOutlines && isTurned) return "--mirror and --rotate turn images, not geometry";
    if (options.toleranceUm < 0) return {};
    if (!output.holdsOutlines()) return "--tolerance is for .vnline files, whose layers are outlines";
    return input.readOutlines ? "--tolerance is for images, which are traced" : std::string();
}

/// Reads a layer and makes of it what the output takes.
EncodedLayer encodeLayer(const ConvertOptions& options, const Input& input, SliceOutput& output, int index,
                         GreyImage& image) {
    EncodedLayer layer;
    if (input.readOutlines) {
        layer.outlines = input.readOutlines(index);
        return layer;
    }
    input.readLayer(index, image);
    transform(image, options.orientation);
    return output.encode(index, image);
}

/// A quarter turn exchanges the display's sides like the image's.
void turnDisplay(PrintSettings& s) {
    if (!s.has("display_width_mm") || !s.has("display_height_mm")) return;
    const double width = s.number("display_width_mm");
    s.set("display_width_mm", s.number("display_height_mm"), Origin::job, "--rotate");
    s.set("display_height_mm", width, Origin::job, "--rotate");
}

void refuseOwnInput(const ConvertOptions& options) {
    std::error_code ignored;
    if (fs::equivalent(options.input, options.output, ignored)) {
        throw Failure(options.output + ": is the input itself; choose another name");
    }
}

/// Reads the finished file back: what cannot be verified does not get its name.
void verifyFinished(const std::string& temporary, const std::string& path) {
    const std::unique_ptr<SliceFile> file = openSliceFile(temporary);
    const Trailer trailer = file->trailer();
    if (trailer.present && !trailer.matches) {
        throw Failure(path + ": the file read back differs from the file written; the disk may be failing");
    }
}

std::string summary(const ConvertOptions& options, const Input& input, int width, int height) {
    std::error_code ignored;
    const auto bytes = fs::file_size(options.output, ignored);
    return printable(options.output) + ": " + std::to_string(input.layerCount) + " layers of " + std::to_string(width) + " x " +
           std::to_string(height) + ", " + humanBytes(bytes) + "\n";
}

int convert(const ConvertOptions& options) {
    Input input = openInput(options.input);
    refuseOwnInput(options);
    PendingFile pending(options.output, options.force);
    const std::unique_ptr<SliceOutput> output = createSliceOutput(options.output, pending.temporaryPath());
    if (output == nullptr) {
        throw UsageFailure(options.output + ": unknown output format; the name must end in one of " + writableEndings());
    }
    const std::string problem = usageProblem(options, input, *output);
    if (!problem.empty()) throw UsageFailure(problem);

    OutputJob job;
    const bool turned = options.orientation.swapsSides();
    job.width = turned ? input.height : input.width;
    job.height = turned ? input.width : input.height;
    job.layerCount = input.layerCount;
    job.threads = threadCount(options.threads);
    if (turned) turnDisplay(input.settings);
    completeSettings(options, job.width, job.height, input);
    for (const std::string& note : input.notes) printNote(note);
    job.settings = input.settings;
    job.width = job.settings.whole("resolution_x");
    job.height = job.settings.whole("resolution_y");
    job.toleranceUm = options.toleranceUm;
    job.pictures = choosePictures(options, input);
    output->begin(job);

    ProgressBar bar("converting", job.layerCount);
    runOrdered<GreyImage, EncodedLayer>(
        job.layerCount, job.threads,
        [&](int index, GreyImage& image) {
            return encodeLayer(options, input, *output, index, image);
        },
        [&](int index, EncodedLayer&& layer) {
            output->write(index, std::move(layer));
            bar.advanceTo(index + 1);
        });
    output->finish();
    verifyFinished(pending.temporaryPath(), options.output);
    pending.commit();
    printRemark(summary(options, input, job.width, job.height));
    return kSuccess;
}

class Convert : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.word("INPUT", m_options.input,
                    "SL1 job (.sl1, .sl1s, .zip), folder or zip of PNG layers or SVG drawings, or slice file");
        syntax.word("OUTPUT", m_options.output,
                    "file to write; its ending (" + writableEndings() + ") chooses the format");
        syntax.text("--profile", m_options.profile, "printer profile, a JSON object of settings");
        syntax.texts("--set", m_options.assignments, "one setting, key=value");
        syntax.texts("--preview", m_options.previews, "PNG for the previews, smallest first; up to three");
        syntax.choice("--mirror", m_mirror, {"x", "y", "xy"}, "mirror layers along x or y");
        syntax.choice("--rotate", m_rotate, {"90", "180", "270"},
                      "turn layers clockwise by 90, 180 or 270 degrees");
        syntax.number("--tolerance", m_tolerance, 0, 1e6,
                      ".vnline: how far outlines may lie off, in micrometres; an eighth of a pixel without it");
        syntax.threads(m_threads);
        syntax.flag("-f,--force", m_options.force, "replace an existing OUTPUT");
        syntax.footer(settingsHelp() +
                      "\nExample:\n  vndlp convert tower.sl1 tower.vndlp --set machine=M01 --set lift_mm=7");
    }
    int run() override {
        m_options.orientation.mirrorX = m_mirror.find('x') != std::string::npos;
        m_options.orientation.mirrorY = m_mirror.find('y') != std::string::npos;
        m_options.orientation.clockwiseTurns = m_rotate.empty() ? 0 : std::stoi(m_rotate) / 90;
        m_options.toleranceUm = m_tolerance.value_or(-1);
        m_options.threads = threadsOf(m_threads);
        return convert(m_options);
    }

private:
    ConvertOptions m_options;
    std::string m_mirror;
    std::string m_rotate;
    std::optional<double> m_tolerance;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeConvert() { return std::make_unique<Convert>(); }

}  // namespace vndlp::tools
