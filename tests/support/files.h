/// Files of a test, damage done to them, and a disk that is full.

#pragma once

#include "support/bytes.h"

#if defined(_WIN32)
#include "support/windows.h"
#else
#include <sys/resource.h>
#endif
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vndlp::test {

/// A directory of its own for every test, removed with what is in it.
class FileTest : public ::testing::Test {
protected:
    FileTest() {
        std::string name = (std::filesystem::temp_directory_path() / "vndlp-test-XXXXXX").string();
        m_directory = mkdtemp(name.data());
    }
    ~FileTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    std::string path(const std::string& name) const { return m_directory + "/" + name; }

private:
    std::string m_directory;
};

inline Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

inline std::string writeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

/// Overwrites one byte in place.
inline void corruptByte(const std::string& path, std::size_t offset, unsigned char value) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset)).put(static_cast<char>(value));
}

inline void truncate(const std::string& path, std::size_t length) { std::filesystem::resize_file(path, length); }

/// Makes a CRC trailer right again, so that what stands behind the check is reached.
inline void fixTrailer(const std::string& path) {
    Bytes bytes = readFile(path);
    bytes.erase(bytes.end() - 4, bytes.end());
    sealWithCrc(bytes);
    writeFile(path, bytes);
}

/// What the library prints while this lives. After a failure everything is shown, for the test's own words are among
/// it.
class Printed {
public:
    Printed() : m_file(std::tmpfile()) {
        std::fflush(stdout);
        m_stdout = dup(STDOUT_FILENO);
        dup2(fileno(m_file), STDOUT_FILENO);
    }
    ~Printed() {
        std::fflush(stdout);
        dup2(m_stdout, STDOUT_FILENO);
        ::close(m_stdout);
        m_taken = 0;
        if (::testing::Test::HasFailure()) std::fputs(take().c_str(), stdout);
        std::fclose(m_file);
    }
    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    /// Everything since the last call.
    std::string take() {
        std::fflush(stdout);
        std::string text;
        char part[4096];
        for (ssize_t n = 0; (n = pread(fileno(m_file), part, sizeof part, m_taken)) > 0; m_taken += n) {
            text.append(part, static_cast<std::size_t>(n));
        }
        return text;
    }

private:
    std::FILE* m_file;
    int m_stdout;
    off_t m_taken = 0;
};

/// While this lives no file grows beyond a size: writing further fails as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
    void (*m_handler)(int);
};

/// A device that takes nothing.
constexpr const char* kFullDevice = "/dev/full";

/// Results of several calls, in their order.
using Codes = std::vector<long long>;

/// How often `part` stands in `text`.
inline int countOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

}  // namespace vndlp::test
