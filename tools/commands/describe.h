/// What the program says of a slice file or job as JSON: one form for every format and command, in fixed units.

#pragma once

#include "tools/jobs/source.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

using Json = nlohmann::ordered_json;

/// Volume and time of a source.
struct Totals {
    double volumeMl;   ///< NaN: unknown
    double fileS;      ///< print time as the file says it; NaN: it does not, or its format fixes it
    double estimateS;  ///< NaN: not to be estimated
    std::string model;
};

/// What one layer holds, for tables.
struct LayerRow {
    SliceLayerFacts facts;
    PrintSettings settings;  ///< of this layer alone
    std::string problem;     ///< empty where the layer could be read
};

/// What `describeSource` is to do beside the head.
struct DescribeOptions {
    bool layers = false;
    int threads = 1;
    std::optional<Totals> totals;  ///< worked out already
};

/// The object of `info --json`; other commands put their own keys behind. \param findings of the file, see `findingsOf`.
Json describeSource(const Source& source, const std::vector<SliceFinding>& findings, const DescribeOptions& options);

/// Findings of structure and trailer of a slice file, none of a job; the note on constants among them.
std::vector<SliceFinding> findingsOf(const Source& source);
Json jsonOf(const SliceFinding& finding);

/// Volume and time from rows that were counted already.
Totals totalsOfRows(const Source& source, const std::vector<LayerRow>& rows);
Totals totalsOf(const Source& source, int threads);
/// A sum without the last digits, which depend on the order of adding.
double steady(double value);
/// The rows of all layers, counted in several threads.
std::vector<LayerRow> layerRowsOf(const Source& source, int threads);

/// "vndlp", "vnline", "ctb", "vndlpv4", "job".
std::string formatName(const Source& source);

/// Pixel size in micrometres, and the screen's size in millimetres; NaN where they are not known.
struct Geometry {
    double pixelXUm, pixelYUm;
    double sizeXMm, sizeYMm, sizeZMm;
};
Geometry geometryOf(const Source& source);

/// A document that shows no control character, on one line or many.
std::string jsonText(const Json& json, bool onOneLine);

/// null for what is no number.
Json numberOrNull(double value);

}  // namespace vndlp::tools
