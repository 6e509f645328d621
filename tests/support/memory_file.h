/// Files in memory: readers and writers take paths.

#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace vndlp::test {

/// A file that lives in memory and is gone with the object. What the system refuses ends the program.
class MemoryFile {
public:
    explicit MemoryFile(const std::vector<unsigned char>& bytes = {})
        : m_descriptor(memfd_create("memory", MFD_CLOEXEC)) {
        set(bytes);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { close(m_descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

    void set(const std::vector<unsigned char>& bytes) {
        truncate(0);
        put(0, bytes);
    }
    void put(std::size_t offset, const std::vector<unsigned char>& bytes) {
        const ssize_t size = static_cast<ssize_t>(bytes.size());
        expect(pwrite(m_descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset)) == size);
    }
    void truncate(std::size_t length) { expect(ftruncate(m_descriptor, static_cast<off_t>(length)) == 0); }

    std::vector<unsigned char> bytes() const {
        std::vector<unsigned char> all(static_cast<std::size_t>(lseek(m_descriptor, 0, SEEK_END)));
        expect(pread(m_descriptor, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
        return all;
    }

private:
    static void expect(bool done) {
        if (!done) std::abort();
    }

    int m_descriptor;
};

}  // namespace vndlp::test
