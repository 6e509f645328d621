/// The one way the program's parts give up.

#pragma once

#include "tools/base/text.h"

#include <stdexcept>
#include <string>

namespace vndlp::tools {

enum ExitCode : int { kSuccess = 0, kBadFile = 1, kWrongUsage = 2, kFindings = 3 };

/// A failure the user has to learn of; ends the command, or its work on one file, with exit code 1. `what()` is the
/// complete message in one line: where (file, and the entry in it), what was expected and found, the system's reason,
/// what to do. It begins with the file's name as it was given and has no line end.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the command line says wrongly, found before the first file is written: exit code 2.
struct UsageFailure : Failure {
    using Failure::Failure;
};

}  // namespace vndlp::tools
