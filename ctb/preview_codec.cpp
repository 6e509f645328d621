#include "ctb/preview_codec.h"

#include <vndlp/ctb.h>

#include "ctb/image_limits.h"

#include <algorithm>

namespace CTB {

namespace {

constexpr unsigned int kLengthMark = 0x30;  // in the second length byte; readers ignore it
constexpr std::size_t kColourBytes = 2;
constexpr std::size_t kRepeatedBytes = 4;

unsigned int packColour(unsigned int p0, unsigned int p1, unsigned int p2) {
    return (p2 & 0xF8) << 8 | (p1 & 0xFC) << 3 | p0 >> 3;
}

void unpackColour(unsigned int colour, unsigned char* pixel) {
    pixel[0] = static_cast<unsigned char>((colour & 0x1F) << 3);
    pixel[1] = static_cast<unsigned char>((colour >> 6 & 0x1F) << 3);
    pixel[2] = static_cast<unsigned char>((colour >> 11 & 0x1F) << 3);
}

void appendBytes(unsigned int low, unsigned int high, std::vector<unsigned char>& encoded) {
    encoded.push_back(static_cast<unsigned char>(low));
    encoded.push_back(static_cast<unsigned char>(high));
}

}  // namespace

void appendPreviewRun(unsigned int count, unsigned int colour, std::vector<unsigned char>& encoded) {
    if (count == 0) return;
    const unsigned int plain = colour & ~kPreviewRepeatFlag;
    if (count <= 2) {
        for (unsigned int i = 0; i < count; ++i) appendBytes(plain, plain >> 8, encoded);
        return;
    }
    appendBytes(plain | kPreviewRepeatFlag, plain >> 8, encoded);
    appendBytes(count - 1, (count - 1) >> 8 | kLengthMark, encoded);
}

std::vector<unsigned char> encodePreview(const unsigned char* pixels, std::size_t size) {
    std::vector<unsigned char> encoded;
    unsigned int colour = 0;
    unsigned int count = 0;
    for (std::size_t i = 0; i < size; i += kPreviewPixelBytes) {
        const unsigned int p1 = i + 1 < size ? pixels[i + 1] : 0;
        const unsigned int p2 = i + 2 < size ? pixels[i + 2] : 0;
        const unsigned int next = packColour(pixels[i], p1, p2);
        if (next != colour || count == kMaxPreviewRun) {
            appendPreviewRun(count, colour, encoded);
            colour = next;
            count = 0;
        }
        ++count;
    }
    appendPreviewRun(count, colour, encoded);
    return encoded;
}

void decodePreview(const unsigned char* encoded, std::size_t encodedSize, unsigned char* pixels,
                   std::size_t pixelCount) {
    std::size_t done = 0;
    for (std::size_t i = 0; encodedSize - i >= kColourBytes && done < pixelCount;) {
        const unsigned int colour = encoded[i] | static_cast<unsigned int>(encoded[i + 1]) << 8;
        std::size_t run = 1;
        if ((colour & kPreviewRepeatFlag) != 0) {
            if (encodedSize - i < kRepeatedBytes) return;
            run = (encoded[i + 2] | (encoded[i + 3] & 0x0Fu) << 8) + 1;
            i += kRepeatedBytes;
        } else {
            i += kColourBytes;
        }
        const std::size_t end = done + std::min(run, pixelCount - done);
        for (; done < end; ++done) unpackColour(colour, pixels + done * kPreviewPixelBytes);
    }
}

std::vector<unsigned char> PreView::Encode(unsigned char* pixels, unsigned int size) {
    return encodePreview(pixels, size);
}

std::vector<unsigned char> PreView::Encode() {
    std::vector<unsigned char> encoded =
        encodePreview(imageData.data(), std::min<std::size_t>(imageSize, imageData.size()));
    imageSize = static_cast<unsigned int>(encoded.size());
    return encoded;
}

std::vector<unsigned char> PreView::encodeImg(unsigned char* pixels, unsigned int size) { return Encode(pixels, size); }

void PreView::RleRGB15(std::vector<unsigned char>& out, unsigned int& count, unsigned short& colour) {
    appendPreviewRun(count, colour, out);
}

std::vector<unsigned char> PreView::decodeImg(unsigned char* encoded, unsigned int size) {
    std::size_t count = 0;
    if (!countPixels("a preview", resolutionX, resolutionY, kMostPreviewPixels, count)) return {};
    std::vector<unsigned char> pixels(count * kPreviewPixelBytes);
    decodePreview(encoded, size, pixels.data(), count);
    return pixels;
}

}  // namespace CTB
