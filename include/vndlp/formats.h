/// \file formats.h
/// What distinguishes the slice files from each other: formats, magics, header kinds, versions, trailers, limits.
///
/// | format  | begins with                                                    | ends with                      |
/// |---------|----------------------------------------------------------------|--------------------------------|
/// | vndlp   | length (32 bits, big-endian), magic, zero byte, then a version  | tail magic, checksum trailer   |
/// | vnline  | the same                                                       | tail magic, checksum trailer   |
/// | ctb     | `kCtbMagic`, little-endian                                     | the last layer                 |
/// | vndlpv4 | as vndlp, with the version `kV4FileVersion`                    | records, checksum trailer      |
///
/// The sizes of single records are in their classes (`CTB::PreView::size()`, `DlpImage::size`, ...).

#ifndef VNDLP_FORMATS_H
#define VNDLP_FORMATS_H

#include <vndlp/checksum.h>
#include <vndlp/export.h>

#include <cstddef>
#include <string_view>

namespace vndlp {

/// The four families of files.
enum class SliceFormat : int { none = 0, vndlp = 1, vnline = 2, ctb = 3, vndlpv4 = 4 };

/// A format's name and the ending of its files.
struct SliceFormatRow {
    SliceFormat format;
    std::string_view name;
    std::string_view ending;  ///< with the dot, lower case
};

/// In the order of the enumeration.
constexpr SliceFormatRow kSliceFormats[] = {
    {SliceFormat::vndlp, "vndlp", ".vndlp"},
    {SliceFormat::vnline, "vnline", ".vnline"},
    {SliceFormat::ctb, "ctb", ".ctb"},
    {SliceFormat::vndlpv4, "vndlpv4", ".vndlpv4"},
};

/// The format whose ending a path has, in lower case; `none` for another.
constexpr SliceFormat formatOfPath(std::string_view path) {
    for (const SliceFormatRow& row : kSliceFormats) {
        const std::size_t length = row.ending.size();
        if (path.size() >= length && path.substr(path.size() - length) == row.ending) return row.format;
    }
    return SliceFormat::none;
}

/// Header kinds of the vendor container, as `DlpFileStructure::headerType` has them.
enum HeaderKind : int { kNoHeader = 0, kV1Header = 1, kV2Header = 2, kV3Header = 3, kLineHeader = 12 };

/// V2 and line files have an area table in the head and an area in front of every layer.
constexpr bool hasAreaTable(int headerKind) { return headerKind == kV2Header || headerKind == kLineHeader; }

/// From this version on, V2 files carry the slicing settings and a CRC in place of the XOR sum.
constexpr int kFirstSettingsVersion = 3;
/// What tells a V4 file from a V2 file, which begin alike: the 16 bits behind the magic.
constexpr int kV4FileVersion = 4;
/// The first four bytes of a CTB file, little-endian.
constexpr unsigned int kCtbMagic = 0x12FD0086;

/// A text that a file of the vendor's begins with, and what follows from it.
struct MagicRow {
    std::string_view magic;
    std::string_view tailMagic;  ///< in front of the trailer; empty: not known
    HeaderKind header;           ///< kNoHeader: sniffed, but not readable
    EnumCheckSumType checkSum;
    bool xorBelowVersion3;
    bool hasVersionBehindMagic;
    bool versionMayBe32Bit;  ///< a zero 16-bit version is the upper half of a 32-bit one
};

/// V3 files end with the V1 magic although they start with their own: part of the format.
constexpr MagicRow kMagics[] = {
    {"MKSDLP", "", kNoHeader, CHECKSUM_NONE, false, false, false},
    {"VNKT3D", "VNKT3D", kV1Header, CHECKSUM_NONE, false, false, false},
    {"VNKT3D3", "VNKT3D", kV3Header, CHECKSUM_XOR, false, false, false},
    {"VNKT3DV3", "", kNoHeader, CHECKSUM_XOR, false, false, false},
    {"VNKT3DV2", "VNKT3DV2", kV2Header, CHECKSUM_CRC32, true, true, true},
    {"VNLINEV2", "VNLINEV2", kLineHeader, CHECKSUM_CRC32, false, true, false},
};

/// The row of a magic; null when there is none.
constexpr const MagicRow* findMagic(std::string_view magic) {
    for (const MagicRow& row : kMagics) {
        if (row.magic == magic) return &row;
    }
    return nullptr;
}

/// The row of a header kind; null when there is none.
constexpr const MagicRow* findMagic(int headerKind) {
    for (const MagicRow& row : kMagics) {
        if (row.header == headerKind && headerKind != kNoHeader) return &row;
    }
    return nullptr;
}

/// The trailer a file with this magic and version carries.
constexpr EnumCheckSumType trailerOf(const MagicRow& row, int version) {
    return row.xorBelowVersion3 && version < kFirstSettingsVersion ? CHECKSUM_XOR : row.checkSum;
}

/// Bytes of a checksum trailer, whatever its kind.
constexpr int kTrailerBytes = 4;

/// What stands behind the parts of a vendor file: carriage return, line feed.
constexpr unsigned short kSplitTag = 0x0D0A;
constexpr int kSplitTagBytes = 2;
/// Bytes of an area value, in the table and in front of a layer.
constexpr int kAreaBytes = 4;

/// A pixel is lit, and part of a run, when its grey is above this.
constexpr unsigned char kLitThreshold = 15;
/// What a packed run can say: columns and rows from 0 to one below these.
constexpr int kMaxRunColumns = 16384;
constexpr int kMaxRunRows = 8192;
/// Layers in a vendor file, whose count has 16 bits.
constexpr int kMaxLayers = 65535;

/// Bytes from the start of a file that `sniffHead` looks at.
constexpr std::size_t kSniffBytes = 17;

/// What the first bytes of a file say.
struct SniffedHead {
    SliceFormat format = SliceFormat::none;
    const MagicRow* magic = nullptr;  ///< null for CTB files
    int version = 0;                  ///< of the magic, 0 for those without
    EnumCheckSumType checkSum = CHECKSUM_NONE;
};

/// Tells a file's format by its first bytes. 16 tell it of every readable file; only a V2 version of 32 bits needs one
/// more.
/// \param head  null only where `bytes` is 0.
/// \param bytes of the file's start; behind `kSniffBytes` none is looked at.
VNDLP_API SniffedHead sniffHead(const void* head, std::size_t bytes);

}  // namespace vndlp

#endif
