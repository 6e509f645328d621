#include <vndlp/v4.h>

#include "ctb/encoded_data.h"
#include "v4/layer_runs.h"

namespace VNDLPV4 {

namespace {

constexpr unsigned int kMaxPlainWidth = 15360;
constexpr unsigned long long kMaxPlainPixels = 1ull << 26;

std::vector<unsigned char> encode(const unsigned char* pixels, std::size_t size) {
    std::vector<unsigned char> encoded;
    CTB::RunEncoder encoder(encoded, CTB::EndlessRun::split);
    encoder.add(pixels, size);
    encoder.finish();
    return encoded;
}

}  // namespace

bool LayerDef::is16k(unsigned int width, unsigned int height) {
    return width > kMaxPlainWidth || static_cast<unsigned long long>(width) * height > kMaxPlainPixels;
}

std::vector<unsigned char> LayerDef::encodeImage(const unsigned char* pixels, std::size_t size, unsigned int key,
                                                 unsigned int layerIndex) {
    std::vector<unsigned char> encoded = encode(pixels, size);
    CTB::scramble(key, layerIndex, encoded.data(), encoded.size());
    return encoded;
}

std::vector<unsigned char> LayerDef::encodeImage_16k(unsigned int width, unsigned int height, const RowSource& rows,
                                                     unsigned int key, unsigned int layerIndex) {
    std::vector<unsigned char> encoded;
    CTB::RunEncoder encoder(encoded, CTB::EndlessRun::split);
    for (unsigned int row = 0; row < height; ++row) {
        const unsigned char* pixels = rows(row);
        if (pixels == nullptr) break;
        encoder.add(pixels, width);
    }
    encoder.finish();
    CTB::scramble(key, layerIndex, encoded.data(), encoded.size());
    return encoded;
}

std::vector<unsigned char> LayerDef::encodeImageSubZone(const unsigned char* pixels, unsigned int width,
                                                        unsigned int height, unsigned int key, unsigned int layerIndex,
                                                        LampBeadCal& beads, std::vector<unsigned char>& mask) {
    // the encoded data list the image's runs, and are much shorter than the image
    std::vector<unsigned char> encoded = encode(pixels, static_cast<std::size_t>(width) * height);
    mask = beadMaskOfCode(encoded, width, beads);
    CTB::scramble(key, layerIndex, encoded.data(), encoded.size());
    return encoded;
}

long long LayerDef::codedPixels(const std::vector<unsigned char>& encoded) {
    CTB::RunCounter counter;
    counter.take(encoded.data(), encoded.size());
    return counter.isCutOff() ? -1 : counter.totals().pixels;
}

std::vector<unsigned char> LayerDef::beadMaskOfCode(const std::vector<unsigned char>& encoded, unsigned int width,
                                                    LampBeadCal& beads) {
    std::vector<unsigned char> mask;
    RunMasker masker(beads, width, mask);
    CTB::RunReader runs(encoded.data(), encoded.size());
    for (CTB::Run run{}; runs.take(run);) masker.take(run);
    masker.finish();
    return mask;
}

}  // namespace VNDLPV4
