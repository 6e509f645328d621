// Pixels to runs: the run builder beside a copy of the image and the walk down the columns.

#include "bench/layers.h"

#include <vndlp/image.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

using namespace vndlp;
using bench::Layer;

namespace {

/// Runs column by column as the format defines them, packed.
void columnWalk(const Layer& layer, std::vector<unsigned char>& packed) {
    const auto emit = [&packed](int x, int first, int last, int grey) {
        WhiteData run;
        run.start = Vec2(static_cast<float>(x), static_cast<float>(first));
        run.end = Vec2(static_cast<float>(x), static_cast<float>(last));
        run.grey = grey;
        packed.resize(packed.size() + kPackedRunBytes);
        whiteData2Bits(run, packed.data() + packed.size() - kPackedRunBytes);
    };
    const auto stride = static_cast<std::size_t>(layer.width);
    for (int x = 0; x < layer.width; ++x) {
        int first = -1;
        int last = -1;
        int grey = 0;
        for (int y = 0; y < layer.height; ++y) {
            const int pixel = layer.pixels[static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x)];
            if (pixel <= 15) continue;
            if (first >= 0 && (pixel != grey || y - last > 1)) emit(x, first, last, grey);
            if (first < 0 || pixel != grey || y - last > 1) first = y;
            last = y;
            grey = pixel;
        }
        if (first >= 0) emit(x, first, last, grey);
    }
}

void report(benchmark::State& state, const Layer& layer, std::size_t encoded) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(layer.pixels.size()));
    state.counters["encoded"] = static_cast<double>(encoded);
}

void copyImage(benchmark::State& state, const Layer& layer) {
    std::vector<unsigned char> copy(layer.pixels.size());
    for ([[maybe_unused]] auto step : state) {
        std::memcpy(copy.data(), layer.pixels.data(), copy.size());
        benchmark::ClobberMemory();
    }
    report(state, layer, copy.size());
}

template <class Builder>
void buildRuns(benchmark::State& state, const Layer& layer, Builder builder) {
    std::vector<unsigned char> expected;
    std::vector<unsigned char> packed;
    columnWalk(layer, expected);
    builder(layer, packed);
    if (packed != expected) state.SkipWithError("the runs differ from the column walk's");
    for ([[maybe_unused]] auto step : state) {
        packed.clear();
        builder(layer, packed);
        benchmark::DoNotOptimize(packed.data());
    }
    report(state, layer, packed.size());
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::pair<const char*, Layer> layers[] = {
        {"empty", bench::emptyLayer(11520, 5120)},
        {"sparse", bench::sparseLayer(11520, 5120)},
        {"solid", bench::solidLayer(11520, 5120)},
        {"noise", bench::noiseLayer(11520, 5120)},
    };
    for (const auto& [name, layer] : layers) {
        const std::string suffix = std::string("/") + name;
        const auto add = [&](const char* what, auto run) {
            benchmark::RegisterBenchmark((what + suffix).c_str(), run)->Unit(benchmark::kMillisecond);
        };
        add("memcpy", [&layer = layer](benchmark::State& s) { copyImage(s, layer); });
        add("column walk", [&layer = layer](benchmark::State& s) { buildRuns(s, layer, columnWalk); });
        add("packed runs", [&layer = layer](benchmark::State& s) {
            buildRuns(s, layer, [](const Layer& l, std::vector<unsigned char>& out) {
                grayDataPackedRuns(l.pixels.data(), l.width, l.height, out);
            });
        });
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
