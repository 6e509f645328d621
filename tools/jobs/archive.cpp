#include "tools/jobs/archive.h"

#include "tools/base/failure.h"
#include "tools/images/deflate.h"

#include <vndlp/streams.h>
#include <zip.h>
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <system_error>

namespace vndlp::tools {

namespace {

namespace fs = std::filesystem;

constexpr const char* kCopyAgain = "; copy or make the archive again";

fs::path nativePath(const std::string& utf8) { return {std::u8string(utf8.begin(), utf8.end())}; }

std::string utf8Of(const fs::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

std::string bytesText(std::uint64_t count) { return std::to_string(count) + (count == 1 ? " byte" : " bytes"); }

std::string methodName(int method) {
    switch (method) {
        case ZIP_CM_SHRINK: return "shrink";
        case ZIP_CM_IMPLODE: return "implode";
        case ZIP_CM_DEFLATE64: return "deflate64";
        case ZIP_CM_BZIP2: return "bzip2";
        case ZIP_CM_LZMA: return "lzma";
        case ZIP_CM_XZ: return "xz";
        case 93: return "zstd";
        case ZIP_CM_PPMD: return "ppmd";
        default: return "method " + std::to_string(method);
    }
}

struct FreeZip {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct FreeZipFile {
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using ZipFile = std::unique_ptr<zip_file_t, FreeZipFile>;

class ZipArchive : public Archive {
public:
    ZipArchive(const std::string& path, std::uint64_t fileBytes);

    void readEntry(std::size_t index, std::vector<unsigned char>& out) const override;
    void readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const override;

private:
    /// What the directory says of an entry beside name and size.
    struct Packing {
        zip_uint64_t zipIndex;
        std::uint64_t packedSize;
        std::uint32_t crc;
        std::uint16_t method;
        bool isEncrypted;
    };

    void requireReadable(std::size_t index) const;
    void readRaw(std::size_t index, zip_flags_t flags, unsigned char* out, std::size_t count) const;

    std::unique_ptr<zip_t, FreeZip> m_zip;
    mutable std::mutex m_zipMutex;  // libzip's handle serves one thread at a time
    std::uint64_t m_fileBytes;
    std::vector<Packing> m_packing;  // by entry
};

ZipArchive::ZipArchive(const std::string& path, std::uint64_t fileBytes) : Archive(path), m_fileBytes(fileBytes) {
    int code = 0;
    m_zip.reset(zip_open(path.c_str(), ZIP_RDONLY, &code));
    if (m_zip == nullptr) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw Failure(path + ": is not a zip archive that can be read (" + reason +
                      "); a job is an .sl1 archive, or a zip or a folder of PNG layers");
    }
    const auto count = static_cast<zip_uint64_t>(std::max<zip_int64_t>(zip_get_num_entries(m_zip.get(), 0), 0));
    for (zip_uint64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        constexpr zip_uint64_t kNeeded =
            ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
        if (zip_stat_index(m_zip.get(), i, 0, &stat) != 0 || (stat.valid & kNeeded) != kNeeded)
            throw Failure(path + ": the directory of the archive is damaged at entry " + std::to_string(i) +
                          kCopyAgain);
        std::string name = stat.name;
        if (name.ends_with('/')) continue;
        m_entries.push_back({std::move(name), stat.size});
        m_packing.push_back({i, stat.comp_size, stat.crc, stat.comp_method, stat.encryption_method != ZIP_EM_NONE});
    }
}

void ZipArchive::requireReadable(std::size_t index) const {
    const Packing& packing = m_packing[index];
    const std::uint64_t size = m_entries[index].size;
    if (packing.isEncrypted) failAt(index, "is encrypted; make the archive again without a password");
    if (packing.method != ZIP_CM_STORE && packing.method != ZIP_CM_DEFLATE)
        failAt(index, "is packed with " + methodName(packing.method) + "; make the archive again with deflate");
    if (size > kMaxEntryBytes)
        failAt(index,
               "claims " + bytesText(size) + "; entries of more than " + bytesText(kMaxEntryBytes) + " are refused");
    if (packing.packedSize > m_fileBytes)
        failAt(index,
               "claims " + bytesText(packing.packedSize) + " of an archive of " + bytesText(m_fileBytes) + kCopyAgain);
    const bool isPlausible =
        packing.method == ZIP_CM_STORE ? size == packing.packedSize : size / kMaxDeflateRatio <= packing.packedSize;
    if (!isPlausible)
        failAt(index, "claims to unpack to " + bytesText(size) + ", which its " + bytesText(packing.packedSize) +
                          " cannot hold" + kCopyAgain);
}

/// Reads `count` bytes as they are packed (ZIP_FL_COMPRESSED) or unpacked by libzip.
void ZipArchive::readRaw(std::size_t index, zip_flags_t flags, unsigned char* out, std::size_t count) const {
    const std::lock_guard lock(m_zipMutex);
    const ZipFile file(zip_fopen_index(m_zip.get(), m_packing[index].zipIndex, flags));
    if (file == nullptr)
        failAt(index, std::string("cannot be opened (") + zip_strerror(m_zip.get()) + ")" + kCopyAgain);
    const zip_int64_t got = zip_fread(file.get(), out, count);
    if (got < 0) failAt(index, std::string("cannot be read (") + zip_file_strerror(file.get()) + ")" + kCopyAgain);
    if (static_cast<std::uint64_t>(got) != count) failAt(index, std::string("is cut short") + kCopyAgain);
}

void ZipArchive::readEntry(std::size_t index, std::vector<unsigned char>& out) const {
    requireReadable(index);
    const Packing& packing = m_packing[index];
    out.resize(m_entries[index].size);
    if (packing.method == ZIP_CM_STORE) {
        readRaw(index, ZIP_FL_COMPRESSED, out.data(), out.size());
    } else {
        thread_local std::vector<unsigned char> packed;
        packed.resize(packing.packedSize);
        readRaw(index, ZIP_FL_COMPRESSED, packed.data(), packed.size());
        if (libdeflate_deflate_decompress(threadDecompressor(), packed.data(), packed.size(), out.data(), out.size(),
                                          nullptr) != LIBDEFLATE_SUCCESS)
            failAt(index, "cannot be unpacked to the " + bytesText(out.size()) + " it claims" + kCopyAgain);
    }
    if (libdeflate_crc32(0, out.data(), out.size()) != packing.crc)
        failAt(index, std::string("is damaged: its CRC does not match") + kCopyAgain);
}

void ZipArchive::readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const {
    requireReadable(index);
    out.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_entries[index].size)));
    readRaw(index, 0, out.data(), out.size());
}

/// A zip archive without its directory, all in memory: entries stand behind headers of their own.
///
/// | offset | size | field                                                             |
/// |--------|------|-------------------------------------------------------------------|
/// | 0      | 4    | "PK", 3, 4                                                        |
/// | 6      | 2    | flags: 1 encrypted, 8 CRC and sizes are in a descriptor behind    |
/// | 8      | 2    | method                                                            |
/// | 14     | 12   | CRC-32, packed bytes, bytes                                       |
/// | 26     | 4    | bytes of name and of extra fields, both of which follow           |
///
/// The descriptor is "PK", 7, 8, CRC-32, packed bytes, bytes.
class CutZip : public Archive {
public:
    CutZip(const std::string& path, std::string bytes) : Archive(path), m_bytes(std::move(bytes)) { findEntries(); }

    static bool isOne(const std::string& bytes) { return bytes.starts_with(kHeader); }

    void readEntry(std::size_t index, std::vector<unsigned char>& out) const override;
    void readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const override;

private:
    struct Place {
        std::uint64_t at;  ///< of the packed bytes
        std::uint64_t packed;
        std::uint64_t size;
        std::uint32_t crc;
        unsigned method;
    };
    static constexpr std::string_view kHeader = "PK\3\4";
    static constexpr std::string_view kDescriptor = "PK\7\10";
    static constexpr std::string_view kDirectory = "PK\1\2";
    static constexpr std::size_t kHeaderBytes = 30;
    static constexpr std::size_t kDescriptorBytes = 16;

    std::uint32_t number(std::size_t at, int bytes) const;
    void takeSizes(std::size_t at, Place& place) const;
    bool findPlace(std::size_t header, Place& place, std::size_t& end) const;
    bool unpack(const Place& place, std::vector<unsigned char>& out) const;
    void findEntries();

    std::string m_bytes;
    std::vector<Place> m_places;  // by entry
};

std::uint32_t CutZip::number(std::size_t at, int bytes) const {
    std::uint32_t value = 0;
    for (int i = bytes; i-- > 0;) value = value << 8 | static_cast<unsigned char>(m_bytes[at + std::size_t(i)]);
    return value;
}

void CutZip::takeSizes(std::size_t at, Place& place) const {
    place.crc = number(at, 4);
    place.packed = number(at + 4, 4);
    place.size = number(at + 8, 4);
}

/// \param end receives where the entry ends. \return false where it is not all there.
bool CutZip::findPlace(std::size_t header, Place& place, std::size_t& end) const {
    constexpr unsigned kIsEncrypted = 1;
    constexpr unsigned kHasDescriptor = 8;
    if (m_bytes.size() - header < kHeaderBytes) return false;
    const unsigned flags = number(header + 6, 2);
    place.method = number(header + 8, 2);
    takeSizes(header + 14, place);
    place.at = header + kHeaderBytes + number(header + 26, 2) + number(header + 28, 2);
    if (place.at > m_bytes.size() || (flags & kIsEncrypted) != 0) return false;
    if ((flags & kHasDescriptor) == 0) {
        end = place.at + place.packed;
        return end <= m_bytes.size();
    }
    // packed bytes may look like a descriptor, but hardly like one that says how many they are
    for (std::size_t at = m_bytes.find(kDescriptor, place.at); at != std::string::npos;
         at = m_bytes.find(kDescriptor, at + 1)) {
        end = at + kDescriptorBytes;
        if (end > m_bytes.size()) return false;
        takeSizes(at + kDescriptor.size(), place);
        if (place.packed == at - place.at) return true;
    }
    return false;
}

bool CutZip::unpack(const Place& place, std::vector<unsigned char>& out) const {
    if (place.size > kMaxEntryBytes) return false;
    const char* const packed = m_bytes.data() + place.at;
    if (place.method == ZIP_CM_STORE) {
        if (place.size != place.packed) return false;
        out.assign(packed, packed + place.size);
    } else {
        if (place.method != ZIP_CM_DEFLATE || place.size / kMaxDeflateRatio > place.packed) return false;
        out.resize(place.size);
        if (libdeflate_deflate_decompress(threadDecompressor(), packed, place.packed, out.data(), out.size(),
                                          nullptr) != LIBDEFLATE_SUCCESS)
            return false;
    }
    return libdeflate_crc32(0, out.data(), out.size()) == place.crc;
}

void CutZip::findEntries() {
    std::vector<unsigned char> unpacked;
    std::size_t at = 0;
    while (at != std::string::npos && at < m_bytes.size() && m_bytes.compare(at, kDirectory.size(), kDirectory) != 0) {
        Place place{};
        std::size_t end = 0;
        const bool isWhole =
            m_bytes.compare(at, kHeader.size(), kHeader) == 0 && findPlace(at, place, end) && unpack(place, unpacked);
        if (isWhole) {
            std::string name = m_bytes.substr(at + kHeaderBytes, number(at + 26, 2));
            at = end;
            if (name.ends_with('/')) continue;
            m_entries.push_back({std::move(name), place.size});
            m_places.push_back(place);
            continue;
        }
        if (m_damagedAt < 0) m_damagedAt = static_cast<std::int64_t>(at);
        at = m_bytes.find(kHeader, at + 1);
    }
    if (m_damagedAt < 0) m_damagedAt = static_cast<std::int64_t>(at);
}

void CutZip::readEntry(std::size_t index, std::vector<unsigned char>& out) const {
    if (!unpack(m_places[index], out)) failAt(index, std::string("cannot be unpacked") + kCopyAgain);
}

void CutZip::readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const {
    readEntry(index, out);
    out.resize(std::min(count, out.size()));
}

std::string wholeFile(const std::string& path, std::uintmax_t bytes) {
    FileRead file;
    if (file.open(path, 0) != 0) return {};
    std::string read(static_cast<std::size_t>(bytes), '\0');
    read.resize(file.readBytes(reinterpret_cast<unsigned char*>(read.data()), read.size()));
    return read;
}

class Folder : public Archive {
public:
    explicit Folder(const std::string& path);

    void readEntry(std::size_t index, std::vector<unsigned char>& out) const override;
    void readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const override;

private:
    void list(const fs::path& folder, const std::string& prefix, bool withFolders);
};

Folder::Folder(const std::string& path) : Archive(path) {
    try {
        list(nativePath(path), "", true);
    } catch (const fs::filesystem_error& error) {
        throw Failure(path + ": the folder cannot be read: " + error.code().message());
    }
    std::sort(m_entries.begin(), m_entries.end(),
              [](const ArchiveEntry& a, const ArchiveEntry& b) { return a.name < b.name; });
}

void Folder::list(const fs::path& folder, const std::string& prefix, bool withFolders) {
    for (const fs::directory_entry& item : fs::directory_iterator(folder)) {
        const std::string name = prefix + utf8Of(item.path().filename());
        std::error_code ignored;  // a link that leads nowhere is neither file nor folder
        if (item.is_regular_file(ignored))
            m_entries.push_back({name, item.file_size()});
        else if (withFolders && item.is_directory(ignored))
            list(item.path(), name + "/", false);
    }
}

void Folder::readEntry(std::size_t index, std::vector<unsigned char>& out) const {
    const std::uint64_t size = m_entries[index].size;
    if (size > kMaxEntryBytes)
        failAt(index, "has " + bytesText(size) + "; files of more than " + bytesText(kMaxEntryBytes) + " are refused");
    readHead(index, static_cast<std::size_t>(size), out);
    if (out.size() != size) failAt(index, "cannot be read to its end");
}

void Folder::readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const {
    FileRead file;
    if (file.open(path() + "/" + m_entries[index].name, 0) != 0) {
        const int reason = errno;
        failAt(index, "cannot be opened: " + std::generic_category().message(reason));
    }
    out.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_entries[index].size)));
    out.resize(file.readBytes(out.data(), out.size()));
}

}  // namespace

std::string Archive::label(std::size_t index) const { return m_path + ": " + printable(m_entries[index].name); }

void Archive::failAt(std::size_t index, const std::string& what) const { throw Failure(label(index) + ": " + what); }

std::unique_ptr<Archive> openArchive(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(nativePath(path), error);
    if (fs::is_directory(status)) return std::make_unique<Folder>(path);
    const std::uintmax_t bytes = error ? 0 : fs::file_size(nativePath(path), error);
    if (error) throw Failure(path + ": cannot be opened: " + error.message());
    try {
        return std::make_unique<ZipArchive>(path, bytes);
    } catch (const Failure&) {
        std::string all = wholeFile(path, bytes);
        if (!CutZip::isOne(all)) throw;
        return std::make_unique<CutZip>(path, std::move(all));
    }
}

}  // namespace vndlp::tools
