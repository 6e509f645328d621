/// File names: the numbers in them, their natural order, those nobody asked for.

#pragma once

#include <cstdint>
#include <string_view>

namespace vndlp::tools {

/// Whether a text ends with `lowerSuffix`, ASCII capitals of the text counting as small letters.
bool endsWithIgnoringCase(std::string_view text, std::string_view lowerSuffix);

/// Digits at the start of a text.
std::string_view leadingDigits(std::string_view text);

/// Digits at the end of a text.
std::string_view trailingDigits(std::string_view text);

/// The number that digits make; UINT64_MAX where they make a larger one.
std::uint64_t numberOf(std::string_view digits);

/// Order of names in which digits count as the number they make, of any length: "2.png" before "10.png".
bool naturalLess(std::string_view a, std::string_view b);

/// Whether a file at the root of a folder of layers is a picture for a preview: `preview_large.png`.
bool isPreviewName(std::string_view name);

/// Whether a name ('/' between folders) is or lies in something hidden or added by a packing tool unasked.
bool isHidden(std::string_view name);

}  // namespace vndlp::tools
