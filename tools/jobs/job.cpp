#include "tools/jobs/job.h"

#include "tools/base/failure.h"
#include "tools/jobs/archive.h"
#include "tools/jobs/job_layers.h"
#include "tools/jobs/names.h"
#include "tools/jobs/settings_file.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace vndlp::tools {

namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

class ImageJob : public LayerSource {
public:
    explicit ImageJob(std::unique_ptr<Archive> archive);

    int layerCount() const override { return static_cast<int>(m_layers.size()); }
    int width() const override { return m_width; }
    int height() const override { return m_height; }
    const JobSettings& settings() const override { return m_settings; }
    void readPadded(int index, GreyImage& out) override;
    std::vector<ColourImage> thumbnails() override;
    std::vector<std::uint32_t> writeWhole(ZipOutput& zip) override;

private:
    std::optional<std::string> readText(std::string_view name) const;
    void readHeaders();
    void requireSameSize(const PngHeader& header, const std::string& label) const;
    void matchDisplay();
    void noteMissingValues();
    void note(const std::string& assumption) { m_settings.assumptions.push_back(assumption); }

    std::unique_ptr<Archive> m_archive;
    std::vector<JobFile> m_files;
    std::vector<JobFile> m_layers;
    bool m_isSliced = false;
    JobSettings m_settings;
    int m_width = 0;
    int m_height = 0;
};

ImageJob::ImageJob(std::unique_ptr<Archive> archive) : m_archive(std::move(archive)) {
    const std::string& path = m_archive->path();
    m_files = listJobFiles(*m_archive);
    const std::optional<std::string> config = readText(kConfigName);
    const std::optional<std::string> printerConfig = readText(kPrinterConfigName);
    m_settings = parseJobSettings(path, config, printerConfig);
    m_isSliced = config || printerConfig || endsWithIgnoringCase(path, ".sl1") || endsWithIgnoringCase(path, ".sl1s");
    HeldSettings held = readSettingsFile(*m_archive);
    m_settings.others = std::move(held.file);
    m_settings.layers = std::move(held.layers);
    m_layers = m_isSliced ? findNumberedLayers(*m_archive, m_files, m_settings)
                          : findPlainLayers(*m_archive, m_files, m_settings);
    if (m_layers.size() > kMaxLayers)
        throw Failure(path + ": holds " + std::to_string(m_layers.size()) + " layers; a slice file counts " +
                      std::to_string(kMaxLayers) + " at most");
    readHeaders();
    if (m_isSliced) {
        noteMissingValues();
        matchDisplay();
    } else if (m_settings.others.empty()) {
        note(
            "Plain PNG layers have no settings: exposure, layer height and the screen's size in millimetres are not "
            "known.");
    }
}

std::optional<std::string> ImageJob::readText(std::string_view name) const {
    constexpr std::uint64_t kMaxTextBytes = 1 << 20;
    const auto found =
        std::find_if(m_files.begin(), m_files.end(), [&](const JobFile& file) { return file.name == name; });
    if (found == m_files.end()) return std::nullopt;
    const std::uint64_t size = m_archive->entries()[found->entry].size;
    if (size > kMaxTextBytes)
        throw Failure(m_archive->label(found->entry) + ": has " + std::to_string(size) +
                      " bytes; settings of more than " + std::to_string(kMaxTextBytes) + " are refused");
    std::vector<unsigned char> bytes;
    m_archive->readEntry(found->entry, bytes);
    return std::string(bytes.begin(), bytes.end());
}

void ImageJob::readHeaders() {
    std::vector<unsigned char> head;
    for (const JobFile& layer : m_layers) {
        if (layer.entry == kLostEntry) continue;
        const std::string label = m_archive->label(layer.entry);
        m_archive->readHead(layer.entry, kPngHeadBytes, head);
        if (head.empty()) throw Failure(label + ": is empty, the layer is lost" + kMakeAgain);
        const PngHeader header = readPngHeader(head, label);
        requireGreyLayer(header, label);
        if (m_width == 0) {
            m_width = header.width;
            m_height = header.height;
        }
        requireSameSize(header, label);
    }
}

void ImageJob::requireSameSize(const PngHeader& header, const std::string& label) const {
    if (header.width != m_width || header.height != m_height)
        throw Failure(label + ": is " + sizeText(header.width, header.height) + " pixels, but " +
                      printable(m_layers.front().name) + " is " + sizeText(m_width, m_height) +
                      "; all layers have to be of the screen's size" + kMakeAgain);
}

void ImageJob::matchDisplay() {
    const std::string layers = sizeText(m_width, m_height);
    const std::string config = kPrinterConfigName;
    if (!m_settings.displayPixelsX || !m_settings.displayPixelsY) {
        note(config + " does not give the screen's pixels: the layers' size, " + layers + ", is taken.");
        return;
    }
    int x = *m_settings.displayPixelsX;
    int y = *m_settings.displayPixelsY;
    if (!m_settings.displayOrientation) {
        const bool isTurned = x != y && m_width == y && m_height == x;
        m_settings.displayOrientation = isTurned ? DisplayOrientation::kPortrait : DisplayOrientation::kLandscape;
        note(config + " does not give display_orientation: " + (isTurned ? "portrait" : "landscape") +
             " is taken, by the layers' size.");
    }
    const bool isPortrait = *m_settings.displayOrientation == DisplayOrientation::kPortrait;
    if (isPortrait) std::swap(x, y);
    if (x != m_width || y != m_height)
        throw Failure(m_archive->label(m_layers.front().entry) + ": is " + layers + " pixels, but " + config +
                      " gives " + sizeText(x, y) + (isPortrait ? " (portrait)" : " (landscape)") +
                      "; slice the model again for the right printer");
}

void ImageJob::noteMissingValues() {
    const JobSettings& s = m_settings;
    if (!s.slowLayers || !s.fastLayers)
        note(std::string(kConfigName) + " does not give the number of layers: the " + std::to_string(m_layers.size()) +
             " found are taken for all.");
    if (!s.layerHeightMm) note("The job does not give the layer height.");
    if (!s.exposureSeconds) note("The job does not give the exposure.");
    if (!s.firstExposureSeconds)
        note("The job does not give the first layer's exposure: it is taken to be that of the others.");
    if (!s.fadeLayers) note("The job does not give the number of fading layers: 0 is taken.");
    if (!s.displayWidthMm || !s.displayHeightMm) note("The job does not give the screen's size in millimetres.");
}

void ImageJob::readPadded(int index, GreyImage& out) {
    thread_local std::vector<unsigned char> bytes;
    try {
        const std::size_t entry = m_layers.at(static_cast<std::size_t>(index)).entry;
        if (entry == kLostEntry)
            throw Failure(m_archive->path() + ": layer " + std::to_string(index) + " is not in what is left of it");
        const std::string label = m_archive->label(entry);
        m_archive->readEntry(entry, bytes);
        // files of a folder may have changed since their headers were read
        requireSameSize(readPngHeader(bytes, label), label);
        decodePaddedLayer(bytes, label, out);
    } catch (...) {
        out = {};
        throw;
    }
}

/// Pixels of a picture named `thumbnail/thumbnail<width>x<height>.png`; empty for other names.
std::optional<std::uint64_t> thumbnailPixels(std::string_view name) {
    constexpr std::string_view kPrefix = "thumbnail/thumbnail";
    constexpr std::string_view kSuffix = ".png";
    if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix)) return std::nullopt;
    name = name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
    const std::string_view width = leadingDigits(name);
    const std::string_view height = trailingDigits(name);
    if (width.empty() || height.empty() || name.size() != width.size() + 1 + height.size() || name[width.size()] != 'x')
        return std::nullopt;
    constexpr std::uint64_t kMaxSide = kMaxImageSide;
    return std::min(numberOf(width), kMaxSide) * std::min(numberOf(height), kMaxSide);
}

std::vector<ColourImage> ImageJob::thumbnails() {
    constexpr std::size_t kMaxThumbnails = 3;
    std::vector<std::pair<std::uint64_t, std::size_t>> found;  // pixels, entry
    std::vector<unsigned char> bytes;
    for (const JobFile& file : m_files) {
        if (const auto pixels = thumbnailPixels(file.name)) found.emplace_back(*pixels, file.entry);
        if (!isPreviewName(file.name)) continue;
        m_archive->readHead(file.entry, kPngHeadBytes, bytes);
        const PngHeader header = readPngHeader(bytes, m_archive->label(file.entry));
        found.emplace_back(static_cast<std::uint64_t>(header.width) * static_cast<std::uint64_t>(header.height),
                           file.entry);
    }
    std::sort(found.begin(), found.end());
    const std::size_t surplus = found.size() - std::min(found.size(), kMaxThumbnails);
    std::vector<ColourImage> pictures;
    for (std::size_t i = surplus; i < found.size(); ++i) {
        m_archive->readEntry(found[i].second, bytes);
        pictures.push_back(decodeColour(bytes, m_archive->label(found[i].second)));
    }
    return pictures;
}

/// config.ini with another number of layers.
std::string withLayerCount(const std::string& config, std::size_t count) {
    std::string text;
    std::istringstream lines(config);
    for (std::string line; std::getline(lines, line);) {
        const std::string end = line.ends_with('\r') ? "\r\n" : "\n";
        const std::string key = line.substr(0, line.find_first_of(" \t="));
        if (key == "numSlow")
            line = "numSlow = 0" + end;
        else if (key == "numFast")
            line = "numFast = " + std::to_string(count) + end;
        else
            line += "\n";
        text += line;
    }
    return text;
}

/// The name of a layer with another number of as many digits.
std::string renumbered(const std::string& name, std::size_t number) {
    constexpr std::size_t kDigits = 5;
    const std::size_t stem = name.rfind('.');
    const std::string digits = std::to_string(number);
    return name.substr(0, stem - kDigits) + std::string(kDigits - std::min(digits.size(), kDigits), '0') + digits +
           name.substr(stem);
}

std::vector<std::uint32_t> ImageJob::writeWhole(ZipOutput& zip) {
    std::vector<std::uint32_t> whole;
    GreyImage image;
    for (int i = 0; i < layerCount(); ++i) {
        try {
            readPadded(i, image);
            whole.push_back(static_cast<std::uint32_t>(i));
        } catch (const Failure&) {
            continue;  // left out
        }
    }
    if (whole.empty()) throw Failure(m_archive->path() + ": no layer is whole");
    std::set<std::size_t> layers;
    for (const JobFile& layer : m_layers) layers.insert(layer.entry);
    std::vector<unsigned char> bytes;
    for (const JobFile& file : m_files) {
        if (layers.count(file.entry) != 0 || file.name == kArchiveSettingsName || file.name == kFolderSettingsName)
            continue;
        m_archive->readEntry(file.entry, bytes);
        if (file.name == kConfigName) {
            zip.add(file.name, withLayerCount(std::string(bytes.begin(), bytes.end()), whole.size()));
        } else {
            zip.add(file.name, bytes);
        }
    }
    HeldSettings held{m_settings.others, {}};
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const auto own = m_settings.layers.find(static_cast<int>(whole[i]));
        if (own != m_settings.layers.end()) held.layers[static_cast<int>(i)] = own->second;
    }
    if (!held.file.empty() || !held.layers.empty()) zip.add(kArchiveSettingsName, settingsText(held));
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const JobFile& layer = m_layers[whole[i]];
        m_archive->readEntry(layer.entry, bytes);
        zip.add(m_isSliced ? renumbered(layer.name, i) : layer.name, bytes);
    }
    return whole;
}

}  // namespace

std::unique_ptr<LayerSource> openJob(const std::string& path) { return std::make_unique<ImageJob>(openArchive(path)); }

}  // namespace vndlp::tools
