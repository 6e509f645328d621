/// What the benchmarks share: names, results checked before they are timed, bytes per second.

#pragma once

#include "bench/layers.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>

namespace vndlp::bench {

/// Copies of a layer that together do not fit a processor's caches, taken in turn: a layer comes from memory, whatever
/// its size, as it does in a job.
class Rotation {
public:
    explicit Rotation(const Layer& layer) : m_copies(1 + kBeyondCaches / layer.pixels.size(), layer) {}
    const Layer& next() {
        m_at = (m_at + 1) % m_copies.size();
        return m_copies[m_at];
    }

private:
    static constexpr std::size_t kBeyondCaches = std::size_t{1} << 26;
    std::vector<Layer> m_copies;
    std::size_t m_at = 0;
};

/// Registers "operation/layer". A row is timed over and over; its speed is told in bytes of image per second.
/// \param run  returns the bytes it made.
/// \param once times the first call, of work that takes seconds. Else an untimed call comes first, which fetches the
///             memory that is used again and again.
inline void add(const std::string& operation, const std::string& layer, std::size_t imageBytes,
                std::function<std::size_t()> run, bool once = false) {
    auto* row = benchmark::RegisterBenchmark(
        (operation + "/" + layer).c_str(), [imageBytes, once, run = std::move(run)](benchmark::State& state) {
            std::size_t made = once ? 0 : run();
            for ([[maybe_unused]] auto step : state) {
                made = run();
                benchmark::ClobberMemory();
            }
            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * imageBytes));
            state.counters["encoded"] = static_cast<double>(made);
        });
    row->Unit(benchmark::kMillisecond)->UseRealTime();
    if (once) row->Iterations(1);
}

/// Registers a row that fails: what was to be timed gives another result than its plain form.
inline void addFailure(const std::string& operation, const std::string& layer) {
    benchmark::RegisterBenchmark((operation + "/" + layer).c_str(),
                                 [](benchmark::State& state) { state.SkipWithError("the result is wrong"); });
}

}  // namespace vndlp::bench
