#include "ctb/image_limits.h"

#include "io/report.h"

namespace CTB {

bool countPixels(const char* what, unsigned int width, unsigned int height, unsigned int most, std::size_t& count) {
    const unsigned long long pixels = static_cast<unsigned long long>(width) * height;
    if (pixels > most) {
        vndlp::report("error: %s of %u x %u pixels is not decoded, at most %u pixels are\n", what, width, height, most);
        return false;
    }
    count = static_cast<std::size_t>(pixels);
    return true;
}

}  // namespace CTB
