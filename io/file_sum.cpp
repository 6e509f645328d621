#include "io/file_sum.h"

#include "io/report.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace vndlp {

namespace {

constexpr std::size_t kBlockBytes = 1u << 16;  // stays in a processor's nearer caches between reading and summing
constexpr std::size_t kPageBytes = 4096;

/// Sums `length` bytes from the start of a file with `step(sum, data, size)`.
[[nodiscard]] ChecksumCode sumFile(std::FILE* stream, long long length, SumStep step, std::uint32_t& sum) {
    sum = 0;
    if (length <= 0) return kOk;
    std::vector<unsigned char> memory(kBlockBytes + kPageBytes);
    // on a page of its own: some processors copy whole pages to places a few bytes off several times slower
    unsigned char* const block =
        memory.data() + (kPageBytes - reinterpret_cast<std::uintptr_t>(memory.data()) % kPageBytes) % kPageBytes;
    for (long long left = length; left > 0;) {
        const auto wanted = static_cast<std::size_t>(std::min<long long>(left, kBlockBytes));
        if (std::fread(block, 1, wanted, stream) != wanted) return kCannotRead;
        sum = step(sum, block, wanted);
        left -= static_cast<long long>(wanted);
    }
    return kOk;
}

}  // namespace

long long lengthOf(std::FILE* stream) {
    if (platform::seek(stream, 0, SEEK_END) != 0) return -1;
    const long long length = platform::tell(stream);
    return platform::seek(stream, 0, SEEK_SET) == 0 ? length : -1;
}

ChecksumCode openAndSum(const char* path, const char* mode, long long uncovered, SumStep step, platform::File& file,
                        std::uint32_t& sum) {
    file.reset(platform::openFile(path, mode));
    if (file == nullptr) return kCannotOpen;
    const long long length = lengthOf(file.get());
    if (length < 0) return kCannotRead;
    return sumFile(file.get(), length - uncovered, step, sum);
}

bool announce(const char* path, EnumCheckSumType& kind) {
    std::string versionName;
    int subVersionNum = 0;
    const int code = CheckSum::instance().getFileVersionInfo(path, versionName, subVersionNum, kind);
    if (code != 0) {
        report("getFileVersionInfo failed, ret:%d\n", code);
        return false;
    }
    // the same text for all three operations
    report("checkFileSum, file:%s, versionName:%s, subVersionNum:%d, checktype:%d\n", path, versionName.c_str(),
           subVersionNum, static_cast<int>(kind));
    return true;
}

int announceAndCall(const char* path, int (CheckSum::*forXor)(const char*), int (CheckSum::*forCrc32)(const char*)) {
    EnumCheckSumType kind = CHECKSUM_NONE;
    if (!announce(path, kind)) return -1;
    if (kind == CHECKSUM_NONE) return 0;
    return (CheckSum::instance().*(kind == CHECKSUM_XOR ? forXor : forCrc32))(path);
}

}  // namespace vndlp
