/// A print job as the program takes it in: numbered layers, settings, pictures.

#pragma once

#include "tools/images/png.h"
#include "tools/jobs/job_settings.h"
#include "tools/jobs/zip_output.h"

#include <memory>
#include <string>
#include <vector>

namespace vndlp::tools {

/// The file format counts layers with 16 bits.
constexpr int kMaxLayers = 65535;

/// The layers of a job, readable in any order and from several threads at once.
class LayerSource {
public:
    LayerSource() = default;
    LayerSource(const LayerSource&) = delete;
    LayerSource& operator=(const LayerSource&) = delete;
    virtual ~LayerSource() = default;

    /// 1 to kMaxLayers.
    virtual int layerCount() const = 0;
    /// Pixels a row, the same in every layer.
    virtual int width() const = 0;
    /// Rows, the same in every layer.
    virtual int height() const = 0;
    virtual const JobSettings& settings() const = 0;

    /// Reads one layer as the job holds it.
    /// \param index from 0, the layer next to the build plate.
    /// \param out   receives width() x height() pixels; give the same object again to save its allocation.
    /// Throws Failure naming the layer; `out` is an empty image then.
    void readLayer(int index, GreyImage& out) {
        readPadded(index, out);
        removePadding(out);
    }
    /// The same, and leaves bytes in front of the rows where that saves time.
    virtual void readPadded(int index, GreyImage& out) = 0;

    /// The pictures the slicer made, the smallest first; the three largest where there are more, none where there are
    /// none. Throws Failure for a damaged one.
    virtual std::vector<ColourImage> thumbnails() = 0;

    /// Writes the layers that can be read, numbered anew, as an archive, with all else the job holds.
    /// \return their numbers in this job. Throws Failure where there are none.
    virtual std::vector<std::uint32_t> writeWhole(ZipOutput& zip) = 0;
};

/// Opens a job:
/// - an SL1 archive, or its files in a folder: `config.ini` and `prusaslicer.ini` (either may be missing), layers named
///   `jobDir` + five or more digits + `.png`, numbered from 0 without a gap, in the order of their numbers;
/// - a zip or a folder of PNG files, in the natural order of their names (digits count as numbers), when it has neither
///   of the two files and its name does not end in .sl1 or .sl1s.
///
/// Where nothing but one folder lies at the root, that folder is taken for the root. Hidden files are passed over.
/// Every layer's header is read here, so that a missing, empty or unfit layer is found before any work is done.
/// Layers that a cut archive has lost are counted, as far as config.ini tells them, and fail when they are read.
/// \param path UTF-8.
/// Throws Failure, naming the entry, when the job cannot be read or is not whole.
std::unique_ptr<LayerSource> openJob(const std::string& path);

}  // namespace vndlp::tools
