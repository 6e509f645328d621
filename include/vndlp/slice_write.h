/// \file slice_write.h
/// The writing half of the model of a job: change a slice file, convert it, repair it, write a new one.
///
/// Whatever is written is written beside its name and renamed when it is complete and flushed: a failure leaves what
/// was there before, and nothing beside it. A name that is a link is followed. A file that is replaced keeps its mode,
/// and its owner where the system allows. Nothing is printed, no exception leaves a call.
///
/// Settings are named and measured as in `slice_file.h`. A value between two that a format can hold is rounded to the
/// nearest, half up, and a note says so ("lift_mm 7.5 is stored as 8"); one that would become 0, or does not fit, is
/// refused with `value`. Numbers in texts have a point and at most six digits behind it.

#ifndef VNDLP_SLICE_WRITE_H
#define VNDLP_SLICE_WRITE_H

#include <vndlp/export.h>
#include <vndlp/formats.h>
#include <vndlp/slice_file.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vndlp {

/// The format whose ending a path has, in any case; `none` for another.
VNDLP_API SliceFormat sliceFormatOfPath(const std::string& path);

/// A number as texts of the model have it: at most six digits behind the point, no zeros at the end.
VNDLP_API std::string sliceNumberText(double value);

/// The numbers of layers that a text names: "3", "3-7" (both ends included), "3-", "last", "3-last", each with "/STEP",
/// and several of them with commas between. Each layer comes once, in order.
/// \return `index` for text that is none, or names a layer that is not there.
VNDLP_API SliceResult sliceLayers(const std::string& text, std::uint32_t layers, std::vector<std::uint32_t>& numbers);

/// What a value is to become.
struct SliceChange {
    std::string key;     ///< of the settings, or "raw.RECORD.member"
    std::string value;   ///< a number in decimal, or text (UTF-8); bytes as two hexadecimal digits each
    std::string layers;  ///< single layers, as `sliceLayers` reads them; empty: the file's value
};

/// A value that changed, or would.
struct SliceChanged {
    std::string key;
    std::string layers;  ///< "1 to 2, 5": the single layers that were set; empty for the file's value
    std::string was;     ///< empty: there was none
    std::string is;      ///< as it is stored
};

/// Not 0 stops the call, which then returns `stopped`.
using SliceChangedFn = int (*)(void* context, const SliceChanged& changed);

/// Who is told what, and may stop the call by a result other than 0. All may be null.
struct SliceListener {
    void* context = nullptr;
    SliceChangedFn changed = nullptr;
    SliceFindingFn note = nullptr;  ///< severity note: roundings, what was not kept; error: what was lost
    SliceProgressFn progress = nullptr;
};

/// Holds changes against a file as `changeSliceFile` does, and writes nothing. `changed` is told what would change.
/// \return `key`, `value` or `index` for the first change that cannot be made, with a text that names it.
VNDLP_API SliceResult checkSliceChanges(const SliceFile& file, const std::vector<SliceChange>& changes,
                                        const SliceListener& listener = {});

/// Changes values of a file and leaves every other byte as it is; no layer is decoded. All changes are held against the
/// file first, so of several either all are made or none.
///
/// With a value change its copies in other records, and the values of single layers that held it bit for bit. Layers
/// with values of their own keep them, and a note says so. `layer_height_mm` moves the print's height, and every layer
/// that stood at (i + 1) x the old height; `bottom_layers` gives layers that change sides the other exposure where they
/// held that of their side. Texts of another length move what follows, and every offset that points behind them. The
/// checksum trailer is renewed. It takes about the time of copying the file: when the system writes it to the disk is
/// left to the system.
/// \param path   the file. Its trailer, records, tables and offsets are checked first: `damaged`, and nothing is
///               written.
/// \param output null or empty: in place.
VNDLP_API SliceResult changeSliceFile(const std::string& path, const std::string& output,
                                      const std::vector<SliceChange>& changes, const SliceListener& listener = {});

/// What becomes of layers that cannot be read.
enum class SliceSalvage : int {
    no = 0,       ///< the first one ends the call
    blank = 1,    ///< a layer without lit pixels takes its place
    previous = 2  ///< the layer before takes its place; a blank one where there is none
};

/// Runs `work(context, i)` for every i below `count`, in any order and any number of threads, and returns when all are
/// done. Orders near the natural one keep little in memory.
using SliceForEachFn = void (*)(void* threads, std::uint32_t count, void (*work)(void* context, std::uint32_t i),
                                void* context);

struct SliceConvertOptions {
    SliceFormat format = SliceFormat::none;  ///< none: by the output's ending
    SliceSalvage salvage = SliceSalvage::no;
    std::vector<SliceChange> changes;
    bool hasKey = false;               ///< CTB: scramble with `key` instead of a fresh one
    std::uint32_t key = 0;             ///< 0: not scrambled
    SliceForEachFn forEach = nullptr;  ///< null: one layer after the other in the calling thread
    void* threads = nullptr;           ///< handed to `forEach`
};

/// Writes a file's job into a file of the same or another format, verifying what it reads: trailer, structure, every
/// layer's data. Damage ends the call with its layer and offset, and no output, unless `salvage` says otherwise; then
/// every layer that was hurt is told as a finding of severity error.
///
/// The same format: the bytes of the file stay, but for the changes, what follows from them, a fresh CTB key (0 stays
/// 0) and the trailer. Another format: everything both hold arrives: settings, also of single layers; previews, scaled
/// to the sizes the format has; layers. What is there and cannot be kept is told in one note: "not kept in .ctb: KEY,
/// exposure_s of 4 layers, raw.RECORD.member".
/// \return `kind` where a format holds images and the other lines; `value` for a job the format cannot hold.
VNDLP_API SliceResult convertSliceFile(const SliceFile& file, const std::string& output,
                                       const SliceConvertOptions& options = {}, const SliceListener& listener = {});

/// What a repair kept.
struct SliceRepaired {
    std::uint32_t layersKept = 0;
    std::uint32_t layersOf = 0;  ///< by the damaged file's head
    std::string whole;           ///< the layers that are whole, by their old numbers: "0 to 3, 6 to 11"
    bool isSound = false;        ///< nothing was wrong: the output is a copy
};

/// Writes the whole layers of a cut or damaged file. Layers that are hurt are left out, and layer count, tables, height
/// and the layers' heights follow; a wrong trailer or junk behind the end alone gives the bytes of the sound file.
/// Layers of vendor files behind a damaged one are found again by the area table and the tags between layers.
/// `listener.note` is told what was lost, as errors with layer and offset.
/// \return `damaged` where the head cannot be read or no layer is whole.
VNDLP_API SliceResult repairSliceFile(const std::string& path, const std::string& output, SliceRepaired& repaired,
                                      const SliceListener& listener = {});

/// A layer ready to be written. Made by `SliceWriter::encode`, used up by `SliceWriter::put`.
class VNDLP_API SliceEncoded {
public:
    SliceEncoded();
    SliceEncoded(SliceEncoded&& other) noexcept;
    SliceEncoded& operator=(SliceEncoded&& other) noexcept;
    SliceEncoded(const SliceEncoded&) = delete;
    SliceEncoded& operator=(const SliceEncoded&) = delete;
    ~SliceEncoded();

    struct State;
    /// For the library's own use.
    std::unique_ptr<State>& state() { return m_state; }

private:
    std::unique_ptr<State> m_state;
};

/// What a new file is to be.
struct SliceTarget {
    SliceFormat format = SliceFormat::none;  ///< none: by the path's ending
    std::uint32_t width = 0;                 ///< of a layer, pixels; 0: as `like`
    std::uint32_t height = 0;
    std::uint32_t layers = 0;  ///< 0: as `like`
    /// Where settings, previews and records come from; null: none. Of the same format: every field of every record, and
    /// of as many layers as both have. It must stay open until the writer is started.
    const SliceFile* like = nullptr;
    /// For each layer the one of `like` whose records it takes; 0xFFFFFFFF: none. Empty: the one of its number.
    std::vector<std::uint32_t> likeLayers;
    bool hasKey = false;    ///< CTB: scramble with `key` instead of a fresh one (0 in `like` stays 0)
    std::uint32_t key = 0;  ///< 0: not scrambled
};

/// A setting nobody gave.
struct SliceAssumed {
    std::string key;
    std::string value;
};

/// Writes a slice file. `create`, settings and previews, the layers, `finish`: until that ends well, nothing has the
/// file's name. Destruction cancels what is not finished.
///
/// `encode...` and `put...` may be called from several threads at once for different layers, in any order; everything
/// else from one. Layers are written in order: those that come early wait in memory, or in a file beside the output
/// where they are many.
class VNDLP_API SliceWriter {
public:
    SliceWriter();
    SliceWriter(SliceWriter&& other) noexcept;
    SliceWriter& operator=(SliceWriter&& other) noexcept;
    SliceWriter(const SliceWriter&) = delete;
    SliceWriter& operator=(const SliceWriter&) = delete;
    ~SliceWriter();

    /// \return `file` where nothing can be written there; `format` for an unknown ending; `value` for a screen or a
    ///         number of layers the format does not hold; `argument` for sizes of 0.
    SliceResult create(const std::string& path, const SliceTarget& target);
    SliceFormat format() const;

    /// Before the first layer. A value of a file or of one layer (`layer` not -1).
    /// \return `key`, `value`, `index`; `order` behind the first layer.
    SliceResult setNumber(const std::string& key, std::int64_t layer, double value);
    SliceResult setText(const std::string& key, const std::string& value);
    /// The same as a change says it; "raw.RECORD.member" too.
    SliceResult set(const SliceChange& change);
    /// Pictures in file order, `previewCount` of them; one that is not set is black, or `like`'s.
    /// \param rgb    red, green, blue, a byte each, rows from the top.
    /// \param stride bytes from one row to the next; 0: 3 x width.
    /// The picture is scaled to fit into the format's size, black around it.
    SliceResult setPreview(std::uint32_t index, const unsigned char* rgb, std::uint32_t width, std::uint32_t height,
                           std::size_t stride);
    std::uint32_t previewCount() const;
    /// \return `index`.
    SliceResult previewSize(std::uint32_t index, std::uint32_t& width, std::uint32_t& height) const;
    /// CTB and V4: another size than 400 x 300 and 200 x 125; before the picture is set.
    /// \return `kind` for formats with fixed sizes.
    SliceResult setPreviewSize(std::uint32_t index, std::uint32_t width, std::uint32_t height);

    /// Completes settings and head; the first layer does it where the caller does not. What is refused then is told by
    /// the layer's call.
    SliceResult start();
    /// Once started: what was rounded, and one line of what of `like` was not kept.
    const std::vector<std::string>& notes() const;
    /// Once started: settings the format needs that neither `like` nor a call gave.
    const std::vector<SliceAssumed>& assumed() const;

    /// One grey byte a pixel, rows from the top.
    /// \param stride  bytes from one row to the next; 0: the width.
    /// \param bytes   memory behind `pixels`.
    /// \param areaMm2 lit area; NaN: counted.
    /// \return `kind` for formats of lines; `size`, `index`, `order` (twice, behind `finish`).
    SliceResult encode(std::uint32_t layer, const unsigned char* pixels, std::size_t stride, std::size_t bytes,
                       double areaMm2, SliceEncoded& encoded);
    /// \param runs in any order; where they overlap, the later one shows.
    SliceResult encodeRuns(std::uint32_t layer, const SliceRun* runs, std::size_t count, SliceEncoded& encoded);
    /// \param shapes  of the kind the file has so far.
    /// \param areaMm2 NaN: of polylines the sum of their areas, those that run the other way round (holes) subtracted;
    ///                of meshes that of the triangles. File units count as micrometres.
    SliceResult encodeShapes(std::uint32_t layer, const SliceShapes& shapes, double areaMm2, SliceEncoded& encoded);
    /// A layer of another file. The same format: its encoded data as they stand, scrambled anew where index or key
    /// changes, with its area and, where `like` is that file, its records.
    SliceResult encodeFrom(std::uint32_t layer, const SliceFile& from, std::uint32_t fromLayer, SliceEncoded& encoded);
    /// Takes the layer, whatever it returns.
    SliceResult put(SliceEncoded& encoded);

    SliceResult putPixels(std::uint32_t layer, const unsigned char* pixels, std::size_t stride, std::size_t bytes,
                          double areaMm2);
    SliceResult putRuns(std::uint32_t layer, const SliceRun* runs, std::size_t count);
    SliceResult putShapes(std::uint32_t layer, const SliceShapes& shapes, double areaMm2);
    SliceResult putLayer(std::uint32_t layer, const SliceFile& from, std::uint32_t fromLayer);

    /// Writes what is left, the tables and the trailer, flushes, and gives the file its name.
    /// \return `order` naming layers that are missing: the writer goes on then; else the first failure, and nothing is
    ///         left behind.
    SliceResult finish();
    /// What was at the path before stays, and nothing beside it.
    SliceResult cancel();

    struct State;
    /// For the library's own use.
    State* state() { return m_state.get(); }

private:
    std::unique_ptr<State> m_state;
};

}  // namespace vndlp

#endif
