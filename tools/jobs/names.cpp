#include "tools/jobs/names.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace vndlp::tools {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool endsWithIgnoringCase(std::string_view text, std::string_view lowerSuffix) {
    if (text.size() < lowerSuffix.size()) return false;
    text.remove_prefix(text.size() - lowerSuffix.size());
    return std::equal(text.begin(), text.end(), lowerSuffix.begin(),
                      [](char c, char suffix) { return lowerCase(c) == suffix; });
}

std::string_view leadingDigits(std::string_view text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isDigit);
    return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

std::string_view trailingDigits(std::string_view text) {
    const auto begin = std::find_if_not(text.rbegin(), text.rend(), isDigit);
    return text.substr(text.size() - static_cast<std::size_t>(begin - text.rbegin()));
}

std::uint64_t numberOf(std::string_view digits) {
    std::uint64_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return result.ec == std::errc() ? number : UINT64_MAX;
}

bool naturalLess(std::string_view a, std::string_view b) {
    std::string_view restA = a;
    std::string_view restB = b;
    while (!restA.empty() && !restB.empty()) {
        const bool areNumbers = isDigit(restA.front()) && isDigit(restB.front());
        std::string_view partA = areNumbers ? leadingDigits(restA) : restA.substr(0, 1);
        std::string_view partB = areNumbers ? leadingDigits(restB) : restB.substr(0, 1);
        restA.remove_prefix(partA.size());
        restB.remove_prefix(partB.size());
        if (areNumbers) {
            partA.remove_prefix(std::min(partA.find_first_not_of('0'), partA.size()));
            partB.remove_prefix(std::min(partB.find_first_not_of('0'), partB.size()));
            if (partA.size() != partB.size()) return partA.size() < partB.size();
        }
        if (partA != partB) return partA < partB;
    }
    if (restA.empty() != restB.empty()) return restA.empty();
    return a < b;  // the same but for zeros in front of numbers
}

bool isPreviewName(std::string_view name) {
    return name.starts_with("preview_") && name.ends_with(".png") && name.find('/') == std::string_view::npos;
}

bool isHidden(std::string_view name) {
    return name.starts_with('.') || name.starts_with("__MACOSX/") || name.find("/.") != std::string_view::npos;
}

}  // namespace vndlp::tools
