#include "tools/jobs/layer_images.h"

#include "tools/base/failure.h"
#include "tools/drawings/polylines.h"

#include <vndlp/job_check.h>

#include <algorithm>
#include <cstring>

namespace vndlp::tools {

namespace {

constexpr double kUmPerMm = 1000;

}  // namespace

Resolution parseResolution(const std::string& text) {
    const std::size_t x = text.find_first_of("xX");
    double width = 0;
    double height = 0;
    const auto isSide = [](double side) {
        return side >= 1 && side <= kMaxImageSide && side == static_cast<int>(side);
    };
    const bool isRead = x != std::string::npos && parseNumber(text.substr(0, x), width) &&
                        parseNumber(text.substr(x + 1), height) && isSide(width) && isSide(height);
    if (!isRead) throw UsageFailure("--resolution " + text + ": expected WIDTHxHEIGHT such as 1440x2560");
    return {static_cast<int>(width), static_cast<int>(height)};
}

std::pair<double, double> screenUmOf(const Source& source) {
    const double width = source.settings.numberOr("display_width_mm", source.width * kAssumedPixelMm);
    const double height = source.settings.numberOr("display_height_mm", source.height * kAssumedPixelMm);
    return {width * kUmPerMm, height * kUmPerMm};
}

LayerImages::LayerImages(const Source& source, const ImagePlan& plan)
    : m_source(source), m_plan(plan), m_rawWidth(source.width), m_rawHeight(source.height) {
    if (source.kind != SliceLayers::images) {
        if (plan.lines.isGiven()) {
            m_rawWidth = plan.lines.width;
            m_rawHeight = plan.lines.height;
        }
        const auto [widthUm, heightUm] = screenUmOf(source);
        if (m_rawWidth <= 0 || m_rawHeight <= 0 || widthUm <= 0 || heightUm <= 0) {
            throw Failure(source.path + ": does not tell its screen; --resolution WxH does");
        }
        m_pixelXUm = widthUm / m_rawWidth;
        m_pixelYUm = heightUm / m_rawHeight;
    }
    const bool turned = plan.orientation.swapsSides();
    m_ownWidth = turned ? m_rawHeight : m_rawWidth;
    m_ownHeight = turned ? m_rawWidth : m_rawHeight;
    m_width = plan.screen.isGiven() ? plan.screen.width : m_ownWidth;
    m_height = plan.screen.isGiven() ? plan.screen.height : m_ownHeight;
}

void LayerImages::fill(int index, GreyImage& out) const {
    const SliceShapes shapes = m_source.readShapes(index);
    if (shapes.kind == SliceLayers::mesh) {
        throw Failure(m_source.path + ": layer " + std::to_string(index) + " is a mesh, which has no outlines to fill");
    }
    out.width = m_rawWidth;
    out.height = m_rawHeight;
    out.padding = 0;
    out.pixels.assign(static_cast<std::size_t>(m_rawWidth) * static_cast<std::size_t>(m_rawHeight), 0);
    const std::vector<LitRun> runs =
        litRunsOfPolylines(polylinesOf(shapes), static_cast<std::uint32_t>(m_rawWidth),
                           static_cast<std::uint32_t>(m_rawHeight), m_pixelXUm, m_pixelYUm);
    for (const LitRun& run : runs) {
        unsigned char* const row = out.pixels.data() + std::size_t{run.line} * out.stride();
        std::fill(row + run.first, row + run.last + 1, static_cast<unsigned char>(255));
    }
}

void LayerImages::setIntoScreen(GreyImage& image) const {
    if (m_width == m_ownWidth && m_height == m_ownHeight) return;
    GreyImage screen{m_width, m_height, {}};
    screen.pixels.assign(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height), 0);
    const auto left = static_cast<std::size_t>((m_width - m_ownWidth) / 2);
    const auto top = static_cast<std::size_t>((m_height - m_ownHeight) / 2);
    for (int y = 0; y < image.height; ++y) {
        unsigned char* const row = screen.pixels.data() + (top + static_cast<std::size_t>(y)) * screen.stride() + left;
        std::memcpy(row, image.row(y), static_cast<std::size_t>(image.width));
    }
    image = std::move(screen);
}

void LayerImages::read(int index, GreyImage& out) const {
    if (m_source.kind == SliceLayers::images) {
        m_source.readLayer(index, out);
    } else {
        fill(index, out);
    }
    transform(out, m_plan.orientation);
    setIntoScreen(out);
}

void LayerImages::makeBlank(GreyImage& out) const {
    out.width = m_width;
    out.height = m_height;
    out.padding = 0;
    out.pixels.assign(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height), 0);
}

}  // namespace vndlp::tools
