/// The one place through which the library prints.

#pragma once

#include <cstdio>  // what printf's formats are, on systems that have two kinds

namespace vndlp {

/// Prints to standard output like printf. Every documented message goes through here.
#if defined(__MINGW_PRINTF_FORMAT)
[[gnu::format(__MINGW_PRINTF_FORMAT, 1, 2)]]
#elif defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
void report(const char* format, ...);

/// Prints the one line that tells of a file that could not be written whole: name and the system's reason.
/// \param failureCode the system's error number, 0 when there is none.
void reportIncompleteFile(const char* path, int failureCode);

}  // namespace vndlp
