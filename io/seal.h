/// Sealing a file whose bytes are known.

#pragma once

#include "io/running_sum.h"

#include <string>

namespace vndlp {

/// `CheckSum::appendFileSum` with a sum that is known already; where it is not, or the file on the disk is of another
/// length, the file is read. Same messages, same results.
int appendKnownSum(const std::string& path, const RunningSum& sum);

}  // namespace vndlp
