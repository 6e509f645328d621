/// Pictures of what `check` found.

#pragma once

#include "tools/jobs/check_source.h"

#include <string>
#include <vector>

namespace vndlp::tools {

/// Draws each finding that is somewhere in a layer: its lowest layer, cropped around it, over the layer before in dark
/// grey, the finding in red. Small findings are enlarged, large ones drawn smaller.
/// \param check has found the findings, with their places.
/// \param folder is made; holds `0001_island_layer_00012.png` and so on, in the order of the findings.
/// Throws Failure. Existing pictures are replaced.
void drawFindings(const CheckSource& source, const JobCheck& check, const std::vector<CheckFinding>& findings,
                  const std::string& folder);

}  // namespace vndlp::tools
