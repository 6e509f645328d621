/// The inner loop of the layer encoder.

#pragma once

#include "ctb/layer_codec.h"

#include <cstddef>

namespace CTB {

/// Pixels that one call of the inner loop takes at most: keeps what a single run becomes within `kRunRoom`.
constexpr std::size_t kMaxAtOnce = std::size_t{1} << 30;
/// Room for what a block of 64 pixels can become: a run split into five of up to `kMaxRunBytes`, which ends in it, and
/// a byte for each pixel behind it.
constexpr std::size_t kRunRoom = 128;

/// Where an encoder is: the run that is still open, and where encoded runs go.
struct RunCoding {
    Run open;
    EndlessRun endless;
    unsigned char* out;
    const unsigned char* outEnd;  ///< runs end before it as long as `kRunRoom` bytes are free when a block is begun
};

/// Encodes pixels until they end or the room does; the last run is left open.
/// \param size at least 1, at most kMaxAtOnce.
/// \return the pixels that were taken.
std::size_t encodePixels(const unsigned char* pixels, std::size_t size, RunCoding& coding);

/// Writes an encoded run of more than `kMaxShortRun` pixels. \return the end of what was written.
unsigned char* putLongRun(unsigned int grey, std::size_t count, EndlessRun endless, unsigned char* out);

}  // namespace CTB
