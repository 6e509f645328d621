#include "fuzz/harness.h"

#include <atomic>
#include <cstdio>
#include <ctime>

#if defined(__SANITIZE_ADDRESS__)
#define VNDLP_FUZZ_COUNTS_MEMORY
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VNDLP_FUZZ_COUNTS_MEMORY
#endif
#endif

#if defined(VNDLP_FUZZ_COUNTS_MEMORY)
// the sanitizer's own functions, whose header not every compiler's package has
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onAllocation)(const volatile void*, std::size_t),
                                                         void (*onRelease)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* address);
#endif

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr double kMostSeconds = 5;

std::atomic<long long> bytesInUse{0};
std::atomic<long long> bytesAllowed{0};  // 0 between inputs

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

#if defined(VNDLP_FUZZ_COUNTS_MEMORY)
void noteAllocation(const volatile void* /*address*/, std::size_t size) {
    const long long inUse = bytesInUse += static_cast<long long>(size);
    const long long allowed = bytesAllowed;
    if (allowed == 0 || inUse <= allowed) return;
    bytesAllowed = 0;  // the message allocates too
    std::fprintf(stderr, "%lld bytes in use, %zu of them new, where %lld are allowed\n", inUse, size, allowed);
    std::abort();
}

void noteRelease(const volatile void* address) {
    if (address == nullptr) return;
    bytesInUse -= static_cast<long long>(__sanitizer_get_allocated_size(address));
}
#endif

}  // namespace

namespace vndlp::fuzz {

void allowBytes(long long count) { bytesAllowed += count; }

}  // namespace vndlp::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
#if defined(VNDLP_FUZZ_COUNTS_MEMORY)
    __sanitizer_install_malloc_and_free_hooks(noteAllocation, noteRelease);
#endif
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const vndlp::fuzz::Bytes input(data, data + size);
    bytesInUse = 0;
    bytesAllowed = static_cast<long long>(vndlp::fuzz::kFreeBytes + vndlp::fuzz::kBytesPerInputByte * size);
    const double start = processorSeconds();
    vndlp::fuzz::run(input);
    bytesAllowed = 0;
    if (processorSeconds() - start > kMostSeconds) {
        std::fprintf(stderr, "more than %g s of processor time\n", kMostSeconds);
        std::abort();
    }
    return 0;
}
