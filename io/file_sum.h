/// Sums over files: what checking, telling and sealing share.

#pragma once

#include <vndlp/checksum.h>
#include "io/checksum_code.h"
#include "io/platform.h"

#include <cstddef>
#include <cstdint>

namespace vndlp {

/// Continues a sum with `size` bytes: `continueCrc` or `continueXor`.
using SumStep = std::uint32_t (*)(std::uint32_t sum, const unsigned char* data, std::size_t size);

/// Length of an open file, its position moved to the start; -1 on failure.
long long lengthOf(std::FILE* stream);

/// Opens a file, which stays open, and sums all but its last `uncovered` bytes.
[[nodiscard]] ChecksumCode openAndSum(const char* path, const char* mode, long long uncovered, SumStep step,
                                      platform::File& file, std::uint32_t& sum);

/// Sniffs a file and announces it. \return false, which is reported, when its version is not known.
bool announce(const char* path, EnumCheckSumType& kind);

/// Announces a file and hands it over to the member for its kind of sum.
/// \return what that returns; 0 without one, -1 when the file's version is not known.
int announceAndCall(const char* path, int (CheckSum::*forXor)(const char*), int (CheckSum::*forCrc32)(const char*));

}  // namespace vndlp
