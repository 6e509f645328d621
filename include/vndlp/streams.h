/// \file streams.h
/// Typed binary file input and output with a selectable byte order: the only way the library touches a slice file.
///
/// Three families of typed access exist, each reading or writing exactly the value's width (a `long` has that of the
/// system: 4 or 8 bytes):
/// - *file order* (`readInt16`, `operator>>`, `writeInt16`, `operator<<`, ...): the order set by `setFileByteOrder`,
///   which is the host's until that is called;
/// - *fixed big-endian* (`readBigEndianInt16`, ...) and *fixed little-endian* (`readLittleEndianInt16`, ...): whatever
///   the file byte order is.
///
/// Nothing here prints a message or throws. A typed read past the end of the file, or without an open file, returns
/// zero (or, in a partly read value, the bytes that were there and zeros behind them). A stream that could not write
/// everything it was given remembers it, see `FileWrite::failed`.

#ifndef VNDLP_STREAMS_H
#define VNDLP_STREAMS_H

#include <vndlp/export.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vndlp {

/// Order of the bytes of a number in a file or in memory.
enum BYTEORDER : int {
    LittleEndian = 0,  ///< least significant byte first
    BigEndian = 1      ///< most significant byte first
};

/// Returns the byte order of the machine the library was built for.
VNDLP_API BYTEORDER byteOrderJudge();

/// Reverses `n` bytes in place.
/// \param data first byte; may be null when `n` is below 2.
/// \param n    number of bytes; below 2 nothing happens.
VNDLP_API void changeByteOrder(char* data, int n);

class RunningSum;

class ByteSource;

/// Reads one binary file, or memory as if it were a file. Owns what it has opened and closes it on destruction; cannot
/// be copied.
class VNDLP_API FileRead {
public:
    /// No file; both byte orders are the host's.
    FileRead();
    /// Opens `path` at once; test `isOpenFile` for the result. `mode` is ignored.
    FileRead(std::string path, int mode);
    explicit FileRead(std::string path) : FileRead(std::move(path), 0) {}
    ~FileRead();
    FileRead(const FileRead&) = delete;
    FileRead& operator=(const FileRead&) = delete;

    /// Opens a file for reading, closing the current one first, and measures its length.
    /// \param path file name, UTF-8.
    /// \param mode ignored.
    /// \return 0, or -1 when the file cannot be opened (or is a directory); no file is open then, and the stored name
    ///         keeps its value.
    int open(std::string path, int mode = 0);
    /// Reads from memory as if it were a file, closing the current one first.
    /// \param data the file's bytes, which must stay as they are until the stream is closed; null only for a `size`
    ///             of 0.
    /// \return 0; -1 for a null `data` with bytes (no file is open then). The stored name becomes empty.
    int openMemory(const void* data, std::size_t size);
    /// The library's own way to share one open file between readers: `ByteSource` is not exported.
    /// \param name the result of `fileName`.
    /// \return 0; -1 for a null `source`.
    int openSource(std::shared_ptr<const ByteSource> source, std::string name);
    /// Closes the file. \return 0, or -1 when none is open.
    int close();
    /// True while a file is open.
    bool isOpenFile();
    /// The path given to the last successful `open`.
    std::string fileName();
    /// Length of the file in bytes as measured by `open`; -1 when none is open. What a file gains later is read, too,
    /// but not counted here; a pipe has 0.
    long long fileLength();
    /// Position of the next byte to read; -1 when no file is open.
    long long currentPosition();
    /// Bytes between the position and the end of the file as measured by `open`; 0 when no file is open.
    long long remaining();

    /// Moves the position.
    /// \param offset bytes from the origin.
    /// \param whence origin: 0 = start, 2 = end, any other value = current position.
    /// \return the new position; -1 without a file; -2 when the target lies outside 0 .. length (no move then).
    long long seek(long long offset, int whence);
    /// Moves by `n` bytes (may be negative). \return as `seek`.
    long long skipRawData(long long n);

    /// Reads up to `n` bytes. \return the number read; 0 for `n` below 1.
    long long readRawData(char* buf, int n);
    /// Reads up to `size` bytes, for sizes beyond an int. \return the number read.
    std::size_t readBytes(unsigned char* buf, std::size_t size);

    /// Sets the byte order of the file-order family.
    void setFileByteOrder(BYTEORDER order);
    BYTEORDER fileByteOrder() const { return m_fileOrder; }

    char readChar();
    short readInt16();
    unsigned short readUint16();
    int readInt32();
    unsigned int readUint32();
    long long readInt64();
    unsigned long long readUint64();
    float readFloat();
    double readDouble();

    short readBigEndianInt16();
    unsigned short readBigEndianUint16();
    int readBigEndianInt32();
    unsigned int readBigEndianUint32();
    long long readBigEndianInt64();
    unsigned long long readBigEndianUint64();

    short readLittleEndianInt16();
    unsigned short readLittleEndianUint16();
    int readLittleEndianInt32();
    unsigned int readLittleEndianUint32();
    long long readLittleEndianInt64();
    unsigned long long readLittleEndianUint64();

    FileRead& operator>>(char& value);
    FileRead& operator>>(signed char& value);
    FileRead& operator>>(unsigned char& value);
    FileRead& operator>>(short& value);
    FileRead& operator>>(unsigned short& value);
    FileRead& operator>>(int& value);
    FileRead& operator>>(unsigned int& value);
    FileRead& operator>>(long& value);
    FileRead& operator>>(unsigned long& value);
    FileRead& operator>>(long long& value);
    FileRead& operator>>(unsigned long long& value);
    FileRead& operator>>(float& value);
    FileRead& operator>>(double& value);

    /// Reads a length-prefixed string: a 32-bit big-endian length L, then L bytes of which the last (the terminator) is
    /// dropped, whatever its value. L = 0 gives the empty string. Where the file ends earlier zeros stand for what is
    /// missing; with L above 65536 the result then holds what was there.
    std::string readStdString();
    /// The same with a little-endian length.
    std::string readStdStringLittleEndian();
    /// Reads a UTF-16 text: a 32-bit big-endian byte count B, then B / 2 big-endian code units of which the low 8 bits
    /// are kept. B = 0 and B above 65536 (the null mark 0xFFFFFFFF among them) give the empty string, and nothing is
    /// read behind the count then. Where the file ends earlier zeros stand for what is missing.
    std::string readQAnsicString();

private:
    template <class Value>
    Value read(BYTEORDER order);
    std::size_t readPastWindow(unsigned char* buf, std::size_t size);
    std::string readString(unsigned int length);

    BYTEORDER m_hostOrder;
    BYTEORDER m_fileOrder;
    std::shared_ptr<const ByteSource> m_source;
    std::string m_fileName;
    long long m_fileLength;
    long long m_position;
    const unsigned char* m_window;  // bytes of the file that are at hand: of memory all of them
    long long m_windowBegin;
    long long m_windowEnd;
    std::vector<unsigned char> m_buffer;
};

/// Writes one binary file. Owns its C stream and closes it on destruction; cannot be copied.
///
/// Output is buffered, so a full disk may show only when the buffer is flushed or the file is closed. The stream
/// remembers the first failure until the next `open`: ask `failed` after `flush` or `close`.
class VNDLP_API FileWrite {
public:
    /// No file; both byte orders are the host's.
    FileWrite();
    /// Opens `path` at once; test `isOpenFile` for the result. `mode` is ignored.
    FileWrite(std::string path, int mode);
    explicit FileWrite(std::string path) : FileWrite(std::move(path), 0) {}
    ~FileWrite();
    FileWrite(const FileWrite&) = delete;
    FileWrite& operator=(const FileWrite&) = delete;

    /// Creates or truncates a file, closing the current one first, and forgets an earlier failure.
    /// \param path file name, UTF-8.
    /// \param mode ignored.
    /// \return 0, or -1 when the file cannot be opened.
    int open(std::string path, int mode = 0);
    /// Closes the file. \return 0; -1 when none is open or when the stream has failed.
    int close();
    /// Hands buffered bytes to the system. \return 0; -1 when no file is open or when the stream has failed.
    int flush();
    /// True while a file is open.
    bool isOpenFile();
    /// The path given to the last successful `open`.
    std::string fileName();
    /// Position of the next byte to write; -1 when no file is open.
    long long currentPosition();
    /// Length of the file, measured now; -1 when no file is open.
    long long fileLength();

    /// True when bytes given to the stream since the last `open` could not all be written, or a move failed. Stays true
    /// after `close`.
    bool failed() const;
    /// The system's error number of the first failure; 0 when there was none or the system gave none.
    int failureCode() const;

    /// Moves the position.
    /// \param offset bytes from the origin.
    /// \param whence origin: 0 = start, 2 = end, any other value = current position.
    /// \param extend what to do for a target beyond the end: true appends zero bytes up to it.
    /// \return the new position when the target is not beyond the end; when zeros were appended *their number*, not the
    ///         position; -1 without a file; -2 (no move) for a target below 0, or beyond the end without `extend`.
    long long seek(long long offset, int whence, bool extend);
    /// Moves without any check. The file must be open. \return the signed distance moved.
    long long seekForce(long long offset, int whence);
    /// Moves by `n` bytes; space not yet written is filled with zeros. Without a file, or for a target below 0, nothing
    /// happens.
    void skipRawData(int n);

    /// Writes `n` bytes; nothing for `n` below 1.
    void writeRawData(const char* buf, int n);
    /// Writes `size` bytes, for sizes beyond an int.
    void writeBytes(const unsigned char* buf, std::size_t size);

    /// Sets the byte order of the file-order family.
    void setFileByteOrder(BYTEORDER order);
    BYTEORDER fileByteOrder() const { return m_fileOrder; }

    void writeChar(char value);
    void writeInt16(short value);
    void writeUint16(unsigned short value);
    void writeInt32(int value);
    void writeUint32(unsigned int value);
    void writeInt64(long long value);
    void writeUint64(unsigned long long value);
    void writeFloat(float value);
    void writeDouble(double value);

    void writeBigEndianInt16(short value);
    void writeBigEndianUint16(unsigned short value);
    void writeBigEndianInt32(int value);
    void writeBigEndianUint32(unsigned int value);
    void writeBigEndianInt64(long long value);
    void writeBigEndianUint64(unsigned long long value);

    void writeLittleEndianInt16(short value);
    void writeLittleEndianUint16(unsigned short value);
    void writeLittleEndianInt32(int value);
    void writeLittleEndianUint32(unsigned int value);
    void writeLittleEndianInt64(long long value);
    void writeLittleEndianUint64(unsigned long long value);

    FileWrite& operator<<(char value);
    FileWrite& operator<<(signed char value);
    FileWrite& operator<<(unsigned char value);
    FileWrite& operator<<(short value);
    FileWrite& operator<<(unsigned short value);
    FileWrite& operator<<(int value);
    FileWrite& operator<<(unsigned int value);
    FileWrite& operator<<(long value);
    FileWrite& operator<<(unsigned long value);
    FileWrite& operator<<(long long value);
    FileWrite& operator<<(unsigned long long value);
    FileWrite& operator<<(float value);
    FileWrite& operator<<(double value);
    /// Calls `writeStdString`.
    FileWrite& operator<<(std::string value);

    /// Writes a length-prefixed string: a 32-bit big-endian length (characters + 1), the characters, one zero byte.
    void writeStdString(std::string& value);
    /// Writes a UTF-16 text: a 32-bit big-endian byte count (2 x characters), then one big-endian 16-bit code unit per
    /// byte of `value`, sign-extended: only 7-bit text is read back unchanged.
    void writeStdStringAsQAnsic(std::string& value);

private:
    template <class Value>
    void write(Value value, BYTEORDER order);
    void writeZeros(long long count);
    long long position();
    bool move(long long offset, int origin);
    void noteFailure();

    // internal to the library
    friend void keepSum(FileWrite& file);
    friend int appendKeptSum(const FileWrite& file);

    BYTEORDER m_hostOrder;
    BYTEORDER m_fileOrder;
    std::string m_fileName;
    std::FILE* m_stream;
    bool m_failed;
    int m_failureCode;
    std::unique_ptr<RunningSum> m_sum;
    long long m_sumPosition;
};

}  // namespace vndlp

#endif
