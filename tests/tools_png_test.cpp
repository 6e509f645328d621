#include "tools/images/png.h"

#include "support/png.h"
#include "tools/jobs/archive.h"

#include <gtest/gtest.h>
#include <spng.h>

#include <memory>
#include <random>

using namespace vndlp::test;
using namespace vndlp::tools;

namespace {

constexpr const char* kName = "job.sl1: a.png";

GreyImage decode(const std::vector<unsigned char>& png) {
    GreyImage image;
    decodeGreyLayer(png, kName, image);
    return image;
}

std::string greyFailure(const Bytes& png) {
    return failureOf([&] { decode(png); });
}

/// The message of a damaged PNG.
std::string damaged(const std::string& what) {
    return std::string(kName) + ": the PNG is damaged (" + what + "); copy or make it again";
}

/// Decodes with libspng alone: what every PNG is held against.
std::vector<unsigned char> decodeReference(const std::vector<unsigned char>& png, int format) {
    const std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> context(spng_ctx_new(0), spng_ctx_free);
    std::vector<unsigned char> pixels;
    std::size_t size = 0;
    if (spng_set_png_buffer(context.get(), png.data(), png.size()) != 0 ||
        spng_decoded_image_size(context.get(), format, &size) != 0)
        return pixels;
    pixels.resize(size);
    if (spng_decode_image(context.get(), pixels.data(), size, format, 0) != 0) pixels.clear();
    return pixels;
}

/// A PNG of one IDAT chunk.
Bytes pngFrom(const Bytes& header, const Bytes& packed) { return pngOf({header, chunk("IDAT", packed)}); }

}  // namespace

// ---- grey layers

TEST(GreyPng, DecodesLiteralBytes) {
    const Bytes png = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A,  // signature
                       0x00, 0x00, 0x00, 0x0D, 0x49, 0x48, 0x44, 0x52,  // 13 bytes of IHDR
                       0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02,  // 2 x 2
                       0x08, 0x00, 0x00, 0x00, 0x00,                    // 8-bit grey, deflate, filters, not interlaced
                       0x57, 0xDD, 0x52, 0xF8,                          // CRC
                       0x00, 0x00, 0x00, 0x11, 0x49, 0x44, 0x41, 0x54,  // 17 bytes of IDAT
                       0x78, 0x01, 0x01, 0x06, 0x00, 0xF9, 0xFF,        // zlib header, last stored block of 6 bytes
                       0x00, 0x00, 0xFF,                                // row 0: no filter, 0, 255
                       0x00, 0x10, 0x80,                                // row 1: no filter, 16, 128
                       0x04, 0xA2, 0x01, 0x90,                          // Adler-32
                       0xF7, 0xAF, 0x11, 0x6D,                          // CRC
                       0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44,  // IEND
                       0xAE, 0x42, 0x60, 0x82};
    const GreyImage image = decode(png);
    EXPECT_EQ(image.width, 2);
    EXPECT_EQ(image.height, 2);
    EXPECT_EQ(image.pixels, (Bytes{0, 255, 16, 128}));
}

TEST(GreyPng, TakesWhateverAPngMayHold) {
    const Bytes packed = zlibStored({0, 1, 2, 0, 3, 4});
    const auto part = [&](std::size_t from, std::size_t to) {
        return chunk("IDAT", Bytes(packed.data() + from, packed.data() + to));
    };
    EXPECT_EQ(decode(pngOf({headerChunk(2, 2), part(0, 0), part(0, 1), part(1, 9), part(9, 9), part(9, packed.size())}))
                  .pixels,
              (Bytes{1, 2, 3, 4}));
    // other chunks, and what follows the end
    const Bytes png = pngOf({headerChunk(1, 1), chunk("gAMA", {0, 0, 0, 1}), chunk("tRNS", {0, 7}),
                             chunk("IDAT", zlibStored({0, 7})), chunk("tEXt", Bytes().raw("a"))});
    EXPECT_EQ(decode(Bytes(png).raw("behind")).pixels, Bytes{7});
    // fewer bits, spread over the full range
    EXPECT_EQ(decode(pngFrom(headerChunk(2, 1, 1), zlibStored({0, 0b01000000}))).pixels, (Bytes{0, 255}));
    EXPECT_EQ(decode(pngFrom(headerChunk(2, 1, 2), zlibStored({0, 0b01100000}))).pixels, (Bytes{85, 170}));
    EXPECT_EQ(decode(pngFrom(headerChunk(2, 1, 4), zlibStored({0, 0x1F}))).pixels, (Bytes{17, 255}));
    // interlaced, of 2 x 2 pixels pass 1 holds the first, pass 6 the second, pass 7 the lower row
    EXPECT_EQ(decode(pngFrom(headerChunk(2, 2, 8, 0, 1), zlibStored({0, 1, 0, 2, 0, 3, 4}))).pixels,
              (Bytes{1, 2, 3, 4}));
}

TEST(GreyPng, AgreesWithTheReferenceOnAnyFilterAndWidth) {
    std::mt19937 random(20240611);
    for (const std::uint32_t width : {1U, 2U, 7U, 8U, 9U, 15U, 16U, 17U, 63U, 64U, 65U, 300U}) {
        const std::uint32_t height = 23;
        Bytes raw;
        for (std::uint32_t y = 0; y < height; ++y) {
            raw.be(random() % 5, 1);
            for (std::uint32_t x = 0; x < width; ++x) raw.be(random(), 1);
        }
        const Bytes png = greyPng(width, height, raw);
        EXPECT_EQ(decode(png).pixels, decodeReference(png, SPNG_FMT_G8)) << "width " << width;
    }
}

// ---- what is no grey layer

TEST(GreyPngRefuses, OtherKindsAndSizes) {
    const Bytes packed = zlibStored({0, 7});
    const std::string kindEnd = "; layers have to be 8-bit grey: export them again as such";
    const std::string sizeEnd = " pixels; each side has to be from 1 to 65535";
    const std::pair<Bytes, std::string> cases[] = {
        {headerChunk(1, 1, 16, 0), "is a PNG of 16-bit grey" + kindEnd},
        {headerChunk(1, 1, 8, 2), "is a PNG of 8-bit RGB" + kindEnd},
        {headerChunk(1, 1, 4, 3), "is a PNG of 4-bit palette" + kindEnd},
        {headerChunk(1, 1, 8, 4), "is a PNG of 8-bit grey and alpha" + kindEnd},
        {headerChunk(1, 1, 16, 6), "is a PNG of 16-bit RGB and alpha" + kindEnd},
        {headerChunk(0, 1), "is 0 x 1" + sizeEnd},
        {headerChunk(1, 65536), "is 1 x 65536" + sizeEnd},
        {headerChunk(0xFFFFFFFF, 1), "is 4294967295 x 1" + sizeEnd},
        {headerChunk(65535, 65535), "is 65535 x 65535 pixels; images of more than 1073741824 pixels are refused"},
    };
    for (const auto& [header, message] : cases)
        EXPECT_EQ(greyFailure(pngFrom(header, packed)), std::string(kName) + ": " + message);
    EXPECT_EQ(greyFailure(pngFrom(headerChunk(15120, 6230), packed)),
              damaged("it claims 15120 x 6230 pixels, more than its 13 bytes of data can hold"));
    EXPECT_EQ(greyFailure(Bytes().raw("P5 1440 2560 255 and so on, a portable greymap")),
              std::string(kName) + ": is not a PNG image");
    for (const Bytes& kind : {Bytes{3, 0, 0, 0, 0}, Bytes{8, 1, 0, 0, 0}, Bytes{4, 2, 0, 0, 0}, Bytes{16, 3, 0, 0, 0},
                              Bytes{8, 0, 1, 0, 0}, Bytes{8, 0, 0, 1, 0}, Bytes{8, 0, 0, 0, 2}})
        EXPECT_EQ(greyFailure(pngOf({chunk("IHDR", Bytes().u32(1).u32(1).raw(kind))})),
                  damaged("its header holds values that no PNG has"));
}

TEST(GreyPngRefuses, ChunksAndDataThatDoNotMakeTheImage) {
    const Bytes header = headerChunk(2, 2);
    const Bytes packed = zlibStored({0, 1, 2, 0, 3, 4});
    const Bytes first = chunk("IDAT", Bytes(packed.begin(), packed.begin() + 4));
    const Bytes second = chunk("IDAT", Bytes(packed.begin() + 4, packed.end()));
    Bytes badCrc = pngFrom(header, packed);
    badCrc[badCrc.size() - 13] ^= 1;  // the last byte before IEND
    Bytes badSum = packed;
    badSum.back() ^= 1;
    const std::pair<Bytes, std::string> cases[] = {
        {pngOf({header}), "it holds no image data"},
        {pngOf({header, first, chunk("tEXt", {}), second}), "other chunks stand between those of the image"},
        {pngOf({header, header, first, second}), "chunk IHDR is not known"},
        {pngOf({chunk("IDAT", Bytes(13, 0))}), "it does not begin with a header"},
        {badCrc, "the CRC of chunk IDAT does not match"},
        {pngFrom(header, zlibStored({0, 1, 2, 0, 3})), "its data hold too few pixels"},
        {pngFrom(header, zlibStored({0, 1, 2, 0, 3, 4, 0})), "its data hold too many pixels"},
        {pngFrom(header, zlibStored({0, 1, 2, 5, 3, 4})), "row 1 has the unknown filter 5"},
        {pngFrom(header, badSum), "its data cannot be unpacked"},
    };
    for (const auto& [png, message] : cases) EXPECT_EQ(greyFailure(png), damaged(message));
}

// ---- pictures

TEST(ColourPng, DecodesEveryKind) {
    const Bytes png = pngOf({headerChunk(2, 1, 8, 3), chunk("PLTE", {10, 20, 30, 40, 50, 60}), chunk("tRNS", {128}),
                             chunk("IDAT", zlibStored({0, 1, 0}))});
    const ColourImage image = decodeColour(png, kName);
    EXPECT_EQ(image.width, 2);
    EXPECT_EQ(image.height, 1);
    EXPECT_EQ(image.pixels, (Bytes{40, 50, 60, 255, 10, 20, 30, 128}));
    const auto pixels = [](unsigned depth, unsigned colour, const Bytes& raw) {
        return decodeColour(pngFrom(headerChunk(1, 1, depth, colour), zlibStored(raw)), kName).pixels;
    };
    EXPECT_EQ(pixels(8, 6, {0, 1, 2, 3, 4}), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(pixels(8, 0, {0, 9}), (Bytes{9, 9, 9, 255}));
    EXPECT_EQ(pixels(16, 2, {0, 1, 99, 2, 99, 3, 99}), (Bytes{1, 2, 3, 255}));
}

// ---- encoding

TEST(EncodePng, IsReadBackByTheReference) {
    std::mt19937 random(7);
    for (const int width : {1, 16, 333}) {
        GreyImage image{width, 9, {}};
        for (int i = 0; i < width * 9; ++i) image.pixels.push_back(static_cast<unsigned char>(random() % 3 * 100));
        const std::vector<unsigned char> png = encodePng(image);
        const Bytes head = pngSignature().raw(headerChunk(static_cast<std::uint32_t>(width), 9));
        EXPECT_EQ(Bytes(png.begin(), png.begin() + 33), head);
        EXPECT_EQ(decodeReference(png, SPNG_FMT_G8), image.pixels);
        EXPECT_EQ(decode(png).pixels, image.pixels);
    }
    const std::vector<unsigned char> colour = encodePng(ColourImage{2, 1, {1, 2, 3, 0, 4, 5, 6, 255}});
    EXPECT_EQ(colour[25], 2);  // RGB, without alpha
    EXPECT_EQ(decodeReference(colour, SPNG_FMT_RGB8), (Bytes{1, 2, 3, 4, 5, 6}));
}
