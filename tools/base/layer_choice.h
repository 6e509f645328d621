/// Which layers a `--layers` option means.

#pragma once

#include <string>
#include <vector>

namespace vndlp::tools {

/// Reads layers: `N`, `N-M`, `N-`, `last`, `N-last`, any of them with `/STEP`, separated by commas.
/// \param option what stands in front of a failure's text, "--layers".
/// \return the layers' numbers in order, each once. Throws UsageFailure for anything else, and for layers beyond the
///         end of the file.
std::vector<int> chooseLayers(const std::string& text, int layerCount, const std::string& option = "--layers");

}  // namespace vndlp::tools
