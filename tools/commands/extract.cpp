#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/drawings/svg.h"
#include "tools/formats/slice_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

struct ExtractOptions {
    std::string file;
    std::string layers;  ///< "0-99,150"; empty: all
    bool previews = false;
    std::string folder;
    int threads = 0;
    bool force = false;
};

/// Reads "0-99,150" into layer numbers, in that order. Throws Failure for anything else or a layer the file lacks.
std::vector<int> parseLayers(const std::string& text, int layerCount) {
    std::vector<int> layers;
    const auto fail = [&](const std::string& why) -> void {
        throw UsageFailure("--layers " + printable(text) + ": " + why + "; expected numbers and ranges such as 0-99,150");
    };
    const char* next = text.data();
    const char* const end = next + text.size();
    const auto number = [&] {
        int value = 0;
        const auto [stopped, error] = std::from_chars(next, end, value);
        if (error != std::errc() || value < 0) fail("not a layer number");
        if (value >= layerCount) fail("the file has layers 0 to " + std::to_string(layerCount - 1));
        next = stopped;
        return value;
    };
    for (;;) {
        const int first = number();
        int last = first;
        if (next != end && *next == '-') {
            ++next;
            last = number();
        }
        if (last < first) fail("a range ends before it begins");
        for (int layer = first; layer <= last; ++layer) layers.push_back(layer);
        if (next == end) return layers;
        if (*next++ != ',') fail("unexpected character");
    }
}

std::string layerName(int layer, const SliceFile& file) {
    const auto digits = static_cast<int>(std::max<std::size_t>(std::to_string(file.layerCount() - 1).size(), 5));
    char text[32];
    std::snprintf(text, sizeof text, "layer_%0*d.%s", digits, layer, file.hasImages() ? "png" : "svg");
    return text;
}

/// What the drawings of a file's layers show: the same for all of them.
SvgFrame frameOf(SliceFile& file) {
    const PrintSettings s = file.settings();
    Box screen;
    if (s.has("display_width_mm") && s.has("display_height_mm")) {
        screen = {0, 0, s.number("display_width_mm") * 1000, s.number("display_height_mm") * 1000};
    }
    Box bounds;
    for (int i = 0; i < file.layerCount(); ++i) {
        const LayerShapes shapes = file.readShapes(i);
        bounds.add(boundsOf(shapes.polylines));
        for (const Vec2& v : shapes.vertices) {
            if (std::isfinite(v.x) && std::isfinite(v.y))
                bounds.add(static_cast<double>(v.x), static_cast<double>(v.y));
        }
    }
    return frameFor(screen, bounds);
}

int extract(const ExtractOptions& options) {
    const std::unique_ptr<SliceFile> file = openSliceFile(options.file);
    std::vector<int> layers;
    if (!options.layers.empty()) {
        layers = parseLayers(options.layers, file->layerCount());
    } else if (!options.previews) {
        for (int i = 0; i < file->layerCount(); ++i) layers.push_back(i);
    }

    makeFolder(options.folder);
    const auto pathIn = [&](const std::string& name) { return (fs::path(options.folder) / name).string(); };

    if (options.previews) {
        for (const Preview& preview : file->previews()) {
            const std::vector<unsigned char> png = encodePng(preview.image);
            writeWholeFile(pathIn("preview_" + preview.name + ".png"), png.data(), png.size(), options.force);
        }
    }
    const SvgFrame frame = layers.empty() || file->hasImages() ? SvgFrame() : frameOf(*file);
    ProgressBar bar("extracting", static_cast<int>(layers.size()));
    runOrdered<GreyImage, std::vector<unsigned char>>(
        static_cast<int>(layers.size()), options.threads,
        [&](int index, GreyImage& image) {
                const int layer = layers[static_cast<std::size_t>(index)];
            if (!file->hasImages()) {
                const std::string svg = svgOf(file->readShapes(layer), frame);
                return std::vector<unsigned char>(svg.begin(), svg.end());
            }
            file->readLayer(layer, image);
            return encodePng(image);
        },
        [&](int index, std::vector<unsigned char>&& picture) {
            const int layer = layers[static_cast<std::size_t>(index)];
            writeWholeFile(pathIn(layerName(layer, *file)), picture.data(), picture.size(), options.force);
            bar.advanceTo(index + 1);
        });
    const std::size_t pictures = options.previews ? file->previews().size() : 0;
    printRemark(printable(options.folder) + ": " + std::to_string(layers.size()) + " layers" +
                (pictures > 0 ? ", " + std::to_string(pictures) + " previews" : "") + "\n");
    return kSuccess;
}

class Extract : public Command {
public:
    void describe(Syntax& syntax) override {
        syntax.word("FILE", m_options.file, "slice file");
        syntax.text("--layers", m_options.layers, "layers, numbered from 0, such as 0-99,150; all without it");
        syntax.flag("--previews", m_options.previews, "the previews; alone, no layers");
        syntax.text("-o,--output", m_options.folder, "folder for the pictures; made if missing");
        syntax.require("--output");
        syntax.threads(m_threads);
        syntax.flag("-f,--force", m_options.force, "replace existing pictures");
        syntax.footer("Example:\n  vndlp extract tower.vndlp --layers 0-2,50 --previews -o pictures");
    }
    int run() override {
        m_options.threads = threadsOf(m_threads);
        return extract(m_options);
    }

private:
    ExtractOptions m_options;
    std::optional<long long> m_threads;
};

}  // namespace

std::unique_ptr<Command> makeExtract() { return std::make_unique<Extract>(); }

}  // namespace vndlp::tools
