/// Zip archives and folders as one thing: a list of named entries whose bytes can be read.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vndlp::tools {

struct ArchiveEntry {
    std::string name;        ///< UTF-8, folders separated by '/'
    std::uint64_t size = 0;  ///< bytes, unpacked, as the archive claims
};

/// Entries of more bytes are refused.
constexpr std::uint64_t kMaxEntryBytes = std::uint64_t{1} << 30;

/// An opened archive or folder. Reading may happen in several threads at once.
class Archive {
public:
    explicit Archive(std::string path) : m_path(std::move(path)) {}
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;
    virtual ~Archive() = default;

    /// As given when the archive was opened.
    const std::string& path() const { return m_path; }

    /// Every file in it, in the archive's order (a folder's: by name); the archive's own folders are left out.
    const std::vector<ArchiveEntry>& entries() const { return m_entries; }

    /// "ARCHIVE: ENTRY", what a message about the entry begins with.
    std::string label(std::size_t index) const;

    /// Reads a whole entry and checks its size and, where the archive has one, its CRC.
    /// \param index below entries().size().
    /// \param out   receives the bytes; its buffer is used again.
    /// Throws Failure when the entry is damaged, encrypted, packed in an unknown way, larger than kMaxEntryBytes or
    /// larger than its packed bytes can be. Nothing of the claimed size is allocated before that is known.
    virtual void readEntry(std::size_t index, std::vector<unsigned char>& out) const = 0;

    /// Reads the first `count` bytes of an entry, fewer where it is shorter, without a check of the rest. Throws as
    /// `readEntry`.
    virtual void readHead(std::size_t index, std::size_t count, std::vector<unsigned char>& out) const = 0;

    /// Where the archive stops being whole, -1 where it is: what can be read of a cut or damaged one is in entries().
    std::int64_t damagedAt() const { return m_damagedAt; }

protected:
    [[noreturn]] void failAt(std::size_t index, const std::string& what) const;

    std::vector<ArchiveEntry> m_entries;
    std::int64_t m_damagedAt = -1;

private:
    std::string m_path;
};

/// Opens a zip file (also ZIP64), or a folder: its files and those of its folders, not deeper. Of a zip file without a
/// directory, a cut one, the entries are found by their own headers, and those that are whole are listed.
/// \param path UTF-8.
/// Throws Failure when it is neither.
std::unique_ptr<Archive> openArchive(const std::string& path);

}  // namespace vndlp::tools
