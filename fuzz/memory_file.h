/// Files in memory: the readers and writers take paths.

#pragma once

#include "fuzz/harness.h"

#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace vndlp::fuzz {

/// A file that lives in memory and is gone with the object.
class MemoryFile {
public:
    explicit MemoryFile(const Bytes& bytes = {}) : m_descriptor(memfd_create("input", MFD_CLOEXEC)) {
        require(m_descriptor >= 0 &&
                write(m_descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(m_descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

    Bytes bytes() const {
        Bytes all(static_cast<std::size_t>(lseek(m_descriptor, 0, SEEK_END)));
        require(pread(m_descriptor, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
        return all;
    }

private:
    int m_descriptor;
};

}  // namespace vndlp::fuzz
