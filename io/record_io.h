/// Bytes that follow a record in the file and are counted by it: encoded previews and layers, machine name.

#pragma once

#include <vndlp/streams.h>

#include <cstddef>
#include <string>
#include <vector>

namespace vndlp {

/// Reads `declared` bytes from the current position, or as many as the file still holds.
std::vector<unsigned char> readDeclared(FileRead& file, unsigned int declared);

/// Writes the first `declared` of `held` bytes and, where `held` is less, zeros for the rest.
/// \return false when `held` was less; nothing is printed.
bool writeDeclared(FileWrite& file, const unsigned char* bytes, std::size_t held, unsigned int declared);

/// Prints the line about a file or buffer that holds less than was declared.
/// \param what the record, and its index where there are several.
void reportShort(const std::string& file, const std::string& what, unsigned long long declared, unsigned long long held,
                 const char* unit = "bytes");

}  // namespace vndlp
