/// The one place through which the library prints.

#pragma once

#include <vndlp/messages.h>

#include <cstdio>  // what printf's formats are, on systems that have two kinds

namespace vndlp {

/// Prints like printf: to standard output, or to the handler of the caller's choice. Every documented message goes
/// through here, whole lines at once.
#if defined(__MINGW_PRINTF_FORMAT)
[[gnu::format(__MINGW_PRINTF_FORMAT, 1, 2)]]
#elif defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
void report(const char* format, ...);

/// Hands a message to the handler. \return false when none is set.
bool handleMessage(const char* text);

/// Prints the one line about a file that could not be written whole: name and the system's reason.
/// \param failureCode the system's error number, 0 when there is none.
void reportIncompleteFile(const char* path, int failureCode);

}  // namespace vndlp
