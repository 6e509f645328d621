/// Pictures of previews.

#pragma once

#include <cstdint>
#include <vector>

namespace vndlp::job {

/// A picture of red, green, blue, a byte each, rows from the top without gaps.
struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<unsigned char> rgb;
};

/// Scales a picture into the middle of a black frame, averaging areas.
Picture fitted(const Picture& picture, std::uint32_t width, std::uint32_t height);

/// Five, six and five bits, big-endian, as vendor files hold pictures.
std::vector<unsigned char> packed565(const Picture& picture);

}  // namespace vndlp::job
