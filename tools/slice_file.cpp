#include "tools/slice_file.h"

#include "tools/failure.h"

#include <vndlp/checksum.h>

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
    return trailer;
}

Finding trailerFinding(const Trailer& trailer, long long fileSize) {
    constexpr long long kTrailerBytes = 4;
    return {fileSize - kTrailerBytes, "the " + trailer.kind +
                                          " trailer does not match the file: it was changed, cut short or never "
                                          "finished"};
}

LayerShapes SliceFile::readShapes(int /*index*/) { throw Failure("layers are images, not geometry"); }

std::unique_ptr<SliceFile> openSliceFile(const std::string& path) { return readerFor(path).open(path); }

std::vector<Finding> verifySliceFile(const std::string& path) { return readerFor(path).verify(path); }

}  // namespace vndlp::tools
