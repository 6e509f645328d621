/// Writing slice files: one output a format, fed with layers encoded in any thread and written in order.

#pragma once

#include "tools/base/settings.h"
#include "tools/drawings/polylines.h"
#include "tools/images/png.h"

#include <memory>
#include <string>
#include <vector>

namespace vndlp::tools {

/// A job as an output needs to know it before the first layer.
struct OutputJob {
    int width = 0;  ///< pixels of every layer
    int height = 0;
    int layerCount = 0;
    int threads = 1;                    ///< that `encode` will be called from
    PrintSettings settings;             ///< complete
    std::vector<ColourImage> pictures;  ///< 1 to 3, the smallest first
    double toleranceUm = -1;            ///< how far traced outlines may lie off; negative: as the format sees fit
};

/// One layer as it goes to the file.
struct EncodedLayer {
    std::vector<unsigned char> code;
    double litPixels = 0;
    OutlineLayer outlines;  ///< of formats whose layers are geometry, which have no code
};

class SliceOutput {
public:
    SliceOutput() = default;
    SliceOutput(const SliceOutput&) = delete;
    SliceOutput& operator=(const SliceOutput&) = delete;
    virtual ~SliceOutput() = default;

    /// Whether layers are geometry: images are traced then, and layers with their outlines filled in are taken as well.
    virtual bool holdsOutlines() const { return false; }

    /// Throws Failure when the format cannot hold the job.
    virtual void begin(const OutputJob& job) = 0;
    /// May run in several threads at once for different layers. The image may have padding.
    virtual EncodedLayer encode(int index, GreyImage& image) = 0;
    /// In order, from one thread.
    virtual void write(int index, EncodedLayer&& layer) = 0;
    /// Completes the file. Throws Failure when not everything could be written.
    virtual void finish() = 0;
};

/// The endings of the formats that can be written, "`.vndlp`" and so on, for messages.
std::string writableEndings();

/// Makes the output for a path by its ending; null when the ending is of no format that can be written.
/// \param path      decides the format.
/// \param temporary where to write; same ending.
std::unique_ptr<SliceOutput> createSliceOutput(const std::string& path, const std::string& temporary);

}  // namespace vndlp::tools
