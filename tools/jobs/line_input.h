/// Layers that are geometry from the start: line files, and folders or zips of SVG drawings.

#pragma once

#include "tools/formats/slice_file.h"
#include "tools/jobs/archive.h"
#include "tools/jobs/input.h"

#include <memory>

namespace vndlp::tools {

/// Whether a folder or zip is a job of drawings: SVG files at its root, and neither PNG files nor a slicer's settings.
bool holdsDrawings(const Archive& archive);

/// The drawings of a folder or zip as layers, in the natural order of their names. Throws Failure.
Input openDrawings(std::shared_ptr<const Archive> archive);

/// A line file as input. Throws Failure.
Input openLines(const std::shared_ptr<SliceFile>& file, const std::string& path);

}  // namespace vndlp::tools
