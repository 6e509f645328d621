#include "tools/formats/slice_file.h"

#include "tools/base/failure.h"

#include <vndlp/checksum.h>
#include <vndlp/streams.h>

#include <algorithm>

namespace vndlp::tools {

namespace {

/// One row a format: how a file of it is recognised and what reads it.
struct FormatReader {
    bool (*recognises)(const std::string& path);
    std::unique_ptr<SliceFile> (*open)(const std::string& path);
    std::vector<Finding> (*verify)(const std::string& path);
};

constexpr FormatReader kReaders[] = {
    {isCtbFile, openCtbFile, verifyCtbFile},
    {isV4File, openV4File, verifyV4File},
    {isVendorFile, openVendorFile, verifyVendorFile},
    {isLineFile, openLineFile, verifyLineFile},
};

const FormatReader& readerFor(const std::string& path) {
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    if (CheckSum::instance().getFileVersionInfo(path.c_str(), magic, version, type) == -2) {
        throw Failure(path + ": cannot be opened");
    }
    for (const FormatReader& reader : kReaders) {
        if (reader.recognises(path)) return reader;
    }
    throw Failure(path + ": not a slice file this program knows (.vndlp, .vnline, .ctb, .vndlpv4)");
}

std::uint32_t storedTrailer(const std::string& path) {
    FileRead file(path, 0);
    file.seek(-4, 2);
    return file.readBigEndianUint32();
}

}  // namespace

Trailer trailerOf(const std::string& path) {
    CheckSum& sums = CheckSum::instance();
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    Trailer trailer;
    trailer.kind = "none";
    if (sums.getFileVersionInfo(path.c_str(), magic, version, type) != 0 || type == CHECKSUM_NONE) return trailer;
    trailer.kind = type == CHECKSUM_XOR ? "xor" : "crc32";
    trailer.present = true;
    trailer.matches = sums.checkFileSum(path.c_str()) == 0;
    if (trailer.matches && type == CHECKSUM_XOR) {
        const auto computed = static_cast<std::uint32_t>(sums.getFileSumXor(path.c_str()));
        const std::uint32_t stored = storedTrailer(path);
        trailer.matches = stored == computed || stored == (computed & 0xFF);
    }
    return trailer;
}

Finding trailerFinding(const Trailer& trailer, long long fileSize) {
    constexpr long long kTrailerBytes = 4;
    return {fileSize - kTrailerBytes, "the " + trailer.kind +
                                          " trailer does not match the file: it was changed, cut short or never "
                                          "finished"};
}

void findOverlaps(std::vector<Section> sections, std::vector<Finding>& findings) {
    std::sort(sections.begin(), sections.end(), [](const Section& a, const Section& b) { return a.offset < b.offset; });
    const Section* before = nullptr;  // the one that reaches farthest so far
    for (const Section& section : sections) {
        if (section.size <= 0) continue;
        if (before != nullptr && section.offset < before->offset + before->size) {
            findings.push_back({section.offset, "the " + section.name + " and the " + before->name + " overlap"});
        }
        if (before == nullptr || section.offset + section.size > before->offset + before->size) before = &section;
    }
}

LayerShapes SliceFile::readShapes(int /*index*/) { throw Failure("layers are images, not geometry"); }

std::unique_ptr<SliceFile> openSliceFile(const std::string& path) { return readerFor(path).open(path); }

std::vector<Finding> verifySliceFile(const std::string& path) { return readerFor(path).verify(path); }

}  // namespace vndlp::tools
