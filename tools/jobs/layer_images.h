/// Layers of any source as images: decoded, or their shapes filled; turned, mirrored and set into a larger screen.

#pragma once

#include "tools/images/transform.h"
#include "tools/jobs/source.h"

#include <utility>

namespace vndlp::tools {

/// A resolution, pixels; 0 x 0 for none.
struct Resolution {
    int width = 0;
    int height = 0;
    bool isGiven() const { return width > 0; }
};

/// Reads "WxH". Throws UsageFailure.
Resolution parseResolution(const std::string& text);

/// How layers become images.
struct ImagePlan {
    Resolution lines;         ///< for layers that are geometry; the source's own without it
    Orientation orientation;  ///< turned after filling
    Resolution screen;        ///< black around the layer, which lies in the middle; none without it
};

/// Layers as images. May be read in several threads at once; the source must outlive it.
class LayerImages {
public:
    /// Throws Failure where layers of geometry cannot be filled: meshes, no size of the screen.
    LayerImages(const Source& source, const ImagePlan& plan);

    int width() const { return m_width; }
    int height() const { return m_height; }
    /// Pixels before they are set into the screen.
    int ownWidth() const { return m_ownWidth; }
    int ownHeight() const { return m_ownHeight; }

    /// Throws Failure, naming the layer. May leave padding.
    void read(int index, GreyImage& out) const;
    /// A layer without a lit pixel.
    void makeBlank(GreyImage& out) const;

private:
    void fill(int index, GreyImage& out) const;
    void setIntoScreen(GreyImage& image) const;

    const Source& m_source;
    ImagePlan m_plan;
    int m_rawWidth, m_rawHeight;
    int m_ownWidth, m_ownHeight;
    int m_width, m_height;
    double m_pixelXUm = 0;
    double m_pixelYUm = 0;
};

/// The screen of a source in micrometres; pixels of 50 um are taken where it is not known.
std::pair<double, double> screenUmOf(const Source& source);
constexpr double kAssumedPixelMm = 0.05;

}  // namespace vndlp::tools
