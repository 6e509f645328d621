#include <vndlp/image.h>

#include "image/run_builder.h"
#include "io/byte_order.h"
#include "io/report.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace vndlp {

namespace {

/// A coordinate as a whole number, truncated; what no int can hold becomes the nearest it can, NaN 0.
int wholePixel(float value) {
    if (!(value > -2147483648.0F)) return std::isnan(value) ? 0 : INT32_MIN;
    return value < 2147483648.0F ? static_cast<int>(value) : INT32_MAX;
}

/// Writes a run in 6 bytes. Higher bits of a field are dropped.
/// \param out room for 8 bytes: one store of a whole word is quicker than six.
void packRun(std::uint32_t firstRow, std::uint32_t lastRow, std::uint32_t x, unsigned char grey, unsigned char* out) {
    constexpr std::uint32_t rowBits = 0x1FFF;
    constexpr std::uint32_t columnBits = 0x3FFF;
    const std::uint64_t run = static_cast<std::uint64_t>(firstRow & rowBits) << 35 |
                              static_cast<std::uint64_t>(lastRow & rowBits) << 22 |
                              static_cast<std::uint64_t>(x & columnBits) << 8 | grey;
    putBigEndian64(run << 16, out);
}

int packedFirstRow(const unsigned char* run) { return run[0] << 5 | run[1] >> 3; }
int packedLastRow(const unsigned char* run) { return (run[1] & 7) << 10 | run[2] << 2 | run[3] >> 6; }

/// Runs as the file holds them.
struct PackedForm {
    using Item = unsigned char;
    static constexpr std::size_t kItems = kPackedRunBytes;
    static constexpr std::size_t kRoom = 8;
    static constexpr auto write = packRun;

    using Row = std::uint32_t;
    static void append(int x, const ColumnRuns<Row>& runs, std::vector<unsigned char>& list) {
        unsigned char packed[ColumnRuns<Row>::kRoom * kItems + kRoom];
        unsigned char* next = packed;
        for (std::size_t i = 0; i < runs.ended; ++i, next += kItems) {
            packRun(runs.firstRows[i], runs.lastRows[i], static_cast<std::uint32_t>(x), runs.greys[i], next);
        }
        list.insert(list.end(), packed, next);
    }
};

/// Runs as callers handle them.
struct WhiteDataForm {
    using Item = WhiteData;
    static constexpr std::size_t kItems = 1;
    static constexpr std::size_t kRoom = 1;
    static void write(std::uint32_t firstRow, std::uint32_t lastRow, std::uint32_t x, unsigned char grey,
                      WhiteData* out) {
        // rows are below 2^31, and signed numbers become floats in one step
        const auto column = static_cast<float>(static_cast<std::int32_t>(x));
        out->start = Vec2(column, static_cast<float>(static_cast<std::int32_t>(firstRow)));
        out->end = Vec2(column, static_cast<float>(static_cast<std::int32_t>(lastRow)));
        out->grey = grey;
    }

    using Row = float;
    static void append(int x, const ColumnRuns<Row>& runs, std::vector<WhiteData>& list) {
        const auto column = static_cast<float>(x);
        list.insert(list.end(), Iterator{&runs, column, 0}, Iterator{&runs, column, runs.ended});
    }

private:
    /// Makes runs where they are to stay: what they take in memory is most of the work.
    struct Iterator {
        using iterator_category = std::forward_iterator_tag;
        using value_type = WhiteData;
        using difference_type = std::ptrdiff_t;
        using pointer = const WhiteData*;
        using reference = WhiteData;

        const ColumnRuns<Row>* runs;
        float column;
        std::size_t at;

        WhiteData operator*() const {
            WhiteData run;
#if defined(__GNUC__)
            // a vector a run: left to itself, the compiler takes vectors of many and spends more on sorting them
            using Places = float __attribute__((vector_size(4 * sizeof(float))));
            const Places places = {column, runs->firstRows[at], column, runs->lastRows[at]};
            static_assert(offsetof(WhiteData, end) + sizeof run.end == sizeof places);
            std::memcpy(static_cast<void*>(&run), &places, sizeof places);
#else
            run.start = Vec2(column, runs->firstRows[at]);
            run.end = Vec2(column, runs->lastRows[at]);
#endif
            run.grey = runs->greys[at];
            return run;
        }
        Iterator& operator++() {
            ++at;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++at;
            return before;
        }
        bool operator==(const Iterator& other) const { return at == other.at; }
    };
};

}  // namespace

int grayDataVecWhiteData(unsigned char* data, int width, int height, std::vector<WhiteData>& runs) {
    RunBuilder<WhiteDataForm>(data, width, height, width, runs).run();
    return 0;
}

int dlpImageGray2VecWhiteData(DlpImage& image, std::vector<WhiteData>& runs) {
    if (image.pixelWidth() != DlpImage::PIXEL_GRAY8) {
        report("image must be gray\n");
        return -1;
    }
    if (!image.haveDatas()) return 0;
    return grayDataVecWhiteData(reinterpret_cast<unsigned char*>(image.bits()), image.width(), image.height(), runs);
}

void grayDataPackedRuns(const unsigned char* data, int width, int height, std::vector<unsigned char>& packed) {
    grayDataPackedRuns(data, width, height, width, packed);
}

void grayDataPackedRuns(const unsigned char* data, int width, int height, std::ptrdiff_t stride,
                        std::vector<unsigned char>& packed) {
    RunBuilder<PackedForm>(data, width, height, stride, packed).run();
}

void whiteData2Bits(const WhiteData& run, unsigned char* const out) {
    unsigned char packed[PackedForm::kRoom];
    packRun(static_cast<unsigned>(wholePixel(run.start.y)), static_cast<unsigned>(wholePixel(run.end.y)),
            static_cast<unsigned>(wholePixel(run.start.x)), static_cast<unsigned char>(run.grey), packed);
    std::memcpy(out, packed, kPackedRunBytes);
}

void bits2WhiteData(const unsigned char* const in, WhiteData& run) {
    const auto x = static_cast<float>((in[3] & 63u) << 8 | in[4]);
    run.start = Vec2(x, static_cast<float>(packedFirstRow(in)));
    run.end = Vec2(x, static_cast<float>(packedLastRow(in)));
    run.grey = in[5];
}

unsigned long long countPackedPixels(const std::vector<unsigned char>& packed) {
    long long pixels = 0;
    const unsigned char* run = packed.data();
    for (std::size_t left = packed.size() / kPackedRunBytes; left > 0; --left, run += kPackedRunBytes) {
        // a damaged file's run may end above its start
        pixels += std::max(packedLastRow(run) - packedFirstRow(run) + 1, 0);
    }
    return static_cast<unsigned long long>(pixels);
}

void paintWhiteData(const std::vector<WhiteData>& runs, unsigned char* pixels, int width, int height) {
    for (const WhiteData& run : runs) {
        const int x = wholePixel(run.start.x);
        if (x < 0 || x >= width) continue;
        const int first = std::max(wholePixel(run.start.y), 0);
        const int last = std::min(wholePixel(run.end.y), height - 1);
        const auto stride = static_cast<std::ptrdiff_t>(width);
        for (int y = first; y <= last; ++y) pixels[y * stride + x] = static_cast<unsigned char>(run.grey);
    }
}

}  // namespace vndlp
