// Runs of lit pixels: what is packed comes back, any bytes can be unpacked and painted, and painting undoes the finding
// of runs but for greys below 16, which are background.

#include "fuzz/harness.h"

#include <vndlp/image.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

constexpr int kFaintest = 16;

void painted(const Bytes& pixels, int width, int height) {
    std::vector<WhiteData> runs;
    require(grayDataVecWhiteData(const_cast<unsigned char*>(pixels.data()), width, height, runs) == 0);
    Bytes packed;
    grayDataPackedRuns(pixels.data(), width, height, packed);
    require(packed.size() == runs.size() * kPackedRunBytes);
    for (std::size_t i = 0; i < runs.size(); ++i) {
        unsigned char own[kPackedRunBytes];
        whiteData2Bits(runs[i], own);
        require(std::equal(own, own + kPackedRunBytes, packed.data() + i * kPackedRunBytes));
        bits2WhiteData(own, runs[i]);
    }
    Bytes back(pixels.size());
    paintWhiteData(runs, back.data(), width, height);
    for (std::size_t i = 0; i < back.size(); ++i) require(back[i] == (pixels[i] < kFaintest ? 0 : pixels[i]));
}

void unpacked(const Bytes& packed, int width, int height) {
    std::vector<WhiteData> runs(packed.size() / kPackedRunBytes);
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const unsigned char* const at = packed.data() + i * kPackedRunBytes;
        bits2WhiteData(at, runs[i]);
        unsigned char again[kPackedRunBytes];
        whiteData2Bits(runs[i], again);
        require(std::equal(again, again + kPackedRunBytes, at));
    }
    Bytes image(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    paintWhiteData(runs, image.data(), width, height);
}

}  // namespace

void run(const Bytes& input) {
    if (input.size() > 8191) return;  // rows are numbered with 13 bits
    const int width = 1 + input.back() % 64;
    const int height = static_cast<int>(input.size()) / width;
    Bytes pixels(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(width) * height);
    painted(pixels, width, height);
    unpacked(input, width, height);
}

}  // namespace vndlp::fuzz
