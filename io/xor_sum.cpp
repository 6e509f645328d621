#include "io/xor_sum.h"

#if defined(VNDLP_HAVE_HIGHWAY)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "io/xor_sum.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace vndlp::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

unsigned char xorOf(const unsigned char* data, std::size_t size) {
    const hn::ScalableTag<std::uint8_t> tag;
    const std::size_t lanes = hn::Lanes(tag);
    // several sums, so that many loads are under way
    auto a = hn::Zero(tag);
    auto b = a;
    auto c = a;
    auto d = a;
    std::size_t i = 0;
    for (; i + 4 * lanes <= size; i += 4 * lanes) {
        a = hn::Xor(a, hn::LoadU(tag, data + i));
        b = hn::Xor(b, hn::LoadU(tag, data + i + lanes));
        c = hn::Xor(c, hn::LoadU(tag, data + i + 2 * lanes));
        d = hn::Xor(d, hn::LoadU(tag, data + i + 3 * lanes));
    }
    HWY_ALIGN std::uint8_t sums[HWY_MAX_BYTES];
    hn::Store(hn::Xor(hn::Xor(a, b), hn::Xor(c, d)), tag, sums);
    unsigned char sum = 0;
    for (std::size_t lane = 0; lane < lanes; ++lane) sum = static_cast<unsigned char>(sum ^ sums[lane]);
    for (; i < size; ++i) sum = static_cast<unsigned char>(sum ^ data[i]);
    return sum;
}

}  // namespace
}  // namespace vndlp::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vndlp {

namespace {
HWY_EXPORT(xorOf);
}

unsigned char xorOf(const unsigned char* data, std::size_t size) { return HWY_DYNAMIC_DISPATCH(xorOf)(data, size); }

}  // namespace vndlp
#endif

#else

namespace vndlp {

unsigned char xorOf(const unsigned char* data, std::size_t size) {
    unsigned char sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum = static_cast<unsigned char>(sum ^ data[i]);
    return sum;
}

}  // namespace vndlp

#endif
