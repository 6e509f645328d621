#include "tools/base/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace vndlp::tools {

namespace {

unsigned char byteAt(std::string_view text, std::size_t at) { return static_cast<unsigned char>(text[at]); }

/// Bytes of the UTF-8 character at a place; 0 where there is none.
std::size_t characterBytes(std::string_view text, std::size_t at) {
    const unsigned char first = byteAt(text, at);
    if (first < 0x80) return 1;
    const std::size_t count = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() - at < count) return 0;
    for (std::size_t i = 1; i < count; ++i) {
        if ((byteAt(text, at + i) & 0xC0) != 0x80) return 0;
    }
    // overlong forms, surrogates, what lies beyond the last character
    const unsigned char second = byteAt(text, at + 1);
    const bool isWrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return isWrong ? 0 : count;
}

bool isUtf8(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = characterBytes(bytes, at);
        if (count == 0) return false;
        at += count;
    }
    return true;
}

std::string escapedByte(unsigned char byte) {
    if (byte == '\n') return "\\n";
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (lowerCase(a[i - 1]) == lowerCase(b[j - 1]) ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

}  // namespace

std::string printable(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = characterBytes(bytes, at);
        const unsigned char first = byteAt(bytes, at);
        if (count == 0) {
            text += escapedByte(first);
            ++at;
            continue;
        }
        if (count == 1 && (first < 0x20 || first == 0x7F)) {
            text += escapedByte(first);
        } else if (count == 2 && first == 0xC2 && byteAt(bytes, at + 1) < 0xA0) {
            text += escapedByte(byteAt(bytes, at + 1));
        } else {
            text += bytes.substr(at, count);
        }
        at += count;
    }
    return text;
}

std::string utf8Of(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    std::string text;
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | code >> 6);
            text += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return text;
}

bool parseNumber(std::string_view text, double& value) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stopped != end || !std::isfinite(number)) return false;
    value = number;
    return true;
}

std::string shortNumber(double value, int decimals) {
    char text[512];  // the largest double has 309 digits before the point
    const auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
    std::string number(text, error == std::errc() ? end : text);
    if (number.find('.') == std::string::npos) return number;
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.') number.pop_back();
    return number == "-0" ? "0" : number;
}

std::string counted(unsigned long long count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string groupedNumber(unsigned long long value) {
    std::string digits = std::to_string(value);
    for (std::size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, 1, ' ');
    return digits;
}

std::string humanBytes(unsigned long long bytes) {
    static const char* const units[] = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(units)) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

std::string duration(double seconds) {
    const long long whole = std::llround(seconds);
    char text[64];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld h %02lld min %02lld s", whole / 3600, whole / 60 % 60, whole % 60);
    } else if (whole >= 60) {
        std::snprintf(text, sizeof text, "%lld min %02lld s", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    }
    return text;
}

std::string nearestWord(const std::string& word, const std::vector<std::string>& words) {
    constexpr std::size_t kFarthest = 2;
    std::string nearest;
    std::size_t least = kFarthest + 1;
    for (const std::string& candidate : words) {
        const std::size_t distance = editDistance(word, candidate);
        if (distance >= least) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

std::string reasonOf(int errorNumber) { return std::strerror(errorNumber); }

}  // namespace vndlp::tools
