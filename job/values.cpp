#include "job/values.h"

#include "io/decimal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace vndlp::job {

namespace {

constexpr std::size_t kLongestText = kMaxTextBytes - 1;

template <class Number>
ByteList bytesOf(Number value, BYTEORDER order) {
    const auto raw = storedNumber(value, order);
    return {raw.begin(), raw.end()};
}

struct WholeRange {
    double least;
    double most;
};

WholeRange rangeOf(FieldKind kind) {
    switch (kind) {
        case FieldKind::u8: return {0, 255};
        case FieldKind::u16: return {0, 65535};
        case FieldKind::i16: return {-32768, 32767};
        case FieldKind::u32: return {0, 4294967295.0};
        case FieldKind::i32: return {-2147483648.0, 2147483647.0};
        default: return {-9223372036854774784.0, 9223372036854774784.0};
    }
}

ByteList wholeBytes(const FieldSpec& field, std::int64_t value) {
    switch (field.kind) {
        case FieldKind::u8: return {static_cast<unsigned char>(value)};
        case FieldKind::u16:
        case FieldKind::i16: return bytesOf(static_cast<std::uint16_t>(value), field.order);
        case FieldKind::u32:
        case FieldKind::i32: return bytesOf(static_cast<std::uint32_t>(value), field.order);
        default: return bytesOf(value, field.order);
    }
}

/// To the nearest, half up; a half that the unit's factor has missed by its last bits still counts as one.
double nearest(double value) { return std::floor(value + 0.5 + 1e-9 * std::max(1.0, std::abs(value))); }

SliceResult refused(std::string what) { return failure(SliceCode::value, std::move(what)); }

SliceResult storeNumber(const std::string& name, const FieldSpec& field, double perUnit, double value,
                        StoredValue& stored) {
    if (field.kind == FieldKind::f32) {
        const auto number = static_cast<float>(value * perUnit);
        if (!std::isfinite(number)) return refused(name + " does not fit");
        if (number == 0 && value != 0) return refused(name + " would be stored as 0");
        stored.bytes = bytesOf(number, field.order);
        stored.text = sliceNumberText(shortestDouble(number) / perUnit);
    } else {
        const double number = nearest(value * perUnit);
        const WholeRange range = rangeOf(field.kind);
        if (number < range.least || number > range.most) {
            return refused(name + " does not fit: " + sliceNumberText(range.least / perUnit) + " to " +
                           sliceNumberText(range.most / perUnit) + " can be stored");
        }
        if (number == 0 && value != 0) return refused(name + " would be stored as 0");
        stored.bytes = wholeBytes(field, static_cast<std::int64_t>(number));
        stored.text = sliceNumberText(number / perUnit);
    }
    stored.isRounded = stored.text != sliceNumberText(value);
    return {};
}

ByteList units(const std::string& characters) {
    ByteList bytes;
    for (const char c : characters) {
        // as the format's writers extend a character
        const auto unit = storedNumber(static_cast<std::int16_t>(static_cast<signed char>(c)), BigEndian);
        bytes.insert(bytes.end(), unit.begin(), unit.end());
    }
    return bytes;
}

ByteList characters(const std::string& text) { return {text.begin(), text.end()}; }

SliceResult storeText(const std::string& name, const FieldSpec& field, const std::string& text, StoredValue& stored) {
    if (text.size() > kLongestText)
        return refused(name + ": is longer than " + std::to_string(kLongestText) + " bytes");
    if (text.find('\0') != std::string::npos) return refused(name + ": a text has no zero bytes");
    stored.bytes = field.kind == FieldKind::text16 ? units(text) : characters(text);
    stored.text = text;
    return {};
}

SliceResult storeVersion(const std::string& name, const FieldSpec& field, const std::string& text,
                         StoredValue& stored) {
    std::uint32_t word = 0;
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    for (int part = 0; part < 4; ++part) {
        std::uint32_t number = 256;
        const auto [stopped, error] = std::from_chars(at, end, number);
        const bool endsRight = part < 3 ? stopped != end && *stopped == '.' : stopped == end;
        if (error != std::errc() || number > 255 || !endsRight) {
            return refused(name + " is no version of four numbers from 0 to 255 with points between them");
        }
        word = word << 8 | number;
        at = stopped + (part < 3 ? 1 : 0);
    }
    stored.bytes = bytesOf(word, field.order);
    stored.text = text;
    return {};
}

std::string unitOf(const SettingRow& row) { return row.key.unit[0] == '\0' ? "" : std::string(" ") + row.key.unit; }

}  // namespace

bool parseNumber(const std::string& text, double& value) {
    const char* const end = text.data() + text.size();
    double read = 0;
    const auto [stopped, error] = std::from_chars(text.data(), end, read);
    if (error != std::errc() || stopped != end || !std::isfinite(read)) return false;
    value = read;
    return true;
}

SliceResult storeSetting(const SettingRow& row, const Place& where, const FieldSpec& field, SliceFormat format,
                         const std::string& text, Range range, StoredValue& stored) {
    stored = {};
    const std::string name = std::string(row.key.name) + " = " + text;
    if (where.stored == Stored::text) return storeText(name, field, text, stored);
    if (where.stored == Stored::version) return storeVersion(name, field, text, stored);
    double value = 0;
    if (!parseNumber(text, value)) return refused(name + " is not a number");
    if (range == Range::ofKey && (value < row.key.least || value > row.key.most)) {
        return refused(name + " is outside " + sliceNumberText(row.key.least) + " to " + sliceNumberText(row.key.most) +
                       unitOf(row));
    }
    SliceResult result;
    if (where.stored == Stored::decimal) {
        stored.text = sliceNumberText(value);
        stored.bytes = units(stored.text);
        stored.isRounded = std::abs(value - parseDecimal(stored.text)) > 1e-12 * std::abs(value);
        if (value != 0 && stored.text == "0") result = refused(name + " would be stored as 0");
    } else {
        result = storeNumber(name, field, where.perUnit, value, stored);
    }
    if (!result.isOk()) result.text += " in ." + formatName(format) + " files";
    return result;
}

std::string settingText(const SettingRow& row, const Place& where, const FieldSpec& field, const ByteList& bytes) {
    const FieldValue value = decodeField(field, bytes.data(), bytes.size());
    if (where.stored == Stored::version) {
        std::string text;
        for (int shift = 24; shift >= 0; shift -= 8) {
            text += std::to_string(value.integer >> shift & 0xFF) + (shift > 0 ? "." : "");
        }
        return text;
    }
    if (where.stored == Stored::flag) return value.number != 0 ? "1" : "0";
    if (row.key.type == SliceValueType::text) return value.text;
    double number = value.number / where.perUnit;
    if (isText(field.kind) && !parseNumber(value.text, number)) return value.text;
    return sliceNumberText(number);
}

SliceResult storeRaw(const std::string& name, const FieldSpec& field, std::int64_t fieldBytes, const std::string& text,
                     StoredValue& stored) {
    stored = {};
    const std::string what = name + " = " + text;
    if (isText(field.kind)) return storeText(what, field, text, stored);
    if (field.kind == FieldKind::f32) {
        double value = 0;
        if (!parseNumber(text, value)) return refused(what + " is not a number");
        return storeNumber(what, field, 1, value, stored);
    }
    if (field.kind != FieldKind::bytes) {
        std::int64_t value = 0;
        const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || stopped != text.data() + text.size()) {
            return refused(what + " is not a whole number");
        }
        const WholeRange range = rangeOf(field.kind);
        const auto number = static_cast<double>(value);
        if (number < range.least || number > range.most) {
            return refused(what + " is outside " + sliceNumberText(range.least) + " to " + sliceNumberText(range.most));
        }
        stored.bytes = wholeBytes(field, value);
        stored.text = std::to_string(value);
        return {};
    }
    if (text.size() != 2 * static_cast<std::size_t>(fieldBytes) ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return refused(what + " is not " + std::to_string(fieldBytes) + " bytes of two hexadecimal digits each");
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned value = 0;
        std::from_chars(text.data() + i, text.data() + i + 2, value, 16);
        stored.bytes.push_back(static_cast<unsigned char>(value));
    }
    stored.text = text;
    return {};
}

std::string rawText(const FieldSpec& field, const ByteList& bytes) {
    const FieldValue value = decodeField(field, bytes.data(), bytes.size());
    if (isText(field.kind) || field.kind == FieldKind::bytes) return value.text;
    return field.kind == FieldKind::f32 ? sliceNumberText(value.number) : std::to_string(value.integer);
}

std::string layerListText(const std::vector<std::uint32_t>& layers) {
    std::string text;
    for (std::size_t i = 0; i < layers.size();) {
        std::size_t last = i;
        while (last + 1 < layers.size() && layers[last + 1] == layers[last] + 1) ++last;
        if (!text.empty()) text += ", ";
        text += std::to_string(layers[i]);
        if (last > i) text += " to " + std::to_string(layers[last]);
        i = last + 1;
    }
    return text;
}

std::string formatName(SliceFormat format) {
    for (const SliceFormatRow& row : kSliceFormats) {
        if (row.format == format) return std::string(row.name);
    }
    return {};
}

}  // namespace vndlp::job

namespace vndlp {

namespace {

constexpr int kDecimals = 6;

}  // namespace

SliceFormat sliceFormatOfPath(const std::string& path) {
    std::string lower = path;
    for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return formatOfPath(lower);
}

std::string sliceNumberText(double value) {
    char text[400];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, kDecimals);
    if (error != std::errc() || !std::isfinite(value)) return "nan";
    std::string number(text, end);
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.') number.pop_back();
    return number == "-0" ? "0" : number;
}

}  // namespace vndlp
