/// Bytes a test states field by field, and the plain sums that seal them.

#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vndlp::test {

class Bytes : public std::vector<unsigned char> {
public:
    using vector::vector;
    Bytes() = default;
    Bytes(std::vector<unsigned char> bytes) : vector(std::move(bytes)) {}

    Bytes& be(std::uint64_t value, int width) {
        for (int byte = width - 1; byte >= 0; --byte) push_back(static_cast<unsigned char>(value >> 8 * byte));
        return *this;
    }
    Bytes& le(std::uint64_t value, int width) {
        for (int byte = 0; byte < width; ++byte) push_back(static_cast<unsigned char>(value >> 8 * byte));
        return *this;
    }
    Bytes& u8(unsigned value) { return be(value, 1); }
    Bytes& u16(unsigned value) { return be(value, 2); }
    Bytes& u32(unsigned value) { return be(value, 4); }
    Bytes& f32(float value) { return u32(std::bit_cast<std::uint32_t>(value)); }
    Bytes& f32Le(float value) { return le(std::bit_cast<std::uint32_t>(value), 4); }
    Bytes& fill(std::size_t count, unsigned value) {
        insert(end(), count, static_cast<unsigned char>(value));
        return *this;
    }
    Bytes& raw(const std::vector<unsigned char>& bytes) {
        insert(end(), bytes.begin(), bytes.end());
        return *this;
    }
    Bytes& raw(std::string_view characters) {
        insert(end(), characters.begin(), characters.end());
        return *this;
    }
    /// Length with the terminator, characters, terminator.
    Bytes& string(std::string_view value) { return u32(static_cast<unsigned>(value.size() + 1)).raw(value).u8(0); }
    /// Byte count, then a code unit per character.
    Bytes& text(std::string_view value) {
        u32(static_cast<unsigned>(2 * value.size()));
        for (const char c : value) u16(static_cast<unsigned char>(c));
        return *this;
    }
    Bytes& tag() { return u8(0x0D).u8(0x0A); }
};

/// Bytes as hexadecimal digits, two each, blanks between them ignored.
inline Bytes hex(std::string_view digits) {
    Bytes bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit != ' ') pair += digit;
        if (pair.size() < 2) continue;
        bytes.u8(static_cast<unsigned>(std::stoul(pair, nullptr, 16)));
        pair.clear();
    }
    return bytes;
}

/// The register of the reflected polynomial 0xEDB88320, no inversion, bit by bit.
inline std::uint32_t plainCrc(const unsigned char* data, std::size_t size, std::uint32_t crc = 0) {
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return crc;
}

/// XOR of the bytes, each taken as signed and extended to 32 bits.
inline std::uint32_t plainXor(const unsigned char* data, std::size_t size) {
    std::int32_t sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum ^= static_cast<signed char>(data[i]);
    return static_cast<std::uint32_t>(sum);
}

inline void sealWithCrc(Bytes& bytes) { bytes.u32(plainCrc(bytes.data(), bytes.size())); }
inline void sealWithXor(Bytes& bytes) { bytes.u32(plainXor(bytes.data(), bytes.size())); }

/// Compares and tells where the first difference is.
inline ::testing::AssertionResult sameBytes(const std::vector<unsigned char>& actual,
                                            const std::vector<unsigned char>& expected) {
    for (std::size_t i = 0; i < actual.size() && i < expected.size(); ++i) {
        if (actual[i] == expected[i]) continue;
        return ::testing::AssertionFailure()
               << "byte " << i << " is " << int{actual[i]} << ", expected " << int{expected[i]};
    }
    if (actual.size() == expected.size()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << actual.size() << " bytes, expected " << expected.size();
}

}  // namespace vndlp::test
