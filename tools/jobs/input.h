/// What the commands read layers from: jobs and slice files alike.

#pragma once

#include "tools/base/settings.h"
#include "tools/drawings/polylines.h"
#include "tools/images/png.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// Layers, whatever they come from.
struct Input {
    int width = 0;  ///< pixels of every layer
    int height = 0;
    int layerCount = 0;
    /// Decodes a layer; safe in several threads at once. Throws Failure. Of layers that are geometry it makes a
    /// picture, of the layers' proportions but not of their size. May leave padding.
    std::function<void(int, GreyImage&)> readLayer;
    /// Where layers are geometry, reads one; else empty. As `readLayer`.
    std::function<OutlineLayer(int)> readOutlines;
    /// Counts the pixels above the background; as `readLayer`, `scratch` saves allocations.
    std::function<double(int, GreyImage& scratch)> countLitPixels;
    PrintSettings settings;
    std::vector<ColourImage> pictures;  ///< for previews, the smallest first; may be empty
    std::vector<std::string> notes;     ///< what was missing and assumed, for the user
};

/// Opens a job (folder or zip of pictures or drawings, SL1 archive) or a slice file. Throws Failure.
Input openInput(const std::string& path);

/// Number of pixels above the background.
double countLit(const GreyImage& image);

/// True when a picture is black all over.
bool isBlank(const ColourImage& image);

}  // namespace vndlp::tools
