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

void appendBytes(unsigned int low, unsigned int high, std::vector<unsigned char>& code) {
    code.push_back(static_cast<unsigned char>(low));
    code.push_back(static_cast<unsigned char>(high));
}

}  // namespace

void appendPreviewRun(unsigned int count, unsigned int colour, std::vector<unsigned char>& code) {
    if (count == 0) return;
    const unsigned int plain = colour & ~kPreviewRepeatFlag;
    if (count <= 2) {
        for (unsigned int i = 0; i < count; ++i) appendBytes(plain, plain >> 8, code);
        return;
    }
    appendBytes(plain | kPreviewRepeatFlag, plain >> 8, code);
    appendBytes(count - 1, (count - 1) >> 8 | kLengthMark, code);
}

std::vector<unsigned char> encodePreview(const unsigned char* pixels, std::size_t size) {
    std::vector<unsigned char> code;
    unsigned int colour = 0;
    unsigned int count = 0;
    for (std::size_t i = 0; i < size; i += kPreviewPixelBytes) {
        const unsigned int p1 = i + 1 < size ? pixels[i + 1] : 0;
        const unsigned int p2 = i + 2 < size ? pixels[i + 2] : 0;
        const unsigned int next = packColour(pixels[i], p1, p2);
        if (next != colour || count == kLongestPreviewRun) {
            appendPreviewRun(count, colour, code);
            colour = next;
            count = 0;
        }
        ++count;
    }
    appendPreviewRun(count, colour, code);
    return code;
}

void decodePreview(const unsigned char* code, std::size_t codeSize, unsigned char* pixels, std::size_t pixelCount) {
    std::size_t done = 0;
    for (std::size_t i = 0; codeSize - i >= kColourBytes && done < pixelCount;) {
        const unsigned int colour = code[i] | static_cast<unsigned int>(code[i + 1]) << 8;
        std::size_t run = 1;
        if ((colour & kPreviewRepeatFlag) != 0) {
            if (codeSize - i < kRepeatedBytes) return;
            run = (code[i + 2] | (code[i + 3] & 0x0Fu) << 8) + 1;
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
    std::vector<unsigned char> code =
        encodePreview(imageData.data(), std::min<std::size_t>(imageSize, imageData.size()));
    imageSize = static_cast<unsigned int>(code.size());
    return code;
}

std::vector<unsigned char> PreView::encodeImg(unsigned char* pixels, unsigned int size) { return Encode(pixels, size); }

void PreView::RleRGB15(std::vector<unsigned char>& out, unsigned int& count, unsigned short& colour) {
    appendPreviewRun(count, colour, out);
}

std::vector<unsigned char> PreView::decodeImg(unsigned char* code, unsigned int size) {
    std::size_t count = 0;
    if (!countPixels("a preview", resolutionX, resolutionY, kMostPreviewPixels, count)) return {};
    std::vector<unsigned char> pixels(count * kPreviewPixelBytes);
    decodePreview(code, size, pixels.data(), count);
    return pixels;
}

}  // namespace CTB
