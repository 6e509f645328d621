#include "io/report.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <system_error>

namespace vndlp {

void report(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

void reportIncompleteFile(const char* path, int failureCode) {
    const std::string reason =
        failureCode == 0 ? std::string("unknown reason") : std::generic_category().message(failureCode);
    report("error: %s could not be written completely: %s\n", path, reason.c_str());
}

}  // namespace vndlp
