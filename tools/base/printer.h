/// Printers: what a JSON file says of one, and where such files lie.

#pragma once

#include "tools/base/settings.h"

#include <vndlp/ctb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vndlp::tools {

/// What is known of a printer.
struct Printer {
    std::string name;  ///< as it was asked for: a name or a file
    PrintSettings settings;
    std::string mirror;  ///< "x", "y", "xy": its images have to be mirrored so
    std::optional<CTB::ScramblingConstants> constants;
    std::optional<std::uint32_t> key;                               ///< of CTB files
    std::vector<std::pair<std::uint32_t, std::uint32_t>> previews;  ///< width, height, the smallest first
};

/// Reads a printer's or profile's file. \param origin of its settings. Throws UsageFailure, naming the line, for what is
/// no JSON, and for unknown keys and values that do not fit.
Printer readPrinter(const std::string& file, Origin origin);

/// A printer by name, from the folder of printers, or by file: with a slash in it, or ".json" at its end. Throws
/// UsageFailure.
Printer findPrinter(const std::string& nameOrFile);

/// The names in the folder of printers, in order.
std::vector<std::string> printerNames();

/// $XDG_CONFIG_HOME/vndlp/printers, ~/.config without it; empty where neither is known.
std::string printersFolder();

/// Gives the library a printer's scrambling constants, for all files read and written from then on.
void useConstants(const Printer& printer);

}  // namespace vndlp::tools
