#include "tools/images/png.h"

#include "tools/base/failure.h"
#include "tools/images/deflate.h"

#include <spng.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace vndlp::tools {

namespace {

using Bytes = std::span<const unsigned char>;

constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
constexpr std::size_t kHeaderBytes = 13;
constexpr std::size_t kMaxChunkBytes = 0x7FFFFFFF;

/// Chunk types as the big-endian number their four letters make.
constexpr std::uint32_t kIHDR = 0x49484452;
constexpr std::uint32_t kPLTE = 0x504C5445;
constexpr std::uint32_t kIDAT = 0x49444154;
constexpr std::uint32_t kIEND = 0x49454E44;
constexpr std::uint32_t kAncillaryBit = 0x20000000;  // lower case first letter: may be passed over

enum Filter : unsigned char { kNone = 0, kSub = 1, kUp = 2, kAverage = 3, kPaeth = 4 };

/// Asks for large pages under memory about to be filled for the first time, which the system hands out faster.
void adviseLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t size) {
#if defined(__linux__)
    constexpr std::size_t kPageBytes = 4096;
    constexpr std::size_t kWorthwhile = std::size_t{1} << 22;
    if (size < kWorthwhile) return;
    const std::size_t skipped = (kPageBytes - reinterpret_cast<std::uintptr_t>(memory) % kPageBytes) % kPageBytes;
    // a hint: where it is refused, small pages serve
    (void)madvise(static_cast<char*>(memory) + skipped, size - skipped, MADV_HUGEPAGE);
#endif
}

[[noreturn]] void fail(const std::string& name, const std::string& what) { throw Failure(name + ": " + what); }

[[noreturn]] void failDamaged(const std::string& name, const std::string& what) {
    fail(name, "the PNG is damaged (" + what + "); copy or make it again");
}

std::uint32_t bigEndian32(const unsigned char* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

std::string typeText(std::uint32_t type) {
    std::string text;
    for (const int shift : {24, 16, 8, 0}) {
        const auto letter = static_cast<char>(type >> shift);
        const bool isLetter = (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
        text += isLetter ? letter : '?';
    }
    return text;
}

struct Chunk {
    std::uint32_t type = 0;
    Bytes data;
};

/// Takes the first chunk off `rest`, its CRC checked.
Chunk takeChunk(Bytes& rest, const std::string& name) {
    constexpr std::size_t kFrame = 12;  // length, type, CRC
    if (rest.size() < kFrame || bigEndian32(rest.data()) > rest.size() - kFrame) failDamaged(name, "it is cut short");
    const std::size_t length = bigEndian32(rest.data());
    const Chunk chunk{bigEndian32(rest.data() + 4), rest.subspan(8, length)};
    if (libdeflate_crc32(0, rest.data() + 4, length + 4) != bigEndian32(rest.data() + 8 + length))
        failDamaged(name, "the CRC of chunk " + typeText(chunk.type) + " does not match");
    rest = rest.subspan(kFrame + length);
    return chunk;
}

bool isDepthAllowed(PngColour colour, int depth) {
    switch (colour) {
        case PngColour::kGrey: return depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16;
        case PngColour::kPalette: return depth == 1 || depth == 2 || depth == 4 || depth == 8;
        case PngColour::kRgb:
        case PngColour::kGreyAlpha:
        case PngColour::kRgba: return depth == 8 || depth == 16;
    }
    return false;
}

std::uint64_t channelsOf(PngColour colour) {
    switch (colour) {
        case PngColour::kRgb: return 3;
        case PngColour::kGreyAlpha: return 2;
        case PngColour::kRgba: return 4;
        default: return 1;
    }
}

std::string describe(const PngHeader& header) {
    const std::string depth = std::to_string(header.bitDepth) + "-bit ";
    switch (header.colour) {
        case PngColour::kRgb: return depth + "RGB";
        case PngColour::kPalette: return depth + "palette";
        case PngColour::kGreyAlpha: return depth + "grey and alpha";
        case PngColour::kRgba: return depth + "RGB and alpha";
        default: return depth + "grey";
    }
}

/// A PNG whose chunks have been walked: what a decoder has to know.
struct PngFile {
    PngHeader header;
    Bytes packed;  ///< the data of all IDAT chunks; valid until the thread walks another PNG
};

PngFile walkChunks(Bytes bytes, const std::string& name) {
    thread_local std::vector<unsigned char> joined;
    PngFile png;
    png.header = readPngHeader(bytes, name);
    Bytes rest = bytes.subspan(kPngHeadBytes);
    int idats = 0;
    std::uint32_t previous = kIHDR;
    for (;;) {
        const Chunk chunk = takeChunk(rest, name);
        if (chunk.type == kIEND) break;
        if (chunk.type == kIDAT) {
            if (idats > 0 && previous != kIDAT) failDamaged(name, "other chunks stand between those of the image");
            // one chunk, the usual case, is used where it stands
            if (idats == 0) {
                png.packed = chunk.data;
            } else {
                if (idats == 1) joined.assign(png.packed.begin(), png.packed.end());
                joined.insert(joined.end(), chunk.data.begin(), chunk.data.end());
                png.packed = joined;
            }
            ++idats;
        } else if (chunk.type != kPLTE && (chunk.type & kAncillaryBit) == 0) {
            failDamaged(name, "chunk " + typeText(chunk.type) + " is not known");
        }
        previous = chunk.type;
    }
    if (idats == 0) failDamaged(name, "it holds no image data");
    return png;
}

/// Refuses an image whose pixels cannot come out of so few bytes, before anything of its size is allocated.
void requirePlausible(const PngFile& png, std::int64_t maxPixels, const std::string& name) {
    const auto width = static_cast<std::uint64_t>(png.header.width);
    const auto height = static_cast<std::uint64_t>(png.header.height);
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    if (width * height > static_cast<std::uint64_t>(maxPixels))
        fail(name, "is " + size + "; images of more than " + std::to_string(maxPixels) + " pixels are refused");
    const std::uint64_t bits = static_cast<std::uint64_t>(png.header.bitDepth) * channelsOf(png.header.colour);
    const std::uint64_t raw = (width * bits + 7) / 8 * height;
    if (raw / kMaxDeflateRatio > png.packed.size())
        failDamaged(name, "it claims " + size + ", more than its " + std::to_string(png.packed.size()) +
                              " bytes of data can hold");
}

unsigned char paethOf(int left, int above, int aboveLeft) {
    const int byLeft = std::abs(above - aboveLeft);
    const int byAbove = std::abs(left - aboveLeft);
    const int byAboveLeft = std::abs(left + above - 2 * aboveLeft);
    if (byLeft <= byAbove && byLeft <= byAboveLeft) return static_cast<unsigned char>(left);
    return static_cast<unsigned char>(byAbove <= byAboveLeft ? above : aboveLeft);
}

/// Undoes a filter on one row of one-byte pixels. `above` is the row above, zeros for the first.
bool unfilterRow(unsigned char filter, unsigned char* row, const unsigned char* above, std::size_t width) {
    unsigned char left = 0;
    unsigned char aboveLeft = 0;
    switch (filter) {
        case kNone: return true;
        case kSub:
            for (std::size_t x = 0; x < width; ++x) row[x] = left = static_cast<unsigned char>(row[x] + left);
            return true;
        case kUp:
            for (std::size_t x = 0; x < width; ++x) row[x] = static_cast<unsigned char>(row[x] + above[x]);
            return true;
        case kAverage:
            for (std::size_t x = 0; x < width; ++x)
                row[x] = left = static_cast<unsigned char>(row[x] + (left + above[x]) / 2);
            return true;
        case kPaeth:
            for (std::size_t x = 0; x < width; ++x) {
                row[x] = left = static_cast<unsigned char>(row[x] + paethOf(left, above[x], aboveLeft));
                aboveLeft = above[x];
            }
            return true;
        default: return false;
    }
}

/// Gives a buffer `size` bytes of any value. A buffer that is too small is freed before the new one is made.
void resizeForOverwrite(std::vector<unsigned char>& buffer, std::size_t size) {
    if (buffer.capacity() < size) {
        buffer = {};
        buffer.reserve(size);
        adviseLargePages(buffer.data(), buffer.capacity());
    }
    buffer.resize(size);
}

/// 8-bit grey, not interlaced. The rows are unpacked, each behind its filter byte, into the image's own buffer.
void decodePlainGrey(const PngFile& png, const std::string& name, GreyImage& out) {
    static constexpr unsigned char zeros[kMaxImageSide] = {};
    const auto width = static_cast<std::size_t>(png.header.width);
    const auto height = static_cast<std::size_t>(png.header.height);
    resizeForOverwrite(out.pixels, (width + 1) * height);
    unsigned char* const pixels = out.pixels.data();
    switch (libdeflate_zlib_decompress(threadDecompressor(), png.packed.data(), png.packed.size(), pixels,
                                       out.pixels.size(), nullptr)) {
        case LIBDEFLATE_SUCCESS: break;
        case LIBDEFLATE_SHORT_OUTPUT: failDamaged(name, "its data hold too few pixels");
        case LIBDEFLATE_INSUFFICIENT_SPACE: failDamaged(name, "its data hold too many pixels");
        default: failDamaged(name, "its data cannot be unpacked");
    }
    const unsigned char* above = zeros;
    for (std::size_t y = 0; y < height; ++y) {
        unsigned char* const row = pixels + y * (width + 1) + 1;
        const unsigned char filter = row[-1];
        if (!unfilterRow(filter, row, above, width))
            failDamaged(name, "row " + std::to_string(y) + " has the unknown filter " + std::to_string(filter));
        above = row;
    }
    out.padding = 1;
}

struct FreeSpng {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

void decodeThroughSpng(Bytes bytes, const std::string& name, int format, int flags, std::vector<unsigned char>& out) {
    constexpr std::size_t kMaxAncillaryBytes = std::size_t{64} << 20;
    const std::unique_ptr<spng_ctx, FreeSpng> context(spng_ctx_new(0));
    if (context == nullptr) throw std::bad_alloc();
    const auto check = [&name](int status) {
        if (status != 0) failDamaged(name, spng_strerror(status));
    };
    check(spng_set_image_limits(context.get(), kMaxImageSide, kMaxImageSide));
    check(spng_set_chunk_limits(context.get(), std::min(bytes.size(), kMaxChunkBytes), kMaxAncillaryBytes));
    check(spng_set_png_buffer(context.get(), bytes.data(), bytes.size()));
    std::size_t size = 0;
    check(spng_decoded_image_size(context.get(), format, &size));
    resizeForOverwrite(out, size);
    check(spng_decode_image(context.get(), out.data(), out.size(), format, flags));
}

void appendBigEndian32(std::vector<unsigned char>& out, std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) out.push_back(static_cast<unsigned char>(value >> shift));
}

void appendChunk(std::vector<unsigned char>& out, std::uint32_t type, Bytes data) {
    appendBigEndian32(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    appendBigEndian32(out, type);
    out.insert(out.end(), data.begin(), data.end());
    appendBigEndian32(out, libdeflate_crc32(0, out.data() + start, out.size() - start));
}

/// Puts the filter byte None before each row. Layers are made of runs and rows repeat each other, which deflate finds
/// by itself; the other filters only hide it: they were larger, and no faster, on layers of real jobs.
void addFilterBytes(Bytes pixels, std::size_t rowBytes, std::vector<unsigned char>& filtered) {
    const std::size_t rows = pixels.size() / rowBytes;
    resizeForOverwrite(filtered, pixels.size() + rows);
    unsigned char* out = filtered.data();
    for (std::size_t y = 0; y < rows; ++y, out += rowBytes + 1) {
        out[0] = kNone;
        std::memcpy(out + 1, pixels.data() + y * rowBytes, rowBytes);
    }
}

std::vector<unsigned char> encode(int width, int height, PngColour colour, Bytes pixels) {
    thread_local std::vector<unsigned char> filtered;
    thread_local std::vector<unsigned char> packed;
    addFilterBytes(pixels, pixels.size() / static_cast<std::size_t>(height), filtered);
    libdeflate_compressor* const compressor = threadCompressor();
    resizeForOverwrite(packed, libdeflate_zlib_compress_bound(compressor, filtered.size()));
    const std::size_t size =
        libdeflate_zlib_compress(compressor, filtered.data(), filtered.size(), packed.data(), packed.size());

    std::vector<unsigned char> header;
    appendBigEndian32(header, static_cast<std::uint32_t>(width));
    appendBigEndian32(header, static_cast<std::uint32_t>(height));
    const unsigned char kind[] = {8, static_cast<unsigned char>(colour), 0, 0, 0};
    header.insert(header.end(), std::begin(kind), std::end(kind));

    std::vector<unsigned char> out(std::begin(kSignature), std::end(kSignature));
    out.reserve(size + 128);
    appendChunk(out, kIHDR, header);
    for (std::size_t start = 0; start < size; start += kMaxChunkBytes)
        appendChunk(out, kIDAT, Bytes(packed).subspan(start, std::min(size - start, kMaxChunkBytes)));
    appendChunk(out, kIEND, {});
    return out;
}

}  // namespace

PngHeader readPngHeader(Bytes bytes, const std::string& name) {
    if (!std::equal(bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), sizeof kSignature)), kSignature))
        fail(name, "is not a PNG image");
    if (bytes.size() < kPngHeadBytes) failDamaged(name, "it is cut short");
    Bytes rest = bytes.subspan(sizeof kSignature, kPngHeadBytes - sizeof kSignature);
    if (bigEndian32(rest.data()) != kHeaderBytes || bigEndian32(rest.data() + 4) != kIHDR)
        failDamaged(name, "it does not begin with a header");
    const unsigned char* const fields = takeChunk(rest, name).data.data();

    const std::uint32_t width = bigEndian32(fields);
    const std::uint32_t height = bigEndian32(fields + 4);
    if (width == 0 || height == 0 || width > kMaxImageSide || height > kMaxImageSide)
        fail(name, "is " + std::to_string(width) + " x " + std::to_string(height) +
                       " pixels; each side has to be from 1 to " + std::to_string(kMaxImageSide));
    PngHeader header;
    header.width = static_cast<int>(width);
    header.height = static_cast<int>(height);
    header.bitDepth = fields[8];
    header.colour = static_cast<PngColour>(fields[9]);
    header.interlaced = fields[12] == 1;
    if (!isDepthAllowed(header.colour, header.bitDepth) || fields[10] != 0 || fields[11] != 0 || fields[12] > 1)
        failDamaged(name, "its header holds values that no PNG has");
    return header;
}

void requireGreyLayer(const PngHeader& header, const std::string& name) {
    if (header.colour != PngColour::kGrey || header.bitDepth > 8)
        fail(name, "is a PNG of " + describe(header) + "; layers have to be 8-bit grey: export them again as such");
}

void removePadding(GreyImage& image) {
    if (image.padding == 0) return;
    const auto width = static_cast<std::size_t>(image.width);
    // a row's place always lies before the bytes it comes from
    for (int y = 0; y < image.height; ++y) {
        std::memmove(image.pixels.data() + static_cast<std::size_t>(y) * width, image.row(y), width);
    }
    image.padding = 0;
    image.pixels.resize(width * static_cast<std::size_t>(image.height));
}

void decodeGreyLayer(Bytes bytes, const std::string& name, GreyImage& out) {
    decodePaddedLayer(bytes, name, out);
    removePadding(out);
}

void decodePaddedLayer(Bytes bytes, const std::string& name, GreyImage& out) {
    out.padding = 0;
    try {
        const PngFile png = walkChunks(bytes, name);
        requireGreyLayer(png.header, name);
        requirePlausible(png, kMaxGreyPixels, name);
        if (png.header.bitDepth == 8 && !png.header.interlaced)
            decodePlainGrey(png, name, out);
        else
            decodeThroughSpng(bytes, name, SPNG_FMT_G8, 0, out.pixels);
        out.width = png.header.width;
        out.height = png.header.height;
    } catch (...) {
        out = {};
        throw;
    }
}

ColourImage decodeColour(Bytes bytes, const std::string& name) {
    const PngFile png = walkChunks(bytes, name);
    requirePlausible(png, kMaxColourPixels, name);
    ColourImage image;
    decodeThroughSpng(bytes, name, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS, image.pixels);
    image.width = png.header.width;
    image.height = png.header.height;
    return image;
}

std::vector<unsigned char> encodePng(const GreyImage& image) {
    return encode(image.width, image.height, PngColour::kGrey, image.pixels);
}

std::vector<unsigned char> encodePng(const ColourImage& image) {
    std::vector<unsigned char> rgb;
    rgb.reserve(image.pixels.size() / 4 * 3);
    for (std::size_t i = 0; i + 3 < image.pixels.size(); i += 4)
        rgb.insert(rgb.end(), image.pixels.begin() + static_cast<std::ptrdiff_t>(i),
                   image.pixels.begin() + static_cast<std::ptrdiff_t>(i + 3));
    return encode(image.width, image.height, PngColour::kRgb, rgb);
}

}  // namespace vndlp::tools
