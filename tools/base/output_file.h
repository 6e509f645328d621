/// Files that appear under their name only when they are complete.

#pragma once

#include "tools/base/signals.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace vndlp::tools {

/// A file being written in a hidden folder beside its final name; removed unless it is committed, also when a signal
/// stops the program. What earlier runs that were killed left of the same output is removed first.
class PendingFile {
public:
    /// \param path  the final name. A link, dangling or not, is written through: what it leads to is made or replaced.
    ///              Throws Failure when something stands there and `force` is not set, or when it is no regular file.
    PendingFile(std::string path, bool force) : PendingFile(std::move(path), force, true) {}
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();

    const std::string& path() const { return m_path; }
    /// Where to write until `commit`; nothing stands there yet. The name ends as the final one, in small letters. Other
    /// files may be made beside it.
    const std::string& temporaryPath() const { return m_temporaryPath; }

    /// Flushes file and folder to the disk and gives the file its name, with the mode, the owner and the group of what
    /// it replaces, as far as they can be had. Without `force` a file that appeared there meanwhile is left alone.
    /// Throws Failure.
    void commit();
    /// The same without waiting for the disk. Throws Failure.
    void commitUnflushed();

private:
    friend void writeUnflushed(const std::string& path, const void* data, std::size_t size, bool force);
    PendingFile(std::string path, bool force, bool sweeps);
    void giveName();
    void keepOwnership() const;

    std::string m_path;    // as given
    std::string m_target;  // behind links
    std::string m_folder;
    std::string m_temporaryPath;
    bool m_force;
    int m_descriptor = -1;  // of the folder, locked: a sign that the writing process lives
    std::unique_ptr<UnfinishedFolder> m_unfinished;
};

/// Removes what killed runs left unfinished in a folder of many outputs.
void sweepFolder(const std::string& folder);

/// Flushes what was written into a folder to the disk. Throws Failure.
void flushFolder(const std::string& folder);

/// Makes a folder and those above it. Throws Failure.
void makeFolder(const std::string& folder);

/// Writes a whole small file, through a PendingFile. Throws Failure.
void writeWholeFile(const std::string& path, const void* data, std::size_t size, bool force);
/// The same, for a `sweepFolder` in front of many files and a `flushFolder` behind them.
void writeUnflushed(const std::string& path, const void* data, std::size_t size, bool force);

}  // namespace vndlp::tools
