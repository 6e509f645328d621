#include <vndlp/formats.h>

#include "io/byte_order.h"
#include "io/checksum_code.h"
#include "io/platform.h"

#include <algorithm>
#include <string>

namespace vndlp {

namespace {

constexpr std::size_t kMagicOffset = 4;      // behind the length of the magic string
constexpr std::size_t kMaxMagicLength = 11;  // what a short version's bytes hold behind that offset
constexpr std::size_t kVersionOffset = 13;   // behind an 8-character magic and its terminator
constexpr std::size_t kWideVersionOffset = 15;
constexpr std::size_t kMinHeadBytes = 15;

std::string_view magicText(const unsigned char* head) {
    const unsigned char* magic = head + kMagicOffset;
    const unsigned char* end = std::find(magic, magic + kMaxMagicLength, 0);
    return {reinterpret_cast<const char*>(magic), static_cast<std::size_t>(end - magic)};
}

SliceFormat formatOf(const MagicRow& row, int version) {
    if (row.header == kLineHeader) return SliceFormat::vnline;
    return row.header == kV2Header && version == kV4FileVersion ? SliceFormat::vndlpv4 : SliceFormat::vndlp;
}

}  // namespace

SniffedHead sniffHead(const void* head, std::size_t bytes) {
    const auto* const at = static_cast<const unsigned char*>(head);
    SniffedHead result;
    if (bytes >= 4 && littleEndian32(at) == kCtbMagic) {
        result.format = SliceFormat::ctb;
        return result;
    }
    result.magic = bytes < kMinHeadBytes ? nullptr : findMagic(magicText(at));
    if (result.magic == nullptr) return result;
    if (result.magic->hasVersionBehindMagic) result.version = static_cast<int>(bigEndian16(at + kVersionOffset));
    if (result.magic->versionMayBe32Bit && result.version == 0 && bytes >= kSniffBytes) {
        result.version = static_cast<int>(bigEndian16(at + kWideVersionOffset));
    }
    result.format = formatOf(*result.magic, result.version);
    result.checkSum = trailerOf(*result.magic, result.version);
    return result;
}

int CheckSum::getFileVersionInfo(const char* path, std::string& versionName, int& subVersionNum,
                                 EnumCheckSumType& type) {
    if (path == nullptr) return kNullPath;
    const platform::File file(platform::openFile(path, "rb"));
    if (file == nullptr) return kCannotOpen;
    subVersionNum = 0;
    type = CHECKSUM_NONE;
    unsigned char head[kSniffBytes] = {};
    const std::size_t bytes = std::fread(head, 1, sizeof head, file.get());
    if (bytes < kMinHeadBytes) return kCannotRead;
    versionName = magicText(head);
    const SniffedHead sniffed = sniffHead(head, bytes);
    if (sniffed.magic == nullptr) return kUnknownMagic;
    if (sniffed.magic->versionMayBe32Bit && sniffed.version == 0 && bytes < kSniffBytes) return kCannotRead;
    subVersionNum = sniffed.version;
    type = sniffed.checkSum;
    return kOk;
}

}  // namespace vndlp
