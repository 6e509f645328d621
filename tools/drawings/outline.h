/// Outlines of what a grey layer cures.

#pragma once

#include "tools/drawings/polylines.h"
#include "tools/images/png.h"

namespace vndlp::tools {

/// How outlines are placed and thinned out.
struct OutlineScale {
    double pixelWidthUm = 0;
    double pixelHeightUm = 0;
    /// How far an outline may lie from the traced one. 0 drops only points on straight lines.
    double toleranceUm = 0;
};

/// Traces the outlines of an image at half grey: a pixel of 128 and above is inside.
///
/// An outline runs along the edges of pixels, moved by the grey on both sides of the edge: greys count as the part of
/// the pixel that is covered, so that an anti-aliased edge lies where it was drawn. Corners are kept; only the single
/// steps that the raster makes of anti-aliased slants are cut across. Pixels that touch only by their corners are
/// apart, unless the four pixels around the corner are brighter than half grey together. Beyond the image all is black,
/// so outlines at its border are closed.
///
/// \return closed polylines in micrometres from the lower left corner of the image, y up: outer contours
/// counter-clockwise, holes clockwise, the last point equal to the first. No contour is lost to the tolerance; a small
/// one keeps three points at least.
Polylines traceOutlines(const GreyImage& image, const OutlineScale& scale);

}  // namespace vndlp::tools
