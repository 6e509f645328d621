#include "tools/jobs/input.h"

#include "tools/base/failure.h"
#include "tools/formats/slice_file.h"
#include "tools/jobs/job.h"
#include "tools/jobs/line_input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

/// True for folders and zip archives, which hold jobs; slice files are told by their own magics.
bool isJob(const std::string& path) {
    if (fs::is_directory(path)) return true;
    std::ifstream file(path, std::ios::binary);
    char head[2] = {};
    file.read(head, sizeof head);
    const std::string extension = fs::path(path).extension().string();
    return (head[0] == 'P' && head[1] == 'K') || extension == ".sl1" || extension == ".sl1s" || extension == ".zip";
}

void takeJobSettings(const JobSettings& job, const std::string& where, Input& input) {
    PrintSettings& s = input.settings;
    const auto number = [&](const char* key, const auto& value) {
        if (value) s.set(key, static_cast<double>(*value), Origin::job, where);
    };
    if (job.printerModel && !job.printerModel->empty()) s.set("machine", *job.printerModel, Origin::job, where);
    if (job.materialName && !job.materialName->empty()) s.set("resin", *job.materialName, Origin::job, where);
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
        s.set("resin_g", *job.usedMaterialMl * *job.materialDensity, Origin::job, where);
    }
    input.notes = job.assumptions;
    if (job.fadeLayers) {
        const int bottom = bottomLayerCount(*job.fadeLayers);
        s.set("bottom_layers", bottom, Origin::job, where);
        input.notes.push_back("bottom_layers = " + std::to_string(bottom) + ", from the job's " +
                              std::to_string(*job.fadeLayers) + " fading layers");
    }
}

}  // namespace

Input openInput(const std::string& path) {
    Input input;
    std::error_code ignored;
    if (!fs::exists(path, ignored)) throw Failure(path + ": does not exist");
    if (isJob(path)) {
        std::shared_ptr<const Archive> archive = openArchive(path);
        if (holdsDrawings(*archive)) return openDrawings(std::move(archive));
        std::shared_ptr<LayerSource> job = openJob(path);
        input.width = job->width();
        input.height = job->height();
        input.layerCount = job->layerCount();
        input.pictures = job->thumbnails();
        takeJobSettings(job->settings(), path, input);
        input.readLayer = [job](int index, GreyImage& out) { job->readPadded(index, out); };
        input.countLitPixels = [job](int index, GreyImage& scratch) {
            job->readPadded(index, scratch);
            return countLit(scratch);
        };
        return input;
    }
    std::shared_ptr<SliceFile> file = openSliceFile(path);
    const auto takePictures = [&file](Input& to) {
        for (Preview& preview : file->previews()) {
            if (!isBlank(preview.image)) to.pictures.push_back(std::move(preview.image));
        }
    };
    if (!file->hasImages()) {
        input = openLines(file, path);
        takePictures(input);
        return input;
    }
    input.width = file->width();
    input.height = file->height();
    input.layerCount = file->layerCount();
    input.settings = file->settings();
    takePictures(input);
    input.readLayer = [file](int index, GreyImage& out) { file->readLayer(index, out); };
    input.countLitPixels = [file](int index, GreyImage&) {
        return static_cast<double>(file->layerFacts(index).litPixels);
    };
    return input;
}

double countLit(const GreyImage& image) {
    constexpr unsigned char darkest = 15;
    constexpr std::size_t block = 240;  // counted in one byte, so that as many pixels as possible share a vector
    const auto width = static_cast<std::size_t>(image.width);
    std::uint64_t lit = 0;
    for (std::size_t at = 0, blocks = (width + block - 1) / block; at < blocks * static_cast<std::size_t>(image.height);
         ++at) {
        const std::size_t from = at % blocks * block;
        const unsigned char* const pixels = image.row(static_cast<int>(at / blocks)) + from;
        const std::size_t count = std::min(block, width - from);
        unsigned char litInBlock = 0;
        for (std::size_t i = 0; i < count; ++i)
            litInBlock = static_cast<unsigned char>(litInBlock + (pixels[i] > darkest));
        lit += litInBlock;
    }
    return static_cast<double>(lit);
}

bool isBlank(const ColourImage& image) {
    for (std::size_t i = 0; i < image.pixels.size(); i += 4) {
        if (image.pixels[i] != 0 || image.pixels[i + 1] != 0 || image.pixels[i + 2] != 0) return false;
    }
    return true;
}

}  // namespace vndlp::tools
