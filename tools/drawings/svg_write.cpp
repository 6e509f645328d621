#include "tools/drawings/svg.h"

#include "tools/base/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>

namespace vndlp::tools {

namespace {

/// The shortest text that gives the number back.
template <class Number>
std::string numberText(Number value) {
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return {text, end};
}

void addPoint(char command, const Vec3i& point, std::string& out) {
    out += command + numberText(point.x) + ' ' + numberText(point.y) + ' ';
}

void addSubpath(const Polyline& polyline, std::string& out) {
    const bool closed = isClosed(polyline);
    const std::size_t count = polyline.size() - (closed ? 1 : 0);
    for (std::size_t i = 0; i < count; ++i) addPoint(i == 0 ? 'M' : 'L', polyline[i], out);
    if (closed) out += 'Z';
    if (!closed) out.pop_back();
    out += '\n';
}

/// Neighbouring closed polylines share a path, so that holes are holes; the order of all is kept.
void addPolylines(const Polylines& polylines, const std::string& stroke, std::string& out) {
    bool inPath = false;
    bool pathIsClosed = false;
    for (const Polyline& polyline : polylines) {
        if (polyline.empty()) continue;
        const bool closed = isClosed(polyline);
        if (inPath && !(closed && pathIsClosed)) {
            out += "\"/>\n";
            inPath = false;
        }
        if (!inPath) {
            out += closed ? std::string("<path fill=\"#5b7fa6\" fill-rule=\"evenodd\"")
                          : "<path fill=\"none\" stroke=\"#a63d40\" stroke-width=\"" + stroke + "\"";
            out += " d=\"";
        }
        addSubpath(polyline, out);
        inPath = true;
        pathIsClosed = closed;
    }
    if (inPath) out += "\"/>\n";
}

/// \param vertices x, y of each.
void addVertices(const std::vector<float>& vertices, const std::string& stroke, std::string& out) {
    if (vertices.empty()) return;
    out += "<path fill=\"none\" stroke=\"#333\" stroke-linecap=\"round\" stroke-width=\"" + stroke + "\" d=\"";
    for (std::size_t i = 0; i + 1 < vertices.size(); i += 2) {
        if (!std::isfinite(vertices[i]) || !std::isfinite(vertices[i + 1])) continue;
        out += 'M' + numberText(vertices[i]) + ' ' + numberText(vertices[i + 1]) + "h0\n";
    }
    out += "\"/>\n";
}

}  // namespace

SvgFrame frameFor(const Box& screenUm, const Box& bounds) {
    if (!screenUm.isEmpty() && screenUm.contains(bounds)) return {screenUm, true};
    if (bounds.isEmpty()) return {{0, 0, 1, 1}, false};
    // a frame needs an extent
    return {{bounds.minX, bounds.minY, std::max(bounds.maxX, bounds.minX + 1), std::max(bounds.maxY, bounds.minY + 1)},
            false};
}

std::string svgOf(const SliceShapes& shapes, const SvgFrame& frame) {
    const double width = frame.box.maxX - frame.box.minX;
    const double height = frame.box.maxY - frame.box.minY;
    const std::string stroke = numberText(std::max(width, height) / 1000);
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"";
    if (frame.isMicrometres) {
        out += " width=\"" + shortNumber(width / 1000) + "mm\" height=\"" + shortNumber(height / 1000) + "mm\"";
    }
    out += " viewBox=\"" + numberText(frame.box.minX) + ' ' + numberText(-frame.box.maxY) + ' ' + numberText(width) +
           ' ' + numberText(height) + "\">\n";
    out += "<g transform=\"scale(1 -1)\">\n";
    addPolylines(polylinesOf(shapes), stroke, out);
    addVertices(shapes.vertices, stroke, out);
    return out + "</g>\n</svg>\n";
}

}  // namespace vndlp::tools
