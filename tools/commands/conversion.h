/// One conversion, from any source to any format.

#pragma once

#include "tools/base/printer.h"
#include "tools/images/transform.h"
#include "tools/jobs/layer_images.h"

#include <vndlp/slice_write.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// What the options of `convert` say, the same for all its files.
struct ConversionPlan {
    std::optional<Printer> printer;
    std::optional<Printer> profile;
    PrintSettings settings;             ///< of printer, profile and --set
    std::vector<ColourImage> previews;  ///< smallest first
    std::string mirror;
    Orientation orientation;
    bool pads = false;
    Resolution resolution;  ///< of layers of lines
    std::optional<double> toleranceUm;
    SliceSalvage salvage = SliceSalvage::no;
    std::optional<std::uint32_t> key;   ///< of CTB, by --key or printer
    std::optional<std::uint32_t> date;  ///< the same, by the date: for files that would get a fresh one
    int threads = 1;
    bool force = false;
};

/// The formats a name's ending may choose: slice files and `.sl1` jobs.
enum class OutputKind { none, slices, job };
OutputKind outputKindOf(const std::string& path);
std::string writableEndings();

/// Converts one file and prints what is to be said. Throws Failure; nothing is written then.
void convertOne(const std::string& input, const std::string& output, const ConversionPlan& plan);

}  // namespace vndlp::tools
