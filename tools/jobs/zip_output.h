/// Zip archives of files that are packed already: written through, nothing compressed, the same bytes every time.

#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace vndlp::tools {

class ZipOutput {
public:
    /// \param name  stands in front of a failure's text.
    /// \param path  where to write. Throws Failure.
    ZipOutput(std::string name, const std::string& path);
    ZipOutput(const ZipOutput&) = delete;
    ZipOutput& operator=(const ZipOutput&) = delete;
    ~ZipOutput();

    /// Adds a file. Throws Failure when it cannot be written, and beyond 4 GiB or 65535 files, which this form of archive
    /// does not hold.
    void add(const std::string& entry, std::span<const unsigned char> bytes);
    void add(const std::string& entry, const std::string& text);
    /// Writes the directory. Throws Failure.
    void finish();

private:
    struct Entry {
        std::string name;
        std::uint32_t crc, size, offset;
    };
    void write(const std::vector<unsigned char>& bytes);

    std::string m_name;
    std::FILE* m_file;
    std::uint64_t m_written = 0;
    std::vector<Entry> m_entries;
};

}  // namespace vndlp::tools
