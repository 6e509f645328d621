// The bead field of the printers: runs to masks, resets, and the sub-zone encoder beside the plain one.

#include <vndlp/v4.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

namespace {

using VNDLPV4::LampBeadCal;
using VNDLPV4::LayerDef;

constexpr unsigned int kWidth = 15120;
constexpr unsigned int kHeight = 6230;

struct PixelRun {
    unsigned int start;
    unsigned int end;
};
using Runs = std::vector<PixelRun>;

LampBeadCal& field() {
    static LampBeadCal built = [] {
        LampBeadCal quiet;
        quiet.m_printBuild = false;
        VNDLPV4::initPrinterBeadField(quiet);
        return quiet;
    }();
    return built;
}

/// `perRow` runs in every row, at random places.
Runs randomRuns(unsigned int perRow) {
    std::mt19937 random(1);
    Runs runs;
    for (unsigned int row = 0; row < kHeight; ++row) {
        std::vector<unsigned int> ends(std::size_t{2} * perRow);
        for (unsigned int& end : ends) end = row * kWidth + static_cast<unsigned int>(random() % kWidth);
        std::sort(ends.begin(), ends.end());
        for (std::size_t i = 0; i < ends.size(); i += 2) {
            if (ends[i] < ends[i + 1]) runs.push_back({ends[i], ends[i + 1]});
        }
    }
    return runs;
}

Runs wholeRows() {
    Runs runs;
    for (unsigned int row = 0; row < kHeight; ++row) runs.push_back({row * kWidth, (row + 1) * kWidth});
    return runs;
}

void maskRuns(benchmark::State& state, const Runs& runs) {
    LampBeadCal beads = field();
    for ([[maybe_unused]] auto step : state) {
        std::vector<unsigned char> mask(beads.m_maskBytes);
        beads.reset();
        for (const PixelRun& run : runs) beads.getsubzonedata(run.start, run.end, mask);
        benchmark::DoNotOptimize(mask.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(runs.size()));
}

void resetField(benchmark::State& state) {
    LampBeadCal beads = field();
    for ([[maybe_unused]] auto step : state) beads.reset();
}

void copyField(benchmark::State& state) {
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(LampBeadCal(field()).m_beadCount);
}

std::vector<unsigned char> imageOf(const Runs& runs) {
    std::vector<unsigned char> pixels(std::size_t{kWidth} * kHeight);
    for (const PixelRun& run : runs) std::fill(pixels.begin() + run.start, pixels.begin() + run.end, 255);
    return pixels;
}

void encode(benchmark::State& state, bool withMask) {
    const std::vector<unsigned char> pixels = imageOf(randomRuns(16));
    LampBeadCal beads = field();
    std::vector<unsigned char> mask;
    for ([[maybe_unused]] auto step : state) {
        const auto code = withMask ? LayerDef::encodeImageSubZone(pixels.data(), kWidth, kHeight, 0, 0, beads, mask)
                                   : LayerDef::encodeImage(pixels.data(), pixels.size(), 0, 0);
        benchmark::DoNotOptimize(code.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(pixels.size()));
}

}  // namespace

BENCHMARK_CAPTURE(maskRuns, sixteen_a_row, randomRuns(16))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(maskRuns, two_a_row, randomRuns(2))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(maskRuns, whole_rows, wholeRows())->Unit(benchmark::kMillisecond);
BENCHMARK(resetField);
BENCHMARK(copyField)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, plain, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(encode, sub_zone, true)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
