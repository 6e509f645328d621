#include "vndlp/ctb.h"

#include "ctb/image_limits.h"
#include "ctb/layer_codec.h"
#include "ctb/record_io.h"
#include "ctb/scramble.h"
#include "io/report.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace CTB {

namespace {

/// Reads a layer's code and unscrambles it. \return false, with an error line, when the file does not hold the whole
/// code; what is there is returned.
bool readCode(FileRead* file, const LayerDef& layer, unsigned int layerIndex, unsigned int key,
              std::vector<unsigned char>& code) {
    if (layer.dataSize == 0) return true;
    const std::string what = "the image of layer " + std::to_string(layerIndex);
    if (file == nullptr) {
        vndlp::report("error: %s cannot be read, no file is open\n", what.c_str());
        return false;
    }
    if (file->seek(layer.dataOffset, 0) >= 0) code = readDeclared(*file, layer.dataSize);
    if (code.size() < layer.dataSize) reportShort(file->fileName(), what, layer.dataSize, code.size());
    scramble(key, layerIndex, code.data(), code.size());
    return code.size() == layer.dataSize;
}

/// Reads and decodes a layer's code into pixels that are all 0. \return as `readCode`.
bool decodeFrom(FileRead* file, const LayerDef& layer, unsigned int layerIndex, unsigned int key, unsigned char* pixels,
                std::size_t size) {
    std::vector<unsigned char> code;
    const bool whole = readCode(file, layer, layerIndex, key, code);
    decodeRuns(code.data(), code.size(), pixels, size);
    return whole;
}

}  // namespace

std::vector<unsigned char> LayerDef::encodeCtbImage(unsigned char* pixels, unsigned int size, unsigned int key,
                                                    unsigned int layerIndex) {
    std::vector<unsigned char> code;
    RunEncoder encoder(code, EndlessRun::asItIs);
    encoder.add(pixels, size);
    encoder.finish();
    scramble(key, layerIndex, code.data(), code.size());
    return code;
}

std::vector<unsigned char> LayerDef::encodeCtbImage(const unsigned char* pixels, unsigned int width,
                                                    unsigned int height, std::ptrdiff_t stride, unsigned int key,
                                                    unsigned int layerIndex) {
    std::vector<unsigned char> code;
    RunEncoder encoder(code, EndlessRun::asItIs);
    for (std::ptrdiff_t row = 0; row < static_cast<std::ptrdiff_t>(height); ++row) {
        encoder.add(pixels + row * stride, width);
    }
    encoder.finish();
    scramble(key, layerIndex, code.data(), code.size());
    return code;
}

std::vector<unsigned char> LayerDef::decodeCtbImage(unsigned int width, unsigned int height, unsigned int layerIndex,
                                                    unsigned int key) {
    std::size_t count = 0;
    if (!countPixels("a layer", width, height, kMostLayerPixels, count)) return {};
    std::vector<unsigned char> pixels;
    makeBlack(pixels, count);
    decodeFrom(openFileRead(), *this, layerIndex, key, pixels.data(), count);
    return pixels;
}

int LayerDef::decodeCtbImageInto(unsigned char* pixels, std::size_t size, unsigned int layerIndex, unsigned int key) {
    if (size > 0) std::memset(pixels, 0, size);
    return decodeFrom(openFileRead(), *this, layerIndex, key, pixels, size) ? 0 : -1;
}

long long LayerDef::codedPixelCount(unsigned int layerIndex, unsigned int key) {
    std::vector<unsigned char> code;
    return readCode(openFileRead(), *this, layerIndex, key, code) ? codedPixels(code.data(), code.size()) : -1;
}

void LayerDef::addRep(unsigned int& count, unsigned char& value, std::vector<unsigned char>& out) {
    if (count == 0) return;
    unsigned char code[kLongestRunCode];
    out.insert(out.end(), code, putRun(value, count, code));
    if (count > 1) value |= 0x80;
}

void LayerDef::FillSpan(std::vector<unsigned char>& out, int& position, int count, unsigned char value,
                        unsigned char threshold) {
    if (count <= 0) return;
    const auto size = static_cast<long long>(out.size());
    const long long begin = std::clamp<long long>(position, 0, size);
    const long long end = std::clamp<long long>(static_cast<long long>(position) + count, begin, size);
    if (value >= threshold) std::fill(out.begin() + begin, out.begin() + end, value);
    position = static_cast<int>(std::min<long long>(static_cast<long long>(position) + count, INT_MAX));
}

}  // namespace CTB
