/// Records as lists of fields that are known at run time, made from the records' layouts.

#pragma once

#include "io/record_layout.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace vndlp::job {

/// What a field holds in the file.
enum class FieldKind : std::uint8_t {
    u8,
    u16,
    i16,
    u32,
    i32,
    i64,
    f32,
    text8,   ///< u32 length with the zero byte behind the characters, characters, zero byte
    text16,  ///< u32 byte count, 16-bit characters
    chars,   ///< characters whose place and number another record tells
    bytes,   ///< as many as `size` says
};

constexpr bool isText(FieldKind kind) { return kind >= FieldKind::text8 && kind <= FieldKind::chars; }

/// A field of a record.
struct FieldSpec {
    std::string name;  ///< "member", or "outer.member" where the record is part of another
    const char* unit = "";
    FieldKind kind = FieldKind::u32;
    BYTEORDER order = BigEndian;
    std::uint32_t size = 0;   ///< bytes in the file; of texts those of the length in front of them
    bool isFixed = false;     ///< the format's writers put a value of their own there
    bool isOptional = false;  ///< not in every record of the type
};
using FieldSpecs = std::vector<FieldSpec>;

template <class Stored>
constexpr FieldKind fieldKind() {
    if constexpr (std::is_floating_point_v<Stored>) {
        return FieldKind::f32;
    } else if constexpr (sizeof(Stored) == 1) {
        return FieldKind::u8;
    } else if constexpr (sizeof(Stored) == 2) {
        return std::is_signed_v<Stored> ? FieldKind::i16 : FieldKind::u16;
    } else if constexpr (sizeof(Stored) == 4) {
        return std::is_signed_v<Stored> ? FieldKind::i32 : FieldKind::u32;
    } else {
        return FieldKind::i64;
    }
}

/// Appends the fields of a record to a list.
template <class Record>
void appendFields(FieldSpecs& list, const std::string& outer = {}) {
    forEachItem<Record>([&](const auto& item) {
        using Item = std::decay_t<decltype(item)>;
        if constexpr (IsField<Item>) {
            using Value = std::remove_cvref_t<decltype(std::declval<Record>().*item.member)>;
            using Stored = typename Item::Stored;
            FieldSpec spec{outer + item.name, item.unit,      FieldKind::u32, Item::order(Layout<Record>::order), 0,
                           Item::kForced,     Item::kOptional};
            if constexpr (HasLayout<Value>) {
                appendFields<Value>(list, outer + item.name + ".");
                return;
            } else if constexpr (std::is_same_v<Value, std::string>) {
                spec.kind = std::is_same_v<typename Item::Quirk, Utf16> ? FieldKind::text16 : FieldKind::text8;
                spec.order = BigEndian;
                spec.size = 4;
            } else if constexpr (std::is_arithmetic_v<Stored>) {
                spec.kind = fieldKind<Stored>();
                spec.size = sizeof(Stored);
            } else if constexpr (std::is_array_v<Value>) {
                spec.kind = FieldKind::bytes;
                spec.size = sizeof(Value);
            } else {
                return;  // previews, which are found by their own places
            }
            list.push_back(std::move(spec));
        }
    });
}

/// The list of a record type; made once.
template <class Record>
const FieldSpecs& fieldsOf() {
    static const FieldSpecs list = [] {
        FieldSpecs fields;
        appendFields<Record>(fields);
        return fields;
    }();
    return list;
}

/// Bytes of a list's fields that have a fixed size, optional ones left out.
std::uint32_t fixedBytes(const FieldSpecs& fields);
/// Where a field begins in a record without texts. \return -1 for an unknown name.
std::int64_t offsetInRecord(const FieldSpecs& fields, const std::string& name);

/// A field's value.
struct FieldValue {
    double number = 0;
    std::int64_t integer = 0;
    std::string text;  ///< UTF-8; of bytes two hexadecimal digits each
};

/// Takes a value apart that stands at `bytes`: of texts the characters alone.
FieldValue decodeField(const FieldSpec& field, const unsigned char* bytes, std::size_t size);

/// The number that has the same shortest decimal form: 0.05F is 0.05.
double shortestDouble(float value);

/// Text that is UTF-8 as it is, else each byte taken for a Latin-1 character.
std::string toUtf8(const std::string& bytes);

}  // namespace vndlp::job
