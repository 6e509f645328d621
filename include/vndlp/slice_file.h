/// \file slice_file.h
/// A slice file of any of the four formats, as one model: settings in fixed units, every field of every record as it
/// stands, previews, layers, what is wrong with the file.
///
/// The format is told by the bytes, never by the name. Nothing is printed, no exception leaves a call, and no call
/// changes anything outside its outputs. All calls on one open `SliceFile` that are `const` may run in several threads
/// at once. Layers are read one by one and in any order; a bad layer is an error of that layer only.
///
/// Layers and previews are numbered from 0. Offsets and sizes are bytes of the file. Texts are UTF-8; bytes of a file
/// that are no UTF-8 are taken for Latin-1.

#ifndef VNDLP_SLICE_FILE_H
#define VNDLP_SLICE_FILE_H

#include <vndlp/export.h>
#include <vndlp/formats.h>
#include <vndlp/job_check.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vndlp {

/// What became of a call. The numbers are those of the C interface.
enum class SliceCode : int {
    ok = 0,
    absent = 1,     ///< the file holds no such value
    argument = -1,  ///< a null pointer, an object without a file
    key = -2,       ///< the key is unknown, has no place in this format, or the format fixes its value
    value = -3,     ///< no number, out of range, or would be stored as 0
    index = -4,     ///< no such layer, preview or field
    size = -5,      ///< the caller's memory or stride is too small
    file = -6,      ///< the system could not open, read or write: `systemCode` tells why
    format = -7,    ///< no slice file
    damaged = -8,   ///< the file does not hold what its records tell of
    kind = -9,      ///< asks for what this format has not, such as the image of a layer of lines
    order = -10,    ///< twice, missing, or behind the end
    memory = -11,   ///< no memory
    stopped = -12   ///< the caller's function asked to stop
};

/// Result of a call: a code, and of a failure the words and the place.
struct SliceResult {
    SliceCode code = SliceCode::ok;
    int systemCode = 0;        ///< errno of a failure of the system, else 0
    std::int64_t layer = -1;   ///< -1: of no single layer
    std::int64_t offset = -1;  ///< in the file; -1: none
    std::string text;          ///< what is wrong, without the file's name and without a full stop; empty when ok

    /// True for `ok` alone.
    bool isOk() const { return code == SliceCode::ok; }
};

enum class SliceValueType : int { number = 1, integer = 2, text = 3 };

/// A key of the settings: what more than one format holds, under one name and in one unit.
struct SliceKey {
    const char* name;
    const char* unit;  ///< "s", "mm", "mm/min", "ml", "g", "px" or ""
    const char* help;  ///< a few words
    SliceValueType type;
    unsigned
        formats;  ///< formats that hold it, as bits: 1 << format; a file's kind or version may lack it all the same
    unsigned layerFormats;  ///< formats that hold it for single layers
    unsigned fixedFormats;  ///< formats whose writers put a value of their own there; not among `formats`
    double least;           ///< of numbers and integers
    double most;
};

/// The keys, in the order of the documentation. \return null behind the last.
VNDLP_API const SliceKey* sliceKey(std::size_t index);
/// \return null for an unknown name.
VNDLP_API const SliceKey* findSliceKey(const std::string& name);

/// What the layers of a file are.
enum class SliceLayers : int { images = 1, paths = 2, mesh = 3 };

/// What stands in the head.
struct SliceInfo {
    SliceFormat format = SliceFormat::none;
    int version = 0;     ///< as the head says; of vendor files without one the number of their header: 1 or 3
    int headerKind = 0;  ///< of vendor files: 1, 2, 3, and 12 for lines; else 0
    SliceLayers layerKind = SliceLayers::images;
    std::uint32_t layers = 0;  ///< as the head says; `SliceHeadState::layersFound` tells how many of them are there
    std::uint32_t width = 0;   ///< of the screen, pixels
    std::uint32_t height = 0;
    std::uint32_t previews = 0;
    std::int64_t bytes = 0;
    double pixelXUm = 0;  ///< NaN: unknown, as of all that follows
    double pixelYUm = 0;
    double sizeXMm = 0;  ///< of the screen
    double sizeYMm = 0;
    double sizeZMm = 0;  ///< build height of the machine
};

/// How far the head, and the places of the layers, could be read.
struct SliceHeadState {
    bool isWhole = true;
    std::int64_t offset = -1;       ///< where reading stopped
    std::string text;               ///< why
    std::uint32_t layersFound = 0;  ///< layers whose places are known: all calls on them can be tried
};

enum class SliceTrailerKind : int { none = 0, xorSum = 1, crc32 = 2 };
enum class SliceTrailerState : int { none = 0, ok = 1, wrong = 2, missing = 3 };

/// The checksum trailer, four bytes at the end of a file.
struct SliceTrailer {
    SliceTrailerKind kind = SliceTrailerKind::none;
    SliceTrailerState state = SliceTrailerState::none;
    std::uint32_t stored = 0;    ///< 0 where there is none
    std::uint32_t computed = 0;  ///< the sum of all bytes before it
    /// Where all bytes before make a trailer that stands there right: -1, or the offset of four bytes behind which the
    /// file has junk. Only looked for where the trailer at the end is wrong.
    std::int64_t soundAt = -1;
};

/// A field of a record, as it stands in the file.
struct SliceRawField {
    std::string name;  ///< "RECORD.member"; of repeated records "RECORD.INDEX.member", such as "LayerDef.5.reserved28"
    const char* unit = "";
    SliceValueType type = SliceValueType::integer;
    double number = 0;         ///< of numbers and integers; may be infinite or NaN where the file says so
    std::int64_t integer = 0;  ///< of integers
    std::string text;          ///< of texts; of fields that are plain bytes: two hexadecimal digits a byte
    bool isFixed = false;      ///< the format's writers put a value of their own there
    std::int64_t offset = 0;   ///< of texts with a length in front of them, that of the length
    std::int64_t bytes = 0;    ///< with length and closing zero
};

struct SlicePreviewInfo {
    std::string name;  ///< "small", "middle", "large"; "second", "third" in files of the third header
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool isBlank = false;     ///< one colour all over
    std::int64_t offset = 0;  ///< of the pixels or their encoded data
    std::int64_t bytes = 0;
};

/// What is known of a layer without making its image.
struct SliceLayerFacts {
    std::int64_t offset = -1;  ///< of the whole record: extended record (or area and run count) and encoded data
    std::int64_t bytes = -1;
    std::int64_t runs = -1;  ///< vertical runs of a grey above 15, as many as `layerRuns` gives; polylines of lines
    std::int64_t litPixels = -1;  ///< pixels of a grey above 15; -1 for lines
    double zMm = 0;               ///< top of the layer; where it is not stored (index + 1) x layer height; NaN: unknown
    double areaMm2 = 0;           ///< stored, else lit pixels x pixel area; NaN: unknown
};

/// Rows of one column with one grey. The layout is that of the C interface.
struct SliceRun {
    std::uint16_t firstRow;
    std::uint16_t lastRow;  ///< lit as well
    std::uint16_t column;
    std::uint8_t grey;
    std::uint8_t reserved;  ///< 0
};

/// What the lines of `LitRun` are.
enum class SliceAxis : int { rows = 0, columns = 1 };

/// How the data of a layer are encoded in a file.
enum class SliceCoding : int {
    packedRuns = 1,  ///< 6 bytes a run, see `whiteData2Bits`
    greyRuns = 2,    ///< runs of seven-bit greys along the rows, as in CTB and V4 files
    polylines = 3,   ///< count, points; big-endian
    mesh = 4         ///< two floats a vertex; big-endian
};

/// The encoded data of a layer, without area, counts and extended record.
struct SliceLayerData {
    SliceCoding coding = SliceCoding::packedRuns;
    std::uint32_t count = 0;  ///< runs, polylines or vertices, where the file counts them
    std::uint32_t area = 0;   ///< as stored: thousandths of a mm^2; 0 where the format has none
    bool hasArea = false;
    std::vector<unsigned char> bytes;
};

/// Shapes of a layer of lines, in the file's units (micrometres in files of the program).
struct SliceShapes {
    SliceLayers kind = SliceLayers::paths;
    std::vector<std::int32_t> points;     ///< x, y of every point of every polyline, one behind the other
    std::vector<std::uint32_t> pathEnds;  ///< for each polyline the number of points up to its end
    std::vector<float> vertices;          ///< x, y of every vertex of a mesh; may hold what is no number
};

enum class SliceSeverity : int { error = 1, warning = 2, note = 3 };

/// What was found, as by verification.
struct SliceFinding {
    SliceSeverity severity = SliceSeverity::error;
    std::int64_t offset = -1;  ///< -1: none
    std::int64_t layer = -1;   ///< -1: of no single layer
    std::string text;
};

/// Volume and time of a job.
struct SliceEstimate {
    double volumeMl = 0;   ///< sum of area x layer height, stored areas first; NaN: unknown
    double fileS = 0;      ///< the print time in the file; NaN where there is none, or the format fixes it
    double estimateS = 0;  ///< by `model`; NaN: not to be estimated
    /// What made it: "moves", which adds up exposure, waits and moves of every layer.
    const char* model = "moves";
};

/// Callbacks. What is not 0 stops the call, which then returns `stopped`.
using SliceRowFn = int (*)(void* context, std::uint32_t row, const unsigned char* pixels);
using SliceLitFn = int (*)(void* context, const LitRun* runs, std::size_t count);
using SliceFindingFn = int (*)(void* context, const SliceFinding& finding);
/// Called some hundred times a second while a call reads much. `done` of `all` bytes or layers.
using SliceProgressFn = int (*)(void* context, std::uint64_t done, std::uint64_t all);

/// Where bytes come from that are neither a file nor in memory.
struct SliceSource {
    void* context = nullptr;
    std::int64_t bytes = 0;
    /// Reads up to `size` bytes from `offset` on; may be called in any thread. \return bytes read; below 0 on failure.
    std::int64_t (*read)(void* context, std::int64_t offset, void* to, std::size_t size) = nullptr;
};

/// An open slice file. An object without one answers every call with `argument`.
class VNDLP_API SliceFile {
public:
    SliceFile();
    SliceFile(SliceFile&& other) noexcept;
    SliceFile& operator=(SliceFile&& other) noexcept;
    SliceFile(const SliceFile&) = delete;
    SliceFile& operator=(const SliceFile&) = delete;
    ~SliceFile();

    /// Opens a file whose beginning is that of a slice file. One that is cut or damaged behind that opens as well, see
    /// `headState`. What the object held before is closed, also on failure.
    /// \param path UTF-8.
    /// \return `file`, `format`, `memory`, or ok.
    SliceResult open(const std::string& path);
    /// The same from memory that stays the caller's and must outlive the object.
    SliceResult openMemory(const void* data, std::size_t bytes);
    SliceResult openSource(const SliceSource& source);
    void close();
    bool isOpen() const;

    /// Cheap: answered from what opening has read.
    const SliceInfo& info() const;
    /// The path as it was opened; empty without one.
    const std::string& path() const;
    /// Walks through the layers the first time where the format has no table of their places.
    SliceResult headState(SliceHeadState& state) const;

    /// A setting of the file (`layer` -1) or of one layer. Integers are numbers too.
    /// \return `absent` where this file does not hold it; `key` for an unknown one, one this format has no place for or
    ///         fixes, and for texts; `index`.
    SliceResult number(const std::string& key, std::int64_t layer, double& value) const;
    SliceResult text(const std::string& key, std::string& value) const;

    /// Every field of every record, by number. \return `index` behind the last, which enumerates.
    SliceResult raw(std::uint64_t index, SliceRawField& field) const;
    /// \return `absent` for a name this file does not hold.
    SliceResult raw(const std::string& name, SliceRawField& field) const;

    /// Reads the whole file.
    SliceResult trailer(SliceTrailer& trailer, SliceProgressFn progress = nullptr, void* context = nullptr) const;
    /// Reads all layers where areas are not stored. Layers that cannot be decoded count as empty.
    SliceResult estimate(SliceEstimate& estimate, SliceProgressFn progress = nullptr, void* context = nullptr) const;

    SliceResult previewInfo(std::uint32_t index, SlicePreviewInfo& preview) const;
    /// Red, green, blue, a byte each, rows from the top.
    /// \param stride bytes from one row to the next; 0: 3 x width.
    /// \param bytes  memory behind `rgb`, checked before anything is written.
    SliceResult preview(std::uint32_t index, unsigned char* rgb, std::size_t stride, std::size_t bytes) const;

    /// Offsets, z and stored areas alone cost no reading; what must be counted is.
    SliceResult layerFacts(std::uint32_t layer, SliceLayerFacts& facts) const;
    /// One grey byte a pixel, rows from the top.
    /// \param stride bytes from one row to the next; 0: width.
    /// \param bytes  memory behind `pixels`, checked before anything is written; left as it was after `size`, else in
    ///               part written on failure.
    SliceResult layerPixels(std::uint32_t layer, unsigned char* pixels, std::size_t stride, std::size_t bytes) const;
    /// The same row by row, without the memory for an image.
    SliceResult layerRows(std::uint32_t layer, SliceRowFn row, void* context) const;
    /// The runs a `.vndlp` of this image holds: ordered by column, then row; greys above 15.
    /// \param runs     receives at most `capacity`; may be null with a capacity of 0.
    /// \param count    receives how many there are.
    SliceResult layerRuns(std::uint32_t layer, SliceRun* runs, std::size_t capacity, std::uint64_t& count) const;
    /// The lit pixels line by line, straight from the encoded data, some thousand runs a call: what a `CheckLayer`
    /// takes. Neighbours are one run whatever their greys.
    /// \param threshold greys above it are lit.
    SliceResult layerLit(std::uint32_t layer, int threshold, SliceLitFn lit, void* context) const;
    /// What the lines of `layerLit` are: columns for `.vndlp`, else rows.
    SliceAxis litAxis() const;
    /// Shapes of a layer of lines; `kind` for images.
    SliceResult layerShapes(std::uint32_t layer, SliceShapes& shapes) const;
    /// The encoded data as they stand, not scrambled.
    SliceResult layerData(std::uint32_t layer, SliceLayerData& data) const;
    /// The mask of LED beads stored with a layer; empty where there is none.
    SliceResult layerBeads(std::uint32_t layer, std::vector<unsigned char>& mask) const;

    /// Checks everything: trailer, records, tables, offsets, overlaps, every layer's data, second copies, bead masks.
    /// Findings come in no promised order.
    /// \param errors receives the number of findings of severity error.
    SliceResult verify(SliceFindingFn finding, void* context, std::uint64_t& errors, SliceProgressFn progress = nullptr,
                       void* progressContext = nullptr) const;
    /// The parts of `verify`: structure and trailer; one layer. Their findings together are those of `verify`, so
    /// layers can be checked in several threads.
    SliceResult verifyStructure(SliceFindingFn finding, void* context, std::uint64_t& errors,
                                SliceProgressFn progress = nullptr, void* progressContext = nullptr) const;
    SliceResult verifyLayer(std::uint32_t layer, SliceFindingFn finding, void* context, std::uint64_t& errors) const;

    struct State;
    /// For the library's own use.
    const State* state() const { return m_state.get(); }

private:
    std::unique_ptr<State> m_state;
};

/// Opens a slice file, see `SliceFile::open`.
/// \param path   UTF-8.
/// \param result receives what became of it; may be null.
/// \return null when it could not be opened.
VNDLP_API std::unique_ptr<SliceFile> openSliceFile(const std::string& path, SliceResult* result = nullptr);

}  // namespace vndlp

#endif
