/// Decimal numbers as text with a point, whatever the process's locale.

#pragma once

#include <string>

namespace vndlp {

/// The number a text begins with, as strtod has it in the C locale; 0 for text that is none.
double parseDecimal(std::string text);

/// A number with six decimals: the float's exact value, so 68.04F gives "68.040001".
std::string sixDecimals(float value);

}  // namespace vndlp
