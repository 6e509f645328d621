/// The few POSIX calls of the tests, for Windows. File sizes are not limited there: tests that need it are left out.

#pragma once

#include <io.h>
#include <process.h>
#include <sys/types.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

inline char* mkdtemp(char* pattern) {
    static int count = 0;
    const std::string id = std::to_string(_getpid() % 1000) + std::to_string(count++ % 1000 + 1000);
    std::string name(pattern);
    name.replace(name.size() - 6, 6, id.substr(id.size() > 6 ? id.size() - 6 : 0));
    std::error_code failure;
    std::filesystem::create_directories(name, failure);
    std::copy(name.begin(), name.end(), pattern);
    pattern[name.size()] = '\0';
    return pattern;
}

inline ssize_t pread(int descriptor, char* out, std::size_t size, long long offset) {
    const long long position = _lseeki64(descriptor, 0, SEEK_CUR);
    _lseeki64(descriptor, offset, SEEK_SET);
    const int n = _read(descriptor, out, static_cast<unsigned>(size));
    _lseeki64(descriptor, position, SEEK_SET);
    return n;
}

using rlim_t = unsigned long long;
struct rlimit {
    rlim_t rlim_cur;
};
constexpr int RLIMIT_FSIZE = 0;
constexpr int SIGXFSZ = SIGTERM;
inline void getrlimit(int, rlimit*) {}
inline void setrlimit(int, const rlimit*) {}
