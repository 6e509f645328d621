#include "io/platform.h"

#if defined(_WIN32)
#define NOMINMAX
#include <io.h>
#include <windows.h>
#include <filesystem>
#include <string>
#else
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace vndlp::platform {

namespace {
constexpr std::size_t kMaxReadBytes = std::size_t{1} << 30;  // at once, as every system can
}

#if defined(_WIN32)

namespace {
std::filesystem::path nativePath(const char* path) {
    return std::filesystem::path(reinterpret_cast<const char8_t*>(path));
}
}  // namespace

std::FILE* openFile(const char* path, const char* mode) {
    const std::wstring wideMode(mode, mode + std::char_traits<char>::length(mode));
    return _wfopen(nativePath(path).c_str(), wideMode.c_str());
}

int seek(std::FILE* stream, long long offset, int origin) { return _fseeki64(stream, offset, origin); }

long long tell(std::FILE* stream) { return _ftelli64(stream); }

std::size_t readAt(std::FILE* stream, long long offset, void* to, std::size_t size) {
    const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    std::size_t done = 0;
    while (done < size) {
        const auto from = static_cast<unsigned long long>(offset) + done;
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(from);
        place.OffsetHigh = static_cast<DWORD>(from >> 32);
        DWORD now = 0;
        const auto wanted = static_cast<DWORD>(std::min(size - done, kMaxReadBytes));
        if (!ReadFile(file, static_cast<char*>(to) + done, wanted, &now, &place) || now == 0) break;
        done += now;
    }
    return done;
}

int removeFile(const char* path) { return _wremove(nativePath(path).c_str()); }

#else

static_assert(sizeof(off_t) == 8, "files beyond 2 GiB need a 64-bit off_t: build with _FILE_OFFSET_BITS=64");

std::FILE* openFile(const char* path, const char* mode) {
    std::FILE* stream = std::fopen(path, mode);
    struct stat status {};
    if (stream != nullptr && fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(stream);
        return nullptr;
    }
    return stream;
}

int seek(std::FILE* stream, long long offset, int origin) { return fseeko(stream, static_cast<off_t>(offset), origin); }

long long tell(std::FILE* stream) { return static_cast<long long>(ftello(stream)); }

std::size_t readAt(std::FILE* stream, long long offset, void* to, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t now = pread(fileno(stream), static_cast<char*>(to) + done, std::min(size - done, kMaxReadBytes),
                                  static_cast<off_t>(offset) + static_cast<off_t>(done));
        if (now < 0 && errno == EINTR) continue;
        if (now <= 0) break;
        done += static_cast<std::size_t>(now);
    }
    return done;
}

int removeFile(const char* path) { return std::remove(path); }

#endif

void adviseLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t size) {
#if defined(__linux__)
    constexpr std::size_t pageSize = 4096;
    constexpr std::size_t worthwhile = std::size_t{1} << 22;
    if (size < worthwhile) return;
    const std::size_t skipped = (pageSize - reinterpret_cast<std::uintptr_t>(memory) % pageSize) % pageSize;
    // a hint: where it is refused, small pages serve
    (void)madvise(static_cast<char*>(memory) + skipped, size - skipped, MADV_HUGEPAGE);
#endif
}

}  // namespace vndlp::platform
