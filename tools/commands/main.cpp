/// The program vndlp.

#include "tools/base/signals.h"
#include "tools/base/terminal.h"
#include "tools/commands/command_line.h"

int main(int argc, char** argv) {
    vndlp::tools::OutputStreams streams;
    vndlp::tools::installSignalHandlers();
    return vndlp::tools::runCommandLine(argc, argv, streams);
}
