/// \file checksum.h
/// The checksum trailer that seals a slice file, and the sniffing of a file's format version.
///
/// The trailer is the last 4 bytes of the file: the 32-bit checksum of every byte before them, most significant byte
/// first. Which sum a file carries depends on the magic text at its start:
///
/// | magic      | sum                                      |
/// |------------|------------------------------------------|
/// | "MKSDLP"   | none                                     |
/// | "VNKT3D"   | none                                     |
/// | "VNKT3D3"  | XOR                                      |
/// | "VNKT3DV3" | XOR                                      |
/// | "VNKT3DV2" | XOR for versions below 3, CRC from 3 on  |
/// | "VNLINEV2" | CRC                                      |
///
/// Both sums start at 0. The CRC is the byte-wise register of the reflected polynomial 0xEDB88320 without inversion at
/// either end; the XOR sum takes each byte as a signed value extended to 32 bits.

#ifndef VNDLP_CHECKSUM_H
#define VNDLP_CHECKSUM_H

#include <vndlp/export.h>

#include <string>

namespace vndlp {

/// Kind of trailer.
enum EnumCheckSumType : int {
    CHECKSUM_NONE = 0,  ///< no trailer
    CHECKSUM_XOR = 1,   ///< XOR of the sign-extended bytes
    CHECKSUM_CRC32 = 2  ///< CRC register, no inversion
};

/// Seals files with their trailer and verifies it. Paths are UTF-8.
///
/// Use the one instance of `instance()`. Sums of different files may run in several threads at once; operations on the
/// same file are not coordinated. Memory does not depend on the size of the file.
///
/// Codes of the members that work on one kind of sum: 0 success, -1 null path, -2 the file cannot be opened, -3 it
/// could not be read in full, -4 the trailer could not be written (append) or read (check), -5 the trailer does not
/// match.
class VNDLP_API CheckSum {
public:
    CheckSum();

    /// The process-wide instance, created on first use; safe under concurrent first use.
    static CheckSum& instance();

    /// Fills the CRC table. \return 0.
    int makeCrc32Table();

    /// Continues a CRC.
    /// \param crc  the register so far; 0 at the start.
    /// \param data `len` bytes; may be null when `len` is 0.
    /// \return the register; `crc` itself when `len` is 0.
    unsigned int makeCrc(unsigned int crc, unsigned char* data, unsigned int len);

    /// Tells a file's format by its magic.
    /// \param versionName   receives the magic text (at most 11 characters).
    /// \param subVersionNum receives the version number of "VNKT3DV2" and "VNLINEV2" files, else 0.
    /// \param type          receives the kind of trailer such a file carries.
    /// \return 0; -1 null path; -2 the file cannot be opened; -3 it is too short; -4 the magic is not known.
    int getFileVersionInfo(const char* path, std::string& versionName, int& subVersionNum, EnumCheckSumType& type);

    /// Appends the trailer that the file's version calls for. Prints one line naming file, version and kind of sum.
    /// \return 0 (also for files that carry none, which stay as they are); -1, with a message, when the version is not
    ///         known; else the code of the member for that sum. After -4 the file may be partly extended.
    int appendFileSum(const char* path);
    /// Verifies the trailer that the file's version calls for. Prints one line naming file, version and kind of sum.
    /// \return as `appendFileSum`.
    int checkFileSum(const char* path);
    /// Computes the sum of all but the last 4 bytes. Prints one line naming file, version and kind of sum.
    /// \return the sum as an int (0 for files that carry none), or an error code as above: nothing tells the two
    ///         apart.
    int getFileSum(const char* path);

    int appendFileSumCrc32(const char* path);
    int appendFileSumXor(const char* path);
    int checkFileSumCrc32(const char* path);
    /// Also accepts a stored value S that differs from the computed C where |C| = |S| or |C| + |S| = 0x100, each taken
    /// as a signed 32-bit value: trailers of writers that summed unsigned bytes pass.
    int checkFileSumXor(const char* path);
    int getFileSumCrc32(const char* path);
    int getFileSumXor(const char* path);

    /// Length of a file in bytes. \return -1 null path; -2 the file cannot be opened for reading and writing.
    long long getFileSize(const char* path);

private:
    unsigned int m_table[256];
};

}  // namespace vndlp

#endif
