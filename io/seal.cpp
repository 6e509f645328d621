#include "io/seal.h"

#include <vndlp/formats.h>
#include "io/byte_order.h"
#include "io/file_sum.h"
#include "io/report.h"
#include "io/running_sum.h"
#include "io/xor_sum.h"

#include <cstdint>
#include <cstdio>
#include <utility>

namespace vndlp {

namespace {

using platform::File;

/// Writes the trailer at the position, which is the end. The bytes sit in the stream's buffer until the file is closed,
/// so only the result of closing tells whether they reached the file.
[[nodiscard]] ChecksumCode writeTrailer(File file, std::uint32_t sum) {
    unsigned char trailer[kTrailerBytes];
    putBigEndian32(sum, trailer);
    const bool written = std::fwrite(trailer, 1, sizeof trailer, file.get()) == sizeof trailer;
    const bool closed = std::fclose(file.release()) == 0;
    return written && closed ? kOk : kTrailerIo;
}

int appendSum(const char* path, SumStep step) {
    if (path == nullptr) return kNullPath;
    File file;
    std::uint32_t sum = 0;
    const ChecksumCode code = openAndSum(path, "rb+", 0, step, file, sum);
    if (code != kOk) return code;
    return platform::seek(file.get(), 0, SEEK_END) == 0 ? writeTrailer(std::move(file), sum) : kTrailerIo;
}

/// What appending an XOR sum says of its failure.
int reportedXor(int code) {
    if (code == kTrailerIo) report("appendFileSumXor error -4\n");
    return code;
}

}  // namespace

int CheckSum::appendFileSum(const char* path) {
    return announceAndCall(path, &CheckSum::appendFileSumXor, &CheckSum::appendFileSumCrc32);
}

int CheckSum::appendFileSumCrc32(const char* path) { return appendSum(path, continueCrc); }

int CheckSum::appendFileSumXor(const char* path) { return reportedXor(appendSum(path, continueXor)); }

void keepSum(FileWrite& file) {
    file.m_sum = std::make_unique<RunningSum>();
    file.m_sumPosition = 0;
}

int appendKeptSum(const FileWrite& file) {
    const char* const path = file.m_fileName.c_str();
    CheckSum& sums = CheckSum::instance();
    if (file.m_sum == nullptr || !file.m_sum->known()) return sums.appendFileSum(path);
    EnumCheckSumType kind = CHECKSUM_NONE;
    if (!announce(path, kind)) return -1;
    if (kind == CHECKSUM_NONE) return 0;
    const bool isXor = kind == CHECKSUM_XOR;
    File sealed(platform::openFile(path, "rb+"));
    if (sealed == nullptr) return kCannotOpen;
    const long long length = platform::seek(sealed.get(), 0, SEEK_END) == 0 ? platform::tell(sealed.get()) : -1;
    if (length < 0) return kCannotRead;
    if (length != file.m_sum->length()) return isXor ? sums.appendFileSumXor(path) : sums.appendFileSumCrc32(path);
    const int code = writeTrailer(std::move(sealed), isXor ? file.m_sum->xorSum() : file.m_sum->crc());
    return isXor ? reportedXor(code) : code;
}

}  // namespace vndlp
