#include "support/allocations.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::size_t> total{0};
std::atomic<std::size_t> largest{0};
std::atomic<bool> isLimited{false};
std::atomic<long long> left{0};
}  // namespace

// the library's operator new resolves to the program's; not inlined, or the compiler would see malloc paired with
// delete
[[gnu::noinline]] void* operator new(std::size_t size) {
    total += size;
    largest = std::max<std::size_t>(largest, size);
    const bool isRefused = isLimited && left-- <= 0;
    if (void* memory = isRefused ? nullptr : std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace vndlp::test {

void countAllocations() { total = largest = 0; }

Allocations allocations() { return {total, largest}; }

void failAllocationsAfter(long long count) {
    left = count;
    isLimited = count >= 0;
}

}  // namespace vndlp::test
