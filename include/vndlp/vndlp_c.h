/// \file vndlp_c.h
/// The C interface: any slice file opened, described, verified, checked, repaired, changed, converted and written,
/// whatever its format. For C11 and everything that calls C; C++ programs have `slice_file.h`.
///
///     VndlpFile* file = NULL;
///     VndlpInfo info = {.size = sizeof info};
///     if (vndlp_open("tower.ctb", &file) != VNDLP_OK) {
///         VndlpError error = {.size = sizeof error};
///         vndlp_last_error(&error);
///         fprintf(stderr, "%s\n", error.text);
///         return 1;
///     }
///     vndlp_info(file, &info);
///     size_t bytes = (size_t)info.width * info.height;
///     uint8_t* pixels = malloc(bytes);
///     for (uint32_t layer = 0; layer < info.layers; ++layer) vndlp_layer_pixels(file, layer, pixels, 0, bytes);
///     free(pixels);
///     vndlp_close(file);
///
/// **Results.** An `int32_t` or `int64_t` result is negative for an error: one of `VNDLP_E_...`, more in
/// `vndlp_last_error`. Results of the first kind are else `VNDLP_OK`, or `VNDLP_ABSENT` for a value the file does not
/// hold; those of the second are counts. Every call checks what it is given: a null pointer where one is needed is
/// `VNDLP_E_ARGUMENT`. What a call would have filled stays untouched when it fails. No C++ exception leaves the
/// library.
///
/// **Structs** begin with `size`, which the caller sets to the struct's `sizeof`. A program and a library whose structs
/// differ in length use the part that both know; a `size` below 8 is `VNDLP_E_ARGUMENT`. In an array all structs have
/// the `size` of the first.
///
/// **Numbers.** Layers, previews, rows and columns count from 0; a `layer` of -1 means the file's value. In structs
/// that the library fills -1 and NaN stand for "none" or "not known". Units are those of the keys, see `vndlp_key`.
///
/// **Texts** are UTF-8 and end with a zero. Those the library hands out belong to it and last until the next call of
/// the same thread; in a callback until it returns. Paths are UTF-8.
///
/// **Threads.** Calls that take a `const VndlpFile*` may run in several threads at once, on one file too. So may
/// `vndlp_encode` and `vndlp_put_...` on one writer, for different layers. Everything else on one handle needs one
/// thread at a time. Errors are kept for each thread. Message handler and scrambling constants are the process's: set
/// them before the first file is opened. The library starts no threads.
///
/// **Pixels** are one byte of grey each, row by row from the top row. `stride` is the distance in bytes from one row to
/// the next, 0 for the width; bytes between rows are left as they are. `bytes` is the memory behind the pointer, which
/// must reach to the end of the last row; else `VNDLP_E_SIZE`, before anything is written.

#ifndef VNDLP_VNDLP_C_H
#define VNDLP_VNDLP_C_H

#include <stddef.h>
#include <stdint.h>

#include <vndlp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

// Between the two marks stand plain declarations only, which foreign-function interfaces read from this file.
/* declarations begin */

/// Results.
enum {
    VNDLP_OK = 0,
    VNDLP_ABSENT = 1,       ///< the file holds no such value
    VNDLP_E_ARGUMENT = -1,  ///< null, a struct's size below 8, a choice that does not exist
    VNDLP_E_KEY = -2,       ///< unknown key, one without a place in this format, or one the format fixes
    VNDLP_E_VALUE = -3,     ///< no number, out of range, or stored as 0 though it is not
    VNDLP_E_INDEX = -4,     ///< no such layer, preview, key or field
    VNDLP_E_SIZE = -5,      ///< too little memory behind a pointer, a stride below the width, wrong dimensions
    VNDLP_E_FILE = -6,      ///< a file that cannot be opened, read or written; `system_code` says why
    VNDLP_E_FORMAT = -7,    ///< no slice file
    VNDLP_E_DAMAGED = -8,   ///< a slice file whose bytes contradict each other, or that ends early
    VNDLP_E_KIND = -9,      ///< not for this format: an image of a line file, shapes of an image file
    VNDLP_E_ORDER = -10,    ///< a layer twice, layers missing, a setting behind the first layer, a call after the end
    VNDLP_E_MEMORY = -11,   ///< no memory
    VNDLP_E_STOPPED = -12   ///< the callback asked to stop
};

/// Formats. A format's bit in `VndlpKey` is `1u << VNDLP_FORMAT_...`.
enum { VNDLP_FORMAT_VNDLP = 1, VNDLP_FORMAT_VNLINE = 2, VNDLP_FORMAT_CTB = 3, VNDLP_FORMAT_VNDLPV4 = 4 };

/// What a value is.
enum { VNDLP_NUMBER = 1, VNDLP_INTEGER = 2, VNDLP_TEXT = 3 };

/// How grave a finding is.
enum { VNDLP_ERROR = 1, VNDLP_WARNING = 2, VNDLP_NOTE = 3 };

/// What a file's layers are: grey images, closed or open polylines, or meshes (vertices without faces).
enum { VNDLP_IMAGES = 1, VNDLP_PATHS = 2, VNDLP_MESH = 3 };

/// What `vndlp_convert` does with hurt layers: fail; write them blank; write the sound layer before once more.
enum { VNDLP_SALVAGE_NO = 0, VNDLP_SALVAGE_BLANK = 1, VNDLP_SALVAGE_PREVIOUS = 2 };

/// Checksum trailers.
enum { VNDLP_TRAILER_NONE = 0, VNDLP_TRAILER_XOR = 1, VNDLP_TRAILER_CRC32 = 2 };

/// What became of a trailer: the format has none, it is right, it is wrong, it should be there and is not.
enum { VNDLP_STATE_NONE = 0, VNDLP_STATE_OK = 1, VNDLP_STATE_WRONG = 2, VNDLP_STATE_MISSING = 3 };

/// A file open for reading.
typedef struct VndlpFile VndlpFile;
/// A file being written.
typedef struct VndlpWriter VndlpWriter;
/// One layer as its file will hold it, not yet written.
typedef struct VndlpEncoded VndlpEncoded;

/// The last failure of a thread.
typedef struct {
    uint32_t size;
    int32_t code;         ///< VNDLP_E_..., 0 when no call has failed yet
    int32_t system_code;  ///< errno of the system, 0 for none
    int64_t layer;        ///< the layer it happened in, -1 for none
    int64_t offset;       ///< byte of the file, -1 for none
    const char* text;     ///< what, where and why, in one line
} VndlpError;

/// Constants of the CTB scrambling: the key of layer i follows from the file's key and i through these.
typedef struct {
    uint32_t size;
    int32_t illustrative;  ///< 1 for the library's own, which no machine uses; not read by `vndlp_set_scrambling`
    uint32_t km;
    uint32_t ks;
    uint32_t lm;
    uint32_t ls;
} VndlpScrambling;

/// A settings key.
typedef struct {
    uint32_t size;
    int32_t type;            ///< VNDLP_NUMBER, VNDLP_INTEGER, VNDLP_TEXT
    const char* name;        ///< as "exposure_s"
    const char* unit;        ///< "s", "mm", "mm/min", "ml", "g", "px", "um" or ""
    uint32_t formats;        ///< bits of the formats that hold the key
    uint32_t layer_formats;  ///< of those that hold it for single layers
    uint32_t fixed_formats;  ///< of those that fix its value
    double least;            ///< smallest value that is taken; NaN: no bound
    double most;             ///< largest
} VndlpKey;

/// What a file is.
typedef struct {
    uint32_t size;
    int32_t format;   ///< VNDLP_FORMAT_...
    int32_t version;  ///< as the file's head gives it
    int32_t layer_kind;
    uint32_t layers;
    uint32_t width;   ///< of a layer, pixels
    uint32_t height;  ///< of a layer, pixels
    uint32_t previews;
    int64_t bytes;      ///< of the file
    double pixel_x_um;  ///< size of a pixel
    double pixel_y_um;
    double size_x_mm;  ///< size of the screen
    double size_y_mm;
    double size_z_mm;  ///< build height of the machine
} VndlpInfo;

/// A file's checksum trailer.
typedef struct {
    uint32_t size;
    int32_t kind;       ///< VNDLP_TRAILER_...
    int32_t state;      ///< VNDLP_STATE_...
    uint32_t stored;    ///< 0 where there is none
    uint32_t computed;  ///< over the bytes the trailer covers; 0 where the format has none
} VndlpTrailer;

/// Resin and time.
typedef struct {
    uint32_t size;
    double volume_ml;   ///< sum of area times thickness, areas the file holds first
    double file_s;      ///< print time the file holds; NaN: none
    double estimate_s;  ///< print time by the model; NaN: not enough is known
    const char* model;  ///< name of that model
} VndlpEstimate;

/// A field of a record, as it stands in the file.
typedef struct {
    uint32_t size;
    int32_t type;      ///< VNDLP_NUMBER, VNDLP_INTEGER: see `number`; VNDLP_TEXT: see `text`
    int32_t fixed;     ///< 1 where the format fixes the value
    const char* name;  ///< "RECORD.member", repeated records with their number: "LayerDef.5.reserved28"
    const char* unit;  ///< of the stored value
    const char* text;  ///< the value as text, numbers in decimal; of integers above 2^53 the exact form
    double number;     ///< NaN for a text
    int64_t offset;    ///< byte of the file
    int64_t bytes;     ///< in the file
} VndlpRaw;

/// A preview picture.
typedef struct {
    uint32_t size;
    uint32_t width;   ///< pixels
    uint32_t height;  ///< pixels
    int32_t blank;    ///< 1 when all pixels are 0
    const char* name;
} VndlpPreview;

/// Facts of a layer, had without making its image.
typedef struct {
    uint32_t size;
    int64_t offset;   ///< of the layer's whole record
    int64_t bytes;    ///< of the layer's whole record
    int64_t runs;     ///< lit runs as `vndlp_layer_runs` gives them
    int64_t lit_px;   ///< pixels of grey above 15
    double z_mm;      ///< top of the layer above the plate
    double area_mm2;  ///< as stored, else lit pixels times the area of one
} VndlpLayer;

/// Consecutive rows of one column with one grey. 8 bytes in the host's byte order, without a `size`.
typedef struct {
    uint16_t first_row;
    uint16_t last_row;  ///< lit too
    uint16_t column;
    uint8_t grey;
    uint8_t reserved;  ///< 0
} VndlpRun;

/// What verifying, checking, repairing or converting found. Boxes hold their first and last pixel.
typedef struct {
    uint32_t size;
    int32_t severity;  ///< VNDLP_ERROR, VNDLP_WARNING, VNDLP_NOTE
    const char* kind;  ///< of `vndlp_check`: "island", "trap", "cup", "empty", "overhang", "outside", "peak",
                       ///< "settings"; of all others ""
    const char* text;  ///< one line
    int64_t layer;     ///< first or only layer
    int64_t last_layer;
    int64_t offset;       ///< byte of the file
    int64_t pixels;       ///< of its largest layer
    int64_t voxels;       ///< of all its layers
    double area_mm2;      ///< of `pixels`
    double volume_ml;     ///< of `voxels`
    int64_t x_px[2];      ///< box, columns
    int64_t y_px[2];      ///< box, rows
    double centre_px[2];  ///< middle of the box, x and y
} VndlpFinding;

/// What `vndlp_check` takes as a fault. A value below 0 stands for the default.
typedef struct {
    uint32_t size;
    int32_t threshold;   ///< lit is a grey above it, 0 to 254; default 15
    int32_t margin_px;   ///< pixels at the image's edges that must stay dark; default 1, 0: none
    double overhang_um;  ///< reach that needs no support; default the larger of 200 and 4 layer heights
    double jump_factor;  ///< an area that grows by more than this factor ...; default 4
    double jump_cm2;     ///< ... and by more than this is a peak; default 10
} VndlpCheckOptions;

/// A value to set.
typedef struct {
    uint32_t size;
    const char* key;     ///< a settings key, or "raw.RECORD.member"
    const char* value;   ///< a number in decimal, or a text
    const char* layers;  ///< null: the file's value; else that of single layers, as "40-59,70"
} VndlpChange;

/// How `vndlp_convert` goes about it.
typedef struct {
    uint32_t size;
    int32_t salvage;             ///< VNDLP_SALVAGE_...
    const VndlpChange* changes;  ///< values set in the output; null with `change_count` 0
    size_t change_count;
} VndlpConvertOptions;

/// A file that the caller reads.
typedef struct {
    uint32_t size;
    void* context;  ///< handed to `read`
    int64_t bytes;  ///< length of the file
    /// Reads `bytes` bytes from `offset` on, all inside the file, into `to`. Called from any thread that calls the
    /// library, in several at once if these do. \return the bytes read; less, or a negative number, is a failure.
    int64_t (*read)(void* context, int64_t offset, void* to, size_t bytes);
} VndlpSource;

/// Takes one message as it would be printed, line ends included; called from any thread, several at once too.
typedef void (*VndlpMessageFn)(void* context, const char* text);
/// Takes one row of an image, as many bytes as the image is wide. \return 0; anything else stops.
typedef int32_t (*VndlpRowFn)(void* context, uint32_t row, const uint8_t* pixels);
/// Takes one finding. \return 0; anything else stops.
typedef int32_t (*VndlpFindingFn)(void* context, const VndlpFinding* finding);
/// Takes one changed value.
/// \param layers null for the file's value, else as "1-2".
/// \return 0; anything else stops, and nothing is written.
typedef int32_t (*VndlpChangedFn)(void* context, const char* key, const char* layers, const char* was, const char* is);

/// Version of the library: major << 16 | minor << 8 | patch.
VNDLP_API uint32_t vndlp_version(void);

/// Tells of this thread's last failing call; calls that succeed leave it. `text` lasts until the thread's next call.
/// \return VNDLP_OK; VNDLP_E_ARGUMENT, which is not kept.
VNDLP_API int32_t vndlp_last_error(VndlpError* out);

/// Sets who takes the library's messages, for the whole process; null: they go to standard output again.
VNDLP_API void vndlp_set_message_handler(VndlpMessageFn handler, void* context);

/// A handler that drops what it is given.
VNDLP_API void vndlp_ignore_message(void* context, const char* text);

/// Sets the constants of the CTB scrambling, for the whole process and all CTB files opened or written from then on.
VNDLP_API int32_t vndlp_set_scrambling(const VndlpScrambling* constants);

/// The constants in force.
VNDLP_API int32_t vndlp_scrambling(VndlpScrambling* out);

/// Tells a file's format by its first bytes; 16 are enough.
/// \return VNDLP_FORMAT_...; VNDLP_E_FORMAT.
VNDLP_API int32_t vndlp_sniff(const void* head, size_t bytes);

/// Describes a settings key; with `index` 0, 1, ... all of them in a fixed order.
/// \return VNDLP_OK; VNDLP_E_INDEX behind the last.
VNDLP_API int32_t vndlp_key(uint32_t index, VndlpKey* out);

/// Opens a slice file of any format, told by its content, and reads its head. A file that is cut or damaged behind its
/// first bytes opens as well: what can be read of it is given, and `vndlp_verify` tells what is wrong.
/// \param out receives a handle for `vndlp_close`.
/// \return VNDLP_OK; VNDLP_E_FILE, VNDLP_E_FORMAT, VNDLP_E_MEMORY.
VNDLP_API int32_t vndlp_open(const char* path, VndlpFile** out);

/// The same for a file in memory, which is not copied and must stay as it is until `vndlp_close`.
VNDLP_API int32_t vndlp_open_memory(const void* data, size_t bytes, VndlpFile** out);

/// The same for a file read by the caller. The struct is copied; its context must last until `vndlp_close`.
VNDLP_API int32_t vndlp_open_source(const VndlpSource* source, VndlpFile** out);

/// Closes a file. No other call may be at work on it. Null does nothing.
VNDLP_API void vndlp_close(VndlpFile* file);

/// What the file is; known since it was opened.
VNDLP_API int32_t vndlp_info(const VndlpFile* file, VndlpInfo* out);

/// The checksum trailer. Reads the whole file the first time.
VNDLP_API int32_t vndlp_trailer(const VndlpFile* file, VndlpTrailer* out);

/// Resin volume and print time. Reads all layers where the file holds no areas.
VNDLP_API int32_t vndlp_estimate(const VndlpFile* file, VndlpEstimate* out);

/// A setting that is a number or an integer.
/// \param layer -1 for the file's value, else a layer that may have a value of its own.
/// \return VNDLP_OK; VNDLP_ABSENT; VNDLP_E_KEY (unknown, without a place in this format, fixed by it, or a text),
///         VNDLP_E_INDEX.
VNDLP_API int32_t vndlp_get_number(const VndlpFile* file, const char* key, int64_t layer, double* out);

/// A setting that is a text. \return as `vndlp_get_number`, but for VNDLP_E_KEY of a number.
VNDLP_API int32_t vndlp_get_text(const VndlpFile* file, const char* key, const char** out);

/// A field of the file's records, in the order of the file; with `index` 0, 1, ... all of them.
/// \return VNDLP_OK; VNDLP_E_INDEX behind the last.
VNDLP_API int32_t vndlp_raw(const VndlpFile* file, uint64_t index, VndlpRaw* out);

/// The same by its name. \return VNDLP_OK; VNDLP_ABSENT.
VNDLP_API int32_t vndlp_raw_by_name(const VndlpFile* file, const char* name, VndlpRaw* out);

/// Size and name of a preview. \return VNDLP_OK; VNDLP_E_INDEX.
VNDLP_API int32_t vndlp_preview_info(const VndlpFile* file, uint32_t index, VndlpPreview* out);

/// A preview's pixels: red, green, blue, a byte each, from the top row.
/// \param stride bytes from one row to the next; 0: 3 x width.
/// \return VNDLP_OK; VNDLP_E_INDEX, VNDLP_E_SIZE, VNDLP_E_DAMAGED, VNDLP_E_FILE.
VNDLP_API int32_t vndlp_preview(const VndlpFile* file, uint32_t index, uint8_t* rgb, size_t stride, size_t bytes);

/// Facts of a layer. \return VNDLP_OK; VNDLP_E_INDEX, VNDLP_E_DAMAGED, VNDLP_E_FILE.
VNDLP_API int32_t vndlp_layer(const VndlpFile* file, uint32_t layer, VndlpLayer* out);

/// A layer's image, decoded into the caller's memory. When the layer's code turns out damaged the rows decoded so far
/// may have been written.
/// \return VNDLP_OK; VNDLP_E_INDEX, VNDLP_E_SIZE, VNDLP_E_KIND, VNDLP_E_DAMAGED, VNDLP_E_FILE.
VNDLP_API int32_t vndlp_layer_pixels(const VndlpFile* file, uint32_t layer, uint8_t* to, size_t stride, size_t bytes);

/// The same row by row from the top. \return as `vndlp_layer_pixels`; VNDLP_E_STOPPED.
VNDLP_API int32_t vndlp_layer_rows(const VndlpFile* file, uint32_t layer, VndlpRowFn row, void* context);

/// A layer's runs, by column, then row: those a `.vndlp` of the same image would hold, grey above 15.
/// \param to       receives the first `capacity` of them; may be null with `capacity` 0.
/// \return the number of all runs, more than `capacity` too; VNDLP_E_INDEX, VNDLP_E_KIND, VNDLP_E_DAMAGED,
/// VNDLP_E_FILE.
VNDLP_API int64_t vndlp_layer_runs(const VndlpFile* file, uint32_t layer, VndlpRun* to, size_t capacity);

/// A line file's layer: the points of its polylines, or the vertices of its mesh, in the order and units of the file.
/// \param xy       receives x and y of the first `capacity` points, two numbers each; may be null with `capacity` 0.
/// \param path     receives for each point the number of its polyline, from 0; 0 for a mesh. May be null.
/// \return the number of all points; VNDLP_E_INDEX, VNDLP_E_KIND, VNDLP_E_DAMAGED, VNDLP_E_FILE.
VNDLP_API int64_t vndlp_layer_points(const VndlpFile* file, uint32_t layer, double* xy, uint32_t* path,
                                     size_t capacity);

/// A layer's bead mask as it stands in the file.
/// \param mask     receives its first `capacity` bytes; may be null with `capacity` 0.
/// \return the number of all bytes, 0 for no mask; VNDLP_E_INDEX, VNDLP_E_DAMAGED, VNDLP_E_FILE.
VNDLP_API int64_t vndlp_layer_beads(const VndlpFile* file, uint32_t layer, uint8_t* mask, size_t capacity);

/// Verifies the whole file: trailer, structure, every layer's code.
/// \param finding takes each finding; may be null.
/// \return the number of findings that are errors; VNDLP_E_FILE, VNDLP_E_STOPPED.
VNDLP_API int64_t vndlp_verify(const VndlpFile* file, VndlpFindingFn finding, void* context);

/// The cheaper part of it: head, trailer, structure; no layer's code. \return as `vndlp_verify`.
VNDLP_API int64_t vndlp_verify_structure(const VndlpFile* file, VndlpFindingFn finding, void* context);

/// Tells what would go wrong in print: islands, traps, cups, empty layers, overhangs, what lies outside, peaks,
/// settings.
/// \param options null: the defaults.
/// \param finding takes each finding, the gravest first, when all layers are done; may be null.
/// \return the number of findings; VNDLP_E_VALUE for an option, VNDLP_E_DAMAGED, VNDLP_E_FILE, VNDLP_E_STOPPED.
VNDLP_API int64_t vndlp_check(const VndlpFile* file, const VndlpCheckOptions* options, VndlpFindingFn finding,
                              void* context);

/// Writes the whole layers of a cut or damaged file into a new one.
/// \param output takes its name when it is complete; an existing file is replaced.
/// \param lost   takes what was left out and why; may be null.
/// \return the number of layers kept; VNDLP_E_FILE, VNDLP_E_FORMAT, VNDLP_E_DAMAGED (nothing to keep), VNDLP_E_STOPPED.
VNDLP_API int64_t vndlp_repair(const char* path, const char* output, VndlpFindingFn lost, void* context);

/// Sets values of a file, all or none. Its structure is checked first; layers are not decoded.
/// \param output  null: in place. Either way written beside and renamed when complete.
/// \param changed takes each value that is new; may be null.
/// \return VNDLP_OK; VNDLP_E_KEY, VNDLP_E_VALUE, VNDLP_E_INDEX (layers), VNDLP_E_FILE, VNDLP_E_FORMAT, VNDLP_E_DAMAGED,
///         VNDLP_E_STOPPED.
VNDLP_API int32_t vndlp_change(const char* path, const char* output, const VndlpChange* changes, size_t count,
                               VndlpChangedFn changed, void* context);

/// Writes the file anew, in the format of the output's ending (any case); within one format nothing is lost.
/// \param output  takes its name when it is complete; an existing file is replaced.
/// \param options null: no salvage, no changes.
/// \param note    takes what could not be kept, what was rounded and what became of hurt layers; may be null.
/// \return VNDLP_OK; VNDLP_E_DAMAGED (nothing is written), VNDLP_E_ARGUMENT (ending, salvage), VNDLP_E_KIND (images to
///         lines or back), VNDLP_E_KEY, VNDLP_E_VALUE, VNDLP_E_FILE, VNDLP_E_STOPPED.
VNDLP_API int32_t vndlp_convert(const VndlpFile* file, const char* output, const VndlpConvertOptions* options,
                                VndlpFindingFn note, void* context);

/// Begins a file, in the format of the path's ending (any case). It is written beside and takes its name in
/// `vndlp_finish`.
/// \param width  of a layer, pixels.
/// \param height of a layer, pixels.
/// \param layers that will be delivered, 1 to 65535.
/// \param like   null, or a file whose settings, previews and records the new one begins with as far as its format can
///               hold them; it must stay open until `vndlp_writer_free`.
/// \param out    receives a handle for `vndlp_writer_free`.
/// \return VNDLP_OK; VNDLP_E_ARGUMENT (ending), VNDLP_E_SIZE (dimensions), VNDLP_E_FILE, VNDLP_E_DAMAGED (`like`).
VNDLP_API int32_t vndlp_create(const char* path, uint32_t width, uint32_t height, uint32_t layers,
                               const VndlpFile* like, VndlpWriter** out);

/// Sets a number, before the first layer is encoded or put.
/// \param layer -1 for the file's value, else that of one layer.
/// \return VNDLP_OK; VNDLP_E_KEY, VNDLP_E_VALUE, VNDLP_E_INDEX, VNDLP_E_ORDER.
VNDLP_API int32_t vndlp_set_number(VndlpWriter* writer, const char* key, int64_t layer, double value);

/// Sets a text, before the first layer is encoded or put. A number given as text is taken for keys that are numbers.
/// \return as `vndlp_set_number`.
VNDLP_API int32_t vndlp_set_text(VndlpWriter* writer, const char* key, const char* value);

/// Sets a preview, before the first layer is encoded or put. It is scaled to fit the format's picture, its sides kept
/// in proportion.
/// \param rgb    red, green, blue, a byte each, `height` rows from the top.
/// \param stride bytes from one row to the next; 0: 3 x width.
/// \return VNDLP_OK; VNDLP_E_INDEX (the format has fewer), VNDLP_E_SIZE, VNDLP_E_ORDER.
VNDLP_API int32_t vndlp_set_preview(VndlpWriter* writer, uint32_t index, const uint8_t* rgb, uint32_t width,
                                    uint32_t height, size_t stride);

/// Encodes a layer; writes nothing. For threads that work while another one puts.
/// \param out receives a handle for `vndlp_put_encoded` or `vndlp_encoded_free`.
/// \return VNDLP_OK; VNDLP_E_INDEX, VNDLP_E_SIZE, VNDLP_E_KIND, VNDLP_E_ORDER (after the end).
VNDLP_API int32_t vndlp_encode(const VndlpWriter* writer, uint32_t layer, const uint8_t* pixels, size_t stride,
                               size_t bytes, VndlpEncoded** out);

/// Puts an encoded layer in its place, in any order. Takes and frees it whatever the result.
/// \return VNDLP_OK; VNDLP_E_ORDER (there already, or after the end), VNDLP_E_FILE.
VNDLP_API int32_t vndlp_put_encoded(VndlpWriter* writer, VndlpEncoded* layer);

/// `vndlp_encode` and `vndlp_put_encoded` in one. \return as these.
VNDLP_API int32_t vndlp_put_pixels(VndlpWriter* writer, uint32_t layer, const uint8_t* pixels, size_t stride,
                                   size_t bytes);

/// Puts a layer given as runs, in any order of runs; what lies under none is 0, later runs cover earlier ones.
/// \param runs may be null with `count` 0.
/// \return VNDLP_OK; VNDLP_E_SIZE (a run outside the image, or rows the wrong way round); else as `vndlp_put_pixels`.
VNDLP_API int32_t vndlp_put_runs(VndlpWriter* writer, uint32_t layer, const VndlpRun* runs, size_t count);

/// Puts a line file's layer as polylines.
/// \param xy    x and y of `count` points, two numbers each.
/// \param path  for each point the number of its polyline, from 0, never falling; a number left out is a polyline
///              without points. Null: all belong to polyline 0.
/// \return VNDLP_OK; VNDLP_E_VALUE (`path` falls), VNDLP_E_KIND, VNDLP_E_INDEX, VNDLP_E_ORDER, VNDLP_E_FILE.
VNDLP_API int32_t vndlp_put_points(VndlpWriter* writer, uint32_t layer, const int32_t* xy, const uint32_t* path,
                                   size_t count);

/// Puts a layer of another file; its code is copied where the format is the same.
/// \return VNDLP_OK; VNDLP_E_INDEX, VNDLP_E_SIZE (another resolution), VNDLP_E_KIND, VNDLP_E_DAMAGED, VNDLP_E_ORDER,
///         VNDLP_E_FILE.
VNDLP_API int32_t vndlp_put_layer(VndlpWriter* writer, uint32_t layer, const VndlpFile* from, uint32_t from_layer);

/// Completes the file; it takes its name, replacing what had it. On failure what was there before stays.
/// \return VNDLP_OK; VNDLP_E_ORDER (layers missing, which the error's text names; after the end), VNDLP_E_FILE.
VNDLP_API int32_t vndlp_finish(VndlpWriter* writer);

/// Abandons the file and removes what was written. What was at the path before stays.
/// \return VNDLP_OK; VNDLP_E_ORDER after the end.
VNDLP_API int32_t vndlp_cancel(VndlpWriter* writer);

/// Frees a layer that was not put. Null does nothing.
VNDLP_API void vndlp_encoded_free(VndlpEncoded* layer);

/// Frees a writer, and cancels the file if it is not finished. Null does nothing.
VNDLP_API void vndlp_writer_free(VndlpWriter* writer);

/* declarations end */

#ifdef __cplusplus
}
#endif

#endif
