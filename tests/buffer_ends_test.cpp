// Vector code reads and writes no byte beside a buffer: pages without access lie on both sides of it.

#include "support/files.h"
#include "support/instruction_sets.h"

#include <vndlp/checksum.h>
#include <vndlp/ctb.h>
#include <vndlp/image.h>
#include <vndlp/v4.h>

#include <sys/mman.h>
#include <unistd.h>
#include <cstring>
#include <random>

namespace vndlp::test {
namespace {

using Pixels = std::vector<unsigned char>;

class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t bytes) : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        m_room = (bytes + m_page - 1) / m_page * m_page;
        void* const all = mmap(nullptr, m_room + 2 * m_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (all == MAP_FAILED) throw std::bad_alloc();
        m_all = static_cast<unsigned char*>(all);
        if (mprotect(first(), m_room, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
    }
    ~GuardedMemory() { munmap(m_all, m_room + 2 * m_page); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    /// Calls `check(place)` with the bytes right behind the first guard and right in front of the last.
    template <class Check>
    void atBothEnds(const Pixels& bytes, Check&& check) const {
        for (unsigned char* const place : {first(), first() + m_room - bytes.size()}) {
            std::memcpy(place, bytes.data(), bytes.size());
            check(place);
        }
    }

private:
    [[nodiscard]] unsigned char* first() const { return m_all + m_page; }

    std::size_t m_page;
    std::size_t m_room = 0;
    unsigned char* m_all = nullptr;
};

/// Runs of up to `longest` pixels along the rows, which are found by walking columns; or, with rows that repeat the
/// first one but for a pixel, by comparing rows.
Pixels makePixels(int width, int height, unsigned longest, bool repeatsRows) {
    const auto size = static_cast<std::size_t>(width * height);
    std::mt19937 random(static_cast<unsigned>(size) + longest);
    Pixels pixels;
    while (pixels.size() < size) pixels.insert(pixels.end(), random() % longest + 1, random() & 0xFF);
    pixels.resize(size);
    if (!repeatsRows) return pixels;
    for (std::size_t i = static_cast<std::size_t>(width); i < size; ++i) {
        pixels[i] = pixels[i - static_cast<std::size_t>(width)];
    }
    pixels.back() ^= 0x80;
    return pixels;
}

struct Results {
    std::vector<unsigned char> packed;
    std::size_t runs = 0;
    std::vector<unsigned char> ctb;
    std::vector<unsigned char> v4;
    unsigned long crc = 0;

    Results(unsigned char* pixels, int width, int height) {
        const auto count = static_cast<unsigned>(width * height);
        grayDataPackedRuns(pixels, width, height, packed);
        std::vector<WhiteData> list;
        grayDataVecWhiteData(pixels, width, height, list);
        runs = list.size();
        ctb = CTB::LayerDef::encodeCtbImage(pixels, count, 0, 0);
        v4 = VNDLPV4::LayerDef::encodeImage(pixels, count, 0, 0);
        crc = CheckSum::instance().makeCrc(0, pixels, count);
    }
    bool operator==(const Results&) const = default;
};

class BufferEnds : public FileTest {};

TEST_F(BufferEnds, AreKeptByEveryInstructionSet) {
    for (const auto& [width, height] : {std::pair{1, 1}, {7, 3}, {63, 5}, {64, 17}, {129, 40}, {200, 131}, {257, 64}}) {
        const auto size = static_cast<std::size_t>(width * height);
        const GuardedMemory memory(size);
        for (const auto& [longest, repeatsRows] : {std::pair{1u, false}, {3u, false}, {400u, false}, {3u, true}}) {
            Pixels pixels = makePixels(width, height, longest, repeatsRows);
            const Results expected(pixels.data(), width, height);
            ASSERT_EQ(expected.packed.size(), expected.runs * kPackedRunBytes);

            writeFile(path("code"), expected.ctb);
            FileRead file(path("code"), 0);
            CTB::LayerDef stored(file);
            stored.dataSize = static_cast<unsigned>(expected.ctb.size());
            Pixels decoded(size);
            ASSERT_EQ(stored.decodeCtbImageInto(decoded.data(), size, 0, 0), 0);

            withEachInstructionSet([&] {
                memory.atBothEnds(pixels, [&](unsigned char* place) {
                    EXPECT_EQ(Results(place, width, height), expected) << width << " x " << height << " of " << longest;
                    EXPECT_EQ(stored.decodeCtbImageInto(place, size, 0, 0), 0);
                    EXPECT_EQ(std::memcmp(place, decoded.data(), size), 0) << width << " x " << height;
                });
            });
        }
    }
}

}  // namespace
}  // namespace vndlp::test
