#include "tools/base/output_file.h"

#include "tools/base/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>

#if defined(_WIN32)
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace vndlp::tools {

namespace fs = std::filesystem;

namespace {

fs::path pathOf(const std::string& utf8) {
#if defined(_WIN32)
    return fs::path(std::u8string(utf8.begin(), utf8.end()));
#else
    return fs::path(utf8);
#endif
}

std::string textOf(const fs::path& path) {
#if defined(_WIN32)
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
#else
    return path.string();
#endif
}

#if defined(_WIN32)
int processId() { return _getpid(); }
int createFolder(const std::string& path) { return _wmkdir(pathOf(path).c_str()); }
int openFolder(const fs::path& /*path*/) { return -1; }
bool lockFolder(int /*descriptor*/) { return true; }
bool isLocked(const fs::path& /*path*/) { return true; }
void closeDescriptor(int /*descriptor*/) {}
int flushFile(const fs::path& path) {
    const int descriptor = _wopen(path.c_str(), _O_RDWR | _O_BINARY);
    if (descriptor < 0) return errno;
    const int code = _commit(descriptor) == 0 ? 0 : errno;
    _close(descriptor);
    return code;
}
#else
int processId() { return static_cast<int>(getpid()); }
int createFolder(const std::string& path) {
    constexpr mode_t kOwnerOnly = 0700;
    return mkdir(path.c_str(), kOwnerOnly);
}
int openFolder(const fs::path& path) { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW); }
bool lockFolder(int descriptor) { return flock(descriptor, LOCK_EX | LOCK_NB) == 0; }
void closeDescriptor(int descriptor) { close(descriptor); }
bool isLocked(const fs::path& path) {
    const int descriptor = openFolder(path);
    if (descriptor < 0) return true;
    const bool locked = !lockFolder(descriptor);
    close(descriptor);
    return locked;
}
int flushFile(const fs::path& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return errno;
    const int code = fsync(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    return code;
}
#endif

/// What a name leads to, whether that exists or not. Throws Failure for a ring of links.
fs::path behindLinks(const std::string& name) {
    constexpr int kMostLinks = 40;
    fs::path path = pathOf(name);
    std::error_code error;
    for (int i = 0; i < kMostLinks; ++i) {
        if (!fs::is_symlink(fs::symlink_status(path, error))) return path;
        const fs::path target = fs::read_symlink(path, error);
        if (error) throw Failure(name + ": " + reasonOf(error.value()));
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    throw Failure(name + ": " + reasonOf(ELOOP));
}

/// FNV-1a: tells the temporaries of one output from those of another.
std::uint32_t hashOf(const std::string& text) {
    std::uint32_t hash = 2166136261U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return hash;
}

constexpr const char* kTemporaryPrefix = ".part-";

/// What the names of all temporaries of an output begin with; short, whatever the output's own length.
std::string temporaryPrefix(const fs::path& target) {
    char text[32];
    std::snprintf(text, sizeof text, "%s%08x.", kTemporaryPrefix,
                  static_cast<unsigned>(hashOf(textOf(target.filename()))));
    return text;
}

/// Removes what processes that no longer live left of an output.
void removeStale(const fs::path& folder, const std::string& prefix) {
    std::error_code ignored;
    for (const fs::directory_entry& item : fs::directory_iterator(folder, ignored)) {
        const bool isTemporary = textOf(item.path().filename()).starts_with(prefix);
        if (isTemporary && item.symlink_status(ignored).type() == fs::file_type::directory && !isLocked(item.path())) {
            fs::remove_all(item.path(), ignored);
        }
    }
}

std::string lowerCase(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path("."); }

std::string existsAlready(const std::string& path) { return path + ": exists already; --force replaces it"; }

}  // namespace

PendingFile::PendingFile(std::string path, bool force, bool sweeps) : m_path(std::move(path)), m_force(force) {
    const fs::path target = behindLinks(m_path);
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (status.type() == fs::file_type::none) throw Failure(m_path + ": " + reasonOf(error.value()));
    if (fs::is_directory(status)) throw Failure(m_path + ": is a folder, a file's name is needed");
    if (fs::exists(status) && !fs::is_regular_file(status)) throw Failure(m_path + ": is no regular file");
    if (!force && fs::exists(status)) throw Failure(existsAlready(m_path));
    const fs::path folder = folderOf(target);
    if (!fs::is_directory(folder, error)) {
        throw Failure(m_path + ": cannot be created: the folder " + textOf(folder) + " does not exist");
    }
    const std::string prefix = temporaryPrefix(target);
    if (sweeps) removeStale(folder, prefix);
    m_target = textOf(target);
    std::string ending = lowerCase(textOf(target.extension()));
    constexpr std::size_t kLongestEnding = 16;  // beyond, it is no format's
    if (ending.size() > kLongestEnding) ending.clear();
    const SignalHold hold;
    bool isMade = false;
    for (int attempt = 0; !isMade; ++attempt) {
        const std::string name = prefix + std::to_string(processId()) + "." + std::to_string(attempt);
        m_folder = textOf(target.has_parent_path() ? target.parent_path() / name : fs::path(name));
        isMade = createFolder(m_folder) == 0;
        if (!isMade && errno != EEXIST) throw Failure(m_path + ": cannot be created: " + reasonOf(errno));
    }
    m_temporaryPath = m_folder + "/file" + ending;
    m_descriptor = openFolder(pathOf(m_folder));
    if (m_descriptor >= 0) lockFolder(m_descriptor);
    m_unfinished = std::make_unique<UnfinishedFolder>(m_folder, m_descriptor);
}

PendingFile::~PendingFile() {
    const SignalHold hold;
    std::error_code ignored;
    fs::remove_all(pathOf(m_folder), ignored);
    m_unfinished.reset();
    if (m_descriptor >= 0) closeDescriptor(m_descriptor);
}

void PendingFile::keepOwnership() const {
#if !defined(_WIN32)
    struct stat before = {};
    if (!m_force || stat(m_target.c_str(), &before) != 0) return;
    // what may not be kept is left: a user who is not root cannot give files away
    const char* const file = m_temporaryPath.c_str();
    if (chown(file, before.st_uid, before.st_gid) != 0 && chown(file, static_cast<uid_t>(-1), before.st_gid) != 0) {
        errno = 0;
    }
    constexpr mode_t kModeBits = 07777;
    if (chmod(file, before.st_mode & kModeBits) != 0) errno = 0;
#endif
}

void PendingFile::giveName() {
    std::error_code error;
    const fs::path temporary = pathOf(m_temporaryPath);
    const fs::path target = pathOf(m_target);
#if defined(_WIN32)
    if (!m_force && fs::exists(target, error)) throw Failure(existsAlready(m_path));
    fs::rename(temporary, target, error);
#else
    if (m_force) {
        fs::rename(temporary, target, error);
    } else if (link(m_temporaryPath.c_str(), m_target.c_str()) != 0) {
        if (errno == EEXIST) throw Failure(existsAlready(m_path));
        // a file system without links: the name is taken first, exclusively
        const int placeholder = open(m_target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0);
        if (placeholder < 0 && errno == EEXIST) throw Failure(existsAlready(m_path));
        if (placeholder >= 0) close(placeholder);
        fs::rename(temporary, target, error);
    }
#endif
    if (error) throw Failure(m_path + ": the finished file could not be given its name: " + reasonOf(error.value()));
    fs::remove_all(pathOf(m_folder), error);
    m_unfinished.reset();
}

void PendingFile::commitUnflushed() {
    keepOwnership();
    const SignalHold hold;
    giveName();
}

void PendingFile::commit() {
    const int code = flushFile(pathOf(m_temporaryPath));
    if (code != 0) throw Failure(m_path + ": could not be flushed to the disk: " + reasonOf(code));
    commitUnflushed();
#if !defined(_WIN32)
    const int folder = open(folderOf(pathOf(m_target)).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return;  // one may be allowed to write into it but not to read it
    const int reason = fsync(folder) == 0 || errno == EINVAL ? 0 : errno;
    close(folder);
    if (reason != 0) throw Failure(m_path + ": the folder could not be flushed to the disk: " + reasonOf(reason));
#endif
}

void sweepFolder(const std::string& folder) { removeStale(pathOf(folder), kTemporaryPrefix); }

void flushFolder([[maybe_unused]] const std::string& folder) {
#if defined(__linux__)
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    const int code = syncfs(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    if (code != 0) throw Failure(folder + ": could not be flushed to the disk: " + reasonOf(code));
#elif !defined(_WIN32)
    sync();
#endif
}

void makeFolder(const std::string& folder) {
    std::error_code error;
    fs::create_directories(pathOf(folder), error);
    if (fs::is_directory(pathOf(folder))) return;
    throw Failure(folder + ": the folder cannot be made: " + reasonOf(error ? error.value() : ENOTDIR));
}

namespace {

void fillFile(const PendingFile& pending, const void* data, std::size_t size) {
    std::FILE* file = std::fopen(pending.temporaryPath().c_str(), "wb");
    if (file == nullptr) throw Failure(pending.path() + ": cannot be created: " + reasonOf(errno));
    errno = 0;
    const bool written = std::fwrite(data, 1, size, file) == size;
    const int writing = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        throw Failure(pending.path() + ": could not be written completely: " + reasonOf(written ? errno : writing));
    }
}

}  // namespace

void writeWholeFile(const std::string& path, const void* data, std::size_t size, bool force) {
    PendingFile pending(path, force);
    fillFile(pending, data, size);
    pending.commit();
}

void writeUnflushed(const std::string& path, const void* data, std::size_t size, bool force) {
    PendingFile pending(path, force, false);
    fillFile(pending, data, size);
    pending.commitUnflushed();
}

}  // namespace vndlp::tools
