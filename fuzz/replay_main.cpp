// Runs a fuzz target over files and folders of files: for builds without a fuzzer, and to replay findings.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    // told before, so that a crash shows its input
    std::fprintf(stderr, "%s: %zu bytes\n", path.string().c_str(), bytes.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files{argv[i]};
        if (std::filesystem::is_directory(argv[i])) {
            files.assign(std::filesystem::directory_iterator(argv[i]), {});
            std::sort(files.begin(), files.end());
        }
        for (const std::filesystem::path& path : files) {
            replay(path);
            ++replayed;
        }
    }
    return replayed > 0 ? 0 : 1;
}
