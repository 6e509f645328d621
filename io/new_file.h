/// A file that is written beside its name and takes it when it is whole.

#pragma once

#include "io/platform.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vndlp {

/// Whether a file is on the disk before it takes its name. Without, a system that fails at that moment may leave the
/// name with less; what it costs is the disk's time for the whole file.
enum class Flush { no, yes };

/// Not committed, it is removed on destruction. Calls that fail keep the system's reason in `error`.
class NewFile {
public:
    NewFile() = default;
    NewFile(NewFile&& other) noexcept;
    NewFile& operator=(NewFile&& other) noexcept;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    /// Creates an empty file in the folder of `path`, which stays as it is. Links are followed.
    /// \param path UTF-8.
    [[nodiscard]] bool create(const std::string& path);
    [[nodiscard]] bool isOpen() const { return m_stream != nullptr; }

    [[nodiscard]] bool write(std::int64_t offset, const void* data, std::size_t size);
    [[nodiscard]] bool read(std::int64_t offset, void* to, std::size_t size);
    /// Copies bytes of an open file, by the system alone where it can.
    [[nodiscard]] bool copy(std::FILE* from, std::int64_t fromOffset, std::int64_t size, std::int64_t offset);

    /// Gives the file its name, with the mode and, where allowed, the owner of the file that had it. On failure the
    /// file is removed.
    [[nodiscard]] bool commit(Flush flush = Flush::yes);
    /// Removes the file.
    void discard();

    /// errno of the last failure.
    [[nodiscard]] int error() const { return m_error; }

private:
    bool fail();

    platform::File m_stream;
    std::string m_target;
    std::string m_temporary;
    std::int64_t m_at = -1;  // of the stream; -1: not known
    bool m_isReading = false;
    int m_error = 0;
};

}  // namespace vndlp
