/// The one place through which the library prints.

#pragma once

namespace vndlp {

/// Prints to standard output like printf. Every documented message goes through here.
#if defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
void report(const char* format, ...);

/// Prints the one line that tells of a file that could not be written whole: name and the system's reason.
/// \param failureCode the system's error number, 0 when there is none.
void reportIncompleteFile(const char* path, int failureCode);

}  // namespace vndlp
