#include "tools/jobs/source.h"

#include "tools/base/failure.h"
#include "tools/drawings/polylines.h"
#include "tools/images/rgb.h"
#include "tools/images/transform.h"
#include "tools/jobs/drawing_job.h"
#include "tools/jobs/names.h"

#include <vndlp/ctb.h>
#include <vndlp/formats.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

constexpr const char* kCannotSeek = "is a pipe or device, in which a reader cannot seek; give a file";

/// Refuses what can be no input at all. \return whether it is a folder.
bool examine(const std::string& path, std::uint64_t& bytes) {
    if (path == "-") throw Failure("-: standard input " + std::string(kCannotSeek));
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        throw Failure(path + ": cannot be opened: " + reasonOf(error ? error.value() : ENOENT));
    }
    if (fs::is_directory(status)) return true;
    if (!fs::is_regular_file(status)) throw Failure(path + ": " + kCannotSeek);
    bytes = fs::file_size(path, error);
    if (!error && bytes == 0) throw Failure(path + ": is empty");
    return false;
}

bool hasJobEnding(const std::string& path) {
    const auto endings = {".sl1", ".sl1s", ".zip"};
    return std::any_of(endings.begin(), endings.end(),
                       [&](const char* ending) { return endsWithIgnoringCase(path, ending); });
}

/// What the first bytes say, whatever the name.
bool isJobFile(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure(path + ": cannot be opened: " + reasonOf(errno));
    char head[kSniffBytes] = {};
    file.read(head, sizeof head);
    const auto got = static_cast<std::size_t>(file.gcount());
    if (sniffHead(head, got).format != SliceFormat::none) return false;
    return (got >= 2 && head[0] == 'P' && head[1] == 'K') || hasJobEnding(path);
}

std::vector<ColourImage> picturesOf(const SliceFile& file, const std::string& path) {
    std::vector<ColourImage> pictures;
    std::vector<unsigned char> rgb;
    for (std::uint32_t i = 0; i < file.info().previews; ++i) {
        SlicePreviewInfo info;
        require(path, file.previewInfo(i, info));
        if (info.isBlank || info.width == 0 || info.height == 0) continue;
        rgb.resize(std::size_t{3} * info.width * info.height);
        require(path, file.preview(i, rgb.data(), 0, rgb.size()));
        pictures.push_back(pictureOfRgb(rgb, static_cast<int>(info.width), static_cast<int>(info.height)));
    }
    return pictures;
}

void takeSlices(Source& source) {
    const SliceFile* const file = source.file.get();
    const SliceInfo& info = file->info();
    source.width = static_cast<int>(info.width);
    source.height = static_cast<int>(info.height);
    source.layerCount = static_cast<int>(info.layers);
    source.kind = info.layerKind;
    source.settings = settingsOf(*file, -1);
    const std::string path = source.path;
    source.readLayer = [file, path](int index, GreyImage& out) {
        const SliceInfo& head = file->info();
        const std::int64_t pixels = std::int64_t{head.width} * head.height;
        if (head.width == 0 || head.height == 0 || pixels > kMaxGreyPixels) {
            throw Failure(path + ": a screen of " + std::to_string(head.width) + " x " + std::to_string(head.height) +
                          " pixels is refused");
        }
        out.width = static_cast<int>(head.width);
        out.height = static_cast<int>(head.height);
        out.padding = 0;
        out.pixels.resize(static_cast<std::size_t>(pixels));
        require(path, file->layerPixels(static_cast<std::uint32_t>(index), out.pixels.data(), 0, out.pixels.size()));
    };
    source.readShapes = [file, path](int index) {
        SliceShapes shapes;
        require(path, file->layerShapes(static_cast<std::uint32_t>(index), shapes));
        return shapes;
    };
    source.readPictures = [file, path] { return picturesOf(*file, path); };
    source.layerSettings = [file](int index) { return settingsOf(*file, index); };
}

void takeJob(const std::string& path, Source& source) {
    const std::shared_ptr<LayerSource> job = openJob(path);
    source.width = job->width();
    source.height = job->height();
    source.layerCount = job->layerCount();
    takeJobSettings(job->settings(), source);
    const Orientation back{source.mirrorX, source.mirrorY, 0};
    if (back.mirrorX || back.mirrorY) {
        source.warning = std::string("the job's images are mirrored (") + (back.mirrorX ? "x" : "") +
                         (back.mirrorY ? "y" : "") +
                         ") for its display; they are flipped back, --mirror turns them again";
    }
    source.readLayer = [job, back](int index, GreyImage& out) {
        job->readPadded(index, out);
        if (!back.mirrorX && !back.mirrorY) return;
        removePadding(out);
        transform(out, back);
    };
    source.readPictures = [job] { return job->thumbnails(); };
    source.layerSettings = [job, path](int index) {
        PrintSettings settings;
        const auto found = job->settings().layers.find(index);
        if (found == job->settings().layers.end()) return settings;
        for (const auto& [key, value] : found->second) settings.set(key, value, Origin::job, path);
        return settings;
    };
}

}  // namespace

void takeJobSettings(const JobSettings& job, Source& source) {
    PrintSettings& s = source.settings;
    const auto number = [&](const char* key, const auto& value) {
        if (value) s.set(key, static_cast<double>(*value), Origin::job, source.path);
    };
    const auto text = [&](const char* key, const std::optional<std::string>& value) {
        if (value && !value->empty()) s.set(key, *value, Origin::job, source.path);
    };
    text("machine", job.printerModel);
    text("resin", job.materialName);
    // the display is described as it is built in; portrait images are turned against it
    const bool portrait = job.displayOrientation == DisplayOrientation::kPortrait;
    number("display_width_mm", portrait ? job.displayHeightMm : job.displayWidthMm);
    number("display_height_mm", portrait ? job.displayWidthMm : job.displayHeightMm);
    number("machine_height_mm", job.maxPrintHeightMm);
    number("layer_height_mm", job.layerHeightMm);
    number("exposure_s", job.exposureSeconds);
    number("bottom_exposure_s", job.firstExposureSeconds);
    number("resin_ml", job.usedMaterialMl);
    number("print_time_s", job.printTimeSeconds);
    if (job.usedMaterialMl && job.materialDensity) {
        s.set("resin_g", *job.usedMaterialMl * *job.materialDensity, Origin::job, source.path);
    }
    source.notes = job.assumptions;
    if (job.fadeLayers) {
        const int bottom = bottomLayerCount(*job.fadeLayers);
        s.set("bottom_layers", bottom, Origin::job, source.path);
        const bool isOwn = *job.fadeLayers == 2 * bottom - 1;
        if (!isOwn) {
            source.notes.push_back("bottom_layers = " + std::to_string(bottom) + ", from the job's " +
                                   counted(static_cast<unsigned>(*job.fadeLayers), "fading layer"));
        }
    }
    for (const auto& [key, value] : job.others) s.set(key, value, Origin::job, source.path);
    source.mirrorX = job.displayMirrorX.value_or(false);
    source.mirrorY = job.displayMirrorY.value_or(false);
}

Source openSource(const std::string& path) {
    Source source;
    source.path = path;
    const bool isFolder = examine(path, source.bytes);
    if (!isFolder && !isJobFile(path)) {
        source.file = std::make_unique<SliceFile>(openSlices(path));
        takeSlices(source);
        return source;
    }
    std::shared_ptr<const Archive> archive = openArchive(path);
    if (isFolder) {
        for (const ArchiveEntry& entry : archive->entries()) source.bytes += entry.size;
    }
    if (archive->damagedAt() >= 0) {
        source.damage.push_back(
            {SliceSeverity::error, archive->damagedAt(), -1,
             "the archive ends or is damaged here, whole entries: " + std::to_string(archive->entries().size())});
    }
    try {
        if (holdsDrawings(*archive)) {
            takeDrawings(std::move(archive), source);
        } else {
            takeJob(path, source);
        }
    } catch (const UsageFailure& failure) {
        throw Failure(failure.what());  // what a job says wrongly is no fault of the command line
    }
    return source;
}

SliceFile openSlices(const std::string& path) {
    std::uint64_t bytes = 0;
    if (examine(path, bytes)) throw Failure(path + ": is a folder, not a slice file");
    if (isJobFile(path)) throw Failure(path + ": is a job, not a slice file");
    SliceFile file;
    const SliceResult result = file.open(path);
    if (result.code == SliceCode::format) {
        throw Failure(path + ": not a slice file this program knows (.vndlp, .vnline, .ctb, .vndlpv4)");
    }
    require(path, result);
    return file;
}

std::string placeText(std::int64_t layer, std::int64_t offset, const std::string& text) {
    std::string place;
    if (offset >= 0) {
        char number[64];
        std::snprintf(number, sizeof number, "offset %lld (0x%llX): ", static_cast<long long>(offset),
                      static_cast<unsigned long long>(offset));
        place = number;
    }
    const std::string layerText = "layer " + std::to_string(layer);
    if (layer >= 0 && !text.starts_with(layerText)) place += layerText + ": ";
    return place + text;
}

std::string describeResult(const std::string& path, const SliceResult& result) {
    std::string text = path + ": " + placeText(result.layer, result.offset, result.text);
    if (result.systemCode == 0) return text;
    const std::string reason = reasonOf(result.systemCode);
    return text.ends_with(reason) ? text : text + ": " + reason;
}

void require(const std::string& path, const SliceResult& result) {
    switch (result.code) {
        case SliceCode::ok: return;
        case SliceCode::key:
        case SliceCode::value:
        case SliceCode::index: throw UsageFailure(describeResult(path, result));
        default: throw Failure(describeResult(path, result));
    }
}

PrintSettings settingsOf(const SliceFile& file, std::int64_t layer) {
    PrintSettings settings;
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        std::string text;
        double number = 0;
        if (key->type == SliceValueType::text) {
            if (file.text(key->name, text).isOk() && layer < 0) settings.hold(key->name, text, 0);
        } else if (file.number(key->name, layer, number).isOk()) {
            settings.hold(key->name, shortNumber(number, 9), number);
        }
    }
    return settings;
}

std::uint64_t countLit(const GreyImage& image) {
    constexpr std::size_t kBlock = 240;  // counted in one byte, so that as many pixels as possible share a vector
    const auto width = static_cast<std::size_t>(image.width);
    std::uint64_t lit = 0;
    for (int y = 0; y < image.height; ++y) {
        for (std::size_t from = 0; from < width; from += kBlock) {
            const unsigned char* const pixels = image.row(y) + from;
            const std::size_t count = std::min(kBlock, width - from);
            unsigned char litInBlock = 0;
            for (std::size_t i = 0; i < count; ++i)
                litInBlock = static_cast<unsigned char>(litInBlock + (pixels[i] > kLitThreshold));
            lit += litInBlock;
        }
    }
    return lit;
}

bool isBlank(const ColourImage& image) {
    for (std::size_t i = 0; i < image.pixels.size(); i += 4) {
        if (image.pixels[i] != 0 || image.pixels[i + 1] != 0 || image.pixels[i + 2] != 0) return false;
    }
    return true;
}

double areaOf(const SliceShapes& shapes) {
    return shapes.kind == SliceLayers::paths ? areaBetween(polylinesOf(shapes)) : 0;
}

bool hasIllustrativeConstants(const SliceFile& file) {
    SliceRawField key;
    const bool isScrambled = file.raw("HeaderSettings.encryptionKey", key).isOk() && key.integer != 0;
    return file.info().format == SliceFormat::ctb && isScrambled && CTB::areScramblingConstantsIllustrative();
}

}  // namespace vndlp::tools
