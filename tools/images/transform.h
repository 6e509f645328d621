/// Turning, mirroring and scaling of images.

#pragma once

#include "tools/images/png.h"

namespace vndlp::tools {

/// How a layer is turned: mirrored first, rotated then.
struct Orientation {
    bool mirrorX = false;    ///< exchange left and right
    bool mirrorY = false;    ///< exchange top and bottom
    int clockwiseTurns = 0;  ///< quarter turns, 0 to 3

    bool swapsSides() const { return clockwiseTurns % 2 != 0; }
};

/// Turns an image in place; width and height change places with an odd number of quarter turns.
void transform(GreyImage& image, const Orientation& orientation);

/// Scales a picture, up or down, to the largest size of its proportions within width x height, centred, the rest black.
/// Every pixel is the average of the area it covers. Transparent parts come out black, and alpha is 255 everywhere.
/// \param width, height at least 1.
ColourImage resizeColour(const ColourImage& image, int width, int height);

/// Scales an image down so that its longer side has `longerSide` pixels, every pixel the average of the area it covers; a
/// smaller image is left as it is.
void shrink(GreyImage& image, int longerSide);

/// A picture of a layer for a printer's display: the screen in dark grey, cured parts light, scaled and centred as by
/// `resizeColour`.
/// \param width, height at least 1.
ColourImage renderLayerPreview(const GreyImage& layer, int width, int height);

}  // namespace vndlp::tools
