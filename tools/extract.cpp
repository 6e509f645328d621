#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/output_file.h"
#include "tools/pipeline.h"
#include "tools/slice_file.h"
#include "tools/terminal.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

/// Reads "0-99,150" into layer numbers, in that order. Throws Failure for anything else or a layer the file lacks.
std::vector<int> parseLayers(const std::string& text, int layerCount) {
    std::vector<int> layers;
    const auto fail = [&](const std::string& why) -> void {
        throw Failure("--layers " + printable(text) + ": " + why + "; expected numbers and ranges such as 0-99,150");
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

std::string layerName(int layer, int layerCount) {
    const auto digits = static_cast<int>(std::max<std::size_t>(std::to_string(layerCount - 1).size(), 5));
    char text[32];
    std::snprintf(text, sizeof text, "layer_%0*d.png", digits, layer);
    return text;
}

}  // namespace

int extract(const ExtractOptions& options) {
    const std::unique_ptr<SliceFile> file = openSliceFile(options.file);
    std::vector<int> layers;
    if (!options.layers.empty()) {
        layers = parseLayers(options.layers, file->layerCount());
    } else if (!options.previews) {
        for (int i = 0; i < file->layerCount(); ++i) layers.push_back(i);
    }
    if (!layers.empty() && !file->hasImages()) throw Failure(options.file + ": its layers are not images");

    std::error_code error;
    fs::create_directories(options.folder, error);
    if (!fs::is_directory(options.folder)) throw Failure(options.folder + ": the folder cannot be made");
    const auto pathIn = [&](const std::string& name) { return (fs::path(options.folder) / name).string(); };

    if (options.previews) {
        for (const Preview& preview : file->previews()) {
            const std::vector<unsigned char> png = encodePng(preview.image);
            writeWholeFile(pathIn("preview_" + preview.name + ".png"), png.data(), png.size(), options.force);
        }
    }
    ProgressBar bar("extracting", static_cast<int>(layers.size()));
    runOrdered<GreyImage, std::vector<unsigned char>>(
        static_cast<int>(layers.size()), threadCount(options.threads),
        [&](int index, GreyImage& image) {
            stopIfInterrupted();
            file->readLayer(layers[static_cast<std::size_t>(index)], image);
            return encodePng(image);
        },
        [&](int index, std::vector<unsigned char>&& png) {
            const int layer = layers[static_cast<std::size_t>(index)];
            writeWholeFile(pathIn(layerName(layer, file->layerCount())), png.data(), png.size(), options.force);
            bar.advanceTo(index + 1);
        });
    const std::size_t pictures = options.previews ? file->previews().size() : 0;
    printResult(options.folder + ": " + std::to_string(layers.size()) + " layers" +
                (pictures > 0 ? ", " + std::to_string(pictures) + " previews" : "") + "\n");
    return kSuccess;
}

}  // namespace vndlp::tools
