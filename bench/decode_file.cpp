// Decodes every layer of a slice file into one buffer, as many times as asked, and prints the shortest time in
// seconds: what the Python package is held against (scripts/bench_python.py).

#include <vndlp/slice_file.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int count, char** arguments) {
    vndlp::SliceFile file;
    if (count != 3 || !file.open(arguments[1]).isOk()) return 1;
    const vndlp::SliceInfo& info = file.info();
    std::vector<unsigned char> pixels(std::size_t{info.width} * info.height);
    double best = 1e9;
    for (long left = std::strtol(arguments[2], nullptr, 10); left > 0; --left) {
        const auto began = std::chrono::steady_clock::now();
        for (std::uint32_t layer = 0; layer < info.layers; ++layer) {
            if (!file.layerPixels(layer, pixels.data(), 0, pixels.size()).isOk()) return 1;
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
        if (took.count() < best) best = took.count();
    }
    std::printf("%.6f\n", best);
    return 0;
}
