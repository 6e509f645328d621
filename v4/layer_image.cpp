#include "vndlp/v4.h"

#include "ctb/scramble.h"
#include "v4/layer_runs.h"

namespace VNDLPV4 {

namespace {

constexpr unsigned int kWidestPlainRow = 15360;
constexpr unsigned long long kMostPlainPixels = 1ull << 26;

/// Makes a code what is stored: scrambled, and in memory of its own size, as codes are kept until a whole file of them
/// is written.
void seal(std::vector<unsigned char>& code, unsigned int key, unsigned int layerIndex) {
    code.shrink_to_fit();
    CTB::scramble(key, layerIndex, code.data(), code.size());
}

}  // namespace

bool LayerDef::is16k(unsigned int width, unsigned int height) {
    return width > kWidestPlainRow || static_cast<unsigned long long>(width) * height > kMostPlainPixels;
}

std::vector<unsigned char> LayerDef::encodeImage(const unsigned char* pixels, std::size_t size, unsigned int key,
                                                 unsigned int layerIndex) {
    std::vector<unsigned char> code;
    RunCoder coder(code);
    RunSplitter splitter([&](const CTB::Run& run) { coder.take(run); });
    splitter.add(pixels, size);
    splitter.finish();
    coder.finish();
    seal(code, key, layerIndex);
    return code;
}

std::vector<unsigned char> LayerDef::encodeImage_16k(unsigned int width, unsigned int height, const RowSource& rows,
                                                     unsigned int key, unsigned int layerIndex) {
    std::vector<unsigned char> code;
    RunCoder coder(code);
    RunSplitter splitter([&](const CTB::Run& run) { coder.take(run); });
    for (unsigned int row = 0; row < height; ++row) {
        const unsigned char* pixels = rows(row);
        if (pixels == nullptr) break;
        splitter.add(pixels, width);
    }
    splitter.finish();
    coder.finish();
    seal(code, key, layerIndex);
    return code;
}

std::vector<unsigned char> LayerDef::encodeImageSubZone(const unsigned char* pixels, unsigned int width,
                                                        unsigned int height, unsigned int key, unsigned int layerIndex,
                                                        LampBeadCal& beads, std::vector<unsigned char>& mask) {
    std::vector<unsigned char> code;
    RunCoder coder(code);
    RunMasker masker(beads, width, mask);
    RunSplitter splitter([&](const CTB::Run& run) {
        coder.take(run);
        masker.take(run);
    });
    splitter.add(pixels, static_cast<std::size_t>(width) * height);
    splitter.finish();
    coder.finish();
    masker.finish();
    seal(code, key, layerIndex);
    return code;
}

long long LayerDef::codedPixels(const std::vector<unsigned char>& code) {
    return CTB::codedPixels(code.data(), code.size());
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
