#include "tools/jobs/line_input.h"

#include "tools/base/failure.h"
#include "tools/drawings/svg.h"
#include "tools/jobs/job.h"
#include "tools/jobs/job_layers.h"
#include "tools/jobs/names.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace vndlp::tools {

namespace {

/// Pictures of geometry are painted with this many pixels along their longer side.
constexpr double kPaintedSide = 1160;
constexpr double kAssumedPixelMm = 0.05;

bool isAtRoot(const JobFile& file) { return file.name.find('/') == std::string::npos; }

bool isDrawing(const JobFile& file) { return isAtRoot(file) && endsWithIgnoringCase(file.name, ".svg"); }

void paintInto(const Polylines& polylines, const Box& box, GreyImage& out) {
    const double width = box.maxX - box.minX;
    const double height = box.maxY - box.minY;
    const auto side = [&](double length) {
        return std::max(static_cast<int>(std::lround(kPaintedSide * length / std::max(width, height))), 1);
    };
    out = paint(polylines, box, side(width), side(height));
}

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
               return isAtRoot(file) && (endsWithIgnoringCase(file.name, ".png") || file.name == "config.ini");
           });
}

Input openDrawings(std::shared_ptr<const Archive> archive) {
    const std::string path = archive->path();
    const auto drawings = std::make_shared<Drawings>(std::move(archive));
    const double widthUm = drawings->first().widthUm;
    const double heightUm = drawings->first().heightUm;
    Input input;
    input.layerCount = drawings->count();
    input.width = assumedPixels(widthUm);
    input.height = assumedPixels(heightUm);
    input.settings.set("display_width_mm", widthUm / 1000, Origin::job, path);
    input.settings.set("display_height_mm", heightUm / 1000, Origin::job, path);
    if (!drawings->first().hasSize) {
        input.notes.push_back(
            "the drawings do not give their size in millimetres; their units are taken for micrometres");
    }
    input.readOutlines = [drawings](int index) {
        OutlineLayer layer;
        layer.polylines = drawings->read(index).polylines;
        layer.areaUm2 = areaBetween(layer.polylines);
        return layer;
    };
    input.readLayer = [drawings, widthUm, heightUm](int index, GreyImage& out) {
        paintInto(drawings->read(index).polylines, {0, 0, widthUm, heightUm}, out);
    };
    const double pixelUm2 = widthUm / input.width * heightUm / input.height;
    input.countLitPixels = [drawings, pixelUm2](int index, GreyImage&) {
        return areaBetween(drawings->read(index).polylines) / pixelUm2;
    };
    return input;
}

Input openLines(const std::shared_ptr<SliceFile>& file, const std::string& path) {
    Input input;
    input.width = file->width();
    input.height = file->height();
    input.layerCount = file->layerCount();
    input.settings = file->settings();
    const auto sideUm = [&input](const char* key, int pixels) {
        return input.settings.has(key) ? input.settings.number(key) * 1000 : pixels * kAssumedPixelMm * 1000;
    };
    const double widthUm = sideUm("display_width_mm", input.width);
    const double heightUm = sideUm("display_height_mm", input.height);
    input.readOutlines = [file, path](int index) {
        LayerShapes shapes = file->readShapes(index);
        if (shapes.isMesh) {
            throw Failure(path + ": layer " + std::to_string(index) +
                          " is a mesh, not polylines, and is not converted");
        }
        return OutlineLayer{std::move(shapes.polylines), shapes.areaUm2};
    };
    input.readLayer = [file, widthUm, heightUm](int index, GreyImage& out) {
        const LayerShapes shapes = file->readShapes(index);
        const Box screen{0, 0, widthUm, heightUm};
        paintInto(shapes.polylines, frameFor(screen, boundsOf(shapes.polylines)).box, out);
    };
    const double pixelUm2 = widthUm / input.width * heightUm / input.height;
    input.countLitPixels = [file, pixelUm2](int index, GreyImage&) {
        return static_cast<double>(file->layerFacts(index).area.value_or(0)) * 1000 / pixelUm2;
    };
    return input;
}

}  // namespace vndlp::tools
