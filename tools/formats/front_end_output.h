/// The output for ".ctb" and ".vndlpv4", see slice_output.h.

#pragma once

#include "tools/formats/slice_output.h"

namespace vndlp::tools {

std::unique_ptr<SliceOutput> createFrontEndOutput(const std::string& path, const std::string& temporary);

}  // namespace vndlp::tools
