// Everything that has vector code, with every instruction set, beside its plain form.

#include "support/bytes.h"
#include "support/ctb.h"
#include "support/files.h"
#include "support/instruction_sets.h"

#include <vndlp/checksum.h>
#include <vndlp/ctb.h>
#include <vndlp/image.h>
#include <vndlp/v4.h>
#include <vndlp/writer.h>

#include <random>

namespace vndlp::test {
namespace {

using Pixels = std::vector<unsigned char>;

struct Image {
    int width;
    int height;
    std::ptrdiff_t stride;
    Pixels pixels;

    unsigned char at(int x, int y) const { return pixels[static_cast<std::size_t>(y * stride + x)]; }
};

/// An image of which `changing` of 1000 pixels differ from the one above; those of padding always do.
Image makeImage(int width, int height, int padding, unsigned changing) {
    static constexpr unsigned char kGreys[] = {0, 0, 0, 255, 255, 15, 16, 1, 2, 128, 254};
    std::mt19937 random(static_cast<unsigned>(width * height) + changing);
    Image image{width, height, width + padding, {}};
    image.pixels.resize(static_cast<std::size_t>(image.stride * height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < image.stride; ++x) {
            const bool changes = x >= width || random() % 1000 < changing;
            const unsigned char above = y == 0 ? 0 : image.at(x, y - 1);
            image.pixels[static_cast<std::size_t>(y * image.stride + x)] =
                changes ? kGreys[random() % std::size(kGreys)] : above;
        }
    }
    return image;
}

/// The runs by walking down every column.
Bytes plainRuns(const Image& image) {
    Bytes packed;
    for (int x = 0; x < image.width; ++x) {
        for (int y = 0; y < image.height;) {
            const unsigned char grey = image.at(x, y);
            const int first = y;
            while (y < image.height && image.at(x, y) == grey) ++y;
            if (grey <= 15) continue;
            const std::uint64_t run = static_cast<std::uint64_t>(first & 0x1FFF) << 35 |
                                      static_cast<std::uint64_t>((y - 1) & 0x1FFF) << 22 |
                                      static_cast<std::uint64_t>(x & 0x3FFF) << 8 | grey;
            for (int shift = 40; shift >= 0; shift -= 8) packed.push_back(static_cast<unsigned char>(run >> shift));
        }
    }
    return packed;
}

/// The image without the padding of its rows.
Image withoutPadding(const Image& image) {
    Image plain{image.width, image.height, image.width, {}};
    for (int y = 0; y < image.height; ++y) {
        const auto row = image.pixels.begin() + y * image.stride;
        plain.pixels.insert(plain.pixels.end(), row, row + image.width);
    }
    return plain;
}

/// Runs packed at once, behind what the vector held; and of the same image without padding as structures, packed one
/// by one and painted.
void expectRuns(const Image& image, Image& plain, const Bytes& expected) {
    std::vector<unsigned char> packed = {9};
    grayDataPackedRuns(image.pixels.data(), image.width, image.height, image.stride, packed);
    ASSERT_TRUE(sameBytes(packed, Bytes{9}.raw(expected)));

    std::vector<WhiteData> runs;
    ASSERT_EQ(grayDataVecWhiteData(plain.pixels.data(), image.width, image.height, runs), 0);
    Bytes bits(runs.size() * kPackedRunBytes);
    for (std::size_t i = 0; i < runs.size(); ++i) whiteData2Bits(runs[i], bits.data() + i * kPackedRunBytes);
    ASSERT_TRUE(sameBytes(bits, expected));
    if (plain.pixels.size() > 1 << 20) return;
    Pixels painted(plain.pixels.size());
    paintWhiteData(runs, painted.data(), image.width, image.height);
    for (std::size_t i = 0; i < painted.size(); ++i)
        ASSERT_EQ(painted[i], plain.pixels[i] > 15 ? plain.pixels[i] : 0) << "pixel " << i;
}

TEST(VectorCode, FindsTheRunsOfTheColumnWalk) {
    std::vector<Image> images;
    for (const int width : {0, 1, 7, 8, 9, 255, 256, 257, 511, 512, 513, 1023, 1024, 1025, 2049}) {
        for (const int height : {0, 1, 2, 17}) {
            for (const unsigned changing : {1000u, 120u}) images.push_back(makeImage(width, height, 0, changing));
            for (const int grey : {15, 255}) {
                images.push_back(makeImage(width, height, 0, 0));
                for (unsigned char& pixel : images.back().pixels) pixel = static_cast<unsigned char>(grey);
            }
        }
    }
    images.push_back(makeImage(130, 9, 3, 0));
    images.push_back(makeImage(127, 65, 1, 20));
    images.push_back(makeImage(129, 300, 0, 300));
    images.push_back(makeImage(200, 131, 7, 900));  // walked: tiles and what is left of them
    images.push_back(makeImage(64, 2049, 0, 700));
    images.push_back(makeImage(33, 127, 2, 1000));
    images.push_back(makeImage(80, 128, 0, 1000));
    images.push_back(makeImage(15, 129, 1, 1000));
    images.push_back(makeImage(17000, 20, 5, 30));        // more columns than are compared at once
    images.push_back(makeImage(4096, 2400, 0, 119));      // more changes than are noted at once: parted
    images.push_back(makeImage(1, (1 << 24) + 9, 1, 1));  // more rows than a change can tell
    for (const Image& image : images) {
        SCOPED_TRACE(std::to_string(image.width) + " x " + std::to_string(image.height));
        const Bytes expected = plainRuns(image);
        Image plain = withoutPadding(image);
        withEachInstructionSet([&] { expectRuns(image, plain, expected); });
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(VectorCode, TakesRowsFromTheBottomUp) {
    const Image image = makeImage(130, 40, 2, 50);
    Image turned = image;
    for (int y = 0; y < image.height; ++y) {
        std::copy_n(image.pixels.begin() + (image.height - 1 - y) * image.stride, image.stride,
                    turned.pixels.begin() + y * image.stride);
    }
    std::vector<unsigned char> packed;
    const unsigned char* const last = turned.pixels.data() + (image.height - 1) * image.stride;
    grayDataPackedRuns(last, image.width, image.height, -image.stride, packed);
    EXPECT_TRUE(sameBytes(Bytes(packed.begin(), packed.end()), plainRuns(image)));
    EXPECT_EQ(CTB::LayerDef::encodeCtbImage(last, 130, 40, -image.stride, 0, 0),
              CTB::LayerDef::encodeCtbImage(image.pixels.data(), 130, 40, image.stride, 0, 0));
}

/// A comparison a pixel.
Pixels plainCode(const Pixels& pixels) {
    Pixels code;
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

TEST(VectorCode, CodesRunsLikeThePlainLoop) {
    std::mt19937 random(5);
    for (int round = 0; round < 60; ++round) {
        // from noise to runs far longer than a vector, in images of every length around one
        const std::size_t longest = std::size_t{1} << round % 12;
        const std::size_t size = round < 30 ? 50 + static_cast<std::size_t>(round) * 17 : 70000;
        Pixels pixels;
        while (pixels.size() < size) pixels.insert(pixels.end(), random() % longest + 1, random() & 0xFF);
        pixels.resize(size);
        const Pixels expected = plainCode(pixels);
        withEachInstructionSet([&] {
            const auto count = static_cast<unsigned>(size);
            ASSERT_EQ(CTB::LayerDef::encodeCtbImage(pixels.data(), count, 0, 0), expected) << round;
            ASSERT_EQ(VNDLPV4::LayerDef::encodeImage(pixels.data(), size, 0, 0), expected) << round;
            // pieces that begin and end within runs
            const auto row = [&](unsigned y) { return pixels.data() + y * (count / 10); };
            ASSERT_EQ(VNDLPV4::LayerDef::encodeImage_16k(count / 10, 10, row, 0, 0),
                      plainCode({pixels.begin(), pixels.begin() + count / 10 * 10}))
                << round;
        });
    }
}

class VectorSum : public FileTest {};

TEST_F(VectorSum, IsThatOfTheBytes) {
    const Image noise = makeImage(1000, 70, 0, 1000);
    for (const std::size_t size : {0u, 1u, 31u, 127u, 128u, 129u, 65535u, 65537u}) {
        const Pixels bytes(noise.pixels.begin(), noise.pixels.begin() + static_cast<std::ptrdiff_t>(size));
        unsigned char sum = 0;
        for (const unsigned char byte : bytes) sum ^= byte;
        Pixels file = bytes;
        file.insert(file.end(), 4, 0);
        writeFile(path("f"), file);
        withEachInstructionSet([&] {
            EXPECT_EQ(CheckSum::instance().getFileSumXor(path("f").c_str()), static_cast<signed char>(sum)) << size;
        });
    }
}

class PaddedLayers : public FileTest {
protected:
    /// A file of one layer, none where the layer is refused; with bead masks where the format has them.
    Bytes job(const std::string& name, const Image& image) const {
        const std::unique_ptr<DLPWriter> writer(createDLPWriter(path(name)));
        writer->filePath = path(name);
        writer->layerCount = 1;
        writer->resolutionX = 150;
        writer->resolutionY = 70;
        SliceImage layer;
        layer.width = static_cast<unsigned>(image.width);
        layer.height = static_cast<unsigned>(image.height);
        layer.stride = static_cast<unsigned>(image.stride);
        layer.size = static_cast<unsigned>(image.pixels.size());
        layer.pixels.reset(new unsigned char[layer.size]);
        std::copy(image.pixels.begin(), image.pixels.end(), layer.pixels.get());
        SliceImage preview;
        preview.width = preview.height = 2;
        preview.size = 12;
        preview.pixels.reset(new unsigned char[preview.size]());
        std::vector<SliceImage> previews(3, preview);
        printedBy([&] {
            EXPECT_EQ(writer->openFile(), 0);
            EXPECT_EQ(writer->writeHeader(previews), 0);
            if (name == "beads.vndlpv4") writer->prepareLampBeadCal(1);
            const int added = writer->addLayerImage(0, layer, 1, 8);
            EXPECT_EQ(writer->finish(), added);
            if (added < 0) std::filesystem::remove(path(name));
        });
        return readFile(path(name));
    }
};

TEST_F(PaddedLayers, GiveTheFilesOfPlainOnes) {
    const Image padded = makeImage(150, 70, 9, 100);
    const Image plain = withoutPadding(padded);
    for (const char* name : {"a.vndlp", "a.ctb", "a.vndlpv4", "beads.vndlpv4"}) {
        Bytes a = job(name, padded);
        Bytes b = job(name, plain);
        // CTB files of different seconds have different keys
        for (int again = 0; again < 3 && a != b; ++again) {
            a = job(name, padded);
            b = job(name, plain);
        }
        EXPECT_FALSE(a.empty()) << name;
        EXPECT_TRUE(sameBytes(a, b)) << name;
    }
}

TEST_F(PaddedLayers, AreRefusedWhereRowsOverlapOrLieOutside) {
    Image image = makeImage(150, 70, 9, 100);
    for (const std::ptrdiff_t stride : {149, 160}) {
        image.stride = stride;
        for (const char* name : {"a.vndlp", "a.ctb", "a.vndlpv4"}) EXPECT_TRUE(job(name, image).empty()) << stride;
    }
}

}  // namespace
}  // namespace vndlp::test
