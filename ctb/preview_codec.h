/// The run-length encoding of preview images, on plain memory.
///
/// A pixel of three bytes p0, p1, p2 becomes a 16-bit colour of p2's top five bits, p1's top six, p0's top five. Its
/// bit 5 (p1's lowest kept bit) is not written: the repeat flag takes its place.
///
/// | pixels n  | bytes                                                                                   |
/// |-----------|-----------------------------------------------------------------------------------------|
/// | 1         | colour with the flag clear, little-endian                                               |
/// | 2         | the same twice                                                                          |
/// | 3 to 4095 | colour with the flag set, little-endian; (n - 1) and 0xFF; ((n - 1) >> 8) or 0x30       |

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace CTB {

constexpr std::size_t kPreviewPixelBytes = 3;
constexpr unsigned int kPreviewRepeatFlag = 0x0020;
constexpr unsigned int kMaxPreviewRun = 4095;

/// Appends one encoded run; nothing for a count of 0.
void appendPreviewRun(unsigned int count, unsigned int colour, std::vector<unsigned char>& encoded);

/// Encodes `size` bytes of pixels; what is missing from a last pixel counts as 0. Runs are told apart by the whole
/// colour, so that neighbours which differ in bit 5 only are two runs although they decode alike: kept.
std::vector<unsigned char> encodePreview(const unsigned char* pixels, std::size_t size);

/// Decodes into pixels, `kPreviewPixelBytes` each. Ends with the encoded data (a run that is cut off is left out) or
/// the pixels, whichever comes first; pixels behind the end of the data keep their value.
void decodePreview(const unsigned char* encoded, std::size_t encodedSize, unsigned char* pixels,
                   std::size_t pixelCount);

}  // namespace CTB
