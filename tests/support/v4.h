/// What the V4 suites share.

#pragma once

#include "support/ctb.h"

#include <vndlp/v4.h>

#include <unistd.h>

#include <filesystem>
#include <string>

namespace vndlp::test {

/// A file name that is nobody else's, removed at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& ending = ".vndlpv4") {
        static int count = 0;
        m_path = (std::filesystem::temp_directory_path() /
                  ("vndlp-test-" + std::to_string(getpid()) + "-" + std::to_string(count++) + ending))
                     .string();
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }

    const std::string& path() const { return m_path; }
    Bytes bytes() const { return readFile(m_path); }
    void setBytes(const Bytes& bytes) const { writeFile(m_path, bytes); }

private:
    std::string m_path;
};

}  // namespace vndlp::test
