#include "ctb/run_kernel.h"

#include <cstdint>
#include <cstring>

#if defined(VNDLP_HAVE_HIGHWAY)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ctb/run_kernel.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>
#endif

#ifndef VNDLP_CTB_RUN_KERNEL_ONCE
#define VNDLP_CTB_RUN_KERNEL_ONCE

namespace CTB {
namespace {

constexpr unsigned char kGreyBits = 0xFE;  // the lowest bit of a pixel is not encoded

/// Turns the places where the grey changes into encoded runs. Positions count from the first pixel of the call; the
/// open run may have begun before it.
class ChangeCoder {
public:
    ChangeCoder(const unsigned char* pixels, const RunCoding& coding)
        : m_pixels(pixels),
          m_endless(coding.endless),
          m_grey(coding.open.grey),
          m_begin(-static_cast<std::ptrdiff_t>(coding.open.count)),
          m_out(coding.out) {}

    /// Another grey begins at a pixel.
    void change(std::ptrdiff_t at) {
        endRun(at);
        m_grey = m_pixels[at] >> 1;
        m_begin = at;
    }
    /// Like a change at each of the pixels from `first` to `last`; `writeGreys(out)` writes the greys of all but the
    /// last.
    template <class WriteGreys>
    void changeAtEach(std::ptrdiff_t first, std::ptrdiff_t last, WriteGreys&& writeGreys) {
        endRun(first);
        writeGreys(m_out);
        m_out += last - first;
        m_grey = m_pixels[last] >> 1;
        m_begin = last;
    }
    [[nodiscard]] bool differs(std::ptrdiff_t at) const { return m_pixels[at] >> 1 != m_grey; }
    [[nodiscard]] bool isEmpty() const { return m_begin == 0; }
    [[nodiscard]] bool hasRoom(const unsigned char* end) const {
        return end - m_out >= static_cast<std::ptrdiff_t>(kRunRoom);
    }
    [[nodiscard]] unsigned char pixel() const { return static_cast<unsigned char>(m_grey << 1); }

    /// Stops before a pixel.
    std::size_t stop(std::ptrdiff_t at, RunCoding& coding) const {
        coding.open = {m_grey, static_cast<std::size_t>(at - m_begin)};
        coding.out = m_out;
        return static_cast<std::size_t>(at);
    }

private:
    void endRun(std::ptrdiff_t at) {
        const auto count = static_cast<std::size_t>(at - m_begin);
        if (count > kMaxShortRun) {
            m_out = putLongRun(m_grey, count, m_endless, m_out);
            return;
        }
        // single pixels and short runs come mixed: two bytes are written, and none, one or both of them kept
        m_out[0] = static_cast<unsigned char>(m_grey | (count > 1 ? kRunFlag : 0));
        m_out[1] = static_cast<unsigned char>(count);
        m_out += count < 2 ? count : 2;
    }

    const unsigned char* m_pixels;
    EndlessRun m_endless;
    unsigned int m_grey;
    std::ptrdiff_t m_begin;
    unsigned char* m_out;
};

}  // namespace
}  // namespace CTB

#endif

#if defined(VNDLP_HAVE_HIGHWAY)

HWY_BEFORE_NAMESPACE();
namespace CTB::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::ptrdiff_t kStep = 64;
constexpr std::ptrdiff_t kLongStep = 256;
constexpr std::ptrdiff_t kPart = 16;
constexpr int kManyChanges = 24;

/// A bit for each of 64 pixels whose grey is not that of the pixel before, the first pixel's lowest.
HWY_INLINE std::uint64_t changes(const unsigned char* pixels) {
    const hn::CappedTag<std::uint8_t, kStep> tag;
    const auto greyBits = hn::Set(tag, kGreyBits);
    std::uint64_t changed = 0;
    for (std::size_t i = 0; i < kStep; i += hn::Lanes(tag)) {
        const auto differing = hn::Xor(hn::LoadU(tag, pixels + i), hn::LoadU(tag, pixels + i - 1));
        std::uint64_t bits = 0;
        hn::StoreMaskBits(tag, hn::Ne(hn::And(differing, greyBits), hn::Zero(tag)),
                          reinterpret_cast<std::uint8_t*>(&bits));
        changed |= bits << i;
    }
    return changed;
}

HWY_INLINE bool areAll(const unsigned char* pixels, unsigned char pixel) {
    const hn::CappedTag<std::uint8_t, kStep> tag;
    const auto expected = hn::Set(tag, pixel);
    auto differing = hn::Zero(tag);
    for (std::size_t i = 0; i < kLongStep; i += hn::Lanes(tag)) {
        differing = hn::Or(differing, hn::Xor(hn::LoadU(tag, pixels + i), expected));
    }
    return hn::AllTrue(tag, hn::Eq(hn::And(differing, hn::Set(tag, kGreyBits)), hn::Zero(tag)));
}

HWY_INLINE void encodeEach(ChangeCoder& coder, std::uint64_t changed, std::ptrdiff_t from) {
    for (; changed != 0; changed &= changed - 1) {
        coder.change(from + static_cast<std::ptrdiff_t>(hwy::Num0BitsBelowLS1Bit_Nonzero64(changed)));
    }
}

/// Where nearly every pixel differs, whole parts of a block do, and are encoded at once.
HWY_INLINE void encodeParts(ChangeCoder& coder, std::uint64_t changed, const unsigned char* pixels,
                            std::ptrdiff_t from) {
    constexpr std::uint64_t all = (1u << kPart) - 1;
    const hn::CappedTag<std::uint8_t, kPart> tag;
    for (std::ptrdiff_t part = from; part < from + kStep; part += kPart, changed >>= kPart) {
        if ((changed & all) != all) {
            encodeEach(coder, changed & all, part);
            continue;
        }
        coder.changeAtEach(part, part + kPart - 1, [pixels, part, tag](unsigned char* out) HWY_ATTR {
            for (std::size_t i = 0; i < kPart; i += hn::Lanes(tag)) {
                hn::StoreU(hn::ShiftRight<1>(hn::LoadU(tag, pixels + part + i)), tag, out + i);
            }
        });
    }
}

// the plain form: for each pixel, if its grey is not the open run's, write that run and open one of this grey
std::size_t encodePixels(const unsigned char* pixels, std::size_t size, RunCoding& coding) {
    const auto end = static_cast<std::ptrdiff_t>(size);
    ChangeCoder coder(pixels, coding);
    if (!coder.hasRoom(coding.outEnd)) return 0;
    if (coder.isEmpty() || coder.differs(0)) coder.change(0);
    std::ptrdiff_t at = 1;  // a block looks at the pixel before it
    while (end - at >= kStep) {
        const std::uint64_t changed = changes(pixels + at);
        if (HWY_LIKELY(changed == 0)) {
            at += kStep;
            while (end - at >= kLongStep && areAll(pixels + at, coder.pixel())) at += kLongStep;
            continue;
        }
        if (!coder.hasRoom(coding.outEnd)) return coder.stop(at, coding);
        if (HWY_UNLIKELY(hwy::PopCount(changed) > kManyChanges)) {
            encodeParts(coder, changed, pixels, at);
        } else {
            encodeEach(coder, changed, at);
        }
        at += kStep;
    }
    for (; at < end; ++at) {
        if (!coder.differs(at)) continue;
        if (!coder.hasRoom(coding.outEnd)) break;
        coder.change(at);
    }
    return coder.stop(at, coding);
}

}  // namespace
}  // namespace CTB::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace CTB {

namespace {
HWY_EXPORT(encodePixels);
}

std::size_t encodePixels(const unsigned char* pixels, std::size_t size, RunCoding& coding) {
    return HWY_DYNAMIC_DISPATCH(encodePixels)(pixels, size, coding);
}

}  // namespace CTB
#endif

#else

namespace CTB {

std::size_t encodePixels(const unsigned char* pixels, std::size_t size, RunCoding& coding) {
    constexpr std::ptrdiff_t words = 8;
    constexpr std::ptrdiff_t wordBytes = sizeof(std::uint64_t);
    constexpr std::uint64_t everyByte = 0x0101010101010101;  // unsigned: the products wrap
    const auto end = static_cast<std::ptrdiff_t>(size);
    ChangeCoder coder(pixels, coding);
    if (!coder.hasRoom(coding.outEnd)) return 0;
    if (coder.isEmpty() || coder.differs(0)) coder.change(0);
    for (std::ptrdiff_t at = 1; at < end; ++at) {
        const std::uint64_t expected = everyByte * coder.pixel();
        for (; end - at >= words * wordBytes; at += words * wordBytes) {
            std::uint64_t differing = 0;
            for (std::ptrdiff_t i = 0; i < words; ++i) {
                std::uint64_t word = 0;
                std::memcpy(&word, pixels + at + i * wordBytes, wordBytes);
                differing |= word ^ expected;
            }
            if ((differing & everyByte * kGreyBits) != 0) break;
        }
        const std::ptrdiff_t stepEnd = end - at < words * wordBytes ? end : at + words * wordBytes;
        for (; at < stepEnd; ++at) {
            if (!coder.differs(at)) continue;
            if (!coder.hasRoom(coding.outEnd)) return coder.stop(at, coding);
            coder.change(at);
        }
        --at;
    }
    return coder.stop(end, coding);
}

}  // namespace CTB

#endif
