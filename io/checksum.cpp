#include <vndlp/checksum.h>
#include <vndlp/formats.h>

#include "io/byte_order.h"
#include "io/file_sum.h"
#include "io/running_sum.h"
#include "io/wrapping.h"
#include "io/xor_sum.h"

#include <cstdint>
#include <cstdio>

#if defined(VNDLP_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace vndlp {

namespace {

using platform::File;

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

int checkSum(const char* path, SumStep step, bool (*agree)(std::uint32_t, std::uint32_t)) {
    if (path == nullptr) return kNullPath;
    File file;
    std::uint32_t computed = 0;
    std::uint32_t stored = 0;
    ChecksumCode code = openAndSum(path, "rb", kTrailerBytes, step, file, computed);
    if (code == kOk) code = readTrailer(file.get(), stored);
    if (code != kOk) return code;
    return agree(computed, stored) ? kOk : kMismatch;
}

int getSum(const char* path, SumStep step) {
    if (path == nullptr) return kNullPath;
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

int CheckSum::checkFileSum(const char* path) {
    return announceAndCall(path, &CheckSum::checkFileSumXor, &CheckSum::checkFileSumCrc32);
}

int CheckSum::getFileSum(const char* path) {
    return announceAndCall(path, &CheckSum::getFileSumXor, &CheckSum::getFileSumCrc32);
}

int CheckSum::checkFileSumCrc32(const char* path) {
    return checkSum(path, continueCrc, [](std::uint32_t computed, std::uint32_t stored) { return computed == stored; });
}

int CheckSum::checkFileSumXor(const char* path) { return checkSum(path, continueXor, xorSumsAgree); }

int CheckSum::getFileSumCrc32(const char* path) { return getSum(path, continueCrc); }

int CheckSum::getFileSumXor(const char* path) { return getSum(path, continueXor); }

long long CheckSum::getFileSize(const char* path) {
    if (path == nullptr) return kNullPath;
    const File file(platform::openFile(path, "rb+"));
    if (file == nullptr) return kCannotOpen;
    return lengthOf(file.get());
}

}  // namespace vndlp
