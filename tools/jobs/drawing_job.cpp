#include "tools/jobs/drawing_job.h"

#include "tools/base/failure.h"
#include "tools/drawings/svg.h"
#include "tools/jobs/job.h"
#include "tools/jobs/job_layers.h"
#include "tools/jobs/job_settings.h"
#include "tools/jobs/names.h"
#include "tools/jobs/settings_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace vndlp::tools {

namespace {

constexpr double kAssumedPixelMm = 0.05;

bool isAtRoot(const JobFile& file) { return file.name.find('/') == std::string::npos; }

bool isDrawing(const JobFile& file) { return isAtRoot(file) && endsWithIgnoringCase(file.name, ".svg"); }

/// The drawings of a job, all of one size.
class Drawings {
public:
    explicit Drawings(std::shared_ptr<const Archive> archive) : m_archive(std::move(archive)) {
        for (JobFile& file : listJobFiles(*m_archive)) {
            if (isDrawing(file)) m_files.push_back(std::move(file));
        }
        std::sort(m_files.begin(), m_files.end(),
                  [](const JobFile& a, const JobFile& b) { return naturalLess(a.name, b.name); });
        if (m_files.size() > kMaxLayers) {
            throw Failure(m_archive->path() + ": " + std::to_string(m_files.size()) + " layers, but slice files hold " +
                          std::to_string(kMaxLayers));
        }
        m_first = parse(0);
    }

    int count() const { return static_cast<int>(m_files.size()); }
    /// Size and kind of all, the first one's content.
    const SvgDrawing& first() const { return m_first; }

    SvgDrawing read(int index) const {
        SvgDrawing drawing = parse(static_cast<std::size_t>(index));
        if (drawing.hasSize == m_first.hasSize && std::fabs(drawing.widthUm - m_first.widthUm) < 1 &&
            std::fabs(drawing.heightUm - m_first.heightUm) < 1) {
            return drawing;
        }
        throw Failure(label(static_cast<std::size_t>(index)) + ": its size is " + sizeText(drawing) +
                      ", that of the first layer " + sizeText(m_first) + "; layers must be of one size");
    }

private:
    static std::string sizeText(const SvgDrawing& drawing) {
        return shortNumber(drawing.widthUm / 1000, 3) + " x " + shortNumber(drawing.heightUm / 1000, 3) + " mm";
    }

    std::string label(std::size_t index) const { return m_archive->label(m_files.at(index).entry); }

    SvgDrawing parse(std::size_t index) const {
        std::vector<unsigned char> bytes;
        m_archive->readEntry(m_files.at(index).entry, bytes);
        return readSvg(bytes, label(index));
    }

    std::shared_ptr<const Archive> m_archive;
    std::vector<JobFile> m_files;
    SvgDrawing m_first;
};

/// Whole pixels of a display's side of a length.
int assumedPixels(double um) {
    return static_cast<int>(std::clamp(std::round(um / 1000 / kAssumedPixelMm), 1.0, 65535.0));
}

}  // namespace

bool holdsDrawings(const Archive& archive) {
    const std::vector<JobFile> files = listJobFiles(archive);
    const auto any = [&files](auto is) { return std::any_of(files.begin(), files.end(), is); };
    return any(isDrawing) && !any([](const JobFile& file) {
               return isAtRoot(file) && ((endsWithIgnoringCase(file.name, ".png") && !isPreviewName(file.name)) ||
                                         file.name == kConfigName);
           });
}

void takeDrawings(std::shared_ptr<const Archive> archive, Source& source) {
    const std::string path = archive->path();
    const HeldSettings held = readSettingsFile(*archive);
    const auto drawings = std::make_shared<Drawings>(std::move(archive));
    const double widthUm = drawings->first().widthUm;
    const double heightUm = drawings->first().heightUm;
    source.kind = SliceLayers::paths;
    source.layerCount = drawings->count();
    source.settings.set("display_width_mm", widthUm / 1000, Origin::job, path);
    source.settings.set("display_height_mm", heightUm / 1000, Origin::job, path);
    for (const auto& [key, value] : held.file) source.settings.set(key, value, Origin::job, path);
    const auto pixels = [&](const char* key, double um) {
        return source.settings.has(key) ? static_cast<int>(source.settings.number(key)) : assumedPixels(um);
    };
    source.width = pixels("resolution_x", widthUm);
    source.height = pixels("resolution_y", heightUm);
    if (!drawings->first().hasSize) {
        source.notes.push_back(
            "the drawings do not give their size in millimetres; their units are taken for micrometres");
    }
    source.readShapes = [drawings](int index) { return shapesOf(drawings->read(index).polylines); };
    source.readPictures = [] { return std::vector<ColourImage>(); };
    source.layerSettings = [](int) { return PrintSettings(); };
}

}  // namespace vndlp::tools
