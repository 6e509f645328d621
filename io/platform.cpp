#include "io/platform.h"

#if defined(_WIN32)
#include <filesystem>
#include <string>
#else
#include <sys/stat.h>
#include <sys/types.h>
#endif
#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <cstdint>

namespace vndlp::platform {

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
