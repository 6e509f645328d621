/// PNG images in memory: layers as 8-bit grey, previews in colour.
///
/// `name` in every call stands at the head of a failure's text: "ARCHIVE: ENTRY" or a file's name.
/// Functions may run in several threads at once.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vndlp::tools {

/// A layer: width x height bytes, row-major from the top row; 255 is cured.
struct GreyImage {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
    std::size_t padding = 0;  ///< bytes in front of every row; 0 but for images of functions that say they leave some

    /// Bytes from one row to the next.
    std::size_t stride() const { return static_cast<std::size_t>(width) + padding; }
    const unsigned char* row(int y) const { return pixels.data() + static_cast<std::size_t>(y) * stride() + padding; }
};

/// Moves the rows of an image together.
void removePadding(GreyImage& image);

/// A picture: width x height pixels of red, green, blue, alpha, one byte each; row-major from the top row, no padding.
struct ColourImage {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
};

constexpr int kMaxImageSide = 65535;                  ///< larger images are refused
constexpr std::int64_t kMaxGreyPixels = 1LL << 30;    ///< larger layers are refused
constexpr std::int64_t kMaxColourPixels = 1LL << 26;  ///< larger pictures are refused
constexpr std::size_t kPngHeadBytes = 33;             ///< signature and header chunk: what `readPngHeader` needs
/// Colour type of a PNG, as stored.
enum class PngColour : std::uint8_t { kGrey = 0, kRgb = 2, kPalette = 3, kGreyAlpha = 4, kRgba = 6 };

/// What a PNG's header says.
struct PngHeader {
    int width = 0;     ///< 1 to kMaxImageSide
    int height = 0;    ///< 1 to kMaxImageSide
    int bitDepth = 0;  ///< bits a sample, one of those the colour type allows
    PngColour colour = PngColour::kGrey;
    bool interlaced = false;
};

/// Reads a PNG's header from its first kPngHeadBytes bytes; more may follow or not.
/// Throws Failure when this is no PNG, the header is damaged or the size is beyond the limits.
PngHeader readPngHeader(std::span<const unsigned char> bytes, const std::string& name);

/// Throws Failure, saying what the image is, unless it is grey of at most 8 bits.
void requireGreyLayer(const PngHeader& header, const std::string& name);

/// Decodes a grey PNG of 8 bits or fewer (fewer are spread over 0 to 255); gamma and transparency are not applied.
/// Every check that a PNG carries is made: chunk CRCs, the sum of the compressed data, the exact number of pixels.
/// \param out receives the image; its buffer is used again, so that decoding into the same object allocates nothing.
/// Throws Failure for any other PNG and for a damaged one; `out` is an empty image then.
void decodeGreyLayer(std::span<const unsigned char> bytes, const std::string& name, GreyImage& out);
/// The same, but leaves in front of the rows what the file has there: a pass over the pixels less.
void decodePaddedLayer(std::span<const unsigned char> bytes, const std::string& name, GreyImage& out);

/// Decodes any PNG to 8 bits a channel; alpha is 255 where the PNG has none. Throws Failure.
ColourImage decodeColour(std::span<const unsigned char> bytes, const std::string& name);

/// Encodes as 8-bit grey PNG. The image must not be empty.
std::vector<unsigned char> encodePng(const GreyImage& image);

/// Encodes as 8-bit RGB PNG, alpha left out. The image must not be empty.
std::vector<unsigned char> encodePng(const ColourImage& image);

}  // namespace vndlp::tools
