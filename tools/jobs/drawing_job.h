/// Jobs of drawings: folders and zips of SVG files, a layer each.

#pragma once

#include "tools/jobs/archive.h"
#include "tools/jobs/source.h"

#include <memory>

namespace vndlp::tools {

/// Whether a folder or zip is a job of drawings: SVG files at its root, and neither PNG layers nor a slicer's settings.
bool holdsDrawings(const Archive& archive);

/// Makes a source of the drawings of a folder or zip, in the natural order of their names. Throws Failure.
void takeDrawings(std::shared_ptr<const Archive> archive, Source& source);

}  // namespace vndlp::tools
