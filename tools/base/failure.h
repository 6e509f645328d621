/// The one way the program's parts give up.

#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vndlp::tools {

/// A failure the user has to learn of. `what()` is the complete message in one line: where (file, and the entry in it),
/// what was expected and found, what to do. It begins with the file's name and has no line end.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A name from a file as it can be shown on a terminal: control characters become question marks.
inline std::string printable(std::string_view name) {
    std::string text(name);
    for (char& c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code == 0x7F) c = '?';
    }
    return text;
}

}  // namespace vndlp::tools
