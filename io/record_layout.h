/// Records as lists of fields: the one list from which a record is read, written, measured and shown.
///
/// `Layout<Record>` has a `name`, the `order` its numbers have in a file, and `fields`: a tuple of `Field` in file
/// order. What a format has besides plain fields stands in the same tuple, or in the quirk of a field:
/// - a quirk may force a value (`value`), name another byte order (`order`), read another type than the member's
///   (`Read`, `fromRead`), store another one (`Stored`, `toStored`), or tell whether a record has the field (`isIn`);
/// - a member that is itself a record with a layout is visited in place;
/// - a member that is neither number, string nor bytes is handed to `read` and `write` of the source and the sink, with
///   its quirk, whose `storedBytes` measures it;
/// - an item that is no field (a separator, a check on what stands before it) is handed to their `mark`; its `kBytes`,
///   if it has that, are its bytes in a file.
///
/// A source may be asked to stop: `isGood` is asked before every item.

#pragma once

#include <vndlp/streams.h>
#include "io/byte_order.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace vndlp {

template <class Record>
struct Layout;

template <class Record>
concept HasLayout = requires {
    Layout<Record>::fields;
};

/// Quirk of a field that has none.
struct Plain {};
/// Writing stores this value in the record and in the file, whatever the record held.
template <class Value>
struct Forced {
    constexpr explicit Forced(Value v) : value(v) {}
    Value value;
};
template <class Value>
struct ForcedBigEndian : Forced<Value> {
    using Forced<Value>::Forced;
    static constexpr BYTEORDER order = BigEndian;
};
template <class Value>
ForcedBigEndian(Value) -> ForcedBigEndian<Value>;
/// A text of 16-bit units behind its byte count, as `FileWrite::writeStdStringAsQAnsic` writes it. Any other string is
/// one as `FileWrite::writeStdString` writes it.
struct Utf16 {};

/// A number from bytes in a byte order.
template <class Number>
Number loadNumber(const unsigned char* bytes, BYTEORDER order) {
    std::array<unsigned char, sizeof(Number)> raw;
    std::memcpy(raw.data(), bytes, raw.size());
    if ((order == LittleEndian) != (std::endian::native == std::endian::little)) std::reverse(raw.begin(), raw.end());
    return bitCast<Number>(raw);
}

/// The bytes of a number in a byte order.
template <class Number>
std::array<unsigned char, sizeof(Number)> storedNumber(Number value, BYTEORDER order) {
    auto raw = bitCast<std::array<unsigned char, sizeof(Number)>>(value);
    if ((order == LittleEndian) != (std::endian::native == std::endian::little)) std::reverse(raw.begin(), raw.end());
    return raw;
}

template <class Value, class Quirk>
struct StoredType {
    using Type = Value;
};
template <class Value, class Quirk>
requires requires { typename Quirk::Stored; }
struct StoredType<Value, Quirk> {
    using Type = typename Quirk::Stored;
};

template <class Record>
constexpr std::size_t fixedBytes();

/// One member of a record. `Stored` is the type a file holds, as it is written.
template <class Record, class Value, class FieldQuirk = Plain>
struct Field {
    using Quirk = FieldQuirk;
    using Stored = typename StoredType<Value, Quirk>::Type;

    const char* name;
    Value Record::*member;
    const char* unit;
    Quirk quirk;

    constexpr Field(const char* n, Value Record::*m, const char* u = "", Quirk q = {})
        : name(n), member(m), unit(u), quirk(q) {}

    /// Whether the format gives the field its value, `quirk.value`.
    static constexpr bool kForced = requires(Quirk q) { q.value; };
    static constexpr bool kOptional = requires(Quirk q, const Record& r) { q.isIn(r); };

    static constexpr BYTEORDER order(BYTEORDER ofRecord) {
        if constexpr (requires { Quirk::order; }) return Quirk::order;
        return ofRecord;
    }

    /// Bytes in a file of what is always there: of a string, its length alone.
    static constexpr std::size_t fixed() {
        if constexpr (kOptional || requires { &Quirk::storedBytes; }) {
            return 0;
        } else if constexpr (HasLayout<Value>) {
            return fixedBytes<Value>();
        } else if constexpr (std::is_same_v<Value, std::string>) {
            return sizeof(std::uint32_t);
        } else {
            return sizeof(Stored);
        }
    }
};

template <class Item>
concept IsField = requires(Item item) {
    item.member;
};

/// Calls `visit(item)` for every item of a layout.
template <class Record, class Visit>
constexpr void forEachItem(Visit&& visit) {
    std::apply([&visit](const auto&... item) { (visit(item), ...); }, Layout<Record>::fields);
}

template <class Item>
constexpr std::size_t fixedBytesOf() {
    if constexpr (IsField<Item>) {
        return Item::fixed();
    } else if constexpr (requires { Item::kBytes; }) {
        return Item::kBytes;
    } else {
        return 0;
    }
}

/// Bytes of a record's fields that every record of the type has.
template <class Record>
constexpr std::size_t fixedBytes() {
    std::size_t bytes = 0;
    forEachItem<Record>([&bytes](const auto& item) { bytes += fixedBytesOf<std::decay_t<decltype(item)>>(); });
    return bytes;
}

template <class Record, class Item>
bool isIn(const Record& record, const Item& item) {
    if constexpr (Item::kOptional) return item.quirk.isIn(record);
    return true;
}

template <class Record>
std::size_t storedBytes(const Record& record);

/// Bytes of one item of a record in a file.
template <class Record, class Item>
std::size_t storedBytesOf(const Record& record, const Item& item) {
    if constexpr (!IsField<Item>) {
        return fixedBytesOf<Item>();
    } else {
        using Value = std::remove_cvref_t<decltype(record.*item.member)>;
        const Value& value = record.*item.member;
        if (!isIn(record, item)) return 0;
        if constexpr (HasLayout<Value>) {
            return storedBytes(value);
        } else if constexpr (std::is_same_v<Value, std::string>) {
            const bool isWide = std::is_same_v<typename Item::Quirk, Utf16>;
            return sizeof(std::uint32_t) + (isWide ? 2 * value.size() : value.size() + 1);
        } else if constexpr (requires { item.quirk.storedBytes(value); }) {
            return item.quirk.storedBytes(value);
        } else {
            return sizeof(typename Item::Stored);
        }
    }
}

/// Bytes of a record's fields in a file.
template <class Record>
std::size_t storedBytes(const Record& record) {
    std::size_t bytes = 0;
    forEachItem<Record>([&](const auto& item) { bytes += storedBytesOf(record, item); });
    return bytes;
}

/// Where a field lies in a file and what it is called there.
struct FieldPlace {
    std::string name;  ///< "member", or "outer.member" where the record is part of another
    const char* unit;
    std::size_t offset;
    std::size_t bytes;
    BYTEORDER order;
    bool fixed;  ///< the format forces the value
};

/// Calls `visit(place, field, record)` for every field that a record has in a file, those of embedded records included;
/// `typename std::decay_t<decltype(field)>::Stored` is the type in the file.
/// \param offset of the record. \return the offset behind it.
template <class Record, class Visit>
std::size_t describeFields(const Record& record, std::size_t offset, Visit&& visit, const std::string& outer = {}) {
    forEachItem<Record>([&](const auto& item) {
        using Item = std::decay_t<decltype(item)>;
        const std::size_t bytes = storedBytesOf(record, item);
        if constexpr (IsField<Item>) {
            const auto& value = record.*item.member;
            if constexpr (HasLayout<std::remove_cvref_t<decltype(value)>>) {
                describeFields(value, offset, visit, outer + item.name + ".");
            } else if (isIn(record, item)) {
                visit(FieldPlace{outer + item.name, item.unit, offset, bytes, Item::order(Layout<Record>::order),
                                 Item::kForced},
                      item, record);
            }
        }
        offset += bytes;
    });
    return offset;
}

template <class Source, class Record>
void readRecord(Source& source, Record& record);

template <class Source, class Record, class Item>
void readItem(Source& source, Record& record, const Item& item) {
    if constexpr (!IsField<Item>) {
        source.mark(item, record);
    } else {
        using Value = std::remove_cvref_t<decltype(record.*item.member)>;
        using Quirk = typename Item::Quirk;
        Value& value = record.*item.member;
        if (!isIn(record, item)) return;
        if constexpr (HasLayout<Value>) {
            readRecord(source, value);
        } else if constexpr (!std::is_arithmetic_v<Value>) {
            source.read(value, item.quirk);
        } else if constexpr (requires { typename Quirk::Read; }) {
            typename Quirk::Read raw{};
            if (source.number(raw, Item::order(source.template orderOf<typename Quirk::Read>()))) {
                value = Quirk::fromRead(raw);
            }
        } else {
            source.number(value, Item::order(source.template orderOf<Value>()));
        }
    }
}

/// Reads the fields of a record.
template <class Source, class Record>
void readRecord(Source& source, Record& record) {
    forEachItem<Record>([&](const auto& item) {
        if (source.isGood()) readItem(source, record, item);
    });
}

template <class Sink, class Record>
void writeRecord(Sink& sink, Record& record);

template <class Sink, class Record, class Item>
void writeItem(Sink& sink, Record& record, const Item& item) {
    if constexpr (!IsField<Item>) {
        sink.mark(item, record);
    } else {
        using Stored = typename Item::Stored;
        auto& value = record.*item.member;
        if (!isIn(record, item)) return;
        if constexpr (Item::kForced) value = item.quirk.value;
        if constexpr (HasLayout<Stored>) {
            writeRecord(sink, value);
        } else if constexpr (!std::is_arithmetic_v<Stored>) {
            sink.write(value, item.quirk);
        } else if constexpr (requires { item.quirk.toStored(value); }) {
            sink.number(item.quirk.toStored(value), Item::order(sink.template orderOf<Stored>()));
        } else {
            sink.number(value, Item::order(sink.template orderOf<Stored>()));
        }
    }
}

/// Writes the fields of a record, which takes the values that the format forces.
template <class Sink, class Record>
void writeRecord(Sink& sink, Record& record) {
    forEachItem<Record>([&](const auto& item) { writeItem(sink, record, item); });
}

/// The byte orders of a source or sink.
class NumberOrders {
public:
    NumberOrders(BYTEORDER integers, BYTEORDER floats) : m_integers(integers), m_floats(floats) {}

    template <class Number>
    [[nodiscard]] BYTEORDER orderOf() const {
        return std::is_floating_point_v<Number> ? m_floats : m_integers;
    }

private:
    BYTEORDER m_integers;
    BYTEORDER m_floats;
};

/// What becomes of a number of which no byte is left to read.
enum class Missing { becomesZero, keepsItsValue };

/// Reads fields from a file.
class FileSource : public NumberOrders {
public:
    FileSource(FileRead& file, BYTEORDER integers, BYTEORDER floats, Missing missing = Missing::becomesZero)
        : NumberOrders(integers, floats), m_file(file), m_missing(missing) {}

    [[nodiscard]] bool isGood() const { return true; }
    /// \return false when the value was kept.
    template <class Number>
    bool number(Number& value, BYTEORDER order) {
        unsigned char raw[sizeof(Number)] = {};
        if (m_file.readBytes(raw, sizeof raw) == 0 && m_missing == Missing::keepsItsValue) return false;
        value = loadNumber<Number>(raw, order);
        return true;
    }
    void read(std::string& value, Plain /*quirk*/) { value = m_file.readStdString(); }
    void read(std::string& value, Utf16 /*quirk*/) { value = m_file.readQAnsicString(); }
    template <std::size_t n>
    void read(unsigned char (&value)[n], Plain /*quirk*/) {
        m_file.readBytes(value, n);
    }

private:
    FileRead& m_file;
    Missing m_missing;
};

/// Writes fields to a file.
class FileSink : public NumberOrders {
public:
    FileSink(FileWrite& file, BYTEORDER integers, BYTEORDER floats) : NumberOrders(integers, floats), m_file(file) {}

    template <class Number>
    void number(Number value, BYTEORDER order) {
        m_file.writeBytes(storedNumber(value, order).data(), sizeof value);
    }
    void write(std::string& value, Plain /*quirk*/) { m_file.writeStdString(value); }
    void write(std::string& value, Utf16 /*quirk*/) { m_file.writeStdStringAsQAnsic(value); }
    template <std::size_t n>
    void write(const unsigned char (&value)[n], Plain /*quirk*/) {
        m_file.writeBytes(value, n);
    }

private:
    FileWrite& m_file;
};

/// Longest text that is read from memory.
constexpr std::uint32_t kMaxTextBytes = 65536;

/// Reads fields from memory, with zeros behind its end.
class MemorySource : public NumberOrders {
public:
    MemorySource(const unsigned char* bytes, std::size_t size, BYTEORDER order)
        : NumberOrders(order, order), m_next(bytes), m_left(size) {}

    [[nodiscard]] std::size_t left() const { return m_left; }
    [[nodiscard]] bool isGood() const { return true; }
    template <class Number>
    bool number(Number& value, BYTEORDER order) {
        unsigned char raw[sizeof(Number)] = {};
        take(raw, sizeof raw);
        value = loadNumber<Number>(raw, order);
        return true;
    }
    void read(std::string& value, Plain /*quirk*/) {
        value = chars();
        if (!value.empty()) value.pop_back();
    }
    void read(std::string& value, Utf16 /*quirk*/) {
        const std::string units = chars();
        value.clear();
        for (std::size_t i = 1; i < units.size(); i += 2) value += units[i];
    }
    template <std::size_t n>
    void read(unsigned char (&value)[n], Plain /*quirk*/) {
        take(value, n);
    }

private:
    void take(void* out, std::size_t size) {
        const std::size_t taken = std::min(size, m_left);
        if (taken > 0) std::memcpy(out, m_next, taken);
        m_next += taken;
        m_left -= taken;
    }
    /// As many bytes as a length in front of them says; a length that no text has gives none.
    std::string chars() {
        std::uint32_t length = 0;
        number(length, BigEndian);
        std::string read(length <= kMaxTextBytes ? length : 0, '\0');
        take(read.data(), read.size());
        return read;
    }

    const unsigned char* m_next;
    std::size_t m_left;
};

/// Appends fields to memory.
class MemorySink : public NumberOrders {
public:
    MemorySink(std::vector<unsigned char>& out, BYTEORDER order) : NumberOrders(order, order), m_out(out) {}

    template <class Number>
    void number(Number value, BYTEORDER order) {
        const auto raw = storedNumber(value, order);
        m_out.insert(m_out.end(), raw.begin(), raw.end());
    }
    void write(const std::string& value, Plain /*quirk*/) {
        number(static_cast<std::uint32_t>(value.size() + 1), BigEndian);
        m_out.insert(m_out.end(), value.c_str(), value.c_str() + value.size() + 1);
    }
    void write(const std::string& value, Utf16 /*quirk*/) {
        number(static_cast<std::uint32_t>(2 * value.size()), BigEndian);
        for (const char unit : value) number<std::int16_t>(static_cast<signed char>(unit), BigEndian);
    }
    template <std::size_t n>
    void write(const unsigned char (&value)[n], Plain /*quirk*/) {
        m_out.insert(m_out.end(), value, value + n);
    }

private:
    std::vector<unsigned char>& m_out;
};

}  // namespace vndlp
