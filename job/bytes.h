/// The bytes of a slice file, read at any place by any number of threads.

#pragma once

#include "io/byte_source.h"
#include "job/results.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace vndlp::job {

/// Bytes that are read in one go: enough to keep a disk busy, little enough for a processor's caches.
constexpr std::size_t kPieceBytes = std::size_t{1} << 18;

class Bytes {
public:
    Bytes() = default;
    explicit Bytes(SharedSource source) : m_source(std::move(source)), m_size(m_source->size()) {}

    [[nodiscard]] std::int64_t size() const { return m_size; }
    /// Whether `bytes` bytes from `offset` on lie within the file.
    [[nodiscard]] bool holds(std::int64_t offset, std::int64_t bytes) const {
        return offset >= 0 && bytes >= 0 && offset <= m_size && bytes <= m_size - offset;
    }
    /// Reads `size` bytes, all of them: `damaged` where the file ends before, `file` where the system fails.
    [[nodiscard]] SliceResult read(std::int64_t offset, void* to, std::size_t size) const {
        if (!holds(offset, static_cast<std::int64_t>(size))) {
            return damaged(m_size, "the file ends before what its records tell of");
        }
        errno = 0;
        if (size == 0 || m_source->readAt(offset, to, size) == size) return done();
        SliceResult result = failure(SliceCode::file, "cannot be read", offset);
        result.systemCode = errno;
        return result;
    }

private:
    SharedSource m_source;
    std::int64_t m_size = 0;
};

/// Calls `take(data, size, done)` with one piece of `bytes` bytes after the other, `done` bytes before it.
/// \param pieceBytes largest piece.
template <class Take>
[[nodiscard]] SliceResult forEachPiece(const Bytes& bytes, std::int64_t offset, std::int64_t size,
                                       std::size_t pieceBytes, Take&& take) {
    std::vector<unsigned char> piece(static_cast<std::size_t>(
        std::clamp<std::int64_t>(std::min(size, bytes.size()), 0, static_cast<std::int64_t>(pieceBytes))));
    for (std::int64_t done = 0; done < size;) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::int64_t>(size - done, static_cast<std::int64_t>(pieceBytes)));
        if (SliceResult result = bytes.read(offset + done, piece.data(), wanted); !result.isOk()) return result;
        if (SliceResult result = take(piece.data(), wanted, done); !result.isOk()) return result;
        done += static_cast<std::int64_t>(wanted);
    }
    return {};
}

}  // namespace vndlp::job
