#include "job/layer_data.h"

#include "ctb/encoded_data.h"
#include "image/run_builder.h"
#include "io/byte_order.h"
#include "v4/record_fields.h"

#include <vndlp/ctb.h>
#include <vndlp/image.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace vndlp::job {

namespace {

constexpr std::size_t kPackedPiece = std::size_t{kPackedRunBytes} * 40960;

std::uint64_t pixelsOf(const Model& model) { return std::uint64_t{model.info.width} * model.info.height; }

SliceResult wrongPixelCount(const Model& model, std::uint32_t layer, const LayerPlace& place, std::uint64_t made) {
    return damaged(
        place.data,
        "its encoded data make " + std::to_string(made) + " pixels, the screen has " + std::to_string(pixelsOf(model)),
        layer);
}

/// Hands the encoded data of a CTB or V4 layer, unscrambled, to `take(data, size)`, which returns the bytes it has
/// used; the others, fewer than a run's, come again in front of the next piece.
template <class Take>
SliceResult forEachCodedPiece(const Model& model, std::uint32_t layer, const LayerPlace& place, Take&& take) {
    SliceResult result;
    std::int64_t at = place.data;
    std::size_t left = 0;
    const auto read = [&](unsigned char* to, std::size_t size) {
        result = model.bytes.read(at, to, size);
        at += static_cast<std::int64_t>(size);
        return result.isOk() ? size : 0;
    };
    CTB::unscramblePieces(read, static_cast<std::size_t>(place.dataBytes), model.key, layer,
                          [&](const unsigned char* data, std::size_t size) {
                              const std::size_t used = take(data, size);
                              left = size - used;
                              return used;
                          });
    if (!result.isOk() || left == 0) return result;
    return damaged(place.end, "its encoded data end within a run", layer);
}

SliceResult countCoded(const Model& model, std::uint32_t layer, const LayerPlace& place, CTB::RunTotals& totals) {
    CTB::RunCounter counter;
    SliceResult result =
        forEachCodedPiece(model, layer, place,
                          [&counter](const unsigned char* data, std::size_t size) { return counter.take(data, size); });
    totals = counter.totals();
    const auto made = static_cast<std::uint64_t>(totals.pixels);
    return result.isOk() && made != pixelsOf(model) ? wrongPixelCount(model, layer, place, made) : result;
}

/// Calls `take(run)` for every run of a CTB or V4 layer, as far as the screen reaches.
template <class Take>
SliceResult forEachGreyRun(const Model& model, std::uint32_t layer, const LayerPlace& place, Take&& take) {
    const std::uint64_t pixels = pixelsOf(model);
    std::uint64_t made = 0;
    SliceResult result = forEachCodedPiece(model, layer, place, [&](const unsigned char* data, std::size_t size) {
        CTB::RunReader runs(data, size);
        for (CTB::Run run{}; runs.take(run);) {
            made += run.count;
            if (made <= pixels) take(run);
        }
        return size - runs.left();
    });
    return result.isOk() && made != pixels ? wrongPixelCount(model, layer, place, made) : result;
}

/// Calls `take(row, column, count, grey)` for the parts of a layer's runs that lie in one row each.
template <class Take>
SliceResult forEachRowRun(const Model& model, std::uint32_t layer, const LayerPlace& place, Take&& take) {
    CTB::RowCutter cutter(model.info.width, model.info.height, take);
    return forEachGreyRun(model, layer, place, [&cutter](const CTB::Run& run) { cutter.take(run); });
}

struct PackedRun {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t column;
    unsigned grey;
};

PackedRun unpack(const unsigned char* bytes) {
    const std::uint64_t bits = static_cast<std::uint64_t>(loadNumber<std::uint32_t>(bytes, BigEndian)) << 16 |
                               loadNumber<std::uint16_t>(bytes + 4, BigEndian);
    return {static_cast<std::uint32_t>(bits >> 35), static_cast<std::uint32_t>(bits >> 22 & 0x1FFF),
            static_cast<std::uint32_t>(bits >> 8 & 0x3FFF), static_cast<unsigned>(bits & 0xFF)};
}

/// A place behind the one of a run before: its column and the row behind its last.
std::uint32_t orderOf(std::uint32_t column, std::uint32_t row) { return column << 13 | row; }

bool isSound(const PackedRun& run, const SliceInfo& screen, std::uint32_t behind) {
    return (run.column < screen.width) & (run.last < screen.height) & (run.first <= run.last) &
           (run.grey > kLitThreshold) & (orderOf(run.column, run.first) >= behind);
}

std::string whatIsWrong(const PackedRun& run, const SliceInfo& screen) {
    const std::string place = "(column " + std::to_string(run.column) + ", rows " + std::to_string(run.first) + " to " +
                              std::to_string(run.last) + ") ";
    if (run.column >= screen.width || run.last >= screen.height) {
        return place + "is outside the screen of " + std::to_string(screen.width) + " x " +
               std::to_string(screen.height);
    }
    if (run.first > run.last) return place + "ends before it begins";
    if (run.grey <= kLitThreshold) return place + "has the background grey " + std::to_string(run.grey);
    return place + "is not behind the run before it";
}

/// Calls `take(run)` for every run of a `.vndlp` layer up to one that is wrong.
template <class Take>
SliceResult forEachPackedRun(const Model& model, std::uint32_t layer, const LayerPlace& place, Take&& take) {
    const SliceInfo screen = model.info;
    std::uint32_t behind = 0;
    return forEachPiece(
        model.bytes, place.data, place.dataBytes, kPackedPiece,
        [&](const unsigned char* data, std::size_t size, std::int64_t done) {
            for (std::size_t at = 0; at + kPackedRunBytes <= size; at += kPackedRunBytes) {
                const PackedRun run = unpack(data + at);
                if (!isSound(run, screen, behind)) {
                    const std::int64_t offset = done + static_cast<std::int64_t>(at);
                    return damaged(place.data + offset,
                                   "run " + std::to_string(offset / kPackedRunBytes) + " " + whatIsWrong(run, screen),
                                   layer);
                }
                behind = orderOf(run.column, run.last) + 1;
                take(run);
            }
            return job::done();
        });
}

bool isPacked(const Model& model) { return model.info.format == SliceFormat::vndlp; }

/// Counts what an image's runs down its columns are, from its runs along the rows: one begins at every lit pixel that
/// differs from the one above. The stretches of a row are held against those of the row above as they come; mostly they
/// are the same, and then none begins.
class ColumnRunCounter {
public:
    explicit ColumnRunCounter(const SliceInfo& screen)
        : m_width(screen.width),
          m_pixels(std::uint64_t{screen.width} * screen.height),
          m_above(std::size_t{screen.width} + 1),
          m_row(std::size_t{screen.width} + 1) {
        m_above[0] = stretch(m_width, 0);
    }

    /// \return the bytes used.
    std::size_t take(const unsigned char* data, std::size_t size) {
        CTB::RunReader runs(data, size);
        Cursor c = m_cursor;  // where the loop keeps it in registers
        c.above = m_above.data() + c.aboveAt;
        c.out = m_row.data() + c.outAt;
        for (CTB::Run run{}; runs.take(run);) {
            c.made += run.count;
            if (c.made > m_pixels) continue;
            const bool isLit = CTB::decodedGrey(run.grey) > kLitThreshold;
            c.counts.lit += isLit ? run.count : 0;
            add(run.count, isLit ? run.grey : 0, c);
        }
        c.aboveAt = c.above - m_above.data();
        c.outAt = c.out - m_row.data();
        m_cursor = c;
        return size - runs.left();
    }

    /// Pixels taken, also those beyond the screen, which are not counted.
    [[nodiscard]] std::uint64_t made() const { return m_cursor.made; }
    [[nodiscard]] const LayerCounts& counts() const { return m_cursor.counts; }

private:
    /// Pixels of one grey up to column `end`, exclusive.
    using Stretch = std::uint64_t;
    static Stretch stretch(std::uint32_t end, unsigned grey) { return static_cast<Stretch>(end) << 8 | grey; }
    static std::uint32_t endOf(Stretch s) { return static_cast<std::uint32_t>(s >> 8); }
    static unsigned greyOf(Stretch s) { return s & 0xFF; }

    struct Cursor {
        std::uint32_t x = 0;
        bool isAligned = true;  ///< a stretch of the row above begins at the place, too
        std::uint64_t made = 0;
        const Stretch* above = nullptr;  ///< in the row above, the stretch at the place
        Stretch* out = nullptr;
        std::ptrdiff_t aboveAt = 0;
        std::ptrdiff_t outAt = 0;
        LayerCounts counts;
    };

    void add(std::size_t count, unsigned grey, Cursor& c) {
        while (count >= m_width - c.x) {
            count -= m_width - c.x;
            const bool isWholeRow = c.x == 0;
            addStretch(m_width, grey, c);
            m_above.swap(m_row);
            c.above = m_above.data();
            c.out = m_row.data();
            c.x = 0;
            c.isAligned = true;
            // of rows that are one stretch each only the first can begin anything
            if (isWholeRow) count %= m_width;
        }
        if (count > 0) addStretch(c.x + static_cast<std::uint32_t>(count), grey, c);
    }

    static void addStretch(std::uint32_t end, unsigned grey, Cursor& c) {
        const Stretch here = stretch(end, grey);
        *c.out++ = here;
        if (*c.above == here && c.isAligned) {
            ++c.above;
        } else {
            compare(end, grey, c);
        }
        c.x = end;
    }

    static void compare(std::uint32_t end, unsigned grey, Cursor& c) {
        std::uint32_t from = c.x;
        for (; endOf(*c.above) < end; ++c.above) {
            if (grey != 0 && greyOf(*c.above) != grey) c.counts.runs += endOf(*c.above) - from;
            from = endOf(*c.above);
        }
        if (grey != 0 && greyOf(*c.above) != grey) c.counts.runs += end - from;
        c.isAligned = endOf(*c.above) == end;
        if (c.isAligned) ++c.above;
    }

    std::uint32_t m_width;
    std::uint64_t m_pixels;
    std::vector<Stretch> m_above;
    std::vector<Stretch> m_row;
    Cursor m_cursor;
};

SliceResult countPacked(const Model& model, std::uint32_t layer, const LayerPlace& place, LayerCounts& counts) {
    std::uint64_t lit = 0;
    SliceResult result =
        forEachPackedRun(model, layer, place, [&lit](const PackedRun& run) { lit += run.last - run.first + 1; });
    counts = {place.count, lit};
    return result;
}

SliceResult countColumnRuns(const Model& model, std::uint32_t layer, const LayerPlace& place, LayerCounts& counts) {
    ColumnRunCounter counter(model.info);
    SliceResult result =
        forEachCodedPiece(model, layer, place,
                          [&counter](const unsigned char* data, std::size_t size) { return counter.take(data, size); });
    if (result.isOk() && counter.made() != pixelsOf(model)) {
        return wrongPixelCount(model, layer, place, counter.made());
    }
    counts = counter.counts();
    return result;
}

SliceResult decodeContiguous(const Model& model, std::uint32_t layer, const LayerPlace& place, unsigned char* pixels) {
    const std::uint64_t count = pixelsOf(model);
    std::memset(pixels, 0, static_cast<std::size_t>(count));
    std::uint64_t made = 0;
    std::size_t painted = 0;
    SliceResult result = forEachCodedPiece(model, layer, place, [&](const unsigned char* data, std::size_t size) {
        CTB::RunReader counted(data, size);
        CTB::RunTotals totals;
        CTB::addUp(counted, totals);
        made += static_cast<std::uint64_t>(totals.pixels);
        CTB::RunReader runs(data, size);
        painted += CTB::decodeRuns(runs, pixels + painted, static_cast<std::size_t>(count) - painted);
        return size - counted.left();
    });
    if (result.isOk() && made != count) return wrongPixelCount(model, layer, place, made);
    return result;
}

SliceResult paintPacked(const Model& model, std::uint32_t layer, const LayerPlace& place, unsigned char* pixels,
                        std::size_t stride) {
    for (std::uint32_t y = 0; y < model.info.height; ++y) std::memset(pixels + y * stride, 0, model.info.width);
    return forEachPackedRun(model, layer, place, [pixels, stride](const PackedRun& run) {
        unsigned char* pixel = pixels + run.first * stride + run.column;
        for (std::uint32_t y = run.first; y <= run.last; ++y, pixel += stride) {
            *pixel = static_cast<unsigned char>(run.grey);
        }
    });
}

/// The library's runs of an image as the model has them.
struct SliceRunForm {
    using Item = SliceRun;
    static constexpr std::size_t kItems = 1;
    static constexpr std::size_t kRoom = 1;
    static void write(std::uint32_t firstRow, std::uint32_t lastRow, std::uint32_t x, unsigned char grey,
                      SliceRun* out) {
        *out = {static_cast<std::uint16_t>(firstRow), static_cast<std::uint16_t>(lastRow),
                static_cast<std::uint16_t>(x), grey, 0};
    }

    using Row = std::uint32_t;
    static void append(int x, const ColumnRuns<Row>& runs, std::vector<SliceRun>& list) {
        for (std::size_t i = 0; i < runs.ended; ++i) {
            write(runs.firstRows[i], runs.lastRows[i], static_cast<std::uint32_t>(x), runs.greys[i],
                  &list.emplace_back());
        }
    }
};

/// Joins lit neighbours along a line and hands them on in batches.
class LitBatch {
public:
    LitBatch(SliceLitFn lit, void* context) : m_lit(lit), m_context(context) { m_runs.reserve(kBatch); }

    void add(std::uint32_t line, std::uint32_t first, std::uint32_t last) {
        if (!m_runs.empty() && m_runs.back().line == line && m_runs.back().last + 1 == first) {
            m_runs.back().last = last;
            return;
        }
        if (m_runs.size() == kBatch) flush();
        m_runs.push_back({line, first, last});
    }
    /// \return false when the taker asked to stop.
    bool flush() {
        if (!m_runs.empty() && !m_isStopped) m_isStopped = m_lit(m_context, m_runs.data(), m_runs.size()) != 0;
        m_runs.clear();
        return !m_isStopped;
    }
    [[nodiscard]] bool isStopped() const { return m_isStopped; }

private:
    static constexpr std::size_t kBatch = 4096;

    SliceLitFn m_lit;
    void* m_context;
    bool m_isStopped = false;
    std::vector<LitRun> m_runs;
};

SliceResult checkShapes(const Model& model, std::uint32_t layer, const LayerPlace& place) {
    if (!place.isMesh) return done();
    SliceShapes shapes;
    SliceResult result = decodeShapes(model, layer, place, shapes);
    if (!result.isOk()) return result;
    for (std::size_t i = 0; i < shapes.vertices.size(); ++i) {
        if (std::isfinite(shapes.vertices[i])) continue;
        return damaged(place.data + static_cast<std::int64_t>(i / 2 * 8),
                       "vertex " + std::to_string(i / 2) + " is not a number", layer);
    }
    return result;
}

}  // namespace

SliceResult placeOfLayer(const Model& model, std::uint32_t layer, LayerPlace& place) {
    if (layer >= model.info.layers) return failure(SliceCode::index, "no such layer", -1, layer);
    const LayerTable& table = model.layers();
    if (layer >= table.layers.size()) {
        return damaged(table.brokenAt, table.brokenAt < 0 ? model.whatBroke : "its place cannot be found", layer);
    }
    place = table.layers[layer];
    if (place.begin >= 0 && place.dataBytes >= 0 && place.end <= model.bytes.size()) return done();
    return damaged(place.entry, "its data at offset " + std::to_string(place.data) + " do not lie within the file",
                   layer);
}

SliceResult placeOfImage(const Model& model, std::uint32_t layer, LayerPlace& place) {
    if (model.info.format == SliceFormat::vnline) {
        return failure(SliceCode::kind, "its layers are shapes, not images");
    }
    SliceResult result = placeOfLayer(model, layer, place);
    const std::uint64_t pixels = pixelsOf(model);
    const bool isSensible = pixels > 0 && pixels <= CTB::kMostLayerPixels &&
                            std::max(model.info.width, model.info.height) <= CTB::kLongestImageSide;
    if (!result.isOk() || isSensible) return result;
    return damaged(-1,
                   "layers of " + std::to_string(model.info.width) + " x " + std::to_string(model.info.height) +
                       " pixels cannot be decoded",
                   layer);
}

SliceResult checkData(const Model& model, std::uint32_t layer, const LayerPlace& place) {
    if (model.info.format == SliceFormat::vnline) return checkShapes(model, layer, place);
    if (isPacked(model)) return forEachPackedRun(model, layer, place, [](const PackedRun&) {});
    CTB::RunTotals totals;
    return countCoded(model, layer, place, totals);
}

SliceResult countData(const Model& model, std::uint32_t layer, const LayerPlace& place, LayerCounts& counts) {
    {
        const std::lock_guard<std::mutex> lock(model.counted.mutex);
        const auto found = model.counted.counts.find(layer);
        if (found != model.counted.counts.end()) {
            counts = found->second;
            return done();
        }
    }
    SliceResult result =
        isPacked(model) ? countPacked(model, layer, place, counts) : countColumnRuns(model, layer, place, counts);
    if (!result.isOk()) return result;
    const std::lock_guard<std::mutex> lock(model.counted.mutex);
    model.counted.counts.emplace(layer, counts);
    return result;
}

SliceResult decodePixels(const Model& model, std::uint32_t layer, const LayerPlace& place, unsigned char* pixels,
                         std::size_t stride) {
    if (isPacked(model)) return paintPacked(model, layer, place, pixels, stride);
    if (stride == model.info.width) return decodeContiguous(model, layer, place, pixels);
    return forEachRowRun(model, layer, place,
                         [=](std::size_t row, std::size_t column, std::size_t count, unsigned grey) {
                             std::memset(pixels + row * stride + column, CTB::decodedGrey(grey), count);
                         });
}

SliceResult decodeRows(const Model& model, std::uint32_t layer, const LayerPlace& place, SliceRowFn row,
                       void* context) {
    const std::size_t width = model.info.width;
    // rows are handed on only when the layer is known to be sound
    std::vector<unsigned char> pixels;
    if (isPacked(model)) {
        pixels.resize(static_cast<std::size_t>(pixelsOf(model)));
        SliceResult result = decodePixels(model, layer, place, pixels.data(), width);
        if (!result.isOk()) return result;
        for (std::uint32_t y = 0; y < model.info.height; ++y) {
            if (row(context, y, pixels.data() + y * width) != 0) return plain(SliceCode::stopped);
        }
        return result;
    }
    if (SliceResult result = checkData(model, layer, place); !result.isOk()) return result;
    pixels.resize(width);
    bool isStopped = false;
    SliceResult result =
        forEachRowRun(model, layer, place, [&](std::size_t y, std::size_t column, std::size_t count, unsigned grey) {
            if (isStopped) return;
            std::memset(pixels.data() + column, CTB::decodedGrey(grey), count);
            if (column + count == width) isStopped = row(context, static_cast<std::uint32_t>(y), pixels.data()) != 0;
        });
    return isStopped ? plain(SliceCode::stopped) : result;
}

SliceResult decodeRuns(const Model& model, std::uint32_t layer, const LayerPlace& place, std::vector<SliceRun>& runs) {
    runs.clear();
    if (isPacked(model)) {
        runs.reserve(place.count);
        return forEachPackedRun(model, layer, place, [&runs](const PackedRun& run) {
            runs.push_back({static_cast<std::uint16_t>(run.first), static_cast<std::uint16_t>(run.last),
                            static_cast<std::uint16_t>(run.column), static_cast<std::uint8_t>(run.grey), 0});
        });
    }
    std::vector<unsigned char> pixels(static_cast<std::size_t>(pixelsOf(model)));
    SliceResult result = decodePixels(model, layer, place, pixels.data(), model.info.width);
    if (!result.isOk()) return result;
    const auto width = static_cast<int>(model.info.width);
    RunBuilder<SliceRunForm>(pixels.data(), width, static_cast<int>(model.info.height), width, runs).run();
    return result;
}

SliceResult decodeLit(const Model& model, std::uint32_t layer, const LayerPlace& place, int threshold, SliceLitFn lit,
                      void* context) {
    LitBatch batch(lit, context);
    SliceResult result;
    if (isPacked(model)) {
        result = forEachPackedRun(model, layer, place, [&](const PackedRun& run) {
            if (static_cast<int>(run.grey) > threshold) batch.add(run.column, run.first, run.last);
        });
    } else {
        result = forEachRowRun(model, layer, place,
                               [&](std::size_t row, std::size_t column, std::size_t count, unsigned grey) {
                                   if (CTB::decodedGrey(grey) <= threshold) return;
                                   batch.add(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column),
                                             static_cast<std::uint32_t>(column + count - 1));
                               });
    }
    if (result.isOk()) batch.flush();
    return batch.isStopped() ? plain(SliceCode::stopped) : result;
}

SliceResult readData(const Model& model, std::uint32_t layer, const LayerPlace& place,
                     std::vector<unsigned char>& data) {
    data.resize(static_cast<std::size_t>(place.dataBytes));
    SliceResult result = model.bytes.read(place.data, data.data(), data.size());
    if (result.isOk() && !model.isVendor()) CTB::scramble(model.key, layer, data.data(), data.size());
    return result;
}

SliceResult decodeShapes(const Model& model, std::uint32_t layer, const LayerPlace& place, SliceShapes& shapes) {
    shapes = {};
    shapes.kind = place.isMesh ? SliceLayers::mesh : SliceLayers::paths;
    std::vector<unsigned char> data;
    SliceResult result = readData(model, layer, place, data);
    if (!result.isOk()) return result;
    const auto word = [&data](std::size_t at) { return loadNumber<std::uint32_t>(data.data() + at, BigEndian); };
    if (place.isMesh) {
        shapes.vertices.reserve(data.size() / 4);
        for (std::size_t at = 0; at + 4 <= data.size(); at += 4) shapes.vertices.push_back(bitCast<float>(word(at)));
        return result;
    }
    shapes.points.reserve(data.size() / 4);
    for (std::size_t at = 0; at + 4 <= data.size();) {
        const std::size_t end = at + 4 + 8 * std::size_t{word(at)};
        for (at += 4; at < std::min(end, data.size()); at += 4) {
            shapes.points.push_back(static_cast<std::int32_t>(word(at)));
        }
        shapes.pathEnds.push_back(static_cast<std::uint32_t>(shapes.points.size() / 2));
    }
    return result;
}

SliceResult readBeads(const Model& model, const LayerPlace& place, std::vector<unsigned char>& mask) {
    mask.clear();
    if (!place.isExtended) return done();
    VNDLPV4::LayerDef entry;
    std::vector<unsigned char> raw(VNDLPV4::kLayerDefBytes + VNDLPV4::kLayerExtensionBytes);
    SliceResult result = model.bytes.read(place.entry, raw.data(), raw.size());
    if (!result.isOk()) return result;
    MemorySource source(raw.data(), raw.size(), LittleEndian);
    readRecord(source, entry);
    mask = entry.beadMask();
    return result;
}

}  // namespace vndlp::job
