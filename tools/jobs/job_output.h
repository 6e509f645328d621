/// SL1 jobs, written: what a slicer would have handed over.

#pragma once

#include "tools/jobs/settings_file.h"
#include "tools/jobs/source.h"
#include "tools/jobs/zip_output.h"

#include <string>
#include <vector>

namespace vndlp::tools {

/// A job's facts, to be written.
struct JobToWrite {
    std::string name;  ///< what the layers' names begin with
    int width = 0;     ///< pixels
    int height = 0;
    int layerCount = 0;
    PrintSettings settings;
    std::map<int, std::map<std::string, std::string>> layerSettings;
    std::vector<ColourImage> pictures;
};

/// Writes config.ini, prusaslicer.ini, vndlp.json and the pictures; layers come behind, in order, as `jobLayerName` names
/// them. vndlp.json has what the other two cannot say. Throws Failure.
void writeJobHead(const JobToWrite& job, ZipOutput& zip);

/// "tower00012.png".
std::string jobLayerName(const JobToWrite& job, int index);

}  // namespace vndlp::tools
