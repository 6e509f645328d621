/// From the words of a command line to a command.

#pragma once

#include "tools/base/terminal.h"

namespace vndlp::tools {

/// Reads the command line and runs its command. What goes wrong is printed. \return the exit code.
int runCommandLine(int argc, char** argv, OutputStreams& streams);

}  // namespace vndlp::tools
