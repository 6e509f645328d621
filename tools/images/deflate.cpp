#include "tools/images/deflate.h"

#include <memory>
#include <new>

namespace vndlp::tools {

namespace {

constexpr int kCompressionLevel = 6;  // on layer images as fast as 1, and smaller

struct FreeDecompressor {
    void operator()(libdeflate_decompressor* object) const { libdeflate_free_decompressor(object); }
};
struct FreeCompressor {
    void operator()(libdeflate_compressor* object) const { libdeflate_free_compressor(object); }
};

}  // namespace

libdeflate_decompressor* threadDecompressor() {
    thread_local const std::unique_ptr<libdeflate_decompressor, FreeDecompressor> object(
        libdeflate_alloc_decompressor());
    if (object == nullptr) throw std::bad_alloc();
    return object.get();
}

libdeflate_compressor* threadCompressor() {
    thread_local const std::unique_ptr<libdeflate_compressor, FreeCompressor> object(
        libdeflate_alloc_compressor(kCompressionLevel));
    if (object == nullptr) throw std::bad_alloc();
    return object.get();
}

}  // namespace vndlp::tools
