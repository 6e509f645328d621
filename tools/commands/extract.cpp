#include "tools/base/layer_choice.h"
#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/printer.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/commands/describe.h"
#include "tools/drawings/svg.h"
#include "tools/images/rgb.h"
#include "tools/jobs/layer_images.h"
#include "tools/jobs/settings_file.h"

#include <vndlp/slice_write.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardOutput = "-";
constexpr double kUmPerMm = 1000;

using Picture = std::vector<unsigned char>;

/// A layer as it goes to a file.
struct Extracted {
    Picture picture;
    std::string loss;
};

/// A layer that cannot be read.
struct DamagedLayer : Failure {
    using Failure::Failure;
};

/// One file's layers on their way to pictures.
class Extraction {
public:
    Extraction(const std::string& path, const std::string& layers, bool previewsOnly, Resolution resolution)
        : m_source(openSource(path)), m_resolution(resolution) {
        if (!layers.empty()) {
            m_layers = chooseLayers(layers, m_source.layerCount);
        } else if (!previewsOnly) {
            m_layers.resize(static_cast<std::size_t>(m_source.layerCount));
            std::iota(m_layers.begin(), m_layers.end(), 0);
        }
    }

    const Source& source() const { return m_source; }
    const std::vector<int>& layers() const { return m_layers; }

    /// Makes ready for `picture`. \param longerSide 0: as large as it is.
    void start(SliceSalvage salvage, int longerSide) {
        m_salvage = salvage;
        m_longerSide = longerSide;
        for (const SliceFinding& finding : findingsOf(m_source)) {
            if (finding.severity != SliceSeverity::error) continue;
            const std::string text = m_source.path + ": " + placeText(finding.layer, finding.offset, finding.text);
            if (salvage == SliceSalvage::no) throw Failure(text + "; --salvage goes on");
            printError(text);
        }
        const bool isImage = m_source.kind == SliceLayers::images || m_resolution.isGiven() || longerSide > 0;
        if (isImage) {
            ImagePlan plan;
            plan.lines = m_resolution;
            m_images.emplace(m_source, plan);
        } else if (!m_layers.empty()) {
            m_frame = frame();
        }
    }

    bool areDrawings() const { return !m_images; }

    std::string nameOf(int layer) const {
        const auto digits = std::max<std::size_t>(std::to_string(m_source.layerCount - 1).size(), 5);
        char text[32];
        std::snprintf(text, sizeof text, "layer_%0*d.%s", static_cast<int>(digits), layer, m_images ? "png" : "svg");
        return text;
    }

    Extracted picture(int layer, GreyImage& image) const {
        Extracted extracted;
        if (!m_images) {
            const std::string svg = svgOf(m_source.readShapes(layer), m_frame);
            extracted.picture.assign(svg.begin(), svg.end());
            return extracted;
        }
        extracted.loss = read(layer, image);
        if (m_longerSide > 0) shrink(image, m_longerSide);
        removePadding(image);
        extracted.picture = encodePng(image);
        return extracted;
    }

    std::string settings() const {
        HeldSettings held;
        for (const auto& [key, value] : m_source.settings.values()) {
            const SliceKey* const spec = findSliceKey(key);
            const bool isNumber = spec->type != SliceValueType::text;
            const bool isRefused = isNumber && (value.number < spec->least || value.number > spec->most);
            if (!isRefused) held.file[key] = value.text;
        }
        const bool areAll = m_layers.size() == static_cast<std::size_t>(m_source.layerCount);
        for (int i = 0; areAll && i < m_source.layerCount; ++i) {
            const PrintSettings own = m_source.layerSettings(i);
            for (const auto& [key, value] : own.values()) held.layers[i][key] = value.text;
        }
        return settingsText(held);
    }

private:
    /// Reads a layer, or what takes its place. \return what became of one that was hurt.
    std::string read(int layer, GreyImage& image) const {
        std::string loss;
        for (int from = layer; from >= 0; --from) {
            try {
                m_images->read(from, image);
                return loss.empty() ? "" : loss + "; layer " + std::to_string(from) + " takes its place";
            } catch (const Failure& failure) {
                if (m_salvage == SliceSalvage::no) throw DamagedLayer(failure.what());
                if (loss.empty()) loss = failure.what();
                if (m_salvage == SliceSalvage::blank) break;
            }
        }
        m_images->makeBlank(image);
        return loss + "; a blank layer takes its place";
    }

    /// What the drawings of all layers show: the same for all of them.
    SvgFrame frame() const {
        const PrintSettings& s = m_source.settings;
        Box screen;
        if (s.has("display_width_mm") && s.has("display_height_mm")) {
            screen = {0, 0, s.number("display_width_mm") * kUmPerMm, s.number("display_height_mm") * kUmPerMm};
        }
        Box bounds;
        for (int i = 0; i < m_source.layerCount; ++i) {
            const SliceShapes shapes = m_source.readShapes(i);
            bounds.add(boundsOf(polylinesOf(shapes)));
            for (std::size_t v = 0; v + 1 < shapes.vertices.size(); v += 2) {
                const double x = static_cast<double>(shapes.vertices[v]);
                const double y = static_cast<double>(shapes.vertices[v + 1]);
                if (std::isfinite(x) && std::isfinite(y)) bounds.add(x, y);
            }
        }
        return frameFor(screen, bounds);
    }

    Source m_source;
    Resolution m_resolution;
    std::vector<int> m_layers;
    SliceSalvage m_salvage = SliceSalvage::no;
    int m_longerSide = 0;
    std::optional<LayerImages> m_images;
    SvgFrame m_frame;
};

class Extract : public Command {
public:
    void describe(Syntax& syntax) override {
        constexpr long long kLongest = 65535;
        syntax.words("FILE", m_files, "slice files, SL1 jobs, folders or zips of layers");
        syntax.text("--layers", m_layers, "layers, numbered from 0, such as 0-99,150, 100-, 0-last/50; all without it");
        syntax.flag("--previews", m_previews, "the previews; alone, no layers");
        syntax.text("-o,--output", m_output, "folder for the pictures, made if missing; - for one layer alone");
        syntax.require("--output");
        syntax.whole("--size", m_size, 1, kLongest, "shrink pictures to this longer side, greys averaged");
        syntax.text("--resolution", m_resolution, "line files as PNG: pixels of the screen, WxH; SVG without it");
        syntax.choiceOrPlain("--salvage", m_salvage, {"blank", "previous"}, "blank",
                             "go on with a damaged file; what takes the place of layers that cannot be read");
        syntax.text("--printer", m_printer, "printer by name (`vndlp printers`) or file, for its scrambling constants");
        syntax.threads(m_threads);
        syntax.flag("-f,--force", m_force, "replace existing pictures");
        syntax.footer("Example:\n  vndlp extract tower.vndlp --layers 0-2,50 --previews -o pictures");
    }

    int run() override {
        if (!m_printer.empty()) useConstants(findPrinter(m_printer));
        Resolution resolution;
        if (!m_resolution.empty()) resolution = parseResolution(m_resolution);
        const bool previewsOnly = m_previews && m_layers.empty();
        if (m_output == kStandardOutput) return extractToOutput(resolution);
        requireOwnFolders();
        if (m_files.size() > 1 && !m_layers.empty()) checkLayers();
        return forEachFile(m_files, [&](const std::string& file) {
            Extraction extraction(file, m_layers, previewsOnly, resolution);
            extraction.start(salvage(), static_cast<int>(m_size.value_or(0)));
            extractToFolder(extraction, folderOf(file));
            return kSuccess;
        });
    }

private:
    SliceSalvage salvage() const {
        return m_salvage == "previous" ? SliceSalvage::previous
               : m_salvage == "blank"  ? SliceSalvage::blank
                                       : SliceSalvage::no;
    }

    std::string folderOf(const std::string& file) const {
        if (m_files.size() == 1) return m_output;
        const fs::path path(file);
        return (fs::path(m_output) / (path.has_filename() ? path : path.parent_path()).stem()).string();
    }

    void requireOwnFolders() const {
        std::map<std::string, std::string> taken;
        for (const std::string& file : m_files) {
            const auto [first, isNew] = taken.emplace(folderOf(file), file);
            if (!isNew)
                throw UsageFailure(folderOf(file) + ": is the output of both " + first->second + " and " + file);
        }
    }

    /// Layers beyond the end of one of several files are found before anything is written.
    void checkLayers() const {
        for (const std::string& file : m_files) {
            try {
                chooseLayers(m_layers, openSource(file).layerCount);
            } catch (const UsageFailure& failure) {
                throw UsageFailure(file + ": " + failure.what());
            } catch (const Failure&) {
                continue;  // its turn comes
            }
        }
    }

    int extractToOutput(Resolution resolution) const {
        if (m_files.size() > 1 || m_previews || m_layers.empty()) {
            throw UsageFailure("-o -: takes one layer of one file, by --layers N");
        }
        Extraction extraction(m_files.front(), m_layers, false, resolution);
        if (extraction.layers().size() != 1) {
            throw UsageFailure("-o -: takes one layer, --layers " + m_layers + " names " +
                               std::to_string(extraction.layers().size()));
        }
        extraction.start(salvage(), static_cast<int>(m_size.value_or(0)));
        GreyImage image;
        const Extracted extracted = extraction.picture(extraction.layers().front(), image);
        if (!extracted.loss.empty()) printError(extracted.loss);
        printResult({extracted.picture.begin(), extracted.picture.end()});
        return kSuccess;
    }

    /// Pictures of a file that turns out damaged are taken back.
    void extractToFolder(const Extraction& extraction, const std::string& folder) const {
        std::error_code ignored;
        const bool isNew = !fs::exists(folder, ignored);
        std::vector<std::string> written;
        try {
            writeFolder(extraction, folder, written);
        } catch (const DamagedLayer&) {
            for (const std::string& path : written) fs::remove(path, ignored);
            if (isNew) fs::remove(folder, ignored);
            throw;
        }
    }

    void writeFolder(const Extraction& extraction, const std::string& folder, std::vector<std::string>& written) const {
        makeFolder(folder);
        sweepFolder(folder);
        const auto pathIn = [&](const std::string& name) { return (fs::path(folder) / name).string(); };
        const std::size_t previews = m_previews ? writePreviews(extraction.source(), folder, written) : 0;
        const std::vector<int>& layers = extraction.layers();
        ProgressBar bar("extracting", static_cast<int>(layers.size()));
        runOrdered<GreyImage, Extracted>(
            static_cast<int>(layers.size()), threadsOf(m_threads),
            [&](int index, GreyImage& image) {
                return extraction.picture(layers[static_cast<std::size_t>(index)], image);
            },
            [&](int index, Extracted&& extracted) {
                if (!extracted.loss.empty()) printError(extracted.loss);
                const std::string path = pathIn(extraction.nameOf(layers[static_cast<std::size_t>(index)]));
                writeUnflushed(path, extracted.picture.data(), extracted.picture.size(), m_force);
                written.push_back(path);
                bar.advanceTo(index + 1);
            });
        if (!layers.empty()) writeSettings(pathIn(kFolderSettingsName), extraction.settings());
        flushFolder(folder);
        printRemark(printable(folder) + ": " + counted(layers.size(), "layer") +
                    (previews > 0 ? ", " + counted(previews, "preview") : "") + "\n");
    }

    /// Settings that stand there already stay without a word.
    void writeSettings(const std::string& path, const std::string& text) const {
        std::ifstream present(path, std::ios::binary);
        const std::string before{std::istreambuf_iterator<char>(present), std::istreambuf_iterator<char>()};
        if (present && before == text) return;
        // other layers of a file come with other settings of layers
        writeUnflushed(path, text.data(), text.size(), m_force);
    }

    std::size_t writePreviews(const Source& source, const std::string& folder,
                              std::vector<std::string>& written) const {
        std::size_t count = 0;
        const auto write = [&](const std::string& name, const ColourImage& picture) {
            const Picture png = encodePng(picture);
            const std::string path = (fs::path(folder) / ("preview_" + name + ".png")).string();
            writeUnflushed(path, png.data(), png.size(), m_force);
            written.push_back(path);
            ++count;
        };
        if (source.isJob()) {
            static constexpr const char* kNames[] = {"small", "middle", "large"};
            const std::vector<ColourImage> pictures = source.readPictures();
            for (std::size_t i = 0; i < pictures.size() && i < std::size(kNames); ++i) {
                write(kNames[std::size(kNames) - pictures.size() + i], pictures[i]);
            }
            return count;
        }
        for (std::uint32_t i = 0; i < source.file->info().previews; ++i) {
            SlicePreviewInfo info;
            require(source.path, source.file->previewInfo(i, info));
            std::vector<unsigned char> rgb(std::size_t{3} * info.width * info.height);
            if (rgb.empty()) continue;
            require(source.path, source.file->preview(i, rgb.data(), 0, rgb.size()));
            write(info.name, pictureOfRgb(rgb, static_cast<int>(info.width), static_cast<int>(info.height)));
        }
        return count;
    }

    std::vector<std::string> m_files;
    std::string m_layers;
    bool m_previews = false;
    std::string m_output;
    std::optional<long long> m_size;
    std::string m_resolution;
    std::string m_salvage;
    std::string m_printer;
    std::optional<long long> m_threads;
    bool m_force = false;
};

}  // namespace

std::unique_ptr<Command> makeExtract() { return std::make_unique<Extract>(); }

}  // namespace vndlp::tools
