/// The XOR of bytes, of which the trailer of most formats is made.

#pragma once

#include <cstddef>
#include <cstdint>

namespace vndlp {

/// The XOR of `size` bytes.
unsigned char xorOf(const unsigned char* data, std::size_t size);

/// Continues a sum of sign-extended bytes with `size` more.
///
/// The XOR of sign-extended bytes is the sign-extended XOR of the bytes: bit 7 of that XOR is the parity of the bytes
/// of 0x80 and above, which is what fills the upper 24 bits. So it continues from, and ends as, one byte.
inline std::uint32_t continueXor(std::uint32_t sum, const unsigned char* data, std::size_t size) {
    return sum ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(xorOf(data, size))));
}

}  // namespace vndlp
