/// The sums of a file, kept while it is written, so that sealing it need not read it again.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vndlp {

/// Both kinds of sum over all bytes of a file, fed with every write. Bytes may be overwritten as long as they lie near
/// the start, where tables are filled in later; after any other overwriting, or a gap, the sums are not known.
class RunningSum {
public:
    /// `size` bytes were written at a position, with the file `length()` bytes long before.
    void add(long long position, const unsigned char* data, std::size_t size);

    /// Whether the sums below are those of the file.
    [[nodiscard]] bool known() const { return m_known; }
    [[nodiscard]] long long length() const { return m_length; }
    [[nodiscard]] std::uint32_t crc() const { return m_crc; }
    /// As `continueXor` makes it.
    [[nodiscard]] std::uint32_t xorSum() const;

private:
    void append(const unsigned char* data, std::size_t size);
    void overwrite(std::size_t position, const unsigned char* data, std::size_t size);

    bool m_known = true;
    long long m_length = 0;
    std::uint32_t m_crc = 0;
    unsigned char m_xor = 0;
    std::vector<unsigned char> m_head;  // the file's first bytes as they are now
};

constexpr std::uint32_t kCrcPolynomial = 0xEDB88320;  // reflected

/// Continues the CRC of `CheckSum::makeCrc`.
std::uint32_t continueCrc(std::uint32_t crc, const unsigned char* data, std::size_t size);

/// The CRC of data followed by zeros, from the CRC of the data.
/// \param zeros bytes.
std::uint32_t crcBeforeZeros(std::uint32_t crc, unsigned long long zeros);

}  // namespace vndlp
