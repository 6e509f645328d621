/// Layers as geometry: polylines in the plane of the layer.
///
/// Coordinates of files this program writes are micrometres from the lower left corner of the screen, x to the right, y
/// up; files of others may have units and an origin of their own. A polyline is closed where its last point equals its
/// first. Points are written with x and y only; `Vec3i::z` has no meaning here.

#pragma once

#include "tools/images/png.h"

#include <vndlp/image.h>
#include <vndlp/slice_file.h>

#include <vector>

namespace vndlp::tools {

using Polyline = std::vector<Vec3i>;
using Polylines = std::vector<Polyline>;

/// A layer of polylines and the area it cures.
struct OutlineLayer {
    Polylines polylines;
    double areaUm2 = 0;
};

/// Polylines as the library's model has them.
SliceShapes shapesOf(const Polylines& polylines);
/// The other way; none for a mesh.
Polylines polylinesOf(const SliceShapes& shapes);

bool isClosed(const Polyline& polyline);

/// A rectangle; empty while `maxX` is below `minX`.
struct Box {
    double minX = 0;
    double minY = 0;
    double maxX = -1;
    double maxY = -1;

    bool isEmpty() const { return maxX < minX; }
    void add(double x, double y);
    void add(const Box& other);
    bool contains(const Box& other) const;
};

Box boundsOf(const Polylines& polylines);

/// Area between outlines, counted even-odd: inside an outer contour, not inside a hole in it, inside an island in the
/// hole. Open polylines have none. Right for contours that do not cross; their directions do not matter.
double areaBetween(const Polylines& polylines);

/// Paints the insides of closed polylines, even-odd, white on black: a pixel is white where its centre is inside.
/// \param box what the image shows, its upper edge at the first row.
GreyImage paint(const Polylines& polylines, const Box& box, int width, int height);

}  // namespace vndlp::tools
