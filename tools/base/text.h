/// Texts and numbers as people and scripts read them.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vndlp::tools {

/// Bytes from a file, its name or the command line as they can be shown: control characters (C0, DEL, C1) and bytes
/// that are no UTF-8 become `\x1b`, line ends `\n`. Text without such bytes, results of this function among it, is left
/// as it is.
std::string printable(std::string_view bytes);

/// Bytes as UTF-8: as they are, or, where they are none, taken for Latin-1.
std::string utf8Of(std::string_view bytes);

/// Reads a whole text as a decimal number, a point before the fraction whatever the locale; "inf", "nan", hexadecimal
/// numbers, blanks and signs of plus are none. \return false, `value` untouched, for anything else.
bool parseNumber(std::string_view text, double& value);

/// A number as short as it can be written with at most `decimals` digits behind the point: 0.1, 68.04, 3.
std::string shortNumber(double value, int decimals = 6);

/// "1 layer", "2 layers".
std::string counted(unsigned long long count, const std::string& noun);

/// "1 234 567".
std::string groupedNumber(unsigned long long value);

/// "12.3 MB".
std::string humanBytes(unsigned long long bytes);

/// "1 h 23 min 45 s"; tenths where there are neither hours nor minutes.
std::string duration(double seconds);

/// The word that lies nearest to `word`, at most two letters put in, left out or exchanged, case ignored; empty when
/// none does.
std::string nearestWord(const std::string& word, const std::vector<std::string>& words);

/// An error number of the system in its English words.
std::string reasonOf(int errorNumber);

}  // namespace vndlp::tools
