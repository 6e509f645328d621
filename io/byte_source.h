/// Bytes that can be read at any place: a file, memory of the caller's, or whatever a callback reads from.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vndlp {

/// Reading has no position and changes nothing, so several threads may read from one source at once.
class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource();

    /// Bytes there were when the source was opened. A file may have grown since, and a pipe has none.
    [[nodiscard]] virtual long long size() const = 0;
    /// Reads `n` bytes, fewer where the source ends or fails. \return the number read.
    virtual std::size_t readAt(long long offset, void* to, std::size_t n) const = 0;
    /// All bytes, where they lie in memory; null otherwise.
    [[nodiscard]] virtual const unsigned char* data() const { return nullptr; }
    /// True for a pipe: it is read once, from front to back, by one thread, and what is asked for is waited for.
    [[nodiscard]] virtual bool isSequential() const { return false; }
};

using SharedSource = std::shared_ptr<const ByteSource>;

/// A file by its UTF-8 name; null when it cannot be opened.
[[nodiscard]] SharedSource openFileSource(const char* path);

/// Memory that outlives the source.
/// \param data null only where `size` is 0.
[[nodiscard]] SharedSource memorySource(const void* data, std::size_t size);

/// Reads up to `bytes` bytes at `offset`. \return the number read, negative on failure. Called from any thread.
using ReadCallback = std::int64_t (*)(void* context, std::int64_t offset, void* to, std::size_t bytes);

/// What a callback reads from.
/// \param size in bytes.
[[nodiscard]] SharedSource callbackSource(ReadCallback read, void* context, std::int64_t size);

}  // namespace vndlp
