/// Layers as SVG drawings: written for people and other programs, read as layers.

#pragma once

#include "tools/drawings/polylines.h"

#include <span>
#include <string>

namespace vndlp::tools {

/// What the drawings of one file show.
struct SvgFrame {
    Box box;                     ///< in the file's units
    bool isMicrometres = false;  ///< the drawing has a size in millimetres then
};

/// The frame for a file's layers: the screen where everything lies on it, else what the layers take up.
/// \param screenUm the screen, lower left corner at the origin; empty where the file does not tell.
/// \param bounds   of all layers.
SvgFrame frameFor(const Box& screenUm, const Box& bounds);

/// Draws a layer. The numbers are those of the file; a group turns y, which grows upward in the file, over.
///
/// Closed polylines are closed subpaths, filled even-odd; open ones are drawn; vertices of a mesh are dots, those that
/// are no numbers left out.
std::string svgOf(const SliceShapes& shapes, const SvgFrame& frame);

/// A drawing read as a layer, in micrometres from its lower left corner, y up.
struct SvgDrawing {
    Polylines polylines;
    double widthUm = 0;
    double heightUm = 0;
    bool hasSize = false;  ///< it says its size; otherwise its units were taken for micrometres
};

/// Reads a drawing: `path` elements of straight lines (M L H V Z, absolute or relative), `polyline` and `polygon`,
/// within groups or not. What is not shown (`defs`, `title`, `metadata`, `display="none"`, ...) is passed over.
///
/// Micrometres come from the size in physical units and the viewBox; without a size, units are micrometres. Within a
/// group turned over by `scale(1 -1)`, as `svgOf` writes it, coordinates are taken as they are, y up.
/// \param name stands in front of a failure's text.
/// Throws Failure for other shapes, for curves, for any other transform, and for what is no SVG.
SvgDrawing readSvg(std::span<const unsigned char> bytes, const std::string& name);

}  // namespace vndlp::tools
