#include <vndlp/ctb.h>

#include "ctb/encoded_data.h"
#include "ctb/image_limits.h"
#include "ctb/layer_codec.h"
#include "ctb/scramble.h"
#include "io/record_io.h"
#include "io/report.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace CTB {

namespace {

/// Hands a layer's encoded data to `take`, see `readPieces`.
/// \return false, with an error line, when the file does not hold all of them; what is there is taken.
template <class Take>
bool readEncoded(FileRead* file, const LayerDef& layer, unsigned int layerIndex, unsigned int key, Take&& take) {
    if (layer.dataSize == 0) return true;
    const std::string what = "the image of layer " + std::to_string(layerIndex);
    if (file == nullptr) {
        vndlp::report("error: %s cannot be read, no file is open\n", what.c_str());
        return false;
    }
    const bool isThere = file->seek(layer.dataOffset, 0) >= 0;
    const std::size_t held = isThere ? readPieces(*file, layer.dataSize, key, layerIndex, take) : 0;
    if (held < layer.dataSize) vndlp::reportShort(file->fileName(), what, layer.dataSize, held);
    return held == layer.dataSize;
}

/// Reads and decodes a layer into pixels that are all 0. \return as `readEncoded`.
bool decodeFrom(FileRead* file, const LayerDef& layer, unsigned int layerIndex, unsigned int key, unsigned char* pixels,
                std::size_t size) {
    PixelDecoder decoder(pixels, size);
    return readEncoded(file, layer, layerIndex, key, [&decoder](const unsigned char* encoded, std::size_t bytes) {
        return decoder.take(encoded, bytes);
    });
}

}  // namespace

std::vector<unsigned char> LayerDef::encodeCtbImage(unsigned char* pixels, unsigned int size, unsigned int key,
                                                    unsigned int layerIndex) {
    std::vector<unsigned char> encoded;
    RunEncoder encoder(encoded, EndlessRun::asItIs);
    encoder.add(pixels, size);
    encoder.finish();
    scramble(key, layerIndex, encoded.data(), encoded.size());
    return encoded;
}

std::vector<unsigned char> LayerDef::encodeCtbImage(const unsigned char* pixels, unsigned int width,
                                                    unsigned int height, std::ptrdiff_t stride, unsigned int key,
                                                    unsigned int layerIndex) {
    std::vector<unsigned char> encoded;
    RunEncoder encoder(encoded, EndlessRun::asItIs);
    for (std::ptrdiff_t row = 0; row < static_cast<std::ptrdiff_t>(height); ++row) {
        encoder.add(pixels + row * stride, width);
    }
    encoder.finish();
    scramble(key, layerIndex, encoded.data(), encoded.size());
    return encoded;
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
    RunCounter counter;
    const bool complete =
        readEncoded(openFileRead(), *this, layerIndex, key,
                    [&counter](const unsigned char* piece, std::size_t size) { return counter.take(piece, size); });
    return complete && !counter.isCutOff() ? counter.totals().pixels : -1;
}

void LayerDef::addRep(unsigned int& count, unsigned char& value, std::vector<unsigned char>& out) {
    if (count == 0) return;
    unsigned char encoded[kMaxRunBytes];
    out.insert(out.end(), encoded, putRun(value, count, encoded));
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
