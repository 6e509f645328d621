#include "io/record_io.h"

#include "io/report.h"

#include <algorithm>

namespace vndlp {

std::vector<unsigned char> readDeclared(FileRead& file, unsigned int declared) {
    const auto held = static_cast<std::size_t>(std::min<long long>(declared, file.remaining()));
    std::vector<unsigned char> bytes(held);
    bytes.resize(file.readBytes(bytes.data(), held));
    return bytes;
}

bool writeDeclared(FileWrite& file, const unsigned char* bytes, std::size_t held, unsigned int declared) {
    static constexpr unsigned char zeros[4096] = {};
    const std::size_t present = std::min<std::size_t>(held, declared);
    file.writeBytes(bytes, present);
    for (std::size_t left = declared - present; left > 0 && !file.failed();) {
        const std::size_t step = std::min(left, sizeof zeros);
        file.writeBytes(zeros, step);
        left -= step;
    }
    return present == declared;
}

void reportShort(const std::string& file, const std::string& what, unsigned long long declared, unsigned long long held,
                 const char* unit) {
    report("error: %s: %s should have %llu %s, %llu are there\n", file.c_str(), what.c_str(), declared, unit, held);
}

}  // namespace vndlp
