#include "ctb/layer_codec.h"

#include <vndlp/formats.h>

#include "ctb/run_kernel.h"
#include "io/platform.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace CTB {

namespace {

constexpr std::size_t kMinBlockFill = 16;

/// The forms a run's length takes: the first byte holds a mark and the highest bits, `moreBytes` follow.
struct LengthForm {
    unsigned int mark;
    unsigned int moreBytes;
    std::size_t longest;
};
constexpr LengthForm kLengthForms[] = {
    {0x00, 0, kMaxShortRun},
    {0x80, 1, 0x3FFF},
    {0xC0, 2, 0x1FFFFF},
    {0xE0, 3, kMaxRun},
};

/// Writes a length; nothing for one that no form holds.
unsigned char* putLength(std::size_t count, unsigned char* out) {
    for (const LengthForm& form : kLengthForms) {
        if (count > form.longest) continue;
        *out++ = static_cast<unsigned char>(form.mark | count >> 8 * form.moreBytes);
        for (unsigned int i = form.moreBytes; i > 0; --i) *out++ = static_cast<unsigned char>(count >> 8 * (i - 1));
        break;
    }
    return out;
}

void fillRun(unsigned char* pixels, std::size_t count, unsigned char value) {
    if (count >= kMinBlockFill) {
        std::memset(pixels, value, count);
        return;
    }
    for (std::size_t i = 0; i < count; ++i) pixels[i] = value;
}

}  // namespace

unsigned char* putRun(unsigned int grey, std::size_t count, unsigned char* out) {
    if (count == 1) {
        *out++ = static_cast<unsigned char>(grey);
        return out;
    }
    *out++ = static_cast<unsigned char>(grey | kRunFlag);
    return putLength(count, out);
}

unsigned char* putLongRun(unsigned int grey, std::size_t count, EndlessRun endless, unsigned char* out) {
    for (; endless == EndlessRun::split && count > kMaxRun; count -= kMaxRun) {
        out = putRun(grey, kMaxRun, out);
    }
    return putRun(grey, count, out);
}

void RunEncoder::add(const unsigned char* pixels, std::size_t size) {
    for (std::size_t left = size; left > 0;) {
        RunCoding coding{m_open, m_endless, m_out, m_block + sizeof m_block};
        const std::size_t taken = encodePixels(pixels, std::min(left, kMaxAtOnce), coding);
        m_open = coding.open;
        m_out = coding.out;
        pixels += taken;
        left -= taken;
        if (left > 0) flush(taken > 0 ? sizeof m_block * (left / taken) : 0);
        for (; m_endless == EndlessRun::split && m_open.count > kMaxRun; m_open.count -= kMaxRun) {
            flush(0);
            m_out = putRun(m_open.grey, kMaxRun, m_out);
        }
    }
}

void RunEncoder::finish() {
    flush(0);
    if (m_open.count > 0) m_out = putRun(m_open.grey, m_open.count, m_out);
    m_open = {0, 0};
    flush(0);
    // the data of all layers are kept until the file is written
    if (m_encoded.capacity() - m_encoded.size() > m_encoded.size() / 8) m_encoded.shrink_to_fit();
}

/// \param expected bytes that are likely to follow.
void RunEncoder::flush(std::size_t expected) {
    const std::size_t needed = m_encoded.size() + static_cast<std::size_t>(m_out - m_block);
    if (needed > m_encoded.capacity()) {
        m_encoded.reserve(std::max(2 * m_encoded.capacity(), needed + expected));
        vndlp::platform::adviseLargePages(m_encoded.data(), m_encoded.capacity());
    }
    m_encoded.insert(m_encoded.end(), m_block, m_out);
    m_out = m_block;
}

void makeBlack(std::vector<unsigned char>& pixels, std::size_t count) {
    pixels.clear();
    if (count > pixels.capacity()) {
        pixels.reserve(count);
        vndlp::platform::adviseLargePages(pixels.data(), count);
    }
    pixels.resize(count);
}

std::size_t decodeRuns(RunReader& runs, unsigned char* pixels, std::size_t pixelCount) {
    Run run{};
    std::size_t position = 0;
    while (position < pixelCount) {
        if (pixelCount - position >= kSingles && runs.takeSingles(pixels + position)) {
            position += kSingles;
            continue;
        }
        if (!runs.take(run)) break;
        const std::size_t count = std::min(run.count, pixelCount - position);
        if (run.grey != 0) fillRun(pixels + position, count, decodedGrey(run.grey));
        position += count;
    }
    return position;
}

void addUp(RunReader& runs, RunTotals& totals) {
    RunTotals sum = totals;  // where the loop keeps it in registers
    for (Run run{}; runs.take(run); ++sum.runs) {
        const auto count = static_cast<long long>(run.count);
        sum.pixels += count;
        if (decodedGrey(run.grey) > vndlp::kLitThreshold) sum.litPixels += count;
    }
    totals = sum;
}

}  // namespace CTB
