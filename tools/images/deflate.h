/// Compressor and decompressor objects, one of each per thread.

#pragma once

#include <libdeflate.h>
#include <cstdint>

namespace vndlp::tools {

/// Bytes a deflate stream can make of one of its own at most: the longest match, 258 bytes, takes at least two bits.
constexpr std::uint64_t kMaxDeflateRatio = 1032;

/// The calling thread's decompressor; lives as long as the thread. Throws std::bad_alloc.
libdeflate_decompressor* threadDecompressor();

/// The calling thread's compressor; lives as long as the thread. Throws std::bad_alloc.
libdeflate_compressor* threadCompressor();

}  // namespace vndlp::tools
