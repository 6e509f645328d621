/// The calls that differ between systems: opening by UTF-8 name, 64-bit positions, removal.

#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace vndlp::platform {

/// Opens a file by its UTF-8 name. Null on failure, and for a directory opened for reading (which some C libraries
/// open, with a length that means nothing).
[[nodiscard]] std::FILE* openFile(const char* path, const char* mode);

struct CloseFile {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
/// An open stream that closes itself.
using File = std::unique_ptr<std::FILE, CloseFile>;

/// 64-bit fseek; 0 on success.
[[nodiscard]] int seek(std::FILE* stream, long long offset, int origin);

/// 64-bit ftell; -1 on failure.
[[nodiscard]] long long tell(std::FILE* stream);

/// Reads `size` bytes at an offset, whatever the position and leaving it alone, with bytes that are not yet in the
/// stream's own buffer; several threads may do so at once. \return the number read, fewer at the end or on failure.
[[nodiscard]] std::size_t readAt(std::FILE* stream, long long offset, void* to, std::size_t size);

/// Deletes a file by its UTF-8 name; 0 on success.
int removeFile(const char* path);

/// Asks for large pages under memory about to be filled for the first time; with small ones the system spends more on
/// handing them out than a codec on filling them. Changes nothing else, and nothing below some megabytes.
void adviseLargePages(void* memory, std::size_t size);

}  // namespace vndlp::platform
