/// What changes of values mean for a file's bytes.

#pragma once

#include "job/edits.h"

#include <string>
#include <vector>

namespace vndlp::job {

/// What is told of changes when they are made.
struct ChangePlan {
    std::vector<SliceChanged> changed;
    std::vector<std::string> roundings;
    std::vector<std::string> kept;  ///< layers with values of their own
};

/// Adds one change to the edits of a file, with what follows from it. Nothing is added on failure.
/// \return `key`, `value`, `index`, or a failure to read.
/// \param isFromFile the value stands in another file: it only has to fit.
[[nodiscard]] SliceResult planChange(const SliceChange& change, Edits& edits, ChangePlan& plan,
                                     bool isFromFile = false);
/// All of them, and the offsets they move.
[[nodiscard]] SliceResult planChanges(const std::vector<SliceChange>& changes, Edits& edits, ChangePlan& plan);

}  // namespace vndlp::job
