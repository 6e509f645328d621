#include "io/new_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <utility>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#include <process.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace vndlp {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPieceBytes = std::size_t{1} << 20;
constexpr int kMaxLinks = 40;

fs::path pathOf(const std::string& utf8) { return {std::u8string(utf8.begin(), utf8.end())}; }

std::string textOf(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// The file that a chain of links ends at, whether or not it exists.
fs::path resolved(fs::path path) {
    std::error_code error;
    for (int i = 0; i < kMaxLinks && fs::is_symlink(path, error); ++i) {
        const fs::path to = fs::read_symlink(path, error);
        if (error) break;
        path = to.is_absolute() ? to : path.parent_path() / to;
    }
    return path;
}

#if defined(_WIN32)

int processId() { return _getpid(); }

bool flushToDisk(std::FILE* stream) { return std::fflush(stream) == 0 && _commit(_fileno(stream)) == 0; }

void takeOver(std::FILE* /*stream*/, const std::string& /*replaced*/) {}

/// The system's own copying; bytes copied.
std::int64_t copyBySystem(std::FILE* /*from*/, std::int64_t /*fromOffset*/, std::int64_t /*size*/, std::FILE* /*to*/,
                          std::int64_t /*offset*/) {
    return 0;
}

#else

int processId() { return static_cast<int>(getpid()); }

bool flushToDisk(std::FILE* stream) { return std::fflush(stream) == 0 && fsync(fileno(stream)) == 0; }

/// Mode and owner of the file that is replaced.
void takeOver(std::FILE* stream, const std::string& replaced) {
    struct stat status {};
    if (stat(replaced.c_str(), &status) != 0) return;
    // refused where the user may not: the file is the user's then
    [[maybe_unused]] const int owned = fchown(fileno(stream), status.st_uid, status.st_gid);
    [[maybe_unused]] const int moded = fchmod(fileno(stream), status.st_mode & 07777);
}

std::int64_t copyBySystem([[maybe_unused]] std::FILE* from, [[maybe_unused]] std::int64_t fromOffset,
                          [[maybe_unused]] std::int64_t size, [[maybe_unused]] std::FILE* to,
                          [[maybe_unused]] std::int64_t offset) {
    std::int64_t done = 0;
#if defined(__linux__)
    if (std::fflush(to) != 0) return 0;
    off_t in = fromOffset;
    off_t out = offset;
    while (done < size) {
        const ssize_t copied =
            copy_file_range(fileno(from), &in, fileno(to), &out, static_cast<std::size_t>(size - done), 0);
        if (copied <= 0) break;
        done += copied;
    }
#endif
    return done;
}

#endif

}  // namespace

NewFile::NewFile(NewFile&& other) noexcept { *this = std::move(other); }

NewFile& NewFile::operator=(NewFile&& other) noexcept {
    if (this == &other) return *this;
    discard();
    m_stream = std::move(other.m_stream);
    m_target = std::move(other.m_target);
    m_temporary = std::exchange(other.m_temporary, {});
    m_at = other.m_at;
    m_isReading = other.m_isReading;
    m_error = other.m_error;
    return *this;
}

NewFile::~NewFile() { discard(); }

bool NewFile::fail() {
    m_error = errno != 0 ? errno : EIO;
    return false;
}

bool NewFile::create(const std::string& path) {
    discard();
    errno = 0;
    const fs::path target = resolved(pathOf(path));
    std::error_code error;
    if (fs::is_directory(target, error)) {
        errno = EISDIR;
        return fail();
    }
    m_target = textOf(target);
    // short and hidden: the name beside it may be as long as the system allows
    for (int number = 0;; ++number) {
        const std::string name = ".vndlp" + std::to_string(processId()) + "." + std::to_string(number) + ".part";
        m_temporary = textOf(target.parent_path() / name);
        errno = 0;
        m_stream.reset(platform::openFile(m_temporary.c_str(), "wb+x"));
        if (m_stream != nullptr) break;
        if (errno != EEXIST) {
            m_temporary.clear();
            return fail();
        }
    }
    m_at = 0;
    m_isReading = false;
    return true;
}

bool NewFile::write(std::int64_t offset, const void* data, std::size_t size) {
    if (size == 0) return true;
    errno = 0;
    if ((m_at != offset || m_isReading) && platform::seek(m_stream.get(), offset, SEEK_SET) != 0) {
        m_at = -1;
        return fail();
    }
    m_isReading = false;
    const bool isWritten = std::fwrite(data, 1, size, m_stream.get()) == size;
    m_at = isWritten ? offset + static_cast<std::int64_t>(size) : -1;
    return isWritten || fail();
}

bool NewFile::read(std::int64_t offset, void* to, std::size_t size) {
    if (size == 0) return true;
    errno = 0;
    if ((m_at != offset || !m_isReading) && platform::seek(m_stream.get(), offset, SEEK_SET) != 0) {
        m_at = -1;
        return fail();
    }
    m_isReading = true;
    const bool isRead = std::fread(to, 1, size, m_stream.get()) == size;
    m_at = isRead ? offset + static_cast<std::int64_t>(size) : -1;
    return isRead || fail();
}

bool NewFile::copy(std::FILE* from, std::int64_t fromOffset, std::int64_t size, std::int64_t offset) {
    std::int64_t done = copyBySystem(from, fromOffset, size, m_stream.get(), offset);
    if (done == size) return true;
    std::vector<unsigned char> piece(kPieceBytes);
    errno = 0;
    if (platform::seek(from, fromOffset + done, SEEK_SET) != 0) return fail();
    while (done < size) {
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size - done, kPieceBytes));
        errno = 0;
        if (std::fread(piece.data(), 1, wanted, from) != wanted) return fail();
        if (!write(offset + done, piece.data(), wanted)) return false;
        done += static_cast<std::int64_t>(wanted);
    }
    return true;
}

bool NewFile::commit(Flush flush) {
    takeOver(m_stream.get(), m_target);
    errno = 0;
    const bool isFlushed =
        (flush == Flush::yes ? flushToDisk(m_stream.get()) : std::fflush(m_stream.get()) == 0) || fail();
    errno = 0;
    const bool isClosed = std::fclose(m_stream.release()) == 0 || fail();
    if (!isFlushed || !isClosed) {
        discard();
        return false;
    }
    std::error_code error;
    fs::rename(pathOf(m_temporary), pathOf(m_target), error);
    if (error) {
        m_error = error.value();
        discard();
        return false;
    }
    m_temporary.clear();
    return true;
}

void NewFile::discard() {
    m_stream.reset();
    if (!m_temporary.empty()) platform::removeFile(m_temporary.c_str());
    m_temporary.clear();
}

}  // namespace vndlp
