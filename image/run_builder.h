/// The run builder behind every form of a layer's runs.

#pragma once

#include "image/column_runs.h"
#include "image/row_changes.h"
#include "io/platform.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <vector>

namespace vndlp {

/// Collects the runs of one column after the other and appends them to a list.
///
/// \tparam Form a form of runs. `Item` is what the list holds; `kItems` of them make a run. `write(first, last, x,
/// grey, out)` writes one to `out`, where there is room for `kRoom` items. `append(x, runs, list)` appends the ended
/// runs of a column, whose rows are of type `Row`.
template <class Form>
class RunList {
public:
    using Item = typename Form::Item;

    explicit RunList(std::vector<Item>& list) : m_list(list) {}
    RunList(const RunList&) = delete;
    RunList& operator=(const RunList&) = delete;

    /// Appends the lit runs of column `x` that lie between neighbours of `count` changes, at least one.
    void addRuns(std::uint32_t x, const ColumnChange* changes, std::size_t count) {
        Item* next = m_next;
        for (std::size_t from = 0; from + 1 < count; from += kRunsAtOnce) {
            if (next > m_block + kBlockItems - kReserve) {
                m_next = next;
                flush();
                next = m_next;
            }
            const std::size_t to = std::min(count - 1, from + kRunsAtOnce);
            for (std::size_t i = from; i < to; ++i) {
                const unsigned char grey = changeGrey(changes[i]);
                // background may end before the first row
                const auto lastRow = static_cast<std::int32_t>(changePlace(changes[i + 1])) - 1;
                // written in any case and kept if it is lit: in a noisy image a branch is guessed wrong too often
                Form::write(changePlace(changes[i]), static_cast<std::uint32_t>(lastRow), x, grey, next);
                next += grey != 0 ? Form::kItems : 0;
            }
        }
        m_next = next;
    }
    void addRun(int firstRow, int lastRow, int x, unsigned char grey) {
        if (m_next > m_block + kBlockItems - kReserve) flush();
        Form::write(static_cast<std::uint32_t>(firstRow), static_cast<std::uint32_t>(lastRow),
                    static_cast<std::uint32_t>(x), grey, m_next);
        m_next += Form::kItems;
    }
    /// Lets the processor fetch the memory that runs will be written to while it looks for them.
    void fetchAhead() const {
#if defined(__GNUC__)
        const std::size_t items = std::min(kItemsAhead, m_list.capacity() - m_list.size());
        for (std::size_t i = 0; i < items; i += kItemsPerLine) {
            __builtin_prefetch(m_list.data() + m_list.size() + i, 1);
        }
#endif
    }
    /// Appends the ended runs of column `x`.
    void addColumn(int x, const ColumnRuns<typename Form::Row>& runs) {
        flush();
        Form::append(x, runs, m_list);
    }
    /// Runs in the list, those of before included.
    [[nodiscard]] std::size_t count() const {
        return (m_list.size() + static_cast<std::size_t>(m_next - m_block)) / Form::kItems;
    }
    /// Announces about how many runs are still to come, which saves growing step by step.
    void expect(std::size_t runs) {
        const std::size_t needed = m_list.size() + (runs + kRunsAtOnce) * Form::kItems;
        if (needed <= m_list.capacity()) return;
        m_list.reserve(std::max(needed, 2 * m_list.capacity()));
        platform::adviseLargePages(m_list.data(), m_list.capacity() * sizeof(Item));
    }
    void flush() {
        m_list.insert(m_list.end(), m_block, m_next);
        m_next = m_block;
    }

private:
    // a line of the cache is fetched at once, and a dozen is what arrives in time
    static constexpr std::size_t kItemsPerLine = 64 / sizeof(Item);
    static constexpr std::size_t kItemsAhead = 12 * kItemsPerLine;
    static constexpr std::size_t kRunsAtOnce = 64;
    static constexpr std::size_t kReserve = kRunsAtOnce * Form::kItems + Form::kRoom;
    static constexpr std::size_t kBlockItems = 8 * kReserve;

    std::vector<Item>& m_list;
    Item m_block[kBlockItems];
    Item* m_next = m_block;
};

/// Appends every run of a grey image, ordered by column, then row, to a list.
///
/// Runs are vertical, but walking an image down its columns touches a new cache line with every pixel. So whole rows
/// are compared: wherever a pixel differs from the one above it (after background greys are made equal) a run ends or
/// begins there, and that change is noted. The changes, found row by row, are then sorted by column (a counting sort
/// keeps the rows in order), and each column's changes are its runs. Where an area has so many changes that noting
/// them costs more than its pixels, its columns are copied out and walked instead. The plain form, per column x:
///
///     for each row y: if lit: extend the open run if its grey is the same and it ended at y - 1,
///                             else close it and open one at y; at the end close the open run
template <class Form>
class RunBuilder {
public:
    /// \param pixels `height` rows of `width` bytes, `stride` bytes from one to the next.
    RunBuilder(const unsigned char* pixels, int width, int height, std::ptrdiff_t stride,
               std::vector<typename Form::Item>& list)
        : m_pixels(pixels), m_width(width), m_height(height), m_stride(stride), m_runs(list) {}

    void run() {
        if (m_height <= 0) return;
        if (m_height < kMaxChangeRows) {
            for (int x = 0; x < m_width; x += kMaxChangeColumns) build(x, std::min(kMaxChangeColumns, m_width - x));
        } else {
            for (int x = 0; x < m_width; ++x) walkTallColumn(x);
        }
        m_runs.flush();
    }

private:
    static constexpr std::size_t kMaxChanges = 1u << 20;
    // as many pixels are walked in the time that a change takes
    static constexpr std::size_t kPixelsPerChange = 8;
    static constexpr int kWalkedColumns = 64;

    [[nodiscard]] PixelArea area(int x, int columns) const { return {m_pixels + x, m_stride, columns, m_height}; }

    void build(int x, int columns) {
        const auto width = static_cast<std::size_t>(columns);
        if (m_changes == nullptr) {
            const std::size_t worthwhile = width * static_cast<std::size_t>(m_height) / kPixelsPerChange;
            m_capacity = width + std::min(worthwhile, kMaxChanges);
            // one block for both: an allocator is more likely to keep it for the next layer
            m_changes.reset(new std::uint32_t[m_capacity + m_capacity + width]);
            m_rowEnds.resize(static_cast<std::size_t>(m_height));
            m_sorted = m_changes.get() + m_capacity;
        }
        m_ends.assign(width + 1, 0);
        const int rows =
            findChanges(area(x, columns), m_changes.get(), m_capacity, m_rowEnds.data(), m_ends.data() + 1);
        const std::size_t count = rows > 0 ? m_rowEnds[static_cast<std::size_t>(rows) - 1] : 0;
        if (rows == m_height) {
            emitSorted(x, columns, count);
        } else if (count * kPixelsPerChange > width * static_cast<std::size_t>(rows) || columns <= kWalkedColumns) {
            const std::size_t before = m_runs.count();
            for (int from = 0; from < columns; from += kWalkedColumns) {
                if (from > 0)
                    m_runs.expect((m_runs.count() - before) / static_cast<std::size_t>(from) *
                                  static_cast<std::size_t>(columns - from));
                walk(x + from, std::min(kWalkedColumns, columns - from));
            }
        } else {
            build(x, columns / 2);
            build(x + columns / 2, columns - columns / 2);
        }
    }

    void emitSorted(int x, int columns, std::size_t count) {
        m_runs.expect(count);
        // every column's changes and behind them the end of the column
        for (std::uint32_t& changes : m_ends) ++changes;
        m_ends[0] = 0;
        std::partial_sum(m_ends.begin(), m_ends.end(), m_ends.begin());
        // m_ends[c] is where column c's next change goes, at last where its end goes
        const RowChange* change = m_changes.get();
        for (std::uint32_t row = 0; row < static_cast<std::uint32_t>(m_height); ++row) {
            for (const RowChange* const end = m_changes.get() + m_rowEnds[row]; change < end; ++change) {
                m_sorted[m_ends[changePlace(*change)]++] = changeAt(row, changeGrey(*change));
            }
        }
        std::size_t begin = 0;
        for (int c = 0; c < columns; ++c) {
            const std::size_t last = m_ends[static_cast<std::size_t>(c)];
            m_sorted[last] = changeAt(static_cast<std::uint32_t>(m_height), 0);
            m_runs.addRuns(static_cast<std::uint32_t>(x + c), m_sorted + begin, last + 1 - begin);
            begin = last + 1;
        }
    }

    void walk(int x, int columns) {
        // behind each column there is background, as there is in front of the first one
        const auto columnStride = static_cast<std::ptrdiff_t>(m_height / kColumnPiece + 2) * kColumnPiece;
        m_columns.resize(static_cast<std::size_t>(kColumnPiece + columnStride * kWalkedColumns));
        unsigned char* const first = m_columns.data() + kColumnPiece;
        copyColumns(area(x, columns), first, columnStride);
        for (int c = 0; c < columns; ++c) walkColumn(x + c, first + c * columnStride);
    }

    void walkColumn(int x, const unsigned char* column) {
        using Runs = ColumnRuns<typename Form::Row>;
        Runs runs;
        for (int from = 0; from < m_height; from += Runs::kMaxPixels) {
            const int to =
                (std::min(m_height, from + Runs::kMaxPixels) + kColumnPiece - 1) / kColumnPiece * kColumnPiece;
            m_runs.fetchAhead();
            findColumnRuns(column, from, to, runs);
            m_runs.addColumn(x, runs);
            runs.dropEnded();
        }
    }

    /// The plain form, for images of more rows than a change can hold.
    void walkTallColumn(int x) {
        for (int y = 0; y < m_height;) {
            const unsigned char* const first = m_pixels + y * m_stride + x;
            const int firstRow = y;
            for (const unsigned char* pixel = first; y < m_height && *pixel == *first; pixel += m_stride) ++y;
            if (litGrey(*first) != 0) m_runs.addRun(firstRow, y - 1, x, *first);
        }
    }

    const unsigned char* m_pixels;
    int m_width;
    int m_height;
    std::ptrdiff_t m_stride;
    RunList<Form> m_runs;
    std::size_t m_capacity = 0;
    std::unique_ptr<std::uint32_t[]> m_changes;
    std::vector<std::uint32_t> m_rowEnds;
    ColumnChange* m_sorted = nullptr;  // behind them, sorted and with an end for every column
    std::vector<std::uint32_t> m_ends;
    std::vector<unsigned char> m_columns;  // of a walked area, one behind the other
};

}  // namespace vndlp
