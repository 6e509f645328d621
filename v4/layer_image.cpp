#include <vndlp/v4.h>

#include "ctb/encoded_data.h"
#include "v4/layer_runs.h"

namespace VNDLPV4 {

namespace {

constexpr unsigned int kWidestPlainRow = 15360;
constexpr unsigned long long kMostPlainPixels = 1ull << 26;

std::vector<unsigned char> encode(const unsigned char* pixels, std::size_t size) {
    std::vector<unsigned char> code;
    CTB::RunEncoder encoder(code, CTB::EndlessRun::split);
    encoder.add(pixels, size);
    encoder.finish();
    return code;
}

}  // namespace

bool LayerDef::is16k(unsigned int width, unsigned int height) {
    return width > kWidestPlainRow || static_cast<unsigned long long>(width) * height > kMostPlainPixels;
}

std::vector<unsigned char> LayerDef::encodeImage(const unsigned char* pixels, std::size_t size, unsigned int key,
                                                 unsigned int layerIndex) {
    std::vector<unsigned char> code = encode(pixels, size);
    CTB::scramble(key, layerIndex, code.data(), code.size());
    return code;
}

std::vector<unsigned char> LayerDef::encodeImage_16k(unsigned int width, unsigned int height, const RowSource& rows,
                                                     unsigned int key, unsigned int layerIndex) {
    std::vector<unsigned char> code;
    CTB::RunEncoder encoder(code, CTB::EndlessRun::split);
    for (unsigned int row = 0; row < height; ++row) {
        const unsigned char* pixels = rows(row);
        if (pixels == nullptr) break;
        encoder.add(pixels, width);
    }
    encoder.finish();
    CTB::scramble(key, layerIndex, code.data(), code.size());
    return code;
}

std::vector<unsigned char> LayerDef::encodeImageSubZone(const unsigned char* pixels, unsigned int width,
                                                        unsigned int height, unsigned int key, unsigned int layerIndex,
                                                        LampBeadCal& beads, std::vector<unsigned char>& mask) {
    // the code is a list of the image's runs, and much shorter than the image
    std::vector<unsigned char> code = encode(pixels, static_cast<std::size_t>(width) * height);
    mask = beadMaskOfCode(code, width, beads);
    CTB::scramble(key, layerIndex, code.data(), code.size());
    return code;
}

long long LayerDef::codedPixels(const std::vector<unsigned char>& code) {
    CTB::RunCounter counter;
    counter.take(code.data(), code.size());
    return counter.isCutOff() ? -1 : counter.totals().pixels;
}

std::vector<unsigned char> LayerDef::beadMaskOfCode(const std::vector<unsigned char>& code, unsigned int width,
                                                    LampBeadCal& beads) {
    std::vector<unsigned char> mask;
    RunMasker masker(beads, width, mask);
    CTB::RunReader runs(code.data(), code.size());
    for (CTB::Run run{}; runs.take(run);) masker.take(run);
    masker.finish();
    return mask;
}

}  // namespace VNDLPV4
