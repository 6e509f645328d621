#include "job/field_list.h"

#include "io/decimal.h"

#include <cmath>
#include <cstdio>

namespace vndlp::job {

namespace {

void appendUtf8(std::uint32_t character, std::string& text) {
    const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

/// Bytes of the UTF-8 character at the front; 0 for what is none.
std::size_t utf8Length(const unsigned char* bytes, std::size_t size) {
    const unsigned first = bytes[0];
    const std::size_t length = first < 0x80                    ? 1
                               : first >= 0xC2 && first < 0xE0 ? 2
                               : first >= 0xE0 && first < 0xF0 ? 3
                               : first >= 0xF0 && first < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || length > size) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((bytes[i] & 0xC0) != 0x80) return 0;
    }
    const unsigned second = length > 1 ? bytes[1] : 0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isNoCharacter = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return isOverlong || isNoCharacter ? 0 : length;
}

bool isUtf8(const std::string& text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8Length(bytes + at, text.size() - at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

/// 16-bit characters. Writers extend the sign of a byte, so what stands for a byte of 0x80 or more is 0xFF80 or more.
std::string textOfUnits(const unsigned char* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        const std::uint32_t unit = static_cast<std::uint32_t>(bytes[i]) << 8 | bytes[i + 1];
        appendUtf8(unit >= 0xFF80 ? unit & 0xFF : unit, text);
    }
    return text;
}

std::string hexadecimal(const unsigned char* bytes, std::size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

FieldValue whole(std::int64_t value) { return {static_cast<double>(value), value, {}}; }

}  // namespace

std::uint32_t fixedBytes(const FieldSpecs& fields) {
    std::uint32_t bytes = 0;
    for (const FieldSpec& field : fields) bytes += field.isOptional ? 0 : field.size;
    return bytes;
}

std::int64_t offsetInRecord(const FieldSpecs& fields, const std::string& name) {
    std::int64_t offset = 0;
    for (const FieldSpec& field : fields) {
        if (field.name == name) return offset;
        offset += field.size;
    }
    return -1;
}

double shortestDouble(float value) {
    const double exact = static_cast<double>(value);
    if (!std::isfinite(value) || value == std::floor(value)) return exact;
    for (int digits = 6; digits < 9; ++digits) {
        char text[40];
        std::snprintf(text, sizeof text, "%.*g", digits, exact);
        std::string plain(text);
        for (char& c : plain) {
            if (c == ',') c = '.';
        }
        const double shorter = parseDecimal(plain);
        if (static_cast<float>(shorter) == value) return shorter;
    }
    return exact;
}

std::string toUtf8(const std::string& bytes) {
    if (isUtf8(bytes)) return bytes;
    std::string text;
    for (const char c : bytes) appendUtf8(static_cast<unsigned char>(c), text);
    return text;
}

FieldValue decodeField(const FieldSpec& field, const unsigned char* bytes, std::size_t size) {
    switch (field.kind) {
        case FieldKind::u8: return whole(bytes[0]);
        case FieldKind::u16: return whole(loadNumber<std::uint16_t>(bytes, field.order));
        case FieldKind::i16: return whole(loadNumber<std::int16_t>(bytes, field.order));
        case FieldKind::u32: return whole(loadNumber<std::uint32_t>(bytes, field.order));
        case FieldKind::i32: return whole(loadNumber<std::int32_t>(bytes, field.order));
        case FieldKind::i64: return whole(loadNumber<std::int64_t>(bytes, field.order));
        case FieldKind::f32: {
            const auto value = loadNumber<float>(bytes, field.order);
            return {shortestDouble(value), 0, {}};
        }
        case FieldKind::text8:
        case FieldKind::chars: {
            return {0, 0, toUtf8(std::string(reinterpret_cast<const char*>(bytes), size))};
        }
        case FieldKind::text16: return {0, 0, textOfUnits(bytes, size)};
        case FieldKind::bytes: return {0, 0, hexadecimal(bytes, size)};
    }
    return {};
}

}  // namespace vndlp::job
