#include <vndlp/checksum.h>
#include <vndlp/formats.h>

#include "io/byte_order.h"
#include "io/checksum_code.h"
#include "io/platform.h"
#include "io/report.h"
#include "io/seal.h"
#include "io/wrapping.h"
#include "io/xor_sum.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#if defined(VNDLP_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace vndlp {

namespace {

constexpr std::uint32_t kCrcPolynomial = 0xEDB88320;
constexpr std::size_t kBlockBytes = 1u << 16;  // stays in a processor's nearer caches between reading and summing
constexpr std::size_t kPageBytes = 4096;

using File = platform::File;

/// Length of an open file, its position moved to the start; -1 on failure.
long long lengthOf(std::FILE* stream) {
    if (platform::seek(stream, 0, SEEK_END) != 0) return -1;
    const long long length = platform::tell(stream);
    return platform::seek(stream, 0, SEEK_SET) == 0 ? length : -1;
}

/// Sums `length` bytes from the start of a file with `step(sum, data, size)`.
template <class Step>
[[nodiscard]] ChecksumCode sumFile(std::FILE* stream, long long length, Step&& step, std::uint32_t& sum) {
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

/// The steps the three operations share: open, measure, sum all but the last `uncovered` bytes. `file` stays open.
template <class Step>
[[nodiscard]] ChecksumCode openAndSum(const char* path, const char* mode, long long uncovered, Step&& step, File& file,
                                      std::uint32_t& sum) {
    file.reset(platform::openFile(path, mode));
    if (file == nullptr) return kCannotOpen;
    const long long length = lengthOf(file.get());
    if (length < 0) return kCannotRead;
    return sumFile(file.get(), length - uncovered, step, sum);
}

/// Writes the trailer at the position, which is the end. The bytes sit in the stream's buffer until the file is closed,
/// so only the result of closing tells whether they reached the file.
[[nodiscard]] ChecksumCode writeTrailerHere(File file, std::uint32_t sum) {
    unsigned char trailer[kTrailerBytes];
    putBigEndian32(sum, trailer);
    const bool written = std::fwrite(trailer, 1, sizeof trailer, file.get()) == sizeof trailer;
    const bool closed = std::fclose(file.release()) == 0;
    return written && closed ? kOk : kTrailerIo;
}

[[nodiscard]] ChecksumCode writeTrailer(File file, std::uint32_t sum) {
    return platform::seek(file.get(), 0, SEEK_END) == 0 ? writeTrailerHere(std::move(file), sum) : kTrailerIo;
}

[[nodiscard]] ChecksumCode readTrailer(std::FILE* stream, std::uint32_t& stored) {
    unsigned char trailer[kTrailerBytes];
    if (platform::seek(stream, -kTrailerBytes, SEEK_END) != 0) return kTrailerIo;
    if (std::fread(trailer, 1, sizeof trailer, stream) != sizeof trailer) return kTrailerIo;
    stored = bigEndian32(trailer);
    return kOk;
}

/// Absolute value in 32-bit arithmetic: the most negative value stays itself.
std::uint32_t magnitude(std::uint32_t value) { return value >> 31 != 0 ? wrappingDifference(0u, value) : value; }

bool xorSumsAgree(std::uint32_t computed, std::uint32_t stored) {
    const std::uint32_t c = magnitude(computed);
    const std::uint32_t s = magnitude(stored);
    return c == s || wrappingSum(c, s) == 0x100;
}

template <class Step>
int appendSum(const char* path, Step&& step) {
    File file;
    std::uint32_t sum = 0;
    const ChecksumCode code = openAndSum(path, "rb+", 0, step, file, sum);
    return code != kOk ? code : writeTrailer(std::move(file), sum);
}

template <class Step, class Agree>
int checkSum(const char* path, Step&& step, Agree&& agree) {
    File file;
    std::uint32_t computed = 0;
    std::uint32_t stored = 0;
    ChecksumCode code = openAndSum(path, "rb", kTrailerBytes, step, file, computed);
    if (code == kOk) code = readTrailer(file.get(), stored);
    if (code != kOk) return code;
    return agree(computed, stored) ? kOk : kMismatch;
}

template <class Step>
int getSum(const char* path, Step&& step) {
    File file;
    std::uint32_t sum = 0;
    const ChecksumCode code = openAndSum(path, "rb", kTrailerBytes, step, file, sum);
    return code != kOk ? code : static_cast<int>(sum);
}

}  // namespace

CheckSum::CheckSum() : m_table{} { makeCrc32Table(); }

CheckSum& CheckSum::instance() {
    static CheckSum only;
    return only;
}

int CheckSum::makeCrc32Table() {
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t entry = n;
        for (int bit = 0; bit < 8; ++bit) entry = (entry & 1) != 0 ? entry >> 1 ^ kCrcPolynomial : entry >> 1;
        m_table[n] = entry;
    }
    return 0;
}

unsigned int CheckSum::makeCrc(unsigned int crc, unsigned char* data, unsigned int len) {
#if defined(VNDLP_HAVE_LIBDEFLATE)
    // libdeflate inverts the register at both ends; undone here
    return len == 0 ? crc : ~libdeflate_crc32(~crc, data, len);
#else
    for (unsigned int i = 0; i < len; ++i) crc = crc >> 8 ^ m_table[(crc ^ data[i]) & 0xFF];
    return crc;
#endif
}

namespace {

/// What appending an XOR sum says of its failure.
int reportedXor(int code) {
    if (code == kTrailerIo) report("appendFileSumXor error -4\n");
    return code;
}

/// Sniffs and announces the file, then hands over to the member for its kind of sum.
template <class Xor, class Crc32>
int dispatch(CheckSum& sums, const char* path, Xor&& xorMember, Crc32&& crcMember) {
    std::string versionName;
    int subVersionNum = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    const int code = sums.getFileVersionInfo(path, versionName, subVersionNum, type);
    if (code != 0) {
        report("getFileVersionInfo failed, ret:%d\n", code);
        return -1;
    }
    // the same text for all three operations
    report("checkFileSum, file:%s, versionName:%s, subVersionNum:%d, checktype:%d\n", path, versionName.c_str(),
           subVersionNum, static_cast<int>(type));
    switch (type) {
        case CHECKSUM_XOR: return xorMember();
        case CHECKSUM_CRC32: return crcMember();
        case CHECKSUM_NONE: break;
    }
    return 0;
}

}  // namespace

int CheckSum::appendFileSum(const char* path) {
    return dispatch(
        *this, path, [&] { return appendFileSumXor(path); }, [&] { return appendFileSumCrc32(path); });
}

namespace {

/// Appends a sum that is known, unless the file is not as long as what was summed.
/// \return false then.
bool appendKnown(const char* path, long long length, std::uint32_t sum, int& code) {
    File file(platform::openFile(path, "rb+"));
    if (file == nullptr) {
        code = kCannotOpen;
        return true;
    }
    const long long actual = platform::seek(file.get(), 0, SEEK_END) == 0 ? platform::tell(file.get()) : -1;
    if (actual >= 0 && actual != length) return false;
    code = actual < 0 ? kCannotRead : writeTrailerHere(std::move(file), sum);
    return true;
}

}  // namespace

int appendKnownSum(const std::string& path, const RunningSum& sum) {
    CheckSum& sums = CheckSum::instance();
    if (!sum.known()) return sums.appendFileSum(path.c_str());
    int code = kOk;
    return dispatch(
        sums, path.c_str(),
        [&] {
            if (!appendKnown(path.c_str(), sum.length(), sum.xorSum(), code))
                return sums.appendFileSumXor(path.c_str());
            return reportedXor(code);
        },
        [&] {
            return appendKnown(path.c_str(), sum.length(), sum.crc(), code) ? code
                                                                            : sums.appendFileSumCrc32(path.c_str());
        });
}

int CheckSum::checkFileSum(const char* path) {
    return dispatch(
        *this, path, [&] { return checkFileSumXor(path); }, [&] { return checkFileSumCrc32(path); });
}

int CheckSum::getFileSum(const char* path) {
    return dispatch(
        *this, path, [&] { return getFileSumXor(path); }, [&] { return getFileSumCrc32(path); });
}

int CheckSum::appendFileSumCrc32(const char* path) {
    if (path == nullptr) return kNullPath;
    return appendSum(path, [this](std::uint32_t sum, unsigned char* data, std::size_t size) {
        return makeCrc(sum, data, static_cast<unsigned>(size));
    });
}

int CheckSum::appendFileSumXor(const char* path) {
    if (path == nullptr) return kNullPath;
    return reportedXor(appendSum(path, continueXor));
}

int CheckSum::checkFileSumCrc32(const char* path) {
    if (path == nullptr) return kNullPath;
    return checkSum(
        path,
        [this](std::uint32_t sum, unsigned char* data, std::size_t size) {
            return makeCrc(sum, data, static_cast<unsigned>(size));
        },
        [](std::uint32_t computed, std::uint32_t stored) { return computed == stored; });
}

int CheckSum::checkFileSumXor(const char* path) {
    if (path == nullptr) return kNullPath;
    return checkSum(path, continueXor, xorSumsAgree);
}

int CheckSum::getFileSumCrc32(const char* path) {
    if (path == nullptr) return kNullPath;
    return getSum(path, [this](std::uint32_t sum, unsigned char* data, std::size_t size) {
        return makeCrc(sum, data, static_cast<unsigned>(size));
    });
}

int CheckSum::getFileSumXor(const char* path) {
    if (path == nullptr) return kNullPath;
    return getSum(path, continueXor);
}

long long CheckSum::getFileSize(const char* path) {
    if (path == nullptr) return kNullPath;
    const File file(platform::openFile(path, "rb+"));
    if (file == nullptr) return kCannotOpen;
    return lengthOf(file.get());
}

}  // namespace vndlp
