/// The magics of the slice files that carry one as text: what sniffing, reader and writer must agree on.

#pragma once

#include <vndlp/checksum.h>

#include <string_view>

namespace vndlp {

/// Header kinds of the vendor container, as stored in `DlpFileStructure::headerType`.
enum HeaderKind : int { kNoHeader = 0, kV1Header = 1, kV2Header = 2, kV3Header = 3, kLineHeader = 12 };

/// From this version on, V2 files carry the slicing settings and a CRC in place of the XOR sum.
constexpr int kFirstSettingsVersion = 3;

struct FormatRow {
    std::string_view magic;
    std::string_view tailMagic;
    HeaderKind header;  ///< kNoHeader: sniffed, but not readable
    EnumCheckSumType checkSum;
    bool xorBelowVersion3;
    bool hasVersionBehindMagic;
    bool versionMayBe32Bit;  ///< a zero 16-bit version is the upper half of a 32-bit one
};

/// V3 files end with the V1 magic although they start with their own: part of the format.
constexpr FormatRow kFormats[] = {
    {"MKSDLP", "", kNoHeader, CHECKSUM_NONE, false, false, false},
    {"VNKT3D", "VNKT3D", kV1Header, CHECKSUM_NONE, false, false, false},
    {"VNKT3D3", "VNKT3D", kV3Header, CHECKSUM_XOR, false, false, false},
    {"VNKT3DV3", "", kNoHeader, CHECKSUM_XOR, false, false, false},
    {"VNKT3DV2", "VNKT3DV2", kV2Header, CHECKSUM_CRC32, true, true, true},
    {"VNLINEV2", "VNLINEV2", kLineHeader, CHECKSUM_CRC32, false, true, false},
};

/// The row of a magic; null when there is none.
constexpr const FormatRow* findFormat(std::string_view magic) {
    for (const FormatRow& row : kFormats) {
        if (row.magic == magic) return &row;
    }
    return nullptr;
}

/// The row of a header kind; null when there is none.
constexpr const FormatRow* findFormat(HeaderKind header) {
    for (const FormatRow& row : kFormats) {
        if (row.header == header && header != kNoHeader) return &row;
    }
    return nullptr;
}

/// The trailer a file of this row and version carries.
constexpr EnumCheckSumType checkSumTypeOf(const FormatRow& row, int version) {
    return row.xorBelowVersion3 && version < kFirstSettingsVersion ? CHECKSUM_XOR : row.checkSum;
}

}  // namespace vndlp
