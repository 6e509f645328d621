/// The output for ".vndlp", see slice_output.h.

#pragma once

#include "tools/formats/slice_output.h"

namespace vndlp::tools {

std::unique_ptr<SliceOutput> createVendorOutput(const std::string& path, const std::string& temporary);

}  // namespace vndlp::tools
