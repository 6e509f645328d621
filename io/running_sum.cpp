#include "io/running_sum.h"

#include <vndlp/checksum.h>
#include "io/xor_sum.h"

#include <algorithm>
#include <limits>

namespace vndlp {

namespace {

constexpr std::size_t kHeadBytes = std::size_t{1} << 21;  // previews and the largest table
constexpr std::uint32_t kOne = 0x80000000;                // the polynomial 1, highest coefficient last

/// a * b modulo the CRC's polynomial.
std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
    std::uint32_t product = 0;
    for (std::uint32_t bit = kOne; bit != 0; bit >>= 1) {
        if ((a & bit) != 0) product ^= b;
        b = (b & 1) != 0 ? b >> 1 ^ kCrcPolynomial : b >> 1;
    }
    return product;
}

}  // namespace

std::uint32_t continueCrc(std::uint32_t crc, const unsigned char* data, std::size_t size) {
    constexpr std::size_t most = std::numeric_limits<unsigned int>::max();
    for (std::size_t part = std::min(size, most); part > 0; part = std::min(size, most)) {
        crc = CheckSum::instance().makeCrc(crc, const_cast<unsigned char*>(data), static_cast<unsigned int>(part));
        data += part;
        size -= part;
    }
    return crc;
}

std::uint32_t crcBeforeZeros(std::uint32_t crc, unsigned long long zeros) {
    // a zero byte multiplies by x^8: the powers of that with the exponents 1, 2, 4 ...
    std::uint32_t power = kOne >> 8;
    for (; zeros != 0; zeros >>= 1) {
        if ((zeros & 1) != 0) crc = multiply(crc, power);
        power = multiply(power, power);
    }
    return crc;
}

std::uint32_t RunningSum::xorSum() const { return continueXor(0, &m_xor, 1); }

void RunningSum::add(long long position, const unsigned char* data, std::size_t size) {
    if (position < 0 || position > m_length) m_known = false;
    if (!m_known) return;
    const std::size_t over = static_cast<std::size_t>(
        std::min(m_length - position,
                 static_cast<long long>(std::min<std::size_t>(size, std::numeric_limits<long long>::max()))));
    if (over > 0) overwrite(static_cast<std::size_t>(position), data, over);
    if (size > over) append(data + over, size - over);
}

void RunningSum::append(const unsigned char* data, std::size_t size) {
    m_crc = continueCrc(m_crc, data, size);
    m_xor = static_cast<unsigned char>(m_xor ^ xorOf(data, size));
    m_length += static_cast<long long>(size);
    const std::size_t kept = std::min(size, kHeadBytes - m_head.size());
    m_head.insert(m_head.end(), data, data + kept);
}

/// Sums are linear: what changes is the sum of the differences, with everything else zero.
void RunningSum::overwrite(std::size_t position, const unsigned char* data, std::size_t size) {
    if (position + size > m_head.size()) {
        m_known = false;
        return;
    }
    unsigned char* const head = m_head.data() + position;
    for (std::size_t i = 0; i < size; ++i) head[i] = static_cast<unsigned char>(head[i] ^ data[i]);
    const auto behind = static_cast<unsigned long long>(m_length) - position - size;
    m_crc ^= crcBeforeZeros(continueCrc(0, head, size), behind);
    m_xor = static_cast<unsigned char>(m_xor ^ xorOf(head, size));
    std::copy(data, data + size, head);
}

}  // namespace vndlp
