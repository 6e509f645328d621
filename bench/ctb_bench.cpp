// The CTB layer code: the encoder beside a loop of one comparison per pixel, the decoder beside clearing an image, and
// the scrambling.

#include "bench/layers.h"

#include <vndlp/ctb.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

using vndlp::bench::Layer;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned int kKey = 300;

Bytes encode(const Layer& layer) {
    return CTB::LayerDef::encodeCtbImage(const_cast<unsigned char*>(layer.pixels.data()),
                                         static_cast<unsigned int>(layer.pixels.size()), 0, 0);
}

Bytes plainEncode(const Layer& layer) {
    Bytes code;
    unsigned char grey = 127;
    unsigned int count = 0;
    for (const unsigned char pixel : layer.pixels) {
        if (pixel >> 1 == grey) {
            ++count;
            continue;
        }
        CTB::LayerDef::addRep(count, grey, code);
        grey = static_cast<unsigned char>(pixel >> 1);
        count = 1;
    }
    CTB::LayerDef::addRep(count, grey, code);
    return code;
}

void report(benchmark::State& state, std::size_t bytes, std::size_t encoded) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
    state.counters["encoded"] = static_cast<double>(encoded);
}

template <class Encoder>
void runEncoder(benchmark::State& state, const Layer& layer, Encoder encoder) {
    const Bytes expected = plainEncode(layer);
    if (encoder(layer) != expected) state.SkipWithError("the code differs from the plain loop's");
    for ([[maybe_unused]] auto step : state) benchmark::DoNotOptimize(encoder(layer).data());
    report(state, layer.pixels.size(), expected.size());
}

void runClear(benchmark::State& state, const Layer& layer) {
    Bytes pixels(layer.pixels.size());
    for ([[maybe_unused]] auto step : state) {
        std::memset(pixels.data(), 0, pixels.size());
        benchmark::ClobberMemory();
    }
    report(state, layer.pixels.size(), 0);
}

/// Reading the code is part of it, from a file that the system holds in memory.
void runDecoder(benchmark::State& state, const Layer& layer) {
    const Bytes code = encode(layer);
    const std::string path = "ctb_bench.tmp";
    vndlp::FileWrite out(path, 0);
    out.writeBytes(code.data(), code.size());
    out.close();
    {
        const vndlp::FileRead in(path, 0);
        CTB::LayerDef record(in);
        record.dataSize = static_cast<unsigned int>(code.size());
        Bytes pixels(layer.pixels.size());
        record.decodeCtbImageInto(pixels.data(), pixels.size(), 0, 0);
        Layer again{layer.width, layer.height, pixels};
        if (encode(again) != code) state.SkipWithError("the image does not come back");
        for ([[maybe_unused]] auto step : state) {
            record.decodeCtbImageInto(pixels.data(), pixels.size(), 0, 0);
            benchmark::ClobberMemory();
        }
    }
    std::remove(path.c_str());
    report(state, layer.pixels.size(), code.size());
}

void runScrambling(benchmark::State& state) {
    Bytes code(1u << 20, 1);
    for ([[maybe_unused]] auto step : state) {
        CTB::CTBWrite::LayerRleCryptBuffer(kKey, 7, code);
        benchmark::ClobberMemory();
    }
    report(state, code.size(), code.size());
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::pair<const char*, Layer> layers[] = {
        {"empty", vndlp::bench::emptyLayer(15120, 6230)},
        {"sparse", vndlp::bench::sparseLayer(15120, 6230)},
        {"solid", vndlp::bench::solidLayer(15120, 6230)},
        {"noise", vndlp::bench::noiseLayer(15120, 6230)},
    };
    for (const auto& [name, layer] : layers) {
        const std::string suffix = std::string("/") + name;
        const auto add = [&](const char* what, auto run) {
            benchmark::RegisterBenchmark((what + suffix).c_str(), run)->Unit(benchmark::kMillisecond);
        };
        add("clear", [&layer = layer](benchmark::State& s) { runClear(s, layer); });
        add("plain encode", [&layer = layer](benchmark::State& s) { runEncoder(s, layer, plainEncode); });
        add("encode", [&layer = layer](benchmark::State& s) { runEncoder(s, layer, encode); });
        add("decode", [&layer = layer](benchmark::State& s) { runDecoder(s, layer); });
    }
    benchmark::RegisterBenchmark("scramble", runScrambling);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
