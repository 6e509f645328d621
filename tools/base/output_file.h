/// Files that appear under their name only when they are complete.

#pragma once

#include <string>

namespace vndlp::tools {

/// A file being written beside its final name, with the same extension; removed unless it is committed.
class PendingFile {
public:
    /// \param path  the final name. Throws Failure when something stands there and `force` is not set, or when it is a
    ///              folder.
    PendingFile(std::string path, bool force);
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();

    const std::string& path() const { return m_path; }
    /// Where to write until `commit`.
    const std::string& temporaryPath() const { return m_temporaryPath; }

    /// Flushes the file to the disk and gives it its name, replacing what was there. Throws Failure.
    void commit();

private:
    std::string m_path;
    std::string m_temporaryPath;
    bool m_committed = false;
};

/// Writes a whole small file, through a PendingFile. Throws Failure.
void writeWholeFile(const std::string& path, const void* data, std::size_t size, bool force);

/// From here on SIGINT and SIGTERM only raise a flag, so that unfinished files are removed; writing beyond a file-size
/// limit is an error instead of the end of the process.
void installSignalHandlers();

/// Throws Failure once the program was told to stop.
void stopIfInterrupted();

}  // namespace vndlp::tools
