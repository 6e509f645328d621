/// The inner loop of the layer encoder.

#pragma once

#include "ctb/layer_codec.h"

#include <cstddef>

namespace CTB {

/// Pixels that one call of the inner loop takes at most: keeps what a single run becomes within `kRunRoom`.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;
/// Room the codes of a run need that is split, and of a block of single pixels behind it.
constexpr std::size_t kRunRoom = 128;

/// Where an encoder is: the run that is still open, and where codes go.
struct RunCoding {
    Run open;
    EndlessRun endless;
    unsigned char* out;
    const unsigned char* outEnd;  ///< codes end before it as long as `kRunRoom` bytes are free when one is begun
};

/// Codes pixels until they end or the room does; the last run is left open.
/// \param size at least 1, at most kMostAtOnce.
/// \return the pixels that were taken.
std::size_t codePixels(const unsigned char* pixels, std::size_t size, RunCoding& coding);

/// Writes the code of a run of more than `kLongestShortRun` pixels. \return the end of what was written.
unsigned char* putLongRun(unsigned int grey, std::size_t count, EndlessRun endless, unsigned char* out);

}  // namespace CTB
