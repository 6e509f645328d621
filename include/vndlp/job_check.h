/// \file job_check.h
/// Will it print? Finds what goes wrong with a job on the machine though its file is sound: parts that hang in the air,
/// resin sealed in, suction cups, empty layers, overhangs, what lies outside the screen or the build height, sudden
/// jumps of area, impossible settings.
///
/// The check knows no file format. It is fed each layer's lit runs, in order, and works on runs alone: it makes no
/// image and keeps one layer's labels and a record for every open body, however many layers there are.
///
///     vndlp::CheckJob job;                                    // screen, pixel size, layer height, settings
///     vndlp::JobCheck check(job, vndlp::CheckOptions());
///     for (...) {
///         vndlp::CheckLayer layer(job);                       // in any thread
///         if (!layer.append(runs, count) || !layer.close()) return;
///         check.addLayer(layer);                              // in order, in one thread at a time
///     }
///     for (const vndlp::CheckFinding& finding : check.finish()) puts(check.describe(finding).c_str());
///
/// Words
/// - Layers, rows and columns count from 0, rows from the top. *Lit* is what the caller calls lit: runs of greys
///   above a threshold.
/// - A *region* is a connected set of pixels of one layer, lit ones by 8 neighbours, unlit ones by 4.
/// - A *body* of the layers 0 to i is made of regions of one sort that are joined through equal places in neighbouring
///   layers. A lit body is *settled* if it has a pixel in layer 0 (it stands on the build plate), an unlit one if it
///   has a pixel on one of the image's four edges (resin flows in and out). The plate closes layer 0, the film closes
///   the layer being printed. What is settled stays so.
/// - At layer i the regions of that layer and the bodies of the layers below are joined. In a joined set with a settled
///   member every unsettled body of the layers below is finished as it was, and found; the set is settled from then on.
///   In a set without one the bodies become one. A body with nothing in layer i is finished, and after the last layer
///   all are; the unsettled ones are found.

#ifndef VNDLP_JOB_CHECK_H
#define VNDLP_JOB_CHECK_H

#include <vndlp/export.h>
#include <vndlp/image.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vndlp {

/// What is found, in the order findings of one severity are sorted.
enum class CheckKind : int {
    island = 0,    ///< a lit body that was not settled: it hangs in the air until it is joined, if ever
    trap = 1,      ///< an unlit body above layer 0 that ended below the last layer unjoined: resin sealed in for good
    cup = 2,       ///< any other unlit body that was not settled: it pulls a vacuum while it prints
    empty = 3,     ///< a longest run of layers without lit pixels
    overhang = 4,  ///< lit pixels too far from all that is lit in the layer below; regions without anything lit right
                   ///< below are islands, not overhangs
    outside = 5,   ///< lit pixels in the margin of the screen, layers above the build height, another resolution
    peak = 6,      ///< a layer whose lit area jumps
    settings = 7   ///< a setting no print can have
};
constexpr int kCheckKinds = 8;

enum class CheckSeverity : int {
    error = 0,    ///< island, outside, settings, and empty with lit layers after it
    warning = 1,  ///< trap, cup, overhang, peak
    note = 2      ///< empty at the end; trap, cup or overhang below 1 mm^2
};

/// "island" and so on.
VNDLP_API const char* nameOf(CheckKind kind);
/// "error", "warning", "note".
VNDLP_API const char* nameOf(CheckSeverity severity);

/// Lit pixels that follow each other in one line. A line is a row or a column, see `CheckJob::linesAreColumns`.
struct LitRun {
    std::uint32_t line = 0;
    std::uint32_t first = 0;
    std::uint32_t last = 0;  ///< inclusive
};

/// What the check is told of a job besides its layers. A negative setting is one the file does not hold: it is no
/// fault.
struct CheckJob {
    std::uint32_t width = 0;   ///< of the layers, pixels; 1 to 2^31 - 1
    std::uint32_t height = 0;  ///< of the layers, pixels; 1 to 2^31 - 1
    double pixelXUm = 50;      ///< width of a pixel, um; what is not above 0 and finite counts as 50
    double pixelYUm = 50;      ///< height of a pixel, um; as above
    bool linesAreColumns =
        false;  ///< runs go down columns, not along rows; findings are in columns and rows all the same

    double layerHeightMm = -1;    ///< of every layer; negative counts as 0 in heights and volumes
    double machineHeightMm = 0;   ///< build height; 0 or less: not known
    double exposureS = -1;        ///< of normal layers
    double bottomExposureS = -1;  ///< of bottom layers
    double lightPower = -1;       ///< of normal layers, any unit
    double bottomLightPower = -1;
    std::int64_t bottomLayers = -1;
    std::uint32_t printerWidth = 0;  ///< resolution of the printer the job is meant for, pixels; 0: not known
    std::uint32_t printerHeight = 0;
};

/// How strict the check is.
struct CheckOptions {
    int threshold = 15;         ///< greys above it are lit. For whoever makes the runs; `JobCheck` does not read it
    std::int64_t marginPx = 1;  ///< lit pixels fewer than this from an edge of the screen are outside; 0: none are
    double overhangUm = -1;     ///< centres farther than this + 0.01 um from all lit ones below overhang; negative: the
                                ///< larger of 200 and 4 x layer height
    double jumpFactor = 4;      ///< a peak's area is more than this times the area of the layer below ...
    double jumpCm2 = 10;        ///< ... and more than this larger, cm^2; after an empty layer this alone decides
    std::uint32_t kinds = (1U << kCheckKinds) - 1;  ///< bit `1 << kind` for each kind that is wanted
    std::int64_t minPixels = 0;                     ///< findings of 1 to `minPixels` - 1 pixels are left out
    bool keepPlaces = false;  ///< findings know where they are, see `JobCheck::runsOf`; memory grows with them
};

/// A region of a layer, or a connected piece of a layer's overhang: numbers that `JobCheck::runsOf` understands.
struct CheckPlace {
    std::uint32_t layer = 0;
    std::uint32_t region = 0;
};

/// One thing found. Numbers that do not apply are -1, or NaN where they are floating-point.
struct VNDLP_API CheckFinding {
    CheckFinding();

    CheckKind kind = CheckKind::island;
    CheckSeverity severity = CheckSeverity::error;
    std::int64_t layer = -1;      ///< lowest
    std::int64_t lastLayer = -1;  ///< highest, inclusive
    std::int64_t pixels =
        -1;  ///< bodies: of the largest region in one layer; outside: the most in one layer; overhang:
             ///< all; peak: lit ones of the layer; 0 for empty layers and those above the build height
    std::int64_t voxels = -1;        ///< pixels of all layers: bodies and lit pixels outside
    double areaMm2;                  ///< of `pixels`
    double volumeMl;                 ///< of `voxels`
    std::int64_t xPx[2] = {-1, -1};  ///< first and last column over all layers, inclusive
    std::int64_t yPx[2] = {-1, -1};  ///< first and last row
    double centrePx[2];              ///< middle of the box, x and y; pixels are whole numbers
    std::string fault;               ///< settings and another resolution: what is wrong, in words
    std::vector<CheckPlace> places;  ///< with `CheckOptions::keepPlaces`: bodies and overhangs, by layer
};

class LabelledLines;
class CheckWork;

/// The lit runs of one layer, and its regions. Made in any thread; one object serves one layer.
class VNDLP_API CheckLayer {
public:
    /// An open layer without runs.
    /// \param job tells size and direction of the lines; not kept.
    explicit CheckLayer(const CheckJob& job);
    ~CheckLayer();
    CheckLayer(CheckLayer&& other) noexcept;
    CheckLayer& operator=(CheckLayer&& other) noexcept;

    /// Appends lit runs, by line and within a line by place. Runs of several calls follow each other; runs that touch
    /// (of different greys) are one.
    /// \param runs  `count` runs, not changed and not kept.
    /// \return false, with the layer unusable, when a run is not behind the one before, or not inside the layer.
    bool append(const LitRun* runs, std::size_t count);

    /// Ends the layer; nothing is appended from now on. `JobCheck::addLayer` closes a layer that is not closed yet.
    /// \return false when an `append` failed.
    bool close();

    /// Ends a layer of which this alone is known: something is lit. It is not empty, and nothing is found in it.
    void closeUnknown();

    /// Lit pixels so far.
    std::uint64_t litPixels() const;
    /// Nothing is lit, as far as is known.
    bool isEmpty() const;
    /// The lit runs of a closed layer, those that touch joined.
    std::vector<LitRun> litRuns() const;

private:
    friend class JobCheck;
    std::unique_ptr<LabelledLines> m_lines;
};

/// Checks one job, layer by layer. One thread at a time uses an object.
class VNDLP_API JobCheck {
public:
    JobCheck(const CheckJob& job, const CheckOptions& options);
    ~JobCheck();
    JobCheck(const JobCheck&) = delete;
    JobCheck& operator=(const JobCheck&) = delete;

    /// Checks the next layer.
    /// \param layer of the same job; moved from. Of an unusable one the runs up to the wrong one are taken.
    void addLayer(CheckLayer& layer);

    /// Compares an area the file holds of a layer with what the layer has. Areas differ where they are more than 0.001
    /// mm^2 and more than 1 % apart: hosts round, and smooth edges.
    /// \param layer number, for the text; areas in mm^2.
    void compareArea(std::uint32_t layer, double storedMm2, double litMm2);

    /// Ends the job and returns what was found: by severity, kind, voxels (else pixels) from the largest, layer, y, x.
    /// Called once, after the last layer.
    std::vector<CheckFinding> finish();

    /// A finding in plain words: layers, height above the plate, position, size.
    std::string describe(const CheckFinding& finding) const;

    /// The pixels of a finding in one layer, for drawing and mending. Needs `CheckOptions::keepPlaces` for bodies and
    /// overhangs.
    /// \param below the layer before, closed; null for layer 0. Used for overhangs only.
    /// \param layer layer `index`, closed, made of the same runs as the one that was checked.
    /// \return runs by line and place; none where the finding has none in this layer.
    std::vector<LitRun> runsOf(const CheckFinding& finding, const CheckLayer* below, const CheckLayer& layer,
                               std::uint32_t index) const;

private:
    std::unique_ptr<CheckWork> m_work;
};

/// What mending a job may change.
struct FixOptions {
    std::int64_t islandPixels = -1;  ///< islands of at most so many pixels (`CheckFinding::pixels`) go; negative: none
    bool fillTraps = false;          ///< the traps of what is left are filled
};

/// What mending changes in one layer: runs by line and place.
struct FixedLayer {
    std::vector<LitRun> cleared;  ///< lit pixels of islands: they become 0
    std::vector<LitRun> filled;   ///< unlit pixels of traps: they become 255
};

/// What mending changes in a job.
struct JobFix {
    std::map<std::uint32_t, FixedLayer> changed;  ///< the layers that change
    std::uint32_t layers = 0;                     ///< that are left: empty ones at the end go; 0: nothing is lit
    std::uint64_t islands = 0;                    ///< that went
    std::uint64_t islandVoxels = 0;
    std::uint64_t traps = 0;  ///< that were filled
    std::uint64_t trapVoxels = 0;
};

/// Reads one layer into a new `CheckLayer`. What is not 0 stops.
using CheckReadFn = int (*)(void* context, std::uint32_t layer, CheckLayer& out);

/// Finds out how to mend a job. Layers are read in order, up to four times each; memory grows with what changes.
/// \param layers how many the job has.
/// \param fix    receives the changes; undefined when false is returned.
/// \return false when `read` stopped.
VNDLP_API bool planFix(const CheckJob& job, std::uint32_t layers, const FixOptions& options, CheckReadFn read,
                       void* context, JobFix& fix);

/// The lit runs of a layer of polylines, along rows: a pixel is lit where its centre is inside the closed polylines,
/// even-odd. A polyline is closed where its last point equals its first; open ones do not count. Coordinates are um
/// from the lower left corner of the screen, y up. A centre on the outline is inside on a left or lower side, outside
/// on a right or upper one.
/// \param polylines as `VndlpRead::readLayerPath` returns them.
/// \param width, height of the screen, pixels, at most 2^31 - 1.
/// \param pixelXUm, pixelYUm size of a pixel, above 0.
/// \return runs by row and column.
VNDLP_API std::vector<LitRun> litRunsOfPolylines(const std::vector<std::vector<Vec3i>>& polylines, std::uint32_t width,
                                                 std::uint32_t height, double pixelXUm, double pixelYUm);

}  // namespace vndlp

#endif
