// Everything that has vector code, with every instruction set: it gives what a plain loop gives, and reads and writes
// no byte beside its buffers, on both sides of which lie pages without access.

#include "support/ctb.h"
#include "support/instruction_sets.h"

#include <vndlp/checksum.h>
#include <vndlp/image.h>
#include <vndlp/v4.h>

#include <sys/mman.h>
#include <unistd.h>
#include <cstring>
#include <new>
#include <random>

namespace vndlp::test {
namespace {

struct Image {
    int width;
    int height;
    std::ptrdiff_t stride;
    Bytes pixels;

    unsigned char at(int x, int y) const { return pixels[static_cast<std::size_t>(y * stride + x)]; }
};

/// An image of which `changing` of 1000 pixels differ from the one above; those of padding always do, but behind the
/// last row there is none. Along a row greys last for up to `longest` pixels.
Image makeImage(int width, int height, int padding, unsigned changing, unsigned longest = 1) {
    static constexpr unsigned char kGreys[] = {0, 0, 0, 255, 255, 15, 16, 1, 2, 128, 254};
    std::mt19937 random(static_cast<unsigned>(width * height) + changing);
    Image image{width, height, width + padding, {}};
    image.pixels.resize(static_cast<std::size_t>(image.stride * height));
    unsigned char grey = 0;
    unsigned left = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < image.stride; ++x) {
            if (left == 0) {
                grey = kGreys[random() % std::size(kGreys)];
                left = longest == 1 ? 1 : 1 + static_cast<unsigned>(random()) % longest;
            }
            --left;
            const bool changes = x >= width || random() % 1000 < changing;
            const unsigned char above = y == 0 ? 0 : image.at(x, y - 1);
            image.pixels[static_cast<std::size_t>(y * image.stride + x)] = changes ? grey : above;
        }
    }
    if (height > 0) image.pixels.resize(image.pixels.size() - static_cast<std::size_t>(padding));
    return image;
}

std::vector<Image> makeImages() {
    std::vector<Image> images;
    for (const int width : {0, 1, 7, 8, 9, 63, 64, 255, 256, 257, 513, 1023, 1024, 1025, 2049}) {
        for (const int height : {0, 1, 2, 17}) {
            for (const unsigned changing : {1000u, 120u, 0u}) images.push_back(makeImage(width, height, 0, changing));
            images.push_back(makeImage(width, height, 0, 1000, 400));
            for (const int grey : {15, 255}) {
                images.push_back(makeImage(width, height, 0, 0));
                std::fill(images.back().pixels.begin(), images.back().pixels.end(), static_cast<unsigned char>(grey));
            }
        }
    }
    images.push_back(makeImage(127, 65, 1, 20));
    images.push_back(makeImage(129, 300, 0, 300));
    images.push_back(makeImage(200, 131, 7, 900));  // walked: tiles and what is left of them
    images.push_back(makeImage(64, 2049, 0, 700));
    images.push_back(makeImage(33, 127, 2, 1000));
    images.push_back(makeImage(80, 128, 0, 1000));
    images.push_back(makeImage(15, 129, 1, 1000));
    images.push_back(makeImage(17000, 20, 5, 30));        // more columns than are compared at once
    images.push_back(makeImage(4096, 2600, 0, 178));      // more changes than are noted at once: halved
    images.push_back(makeImage(1, (1 << 24) + 9, 1, 1));  // more rows than a change can tell
    return images;
}

class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t bytes) : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        m_room = (bytes + m_page - 1) / m_page * m_page;
        void* const all = mmap(nullptr, m_room + 2 * m_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (all == MAP_FAILED) throw std::bad_alloc();
        m_all = static_cast<unsigned char*>(all);
        if (m_room > 0 && mprotect(first(), m_room, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
    }
    ~GuardedMemory() { munmap(m_all, m_room + 2 * m_page); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    /// Calls `check(place)` with the bytes right behind the first guard and right in front of the last.
    template <class Check>
    void atBothEnds(const Bytes& bytes, Check&& check) const {
        for (unsigned char* const place : {first(), first() + m_room - bytes.size()}) {
            std::copy(bytes.begin(), bytes.end(), place);
            check(place);
        }
    }

private:
    [[nodiscard]] unsigned char* first() const { return m_all + m_page; }

    std::size_t m_page;
    std::size_t m_room = 0;
    unsigned char* m_all = nullptr;
};

// ---- the plain loops

/// The runs by walking down every column.
Bytes plainRuns(const Image& image) {
    Bytes packed;
    for (int x = 0; x < image.width; ++x) {
        for (int y = 0; y < image.height;) {
            const unsigned char grey = image.at(x, y);
            const int first = y;
            while (y < image.height && image.at(x, y) == grey) ++y;
            if (grey <= 15) continue;
            packed.be(static_cast<std::uint64_t>(first & 0x1FFF) << 35 |
                          static_cast<std::uint64_t>((y - 1) & 0x1FFF) << 22 |
                          static_cast<std::uint64_t>(x & 0x3FFF) << 8 | grey,
                      6);
        }
    }
    return packed;
}

/// The pixels without the padding of rows.
Bytes plainPixels(const Image& image) {
    Bytes plain;
    for (int y = 0; y < image.height; ++y) {
        const auto row = image.pixels.begin() + y * image.stride;
        plain.insert(plain.end(), row, row + image.width);
    }
    return plain;
}

/// The encoded data of a layer, a comparison a pixel.
std::vector<unsigned char> plainCode(const Bytes& pixels) {
    std::vector<unsigned char> code;
    unsigned char grey = 0;
    unsigned int count = 0;
    for (const unsigned char pixel : pixels) {
        if (count > 0 && pixel >> 1 != (grey & 0x7F)) {
            CTB::LayerDef::addRep(count, grey, code);
            count = 0;
        }
        grey = static_cast<unsigned char>(pixel >> 1);
        ++count;
    }
    CTB::LayerDef::addRep(count, grey, code);
    return code;
}

using Kernels = FileTest;

TEST_F(Kernels, GiveWhatPlainLoopsGiveAndStayInsideTheirBuffers) {
    for (const Image& image : makeImages()) {
        SCOPED_TRACE(std::to_string(image.width) + " x " + std::to_string(image.height));
        const auto [width, height, stride, pixels] = image;
        const Bytes plain = plainPixels(image);
        const Bytes runs = plainRuns(image);
        const std::vector<unsigned char> code = plainCode(plain);
        const std::uint32_t crc = plain.size() > 1 << 20 ? 0 : plainCrc(plain.data(), plain.size());
        Bytes painted = plain;
        Bytes decoded = plain;
        for (unsigned char& pixel : painted) pixel = pixel > 15 ? pixel : 0;
        for (unsigned char& pixel : decoded) pixel = static_cast<unsigned char>(pixel > 1 ? pixel | 1 : 0);

        writeFile(path("code"), code);
        FileRead file(path("code"), 0);
        CTB::LayerDef stored(file);
        stored.dataSize = static_cast<unsigned>(code.size());
        const GuardedMemory padded(image.pixels.size());
        const GuardedMemory tight(plain.size());
        const auto columns = static_cast<unsigned>(width);
        const auto rows = static_cast<unsigned>(height);
        withEachInstructionSet([&, w = width, h = height, s = stride] {
            padded.atBothEnds(image.pixels, [&](const unsigned char* place) {
                std::vector<unsigned char> packed = {9};  // runs go behind what is there
                grayDataPackedRuns(place, w, h, s, packed);
                ASSERT_TRUE(sameBytes(packed, Bytes{9}.raw(runs)));
                if (plain.empty() || plain.size() > 1 << 20) return;
                const auto row = [place, s](unsigned y) { return place + y * s; };
                ASSERT_EQ(CTB::LayerDef::encodeCtbImage(place, columns, rows, s, 0, 0), code);
                ASSERT_EQ(VNDLPV4::LayerDef::encodeImage_16k(columns, rows, row, 0, 0), code);
            });
            if (plain.size() > 1 << 20) return;
            tight.atBothEnds(plain, [&](unsigned char* place) {
                std::vector<WhiteData> list;
                ASSERT_EQ(grayDataVecWhiteData(place, w, h, list), 0);
                Bytes bits(list.size() * kPackedRunBytes);
                for (std::size_t i = 0; i < list.size(); ++i) whiteData2Bits(list[i], bits.data() + i * 6);
                ASSERT_TRUE(sameBytes(bits, runs));
                ASSERT_EQ(VNDLPV4::LayerDef::encodeImage(place, plain.size(), 0, 0), code);
                ASSERT_EQ(CheckSum::instance().makeCrc(0, place, static_cast<unsigned>(plain.size())), crc);
                std::fill_n(place, plain.size(), 0);
                paintWhiteData(list, place, w, h);
                ASSERT_EQ(Bytes(place, place + plain.size()), painted);
                if (plain.empty()) return;
                ASSERT_EQ(stored.decodeCtbImageInto(place, plain.size(), 0, 0), 0);
                ASSERT_EQ(Bytes(place, place + plain.size()), decoded);
            });
        });
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_F(Kernels, TakeRowsFromTheBottomUp) {
    const Image image = makeImage(130, 40, 0, 50);
    Bytes turned;
    for (int y = image.height - 1; y >= 0; --y) {
        turned.insert(turned.end(), image.pixels.begin() + y * 130, image.pixels.begin() + (y + 1) * 130);
    }
    std::vector<unsigned char> packed;
    const unsigned char* const last = turned.data() + 39 * 130;
    grayDataPackedRuns(last, 130, 40, -130, packed);
    EXPECT_TRUE(sameBytes(packed, plainRuns(image)));
    EXPECT_EQ(CTB::LayerDef::encodeCtbImage(last, 130, 40, -130, 0, 0), plainCode(image.pixels));
}

TEST_F(Kernels, SumFilesOfEveryLength) {
    const Image noise = makeImage(1000, 140, 0, 1000);
    for (const std::size_t size : {0u, 1u, 31u, 127u, 128u, 129u, 65535u, 65537u, 131071u}) {
        const Bytes bytes(noise.pixels.begin(), noise.pixels.begin() + static_cast<std::ptrdiff_t>(size));
        writeFile(path("f"), Bytes(bytes).fill(4, 0x55));  // a trailer, which is not summed
        withEachInstructionSet([&] {
            EXPECT_EQ(static_cast<unsigned>(CheckSum::instance().getFileSumXor(path("f").c_str())),
                      plainXor(bytes.data(), size))
                << size;
        });
    }
}

}  // namespace
}  // namespace vndlp::test
