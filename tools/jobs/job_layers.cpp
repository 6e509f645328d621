#include "tools/jobs/job_layers.h"

#include "tools/base/failure.h"
#include "tools/jobs/names.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace vndlp::tools {

namespace {

constexpr std::string_view kPngSuffix = ".png";
constexpr std::size_t kNumberDigits = 5;  // at least, in the name of a numbered layer

struct NumberedLayer {
    JobFile file;
    std::string_view prefix;  // of the name in the list of files
    std::uint64_t number = 0;
};

[[noreturn]] void fail(const Archive& archive, const std::string& what) {
    throw Failure(archive.path() + ": " + what + kMakeAgain);
}

[[noreturn]] void failAt(const Archive& archive, const std::string& name, const std::string& what) {
    fail(archive, printable(name) + ": " + what);
}

std::string layerName(std::string_view prefix, std::uint64_t number) {
    const std::string digits = std::to_string(number);
    const std::size_t zeros = kNumberDigits - std::min(digits.size(), kNumberDigits);
    return std::string(prefix) + std::string(zeros, '0') + digits + std::string(kPngSuffix);
}

/// Splits a layer's name into prefix and digits. With the job's name unknown the last five digits are the number, for
/// nothing tells digits before them from digits that end the job's name.
std::optional<std::pair<std::string_view, std::string_view>> splitLayerName(std::string_view name,
                                                                            const std::optional<std::string>& jobDir) {
    if (!name.ends_with(kPngSuffix)) return std::nullopt;
    const std::string_view stem = name.substr(0, name.size() - kPngSuffix.size());
    const std::size_t digits = trailingDigits(stem).size();
    if (digits < kNumberDigits) return std::nullopt;
    const std::size_t prefix = jobDir ? jobDir->size() : stem.size() - kNumberDigits;
    const bool isLayer =
        jobDir ? stem.starts_with(*jobDir) && stem.size() - prefix >= kNumberDigits && digits >= stem.size() - prefix
               : stem.find('/') == std::string_view::npos;
    if (!isLayer) return std::nullopt;
    return std::pair(stem.substr(0, prefix), stem.substr(prefix));
}

void requireUnbrokenNumbers(const Archive& archive, const std::vector<NumberedLayer>& layers) {
    for (std::size_t i = 0; i < layers.size(); ++i) {
        const NumberedLayer& layer = layers[i];
        if (layer.number == i) continue;
        if (i > 0 && layer.number == layers[i - 1].number)
            failAt(archive, layer.file.name,
                   "is layer " + std::to_string(layer.number) + ", and so is " + printable(layers[i - 1].file.name));
        failAt(archive, layerName(layer.prefix, i),
               "this layer is missing, though " + printable(layer.file.name) + " is there");
    }
}

void requireCount(const Archive& archive, std::string_view prefix, std::size_t found, const JobSettings& settings) {
    if (!settings.slowLayers || !settings.fastLayers) return;
    const std::uint64_t expected =
        static_cast<std::uint64_t>(*settings.slowLayers) + static_cast<std::uint64_t>(*settings.fastLayers);
    if (found == expected) return;
    failAt(archive, layerName(prefix, std::min<std::uint64_t>(found, expected)),
           std::string(found < expected ? "this layer is missing: " : "this layer is one too many: ") + kConfigName +
               " gives " + std::to_string(expected) + " layers (numSlow " + std::to_string(*settings.slowLayers) +
               " + numFast " + std::to_string(*settings.fastLayers) + "), the job holds " + std::to_string(found));
}

/// The layers of a cut archive, lost ones among them.
std::vector<JobFile> placeByNumber(const std::vector<NumberedLayer>& layers, const JobSettings& settings) {
    constexpr std::uint64_t kMostLayers = 65535;
    const std::uint64_t told = static_cast<std::uint64_t>(settings.slowLayers.value_or(0)) +
                               static_cast<std::uint64_t>(settings.fastLayers.value_or(0));
    const std::uint64_t count = std::min(std::max(told, layers.back().number + 1), kMostLayers);
    std::vector<JobFile> result(count, {"", kLostEntry});
    for (const NumberedLayer& layer : layers) {
        if (layer.number < count) result[layer.number] = layer.file;
    }
    return result;
}

/// The digits that end a plain layer's name.
std::string_view plainNumber(const JobFile& layer) {
    return trailingDigits(std::string_view(layer.name).substr(0, layer.name.size() - kPngSuffix.size()));
}

/// Plain layers may be numbered in steps or be a choice of layers: a gap is told, not refused.
void noteGap(const std::vector<JobFile>& layers, JobSettings& settings) {
    const auto follows = [](const JobFile& before, const JobFile& layer) {
        return plainNumber(before).empty() || plainNumber(layer).empty() ||
               numberOf(plainNumber(layer)) == numberOf(plainNumber(before)) + 1;
    };
    for (std::size_t i = 1; i < layers.size(); ++i) {
        if (follows(layers[i - 1], layers[i])) continue;
        settings.assumptions.push_back("The layers' numbers have gaps (" + printable(layers[i].name) +
                                       " comes behind " + printable(layers[i - 1].name) +
                                       "): the layers are taken as if they had none.");
        return;
    }
}

}  // namespace

std::vector<JobFile> listJobFiles(const Archive& archive) {
    std::vector<JobFile> files;
    for (std::size_t i = 0; i < archive.entries().size(); ++i) {
        const std::string& name = archive.entries()[i].name;
        if (!isHidden(name)) files.push_back({name, i});
    }
    if (files.empty()) return files;
    const std::size_t slash = files.front().name.find('/');
    const std::string root = slash == std::string::npos ? "" : files.front().name.substr(0, slash + 1);
    const bool liesInRoot =
        std::all_of(files.begin(), files.end(), [&](const JobFile& file) { return file.name.starts_with(root); });
    if (liesInRoot) {
        for (JobFile& file : files) file.name.erase(0, root.size());
    }
    return files;
}

std::vector<JobFile> findNumberedLayers(const Archive& archive, const std::vector<JobFile>& files,
                                        JobSettings& settings) {
    std::vector<NumberedLayer> layers;
    for (const JobFile& file : files) {
        if (const auto parts = splitLayerName(file.name, settings.jobDir))
            layers.push_back({file, parts->first, numberOf(parts->second)});
    }
    if (layers.empty())
        fail(archive, "holds no layers: nothing in it is named like " +
                          printable(layerName(settings.jobDir.value_or("job"), 0)));
    std::stable_sort(layers.begin(), layers.end(),
                     [](const NumberedLayer& a, const NumberedLayer& b) { return a.number < b.number; });
    const std::string_view prefix = layers.front().prefix;
    for (const NumberedLayer& layer : layers) {
        if (layer.prefix != prefix)
            failAt(archive, layer.file.name,
                   "belongs to another job than " + printable(layers.front().file.name) + ", and no jobDir in " +
                       kConfigName + " says which one to take");
    }
    if (!settings.jobDir)
        settings.assumptions.push_back(std::string(kConfigName) + " does not give jobDir: it is taken to be " +
                                       printable(prefix) + ", by the layers' names.");
    if (archive.damagedAt() >= 0) return placeByNumber(layers, settings);
    requireUnbrokenNumbers(archive, layers);
    requireCount(archive, prefix, layers.size(), settings);
    std::vector<JobFile> result;
    result.reserve(layers.size());
    for (const NumberedLayer& layer : layers) result.push_back(layer.file);
    return result;
}

std::vector<JobFile> findPlainLayers(const Archive& archive, const std::vector<JobFile>& files, JobSettings& settings) {
    std::vector<JobFile> layers;
    for (const JobFile& file : files) {
        if (isPreviewName(file.name)) continue;
        if (file.name.find('/') == std::string::npos && endsWithIgnoringCase(file.name, kPngSuffix))
            layers.push_back(file);
    }
    if (layers.empty())
        throw Failure(archive.path() + ": holds no layers: neither " + kConfigName + " nor a PNG image is in it");
    std::sort(layers.begin(), layers.end(),
              [](const JobFile& a, const JobFile& b) { return naturalLess(a.name, b.name); });
    for (std::size_t i = 1; i < layers.size(); ++i) {
        if (layers[i].name == layers[i - 1].name) failAt(archive, layers[i].name, "is in the archive more than once");
    }
    noteGap(layers, settings);
    return layers;
}

}  // namespace vndlp::tools
