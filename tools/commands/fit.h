/// Whether a job fits a printer.

#pragma once

#include "tools/base/printer.h"
#include "tools/jobs/layer_images.h"

#include <string>

namespace vndlp::tools {

/// What a conversion makes of a source, as far as the fit is concerned.
struct FitJob {
    int width, height;          ///< pixels of a layer, turned but not padded
    double pixelXUm, pixelYUm;  ///< turned as well; NaN: unknown
    double topMm;               ///< of the last layer; NaN: unknown
    std::string machine;        ///< of the job; empty: none
    std::string wantedMachine;  ///< by --set; empty: none
    std::string mirror;         ///< by --mirror: "", "x", "y", "xy"
    bool pads = false;
    bool isGeometry = false;  ///< fits a screen of any number of pixels
};

/// Throws Failure, saying what to do, where the job does not fit.
void requireFit(const std::string& path, const FitJob& job, const Printer& printer);

}  // namespace vndlp::tools
