#include "tools/commands/conversion.h"

#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/describe.h"
#include "tools/commands/fit.h"
#include "tools/commands/listen.h"
#include "tools/drawings/outline.h"
#include "tools/drawings/polylines.h"
#include "tools/images/rgb.h"
#include "tools/jobs/job_output.h"
#include "tools/jobs/names.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kUmPerMm = 1000;
/// Without a wish outlines may lie off by this part of a pixel.
constexpr double kToleranceInPixels = 0.125;
constexpr int kPreviewSide = 290;
constexpr const char* kJobEnding = ".sl1";
constexpr const char* kNotKept = "not kept in ";

std::string endingOf(SliceFormat format) {
    for (const SliceFormatRow& row : kSliceFormats) {
        if (row.format == format) return std::string(row.ending);
    }
    return "";
}

/// A layer on its way into the output: as a slice file takes it, or as a PNG.
struct Encoded {
    SliceEncoded slice;
    std::vector<unsigned char> png;
    std::string loss;  ///< what became of a layer that could not be read
};

class Conversion {
public:
    Conversion(const std::string& input, const std::string& output, const ConversionPlan& plan)
        : m_output(output),
          m_plan(plan),
          m_source(openSource(input)),
          m_kind(outputKindOf(output)),
          m_format(sliceFormatOfPath(output)) {
        std::error_code ignored;
        if (fs::equivalent(input, output, ignored))
            throw Failure(output + ": is the input itself; choose another name");
    }

    void run() {
        requireUsage();
        const ImagePlan images = imagePlan();
        const bool fillsLines = m_source.kind != SliceLayers::images && m_format != SliceFormat::vnline;
        if (m_source.kind == SliceLayers::images || fillsLines) m_images.emplace(m_source, images);
        checkFit();
        requireSound();
        notePixels();
        PendingFile pending(m_output, m_plan.force);
        if (m_kind == OutputKind::job) {
            writeJob(pending.temporaryPath());
        } else if (isPlainCopy()) {
            convertSlices(pending.temporaryPath());
        } else {
            writeSlices(pending.temporaryPath());
        }
        finish(pending);
    }

private:
    const std::string& path() const { return m_source.path; }

    /// What cannot go together.
    void requireUsage() const {
        const bool isTurned = !m_plan.mirror.empty() || m_plan.orientation.clockwiseTurns != 0;
        const bool isGeometry = m_source.kind != SliceLayers::images;
        const bool toLines = m_format == SliceFormat::vnline;
        if (isGeometry && toLines && isTurned) throw UsageFailure("--mirror and --rotate turn images, not geometry");
        if (m_plan.toleranceUm && !toLines) {
            throw UsageFailure("--tolerance is for .vnline files, whose layers are outlines");
        }
        if (m_plan.toleranceUm && isGeometry) throw UsageFailure("--tolerance is for images, which are traced");
        if (m_plan.resolution.isGiven() && !isGeometry) {
            throw UsageFailure("--resolution is for layers of lines; images have theirs");
        }
    }

    ImagePlan imagePlan() const {
        ImagePlan images;
        images.lines = m_plan.resolution;
        images.orientation = m_plan.orientation;
        if (m_plan.pads) images.screen = wantedScreen();
        return images;
    }

    Resolution wantedScreen() const {
        return {static_cast<int>(m_plan.settings.numberOr("resolution_x", 0)),
                static_cast<int>(m_plan.settings.numberOr("resolution_y", 0))};
    }

    bool isToLines() const { return m_kind == OutputKind::slices && m_format == SliceFormat::vnline; }
    int width() const { return m_images ? m_images->width() : m_source.width; }
    int height() const { return m_images ? m_images->height() : m_source.height; }

    void checkFit() const {
        const bool isGeometry = !m_images;
        FitJob job{};
        job.isGeometry = isGeometry;
        job.width = isGeometry ? m_source.width : m_images->ownWidth();
        job.height = isGeometry ? m_source.height : m_images->ownHeight();
        const Geometry geometry = geometryOf(m_source);
        const bool turned = m_plan.orientation.swapsSides();
        job.pixelXUm = turned ? geometry.pixelYUm : geometry.pixelXUm;
        job.pixelYUm = turned ? geometry.pixelXUm : geometry.pixelYUm;
        job.topMm = m_source.layerCount * m_source.settings.numberOr("layer_height_mm", kNaN);
        job.machine = m_source.settings.text("machine");
        const PrintSettings& s = m_plan.settings;
        if (s.has("machine") && s.origin("machine") == Origin::option) job.wantedMachine = s.text("machine");
        job.mirror = m_plan.mirror;
        job.pads = m_plan.pads;
        if (m_plan.printer) requireFit(path(), job, *m_plan.printer);
        if (isGeometry) return;
        const Resolution screen = wantedScreen();
        if (m_plan.pads && (job.width > screen.width || job.height > screen.height)) {
            throw Failure(path() + ": layers of " + std::to_string(job.width) + " x " + std::to_string(job.height) +
                          " pixels are larger than the screen of " + std::to_string(screen.width) + " x " +
                          std::to_string(screen.height));
        }
        for (const auto& [key, pixels] : {std::pair{"resolution_x", width()}, {"resolution_y", height()}}) {
            if (!s.has(key) || s.number(key) == pixels || m_plan.resolution.isGiven()) continue;
            throw Failure(path() + ": layers are " + std::to_string(width()) + " x " + std::to_string(height()) +
                          " pixels, but " + key + " is set to " + s.text(key) +
                          "; --rotate 90 turns them, --pad sets " + "them into a larger screen");
        }
    }

    /// A size of the screen given by hand that stretches the pixels is most often a mistake.
    void notePixels() {
        constexpr double kMostStretched = 0.05;
        const PrintSettings& given = m_plan.settings;
        const auto isGiven = [&given](const char* key) {
            return given.has(key) && given.origin(key) == Origin::option;
        };
        if (!m_images || (!isGiven("display_width_mm") && !isGiven("display_height_mm"))) return;
        const Geometry geometry = geometryOf(m_source);
        const bool turned = m_plan.orientation.swapsSides();
        const double own = turned ? geometry.pixelYUm / geometry.pixelXUm : geometry.pixelXUm / geometry.pixelYUm;
        const PrintSettings s = outputSettings();
        const double x = s.numberOr("display_width_mm", kNaN) * kUmPerMm / width();
        const double y = s.numberOr("display_height_mm", kNaN) * kUmPerMm / height();
        if (std::abs(x / y / own - 1) > kMostStretched && std::abs(x / y - 1) > kMostStretched) {
            m_notes.push_back("pixels become " + shortNumber(x, 2) + " x " + shortNumber(y, 2) +
                              " um by display_width_mm and display_height_mm, not as the input's are; " +
                              "the print will be stretched");
        }
    }

    /// Damage of the structure ends it, unless the user wants what can be saved.
    void requireSound() const {
        if (isPlainCopy()) return;  // checked on the way
        for (const SliceFinding& finding : findingsOf(m_source)) {
            if (finding.severity != SliceSeverity::error) continue;
            const std::string text = path() + ": " + placeText(finding.layer, finding.offset, finding.text);
            if (m_plan.salvage == SliceSalvage::no) throw Failure(text + "; --salvage goes on");
            printError(text);
        }
    }

    /// Whether layers go over as they are, so that the library can copy them.
    bool isPlainCopy() const {
        if (m_source.isJob() || m_kind != OutputKind::slices) return false;
        const bool isTurned = !m_plan.mirror.empty() || m_plan.orientation.clockwiseTurns != 0;
        const bool sameKind = (m_source.kind != SliceLayers::images) == isToLines();
        return sameKind && !isTurned && !m_plan.pads && m_plan.previews.empty() && !m_plan.toleranceUm &&
               (!m_plan.printer || m_plan.printer->previews.empty());
    }

    /// Whether the output's format has a place for a key; one without is remembered, to be named.
    bool isKept(const std::string& key, const PrintSettings::Value& value) {
        const SliceKey* const spec = findSliceKey(key);
        if (spec == nullptr) return false;
        if ((spec->formats & 1U << static_cast<unsigned>(m_format)) != 0) return true;
        const bool isEmpty = spec->type == SliceValueType::text ? value.text.empty() : value.number == 0;
        if (!isEmpty) m_notKept.push_back(key);
        return false;
    }

    static bool isSize(const std::string& key) { return key == "resolution_x" || key == "resolution_y"; }

    std::optional<std::uint32_t> keyOf() const {
        if (m_format != SliceFormat::ctb) return std::nullopt;
        if (m_plan.key) return m_plan.key;
        SliceRawField key;
        const bool staysPlain =
            !m_source.isJob() && m_source.file->raw("HeaderSettings.encryptionKey", key).isOk() && key.integer == 0;
        return staysPlain ? std::nullopt : m_plan.date;
    }

    void convertSlices(const std::string& temporary) {
        SliceConvertOptions options;
        options.salvage = m_plan.salvage;
        const std::optional<std::uint32_t> key = keyOf();
        options.hasKey = key.has_value();
        options.key = key.value_or(0);
        for (const auto& [name, value] : m_plan.settings.values()) {
            if (!isSize(name) && isKept(name, value)) options.changes.push_back({name, value.text, ""});
        }
        ProgressBar bar("converting", m_source.layerCount);
        std::pair<int, ProgressBar*> threads(m_plan.threads, &bar);
        options.threads = &threads;
        options.forEach = [](void* with, std::uint32_t count, void (*work)(void*, std::uint32_t), void* context) {
            const auto& [threadsWanted, progress] = *static_cast<std::pair<int, ProgressBar*>*>(with);
            runOrdered<int, int>(
                static_cast<int>(count), threadsWanted,
                [&](int index, int&) {
                    work(context, static_cast<std::uint32_t>(index));
                    return 0;
                },
                [&, bar = progress](int index, int) { bar->advanceTo(index + 1); });
        };
        Heard heard;
        const SliceResult result = convertSliceFile(*m_source.file, temporary, options, heard.listener());
        if (result.code == SliceCode::damaged) throw Failure(describeResult(path(), result) + "; --salvage goes on");
        requireOutput(result);
        for (const SliceFinding& finding : heard.notes) {
            if (finding.severity == SliceSeverity::note) {
                hearNote(finding.text);
            } else {
                m_losses.push_back(placeText(finding.layer, finding.offset, finding.text));
            }
        }
    }

    void hearNote(const std::string& text) {
        const std::string kept = kNotKept + endingOf(m_format) + ": ";
        if (text.starts_with(kept)) {
            m_notKept.insert(m_notKept.begin(), text.substr(kept.size()));
        } else {
            m_notes.push_back(text);
        }
    }

    // ---- layers made anew

    /// The settings of the output: the source's, then the user's.
    PrintSettings outputSettings() const {
        PrintSettings s = m_source.settings;
        if (m_plan.orientation.swapsSides() && s.has("display_width_mm") && s.has("display_height_mm")) {
            const double displayWidth = s.number("display_width_mm");
            s.set("display_width_mm", s.number("display_height_mm"), Origin::job, path());
            s.set("display_height_mm", displayWidth, Origin::job, path());
        }
        if (m_plan.pads && m_images) {
            scale(s, "display_width_mm", m_images->width(), m_images->ownWidth());
            scale(s, "display_height_mm", m_images->height(), m_images->ownHeight());
        }
        s.take(m_plan.settings);
        return s;
    }

    void scale(PrintSettings& s, const char* key, int pixels, int ownPixels) const {
        if (s.has(key)) s.set(key, s.number(key) * pixels / ownPixels, Origin::job, path());
    }

    /// Gives the screen a size where nothing does.
    void assumeScreen(PrintSettings& s) {
        for (const auto& [key, pixels] : {std::pair{"display_width_mm", width()}, {"display_height_mm", height()}}) {
            if (s.has(key)) continue;
            s.set(key, pixels * kAssumedPixelMm, Origin::assumed, path());
            m_assumed.push_back(std::string(key) + " = " + s.text(key) + " mm, taking pixels of " +
                                shortNumber(kAssumedPixelMm) + " mm");
        }
    }

    void writeSlices(const std::string& temporary) {
        PrintSettings s = outputSettings();
        assumeScreen(s);
        const bool sizesFromUser = !m_images && m_plan.settings.has("resolution_x");
        SliceTarget target;
        target.format = m_format;
        target.width = static_cast<std::uint32_t>(sizesFromUser ? s.numberOr("resolution_x", 0) : width());
        target.height = static_cast<std::uint32_t>(sizesFromUser ? s.numberOr("resolution_y", height()) : height());
        target.layers = static_cast<std::uint32_t>(m_source.layerCount);
        target.like = m_source.file.get();
        const std::optional<std::uint32_t> key = keyOf();
        target.hasKey = key.has_value();
        target.key = key.value_or(0);
        SliceWriter writer;
        const SliceResult created = writer.create(temporary, target);
        // what the format cannot hold is the job's fault, not the command line's
        if (created.code == SliceCode::value) throw Failure(describeResult(path(), created));
        requireOutput(created);
        putSettings(writer, s);
        putPreviews(writer);
        requireOutput(writer.start());
        for (const std::string& note : writer.notes()) hearNote(note);
        for (const SliceAssumed& assumed : writer.assumed()) {
            const SliceKey* const spec = findSliceKey(assumed.key);
            m_assumed.push_back(assumed.key + " = " + assumed.value +
                                (spec != nullptr && *spec->unit != '\0' ? std::string(" ") + spec->unit : ""));
        }
        setScale(s);
        putLayers([&](int index, GreyImage& image, Encoded& layer) { encode(writer, index, image, layer); },
                  [&](int, Encoded&& layer) { requireOutput(writer.put(layer.slice)); });
        requireOutput(writer.finish());
    }

    /// A failure of the output, by its own name.
    void requireOutput(const SliceResult& result) const {
        if (result.code == SliceCode::file) {
            throw Failure(m_output + ": could not be written completely: " + reasonOf(result.systemCode));
        }
        require(path(), result);
    }

    void putSettings(SliceWriter& writer, const PrintSettings& s) {
        for (const auto& [key, value] : s.values()) {
            // what a slice file holds goes over with `like`
            const bool isFromFile = !m_source.isJob() && value.origin == Origin::job && m_source.settings.has(key) &&
                                    m_source.settings.text(key) == value.text;
            if (isFromFile || isSize(key) || !isKept(key, value)) continue;
            requireOutput(isTextKey(key, key) ? writer.setText(key, value.text)
                                              : writer.setNumber(key, -1, value.number));
        }
        if (!m_source.isJob()) return;
        std::map<std::string, int> lost;
        for (int i = 0; i < m_source.layerCount; ++i) {
            const PrintSettings own = m_source.layerSettings(i);
            for (const auto& [key, value] : own.values()) {
                const SliceKey* const spec = findSliceKey(key);
                if ((spec->layerFormats & 1U << static_cast<unsigned>(m_format)) == 0) {
                    ++lost[key];
                } else {
                    requireOutput(writer.setNumber(key, i, value.number));
                }
            }
        }
        for (const auto& [key, count] : lost) {
            m_notKept.push_back(key + " of " + counted(static_cast<unsigned>(count), "layer"));
        }
    }

    void putPreviews(SliceWriter& writer) const {
        std::vector<ColourImage> pictures = m_plan.previews;
        if (pictures.empty() && m_source.isJob()) pictures = picturesOfJob();
        if (m_plan.printer) {
            const auto& sizes = m_plan.printer->previews;
            for (std::uint32_t i = 0; i < std::min<std::size_t>(sizes.size(), writer.previewCount()); ++i) {
                requireOutput(writer.setPreviewSize(i, sizes[i].first, sizes[i].second));
            }
            if (pictures.empty() && !sizes.empty()) pictures = m_source.readPictures();
        }
        if (pictures.empty()) return;
        for (std::uint32_t i = 0; i < writer.previewCount(); ++i) {
            // by size: the smallest preview gets the smallest picture
            const ColourImage& picture = pictures[std::min(pictureFor(writer, i), pictures.size() - 1)];
            const std::vector<unsigned char> rgb = rgbOf(picture);
            requireOutput(writer.setPreview(i, rgb.data(), static_cast<std::uint32_t>(picture.width),
                                            static_cast<std::uint32_t>(picture.height), 0));
        }
    }

    /// The place of a preview among the file's, the smallest first.
    static std::size_t pictureFor(const SliceWriter& writer, std::uint32_t index) {
        const auto pixels = [&writer](std::uint32_t i) {
            std::uint32_t previewWidth = 0;
            std::uint32_t previewHeight = 0;
            return writer.previewSize(i, previewWidth, previewHeight).isOk()
                       ? std::uint64_t{previewWidth} * previewHeight
                       : 0;
        };
        std::size_t smaller = 0;
        for (std::uint32_t i = 0; i < writer.previewCount(); ++i) {
            if (pixels(i) < pixels(index) || (pixels(i) == pixels(index) && i < index)) ++smaller;
        }
        return smaller;
    }

    std::vector<ColourImage> picturesOfJob() const {
        std::vector<ColourImage> pictures = m_source.readPictures();
        if (!pictures.empty()) return pictures;
        GreyImage middle;
        if (m_images) {
            readMiddle(middle);
        } else {
            LayerImages(m_source, previewPlan()).read(m_source.layerCount / 2, middle);
        }
        pictures.push_back(renderLayerPreview(middle, kPreviewSide, kPreviewSide));
        return pictures;
    }

    /// The middle layer; where it is lost and the user wants the rest, the next below that can be read.
    void readMiddle(GreyImage& image) const {
        for (int index = m_source.layerCount / 2; index >= 0; --index) {
            try {
                m_images->read(index, image);
                return;
            } catch (const Failure&) {
                if (m_plan.salvage == SliceSalvage::no) throw;
            }
        }
        m_images->makeBlank(image);
    }

    /// Geometry is filled for a picture at a size that one needs, not at the screen's.
    ImagePlan previewPlan() const {
        constexpr double kSide = 1160;
        const auto [widthUm, heightUm] = screenUmOf(m_source);
        const double scaled = kSide / std::max(widthUm, heightUm);
        ImagePlan plan;
        plan.lines = {std::max(static_cast<int>(std::lround(widthUm * scaled)), 1),
                      std::max(static_cast<int>(std::lround(heightUm * scaled)), 1)};
        return plan;
    }

    void setScale(const PrintSettings& s) {
        m_scale.pixelWidthUm = s.number("display_width_mm") * kUmPerMm / width();
        m_scale.pixelHeightUm = s.number("display_height_mm") * kUmPerMm / height();
        m_scale.toleranceUm =
            m_plan.toleranceUm.value_or(kToleranceInPixels * std::min(m_scale.pixelWidthUm, m_scale.pixelHeightUm));
    }

    void encode(SliceWriter& writer, int index, GreyImage& image, Encoded& layer) {
        const auto number = static_cast<std::uint32_t>(index);
        if (!m_images) {
            const SliceShapes shapes = m_source.readShapes(index);
            requireOutput(writer.encodeShapes(number, shapes, kNaN, layer.slice));
            return;
        }
        readImage(index, image, layer);
        if (isToLines()) {
            removePadding(image);
            const double areaUm2 = static_cast<double>(countLit(image)) * m_scale.pixelWidthUm * m_scale.pixelHeightUm;
            requireOutput(writer.encodeShapes(number, shapesOf(traceOutlines(image, m_scale)),
                                              areaUm2 / (kUmPerMm * kUmPerMm), layer.slice));
            return;
        }
        const unsigned char* const pixels = image.row(0);
        const std::size_t bytes = image.pixels.size() - image.padding;
        requireOutput(writer.encode(number, pixels, image.stride(), bytes, kNaN, layer.slice));
    }

    /// Reads a layer, or what takes its place where the user wants the rest.
    void readImage(int index, GreyImage& image, Encoded& layer) const {
        try {
            m_images->read(index, image);
            return;
        } catch (const UsageFailure&) {
            throw;
        } catch (const Failure& failure) {
            if (m_plan.salvage == SliceSalvage::no) {
                throw Failure(std::string(failure.what()) + (m_source.isJob() ? "" : "; --salvage goes on"));
            }
            layer.loss = failure.what();
        }
        if (m_plan.salvage == SliceSalvage::previous) {
            for (int before = index - 1; before >= 0; --before) {
                try {
                    m_images->read(before, image);
                    layer.loss += "; layer " + std::to_string(before) + " takes its place";
                    return;
                } catch (const Failure&) {
                    continue;
                }
            }
        }
        m_images->makeBlank(image);
        layer.loss += "; a blank layer takes its place";
    }

    template <class Encode, class Put>
    void putLayers(Encode&& encodeLayer, Put&& put) {
        ProgressBar bar("converting", m_source.layerCount);
        runOrdered<GreyImage, Encoded>(
            m_source.layerCount, m_plan.threads,
            [&](int index, GreyImage& image) {
                Encoded layer;
                encodeLayer(index, image, layer);
                return layer;
            },
            [&](int index, Encoded&& layer) {
                if (!layer.loss.empty()) m_losses.push_back(withoutPath(layer.loss));
                put(index, std::move(layer));
                bar.advanceTo(index + 1);
            });
    }

    std::string withoutPath(const std::string& text) const {
        const std::string prefix = path() + ": ";
        return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
    }

    void writeJob(const std::string& temporary) {
        JobToWrite job;
        job.name = "layer";
        job.width = width();
        job.height = height();
        job.layerCount = m_source.layerCount;
        job.settings = outputSettings();
        for (int i = 0; i < m_source.layerCount; ++i) {
            const PrintSettings layer = m_source.layerSettings(i);
            for (const auto& [key, value] : layer.values()) job.layerSettings[i][key] = value.text;
        }
        job.pictures = m_plan.previews.empty() ? picturesOfJob() : m_plan.previews;
        ZipOutput zip(m_output, temporary);
        writeJobHead(job, zip);
        putLayers(
            [&](int index, GreyImage& image, Encoded& layer) {
                readImage(index, image, layer);
                removePadding(image);
                layer.png = encodePng(image);
            },
            [&](int index, Encoded&& layer) { zip.add(jobLayerName(job, index), layer.png); });
        zip.finish();
    }

    // ---- afterwards

    /// Reads the finished file back: what cannot be verified does not get its name.
    void finish(PendingFile& pending) {
        bool isIllustrative = false;
        if (m_kind == OutputKind::slices) {
            SliceFile file;
            SliceTrailer trailer;
            const bool isRead = file.open(pending.temporaryPath()).isOk() && file.trailer(trailer).isOk() &&
                                trailer.state != SliceTrailerState::wrong &&
                                trailer.state != SliceTrailerState::missing;
            if (!isRead) {
                throw Failure(m_output + ": the file read back differs from the file written; the disk may be failing");
            }
            isIllustrative = hasIllustrativeConstants(file);
        }
        pending.commit();
        for (const std::string& loss : m_losses) printError(path() + ": " + loss);
        printNotes(isIllustrative);
        std::error_code ignored;
        const auto bytes = fs::file_size(m_output, ignored);
        printRemark(printable(m_output) + ": " + std::to_string(m_source.layerCount) + " layers of " +
                    std::to_string(width()) + " x " + std::to_string(height()) + ", " + humanBytes(bytes) + "\n");
    }

    void printNotes(bool isIllustrative) const {
        if (!m_source.warning.empty()) printNote(path() + ": " + m_source.warning);
        if (verbosity() >= Verbosity::detailed) {
            for (const std::string& note : m_source.notes) printNote(note);
            for (const std::string& assumed : m_assumed) printNote(assumed);
        } else if (!m_assumed.empty()) {
            printNote(counted(m_assumed.size(), "setting") + " assumed, -v lists them");
        }
        for (const std::string& note : m_notes) printNote(note);
        if (!m_notKept.empty()) {
            std::string keys;
            for (const std::string& key : m_notKept) keys += (keys.empty() ? "" : ", ") + key;
            printNote(kNotKept + endingOf(m_format) + ": " + keys);
        }
        if (isIllustrative) {
            printNote(m_output + ": written with the illustrative scrambling constants, which no machine uses");
        }
    }

    const std::string m_output;
    const ConversionPlan& m_plan;
    Source m_source;
    OutputKind m_kind;
    SliceFormat m_format;
    std::optional<LayerImages> m_images;
    OutlineScale m_scale;
    std::vector<std::string> m_notes;
    std::vector<std::string> m_assumed;
    std::vector<std::string> m_notKept;
    std::vector<std::string> m_losses;
};

}  // namespace

OutputKind outputKindOf(const std::string& path) {
    if (sliceFormatOfPath(path) != SliceFormat::none) return OutputKind::slices;
    return endsWithIgnoringCase(path, kJobEnding) ? OutputKind::job : OutputKind::none;
}

std::string writableEndings() {
    std::string list;
    for (const SliceFormatRow& row : kSliceFormats) list += std::string(row.ending) + ", ";
    return list + kJobEnding;
}

void convertOne(const std::string& input, const std::string& output, const ConversionPlan& plan) {
    Conversion(input, output, plan).run();
}

}  // namespace vndlp::tools
