/// Numbers at any address in a stated byte order, for records packed in memory.

#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace vndlp {

/// `std::bit_cast`, where the standard library has it; what it is made from, where only the compiler does.
template <class To, class From>
constexpr To bitCast(const From& from) {
#if defined(__cpp_lib_bit_cast)
    return std::bit_cast<To>(from);
#else
    return __builtin_bit_cast(To, from);
#endif
}

constexpr std::uint32_t bigEndian16(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 8 | bytes[1];
}

constexpr std::uint32_t bigEndian32(const unsigned char* bytes) {
    return bigEndian16(bytes) << 16 | bigEndian16(bytes + 2);
}

constexpr std::uint32_t littleEndian32(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[3]) << 24 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[1]) << 8 | bytes[0];
}

inline std::int32_t bigEndianInt32(const unsigned char* bytes) { return static_cast<std::int32_t>(bigEndian32(bytes)); }

inline float bigEndianFloat(const unsigned char* bytes) { return bitCast<float>(bigEndian32(bytes)); }

constexpr void putBigEndian32(std::uint32_t value, unsigned char* out) {
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

inline void putBigEndian64(std::uint64_t value, unsigned char* out) {
#if defined(__GNUC__)
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    std::memcpy(out, &value, sizeof value);
#else
    putBigEndian32(static_cast<std::uint32_t>(value >> 32), out);
    putBigEndian32(static_cast<std::uint32_t>(value), out + 4);
#endif
}

}  // namespace vndlp
