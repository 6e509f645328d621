#include "io/decimal.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>

namespace vndlp {

namespace {

/// What strtod and printf take for the point: a comma, in programs that follow the user's language.
std::string localPoint() { return std::localeconv()->decimal_point; }

}  // namespace

double parseDecimal(std::string text) {
    const std::string point = localPoint();
    if (point != ".") {
        text.resize(std::min(text.find(point), text.size()));
        const std::size_t dot = text.find('.');
        if (dot != std::string::npos) text.replace(dot, 1, point);
    }
    return std::strtod(text.c_str(), nullptr);
}

std::string sixDecimals(float value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    std::string result(text);
    const std::string point = localPoint();
    const std::size_t at = result.find(point);
    if (at != std::string::npos) result.replace(at, point.size(), ".");
    return result;
}

}  // namespace vndlp
