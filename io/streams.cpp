#include <vndlp/streams.h>

#include "io/byte_source.h"
#include "io/platform.h"
#include "io/running_sum.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

namespace vndlp {

namespace {

constexpr std::size_t kBufferBytes = 16384;
constexpr unsigned int kMaxTextBytes = 65536;  // bytes; a longer count is a null mark or damage

template <class Value>
Value swapped(Value value) {
    changeByteOrder(reinterpret_cast<char*>(&value), static_cast<int>(sizeof value));
    return value;
}

}  // namespace

BYTEORDER byteOrderJudge() { return std::endian::native == std::endian::little ? LittleEndian : BigEndian; }

void changeByteOrder(char* data, int n) {
    if (n > 1) std::reverse(data, data + n);
}

FileRead::FileRead()
    : m_hostOrder(byteOrderJudge()),
      m_fileOrder(byteOrderJudge()),
      m_fileLength(0),
      m_position(0),
      m_window(nullptr),
      m_windowBegin(0),
      m_windowEnd(0) {}

FileRead::FileRead(std::string path, int mode) : FileRead() { open(std::move(path), mode); }

FileRead::~FileRead() = default;

int FileRead::open(std::string path, int /*mode*/) {
    // what is open is closed first: it may be the same file, on a system that lends it once
    m_source.reset();
    SharedSource source = openFileSource(path.c_str());
    return openSource(std::move(source), std::move(path));
}

int FileRead::openMemory(const void* data, std::size_t size) {
    m_source.reset();
    return data == nullptr && size != 0 ? -1 : openSource(memorySource(data, size), {});
}

int FileRead::openSource(std::shared_ptr<const ByteSource> source, std::string name) {
    m_source = std::move(source);
    if (m_source == nullptr) return -1;
    m_fileLength = m_source->size();
    m_position = 0;
    m_window = m_source->data();
    m_windowBegin = 0;
    m_windowEnd = m_window == nullptr ? 0 : m_fileLength;
    m_fileName = std::move(name);
    return 0;
}

int FileRead::close() {
    if (m_source == nullptr) return -1;
    m_source.reset();
    m_fileLength = 0;
    return 0;
}

bool FileRead::isOpenFile() { return m_source != nullptr; }

std::string FileRead::fileName() { return m_fileName; }

long long FileRead::fileLength() { return m_source == nullptr ? -1 : m_fileLength; }

long long FileRead::currentPosition() { return m_source == nullptr ? -1 : m_position; }

long long FileRead::remaining() { return m_source == nullptr ? 0 : std::max(m_fileLength - m_position, 0LL); }

long long FileRead::seek(long long offset, int whence) {
    if (m_source == nullptr) return -1;
    const long long base = whence == 0 ? 0 : whence == 2 ? m_fileLength : m_position;
    // neither base nor length is negative, so both differences are free of overflow
    if (offset < -base || offset > m_fileLength - base || m_source->isSequential()) return -2;
    m_position = base + offset;
    return m_position;
}

long long FileRead::skipRawData(long long n) { return seek(n, 1); }

long long FileRead::readRawData(char* buf, int n) {
    if (n < 1) return 0;
    return static_cast<long long>(readBytes(reinterpret_cast<unsigned char*>(buf), static_cast<std::size_t>(n)));
}

std::size_t FileRead::readBytes(unsigned char* buf, std::size_t size) {
    if (m_source == nullptr || size == 0) return 0;
    if (m_position < m_windowBegin || m_position >= m_windowEnd) return readPastWindow(buf, size);
    const auto held = static_cast<std::size_t>(m_windowEnd - m_position);
    const std::size_t taken = std::min(size, held);
    std::memcpy(buf, m_window + (m_position - m_windowBegin), taken);
    m_position += static_cast<long long>(taken);
    return taken == size ? size : taken + readPastWindow(buf + taken, size - taken);
}

/// Reads at the position, where no byte is at hand: little through the buffer, which is filled anew, much at once.
std::size_t FileRead::readPastWindow(unsigned char* buf, std::size_t size) {
    if (m_source->data() != nullptr) return 0;
    if (size >= kBufferBytes || m_source->isSequential()) {
        const std::size_t taken = m_source->readAt(m_position, buf, size);
        m_position += static_cast<long long>(taken);
        return taken;
    }
    m_buffer.resize(kBufferBytes);
    const std::size_t held = m_source->readAt(m_position, m_buffer.data(), kBufferBytes);
    const std::size_t taken = std::min(size, held);
    std::memcpy(buf, m_buffer.data(), taken);
    m_window = m_buffer.data();
    m_windowBegin = m_position;
    m_windowEnd = m_position + static_cast<long long>(held);
    m_position += static_cast<long long>(taken);
    return taken;
}

void FileRead::setFileByteOrder(BYTEORDER order) { m_fileOrder = order; }

template <class Value>
Value FileRead::read(BYTEORDER order) {
    Value value{};
    // a short read leaves zeros behind what arrived
    if (readBytes(reinterpret_cast<unsigned char*>(&value), sizeof value) == 0) return Value{};
    return order == m_hostOrder ? value : swapped(value);
}

char FileRead::readChar() { return read<char>(m_hostOrder); }
short FileRead::readInt16() { return read<short>(m_fileOrder); }
unsigned short FileRead::readUint16() { return read<unsigned short>(m_fileOrder); }
int FileRead::readInt32() { return read<int>(m_fileOrder); }
unsigned int FileRead::readUint32() { return read<unsigned int>(m_fileOrder); }
long long FileRead::readInt64() { return read<long long>(m_fileOrder); }
unsigned long long FileRead::readUint64() { return read<unsigned long long>(m_fileOrder); }
float FileRead::readFloat() { return read<float>(m_fileOrder); }
double FileRead::readDouble() { return read<double>(m_fileOrder); }

short FileRead::readBigEndianInt16() { return read<short>(BigEndian); }
unsigned short FileRead::readBigEndianUint16() { return read<unsigned short>(BigEndian); }
int FileRead::readBigEndianInt32() { return read<int>(BigEndian); }
unsigned int FileRead::readBigEndianUint32() { return read<unsigned int>(BigEndian); }
long long FileRead::readBigEndianInt64() { return read<long long>(BigEndian); }
unsigned long long FileRead::readBigEndianUint64() { return read<unsigned long long>(BigEndian); }

short FileRead::readLittleEndianInt16() { return read<short>(LittleEndian); }
unsigned short FileRead::readLittleEndianUint16() { return read<unsigned short>(LittleEndian); }
int FileRead::readLittleEndianInt32() { return read<int>(LittleEndian); }
unsigned int FileRead::readLittleEndianUint32() { return read<unsigned int>(LittleEndian); }
long long FileRead::readLittleEndianInt64() { return read<long long>(LittleEndian); }
unsigned long long FileRead::readLittleEndianUint64() { return read<unsigned long long>(LittleEndian); }

// NOLINTBEGIN(bugprone-macro-parentheses): a type takes none
#define VNDLP_READ_OPERATOR(Type)                 \
    FileRead& FileRead::operator>>(Type& value) { \
        value = read<Type>(m_fileOrder);          \
        return *this;                             \
    }
VNDLP_READ_OPERATOR(char)
VNDLP_READ_OPERATOR(signed char)
VNDLP_READ_OPERATOR(unsigned char)
VNDLP_READ_OPERATOR(short)
VNDLP_READ_OPERATOR(unsigned short)
VNDLP_READ_OPERATOR(int)
VNDLP_READ_OPERATOR(unsigned int)
VNDLP_READ_OPERATOR(long)
VNDLP_READ_OPERATOR(unsigned long)
VNDLP_READ_OPERATOR(long long)
VNDLP_READ_OPERATOR(unsigned long long)
VNDLP_READ_OPERATOR(float)
VNDLP_READ_OPERATOR(double)
#undef VNDLP_READ_OPERATOR
// NOLINTEND(bugprone-macro-parentheses)

std::string FileRead::readString(unsigned int length) {
    if (length == 0) return {};
    // the length is a promise of the file: no more is allocated than arrives, however long the file was when measured
    std::string value;
    for (std::size_t wanted = 0; value.size() == wanted && wanted < length;) {
        const std::size_t held = value.size();
        wanted = std::min<std::size_t>(length, held + kMaxTextBytes);
        value.resize(wanted);
        value.resize(held + readBytes(reinterpret_cast<unsigned char*>(value.data()) + held, wanted - held));
    }
    // zeros stand for what is missing, as in every short read; a cut magic must not pass for a shorter one
    if (value.size() == length || length <= kMaxTextBytes) value.resize(length - 1);
    return value;
}

std::string FileRead::readStdString() { return readString(readBigEndianUint32()); }

std::string FileRead::readStdStringLittleEndian() { return readString(readLittleEndianUint32()); }

std::string FileRead::readQAnsicString() {
    const unsigned int byteCount = readBigEndianUint32();
    if (byteCount == 0 || byteCount > kMaxTextBytes) return {};
    std::string value(byteCount / 2, '\0');
    std::string units(2 * value.size(), '\0');
    readBytes(reinterpret_cast<unsigned char*>(units.data()), units.size());
    for (std::size_t i = 0; i < value.size(); ++i) value[i] = units[2 * i + 1];
    return value;
}

FileWrite::FileWrite()
    : m_hostOrder(byteOrderJudge()),
      m_fileOrder(byteOrderJudge()),
      m_stream(nullptr),
      m_failed(false),
      m_failureCode(0),
      m_sumPosition(0) {}

FileWrite::FileWrite(std::string path, int mode) : FileWrite() { open(std::move(path), mode); }

FileWrite::~FileWrite() { close(); }

void FileWrite::noteFailure() {
    if (!m_failed) m_failureCode = errno;
    m_failed = true;
}

int FileWrite::open(std::string path, int /*mode*/) {
    if (m_stream != nullptr) std::fclose(m_stream);
    m_failed = false;
    m_failureCode = 0;
    m_sum.reset();
    m_stream = platform::openFile(path.c_str(), "wb");
    if (m_stream == nullptr) return -1;
    m_fileName = std::move(path);
    return 0;
}

int FileWrite::close() {
    if (m_stream == nullptr) return -1;
    errno = 0;
    // someone else's fflush of all streams may have failed: only the mark shows it, closing itself then succeeds
    const bool marked = std::ferror(m_stream) != 0;
    if (std::fclose(m_stream) != 0 || marked) noteFailure();
    m_stream = nullptr;
    return m_failed ? -1 : 0;
}

int FileWrite::flush() {
    if (m_stream == nullptr) return -1;
    errno = 0;
    if (std::fflush(m_stream) != 0 || std::ferror(m_stream) != 0) noteFailure();
    return m_failed ? -1 : 0;
}

bool FileWrite::isOpenFile() { return m_stream != nullptr; }

std::string FileWrite::fileName() { return m_fileName; }

bool FileWrite::failed() const { return m_failed; }

int FileWrite::failureCode() const { return m_failureCode; }

long long FileWrite::currentPosition() { return m_stream == nullptr ? -1 : position(); }

/// The position of an open file. Not to learn it is a failure: what is written next would go anywhere.
long long FileWrite::position() {
    errno = 0;
    const long long at = platform::tell(m_stream);
    if (at < 0) noteFailure();
    return at;
}

bool FileWrite::move(long long offset, int origin) {
    errno = 0;
    if (platform::seek(m_stream, offset, origin) == 0) {
        if (m_sum != nullptr) m_sumPosition = position();
        return true;
    }
    noteFailure();
    return false;
}

long long FileWrite::fileLength() {
    if (m_stream == nullptr) return -1;
    const long long before = position();
    if (!move(0, SEEK_END)) return before;
    const long long length = position();
    move(before, SEEK_SET);
    return length;
}

long long FileWrite::seek(long long offset, int whence, bool extend) {
    if (m_stream == nullptr) return -1;
    const long long length = fileLength();
    const long long base = whence == 0 ? 0 : whence == 2 ? length : position();
    if (offset < -base) return -2;
    const bool inside = offset <= length - base;
    if (!inside && !extend) return -2;
    const long long target = inside ? base + offset : length;
    move(target, SEEK_SET);
    if (inside) return target;
    const long long appended = offset - (length - base);
    writeZeros(appended);
    return appended;
}

long long FileWrite::seekForce(long long offset, int whence) {
    const long long before = position();
    move(offset, whence == 0 ? SEEK_SET : whence == 2 ? SEEK_END : SEEK_CUR);
    return position() - before;
}

void FileWrite::skipRawData(int n) { seek(n, 1, true); }

void FileWrite::writeZeros(long long count) {
    static const unsigned char zeros[4096] = {};
    for (long long left = count; left > 0 && !m_failed; left -= static_cast<long long>(sizeof zeros)) {
        writeBytes(zeros, static_cast<std::size_t>(std::min<long long>(left, sizeof zeros)));
    }
}

void FileWrite::writeRawData(const char* buf, int n) {
    if (n > 0) writeBytes(reinterpret_cast<const unsigned char*>(buf), static_cast<std::size_t>(n));
}

void FileWrite::writeBytes(const unsigned char* buf, std::size_t size) {
    if (size == 0) return;
    errno = 0;
    if (m_stream == nullptr || std::fwrite(buf, 1, size, m_stream) != size) {
        noteFailure();
        return;
    }
    if (m_sum == nullptr) return;
    m_sum->add(m_sumPosition, buf, size);
    m_sumPosition += static_cast<long long>(size);
}

void FileWrite::setFileByteOrder(BYTEORDER order) { m_fileOrder = order; }

template <class Value>
void FileWrite::write(Value value, BYTEORDER order) {
    if (order != m_hostOrder) value = swapped(value);
    writeBytes(reinterpret_cast<const unsigned char*>(&value), sizeof value);
}

void FileWrite::writeChar(char value) { write(value, m_hostOrder); }
void FileWrite::writeInt16(short value) { write(value, m_fileOrder); }
void FileWrite::writeUint16(unsigned short value) { write(value, m_fileOrder); }
void FileWrite::writeInt32(int value) { write(value, m_fileOrder); }
void FileWrite::writeUint32(unsigned int value) { write(value, m_fileOrder); }
void FileWrite::writeInt64(long long value) { write(value, m_fileOrder); }
void FileWrite::writeUint64(unsigned long long value) { write(value, m_fileOrder); }
void FileWrite::writeFloat(float value) { write(value, m_fileOrder); }
void FileWrite::writeDouble(double value) { write(value, m_fileOrder); }

void FileWrite::writeBigEndianInt16(short value) { write(value, BigEndian); }
void FileWrite::writeBigEndianUint16(unsigned short value) { write(value, BigEndian); }
void FileWrite::writeBigEndianInt32(int value) { write(value, BigEndian); }
void FileWrite::writeBigEndianUint32(unsigned int value) { write(value, BigEndian); }
void FileWrite::writeBigEndianInt64(long long value) { write(value, BigEndian); }
void FileWrite::writeBigEndianUint64(unsigned long long value) { write(value, BigEndian); }

void FileWrite::writeLittleEndianInt16(short value) { write(value, LittleEndian); }
void FileWrite::writeLittleEndianUint16(unsigned short value) { write(value, LittleEndian); }
void FileWrite::writeLittleEndianInt32(int value) { write(value, LittleEndian); }
void FileWrite::writeLittleEndianUint32(unsigned int value) { write(value, LittleEndian); }
void FileWrite::writeLittleEndianInt64(long long value) { write(value, LittleEndian); }
void FileWrite::writeLittleEndianUint64(unsigned long long value) { write(value, LittleEndian); }

// NOLINTBEGIN(bugprone-macro-parentheses): a type takes none
#define VNDLP_WRITE_OPERATOR(Type)                 \
    FileWrite& FileWrite::operator<<(Type value) { \
        write(value, m_fileOrder);                 \
        return *this;                              \
    }
VNDLP_WRITE_OPERATOR(char)
VNDLP_WRITE_OPERATOR(signed char)
VNDLP_WRITE_OPERATOR(unsigned char)
VNDLP_WRITE_OPERATOR(short)
VNDLP_WRITE_OPERATOR(unsigned short)
VNDLP_WRITE_OPERATOR(int)
VNDLP_WRITE_OPERATOR(unsigned int)
VNDLP_WRITE_OPERATOR(long)
VNDLP_WRITE_OPERATOR(unsigned long)
VNDLP_WRITE_OPERATOR(long long)
VNDLP_WRITE_OPERATOR(unsigned long long)
VNDLP_WRITE_OPERATOR(float)
VNDLP_WRITE_OPERATOR(double)
#undef VNDLP_WRITE_OPERATOR
// NOLINTEND(bugprone-macro-parentheses)

FileWrite& FileWrite::operator<<(std::string value) {
    writeStdString(value);
    return *this;
}

void FileWrite::writeStdString(std::string& value) {
    writeBigEndianUint32(static_cast<unsigned int>(value.size() + 1));
    writeBytes(reinterpret_cast<const unsigned char*>(value.c_str()), value.size() + 1);
}

void FileWrite::writeStdStringAsQAnsic(std::string& value) {
    writeBigEndianUint32(static_cast<unsigned int>(2 * value.size()));
    // a byte is taken as signed, so 0xE9 becomes the unit 0xFFE9
    for (const char unit : value) writeBigEndianInt16(static_cast<signed char>(unit));
}

}  // namespace vndlp
