#include "tools/base/output_file.h"

#include "tools/base/failure.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

fs::path pathOf(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string textOf(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

#if defined(_WIN32)
int processId() { return _getpid(); }

int flushToDisk(const fs::path& path) {
    const int descriptor = _wopen(path.c_str(), _O_RDWR | _O_BINARY);
    if (descriptor < 0) return errno;
    const int code = _commit(descriptor) == 0 ? 0 : errno;
    _close(descriptor);
    return code;
}
#else
int processId() { return static_cast<int>(getpid()); }

int flushToDisk(const fs::path& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return errno;
    const int code = fsync(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    return code;
}
#endif

volatile std::sig_atomic_t interrupted = 0;

extern "C" void noteInterrupt(int /*signal*/) { interrupted = 1; }

}  // namespace

PendingFile::PendingFile(std::string path, bool force) : m_path(std::move(path)) {
    const fs::path target = pathOf(m_path);
    std::error_code ignored;
    if (fs::is_directory(target, ignored)) throw Failure(m_path + ": is a folder, a file's name is needed");
    if (!force && fs::exists(target, ignored)) throw Failure(m_path + ": exists already; --force replaces it");
    const fs::path folder = target.parent_path();
    if (!folder.empty() && !fs::is_directory(folder, ignored)) {
        throw Failure(m_path + ": the folder " + textOf(folder) + " does not exist");
    }
    // hidden, unique to this process, and with the ending that chooses the format
    fs::path name(".");
    name += target.stem();
    name += ".part" + std::to_string(processId());
    name += target.extension();
    m_temporaryPath = textOf(fs::path(target).replace_filename(name));
}

PendingFile::~PendingFile() {
    std::error_code ignored;
    if (!m_committed) fs::remove(pathOf(m_temporaryPath), ignored);
}

void PendingFile::commit() {
    const fs::path temporary = pathOf(m_temporaryPath);
    const int code = flushToDisk(temporary);
    if (code != 0) throw Failure(m_path + ": could not be flushed to the disk: " + std::strerror(code));
    std::error_code error;
    fs::rename(temporary, pathOf(m_path), error);
    if (error) throw Failure(m_path + ": the finished file could not be given its name: " + error.message());
    m_committed = true;
}

void writeWholeFile(const std::string& path, const void* data, std::size_t size, bool force) {
    PendingFile pending(path, force);
    const std::string temporary = textOf(pathOf(pending.temporaryPath()));
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (file == nullptr) throw Failure(path + ": cannot be created: " + std::strerror(errno));
    errno = 0;
    const bool written = std::fwrite(data, 1, size, file) == size;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) throw Failure(path + ": could not be written completely: " + std::strerror(errno));
    pending.commit();
}

void installSignalHandlers() {
    std::signal(SIGINT, noteInterrupt);
    std::signal(SIGTERM, noteInterrupt);
#if defined(SIGXFSZ)
    std::signal(SIGXFSZ, SIG_IGN);
#endif
#if defined(SIGPIPE)
    std::signal(SIGPIPE, SIG_IGN);
#endif
}

void stopIfInterrupted() {
    if (interrupted != 0) throw Failure("interrupted; the unfinished output was removed");
}

}  // namespace vndlp::tools
