/// \file ctb.h
/// The CTB container: its six records, the codecs of layer and preview pixels, and the whole-file reader and writer.
///
/// A file is laid out like this (P0, P1: bytes of the two encoded previews; N: bytes of the machine name; L: layers;
/// D[i]: bytes of layer i's encoded data; the extended records stand in files of version 3 and later only):
///
/// | offset              | bytes  | what                                                          |
/// |---------------------|--------|---------------------------------------------------------------|
/// | 0                   | 112    | `HeaderSettings`                                              |
/// | 112                 | 32     | first `PreView`                                               |
/// | 144                 | P0     | its encoded image                                             |
/// | 144 + P0            | 32     | second `PreView`                                              |
/// | 176 + P0            | P1     | its encoded image                                             |
/// | A = 176 + P0 + P1   | 60     | `PrintParameters`                                             |
/// | A + 60              | 76     | `SlicerInfo`                                                  |
/// | A + 136             | N      | machine name, without length or terminator                    |
/// | T = A + 136 + N     | 36 x L | layer table, one `LayerDef` per layer                         |
/// | T + 36 x L          |        | per layer its `LayerDefEx` (84 bytes), then its data (D[i])   |
///
/// Every number is little-endian, nothing is padded, and there is no checksum trailer. All offsets are 32-bit.
///
/// What a file says about itself is never trusted: lengths and counts are bounded by the bytes that are there. Where
/// something is missing, the call returns what it could read and prints one line that begins "error: " and names the
/// file and the record.

#ifndef VNDLP_CTB_H
#define VNDLP_CTB_H

#include <vndlp/export.h>
#include <vndlp/formats.h>
#include <vndlp/streams.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace vndlp {
class SectionWriter;
}

namespace CTB {

using vndlp::FileRead;
using vndlp::FileWrite;

/// What `HeaderSettings::magic` holds in a CTB file.
constexpr unsigned int kMagic = vndlp::kCtbMagic;
/// From this `HeaderSettings::version` on every layer has a `LayerDefEx` in front of its encoded image.
constexpr unsigned int kFirstExtendedVersion = 3;
/// An image with more pixels than this is taken for damage and not decoded: a few bytes may stand for a whole blank
/// layer, so the size of the encoded data bounds nothing.
constexpr unsigned int kMostLayerPixels = 1u << 28;
/// The same for previews.
constexpr unsigned int kMostPreviewPixels = 1u << 24;
/// Longest side that a resolution of 16 bits can say, as V4 files have it. Images are bounded by their pixels alone.
constexpr unsigned int kLongestImageSide = 65535;

/// The constants of the layer scrambling: a file for a real machine needs that machine's.
struct ScramblingConstants {
    unsigned int km;  ///< factor of the key
    unsigned int ks;  ///< subtracted from the key's product
    unsigned int lm;  ///< factor of the layer index
    unsigned int ls;  ///< subtracted from the layer index's product
};
/// Sets the constants with which all layers of CTB and V4 files that have a key are scrambled and unscrambled from now
/// on. They are the process's: call it before any file is read or written, and not while another thread does either.
/// Until then they are those the library was built with.
VNDLP_API void setScramblingConstants(const ScramblingConstants& values);
/// The constants in use.
VNDLP_API ScramblingConstants scramblingConstants();
/// True for the constants that only illustrate the algorithm, which no machine has: those of a library that was built
/// without others.
VNDLP_API bool areScramblingConstantsIllustrative();

/// The streams a record reads from and writes to. They belong to the record's owner, must outlive every use of the
/// record, and are neither closed nor repositioned by it except where a record says so. A copy of a record refers to
/// the same streams. Without an open stream, reading and writing do nothing.
///
/// Floats are read and written in the stream's file byte order, so that must be `vndlp::LittleEndian`, as it is on the
/// streams of `CTBRead` and `CTBWrite` and, on little-endian machines, on every new stream.
class VNDLP_API RecordStreams {
public:
    /// The stream to read from. It is taken const and used as the open file it is: reading moves its position.
    void setFileRead(const FileRead& file);
    /// The stream to write to, likewise.
    void setFileWrite(const FileWrite& file);

protected:
    RecordStreams() = default;
    explicit RecordStreams(const FileRead& file) { setFileRead(file); }

    /// The stream if there is one with an open file, else null.
    FileRead* openFileRead() const;
    FileWrite* openFileWrite() const;

private:
    FileRead* m_fileRead = nullptr;
    FileWrite* m_fileWrite = nullptr;
};

// Every record below has: a default constructor and one that takes the stream to read from (and reads nothing);
// copies that are deep; `size()`, its bytes in a file; `Serialization()`, which writes it at the position of its
// `FileWrite`; `DeSerialization()`, which reads it from the position of its `FileRead`. Both leave the position behind
// the record. Reading past the end of the file gives zeros. Members the file does not hold say so.

/// The file header, 112 bytes at offset 0.
struct VNDLP_API HeaderSettings : RecordStreams {
    unsigned int magic = 0;               ///< `kMagic`
    unsigned int version = 0;             ///< format version; see `kFirstExtendedVersion`
    float bedSizeX = 0;                   ///< printable area along X, mm
    float bedSizeY = 0;                   ///< printable area along Y, mm
    float bedSizeZ = 0;                   ///< printable height, mm
    unsigned int reserved20 = 0;          ///< 0
    unsigned int reserved24 = 0;          ///< 0
    float totalHeight = 0;                ///< height of the print, mm
    float layerHeight = 0.05F;            ///< layer thickness, mm
    float exposureTime = 0;               ///< exposure of normal layers, s
    float bottomExposureTime = 0;         ///< exposure of bottom layers, s
    float lightOffDelay = 0;              ///< light-off time between layers, s
    unsigned int bottomLayerCount = 0;    ///< layers with an index below it are bottom layers
    unsigned int resolutionX = 0;         ///< width of a layer image, pixels
    unsigned int resolutionY = 0;         ///< height of a layer image, pixels
    unsigned int previewLargeOffset = 0;  ///< file offset of the first `PreView`, 112
    unsigned int layerDefOffset = 0;      ///< file offset of the layer table
    unsigned int layerCount = 0;          ///< entries of the layer table
    unsigned int previewSmallOffset = 0;  ///< file offset of the second `PreView`
    unsigned int printTime = 0;           ///< print time, s; writing sets it to 330300
    unsigned int projectorType = 0;       ///< projection type
    unsigned int printParametersOffset = 0;
    unsigned int printParametersSize = 0;  ///< 60
    unsigned int antiAliasLevel = 0;       ///< how often the layer table is repeated
    unsigned short lightPwm = 0;           ///< light of normal layers
    unsigned short bottomLightPwm = 0;     ///< light of bottom layers; writing sets it to 255
    unsigned int encryptionKey = 0;        ///< key of the layer scrambling; 0 = not scrambled
    unsigned int slicerInfoOffset = 0;
    unsigned int slicerInfoSize = 0;  ///< 76

    HeaderSettings() = default;
    explicit HeaderSettings(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    void Serialization();
    void DeSerialization();
    /// Moves the `FileWrite` to offset 0, so that the header can be written over its first copy.
    void seekBegin();
};

/// A preview image: 32 bytes, followed by its encoded image, `imageSize` bytes.
///
/// The encoded data are a sequence of runs of one 16-bit colour each, which keeps the top five bits of every byte of a
/// pixel. Pixels are three bytes each, row by row from the top row, no padding.
struct VNDLP_API PreView : RecordStreams {
    unsigned int resolutionX = 0;  ///< width, pixels
    unsigned int resolutionY = 0;  ///< height, pixels
    unsigned int imageOffset = 0;  ///< file offset of the encoded image
    unsigned int imageSize = 0;    ///< bytes of the encoded image
    unsigned int reserved16 = 0;
    unsigned int reserved20 = 0;
    unsigned int reserved24 = 0;
    unsigned int reserved28 = 0;
    /// The encoded image, `imageSize` bytes; fewer after reading a file that ends earlier.
    std::vector<unsigned char> imageData;

    PreView() = default;
    explicit PreView(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    /// Writes the record and `imageSize` bytes of `imageData`. Where `imageData` holds fewer, zeros take the place of
    /// the rest, so that what follows stands where the offsets say, and an error line is printed.
    void Serialization();
    /// Reads the record, then the encoded image from behind it, wherever `imageOffset` points.
    void DeSerialization();

    /// Encodes pixels.
    /// \param pixels `size` bytes, three per pixel; what is missing from a last pixel counts as 0.
    /// \return the encoded data.
    std::vector<unsigned char> Encode(unsigned char* pixels, unsigned int size);
    /// Encodes the first `imageSize` bytes of `imageData`, taken as pixels, and sets `imageSize` to the length of the
    /// encoded data. `imageData` stays as it is: the caller puts the result there.
    std::vector<unsigned char> Encode();
    /// The same as `Encode(pixels, size)`.
    std::vector<unsigned char> encodeImg(unsigned char* pixels, unsigned int size);
    /// Appends one encoded run of equal pixels.
    /// \param count  pixels, up to 4095; nothing happens for 0.
    /// \param colour 16-bit colour: the third byte's top five bits in bits 11 to 15, the second's top six in 5 to 10,
    ///               the first's top five in 0 to 4. Bit 5 is not kept: it becomes the repeat flag.
    void RleRGB15(std::vector<unsigned char>& out, unsigned int& count, unsigned short& colour);
    /// Decodes a preview image.
    /// \param code the encoded data, `size` bytes.
    /// \return `resolutionX` x `resolutionY` x 3 bytes, 0 where the encoded data end early; what they hold beyond that
    ///         is left out. Empty, with an error line, for an image of more than `kMostPreviewPixels` pixels.
    std::vector<unsigned char> decodeImg(unsigned char* code, unsigned int size);
};

/// Print parameters, 60 bytes.
struct VNDLP_API PrintParameters : RecordStreams {
    float bottomLiftHeight = 0;         ///< lift distance after a bottom layer, mm
    float bottomLiftSpeed = 0;          ///< lift speed after a bottom layer, mm/min
    float liftHeight = 0;               ///< lift distance after a normal layer, mm
    float liftSpeed = 0;                ///< lift speed, mm/min
    float retractSpeed = 0;             ///< retract speed, mm/min
    float volume = 0;                   ///< resin volume, ml; writing sets it to 9.131
    float weight = 0;                   ///< resin weight, g
    float price = 0;                    ///< resin cost; writing sets it to 0.548
    float bottomLightOffDelay = 0;      ///< light-off time after bottom layers, s
    float lightOffDelay = 0;            ///< light-off time after normal layers, s
    unsigned int bottomLayerCount = 0;  ///< written as an integer but *read as a float*: every count reads back as 0
    float reserved44 = 0;
    float reserved48 = 0;
    float reserved52 = 0;
    float reserved56 = 0;

    PrintParameters() = default;
    explicit PrintParameters(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    void Serialization();
    void DeSerialization();
};

/// Slicer information: 76 bytes, followed by the machine name.
struct VNDLP_API SlicerInfo : RecordStreams {
    float bottomLiftHeight2 = 0;         ///< second-stage bottom lift distance, mm
    float bottomLiftSpeed2 = 0;          ///< second-stage bottom lift speed, mm/min
    float liftHeight2 = 0;               ///< second-stage lift distance, mm
    float liftSpeed2 = 0;                ///< second-stage lift speed, mm/min
    float retractHeight2 = 0;            ///< second-stage retract distance, mm
    float retractSpeed2 = 0;             ///< second-stage retract speed, mm/min
    float restTimeAfterLift = 0;         ///< rest after lift, s
    unsigned int machineNameOffset = 0;  ///< file offset of the machine name
    unsigned int machineNameSize = 0;    ///< bytes of the machine name
    unsigned int settingsFlags = 0;      ///< writing sets it to 0x2000000F
    unsigned int word40 = 0;             ///< writing sets it to 0x01A4FA00
    unsigned int word44 = 0;
    unsigned int slicerVersion = 0;
    float restTimeAfterRetract = 0;         ///< rest after retract, s; reading takes the bits for an integer's
    float restTimeAfterLift2 = 0;           ///< second rest after lift, s; likewise
    unsigned int transitionLayerCount = 0;  ///< transition layers
    unsigned int word64 = 0;
    unsigned int word68 = 0;
    unsigned int word72 = 0;
    /// Any bytes, written without length or terminator; not part of the 76 bytes.
    std::string machineName;

    SlicerInfo() = default;
    explicit SlicerInfo(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    /// Writes the record and `machineNameSize` bytes of `machineName`; where that holds fewer, zeros take their place
    /// and an error line is printed.
    void Serialization();
    /// Reads the record, then the name as a 32-bit length and that many bytes of which the last is dropped. Writing
    /// stores no length, so a name written here is *not* read back: its first four bytes are taken for a length, and
    /// `machineName` receives what follows, up to the end of the file. `machineNameOffset` and `machineNameSize` say
    /// where the name really is.
    void DeSerialization();
};

/// One entry of the layer table, 36 bytes, and the codec of layer images.
///
/// A layer image is `resolutionX` x `resolutionY` grey bytes, row by row from the top row, no padding. Encoding keeps
/// seven bits of each: a grey comes back with its lowest bit set, black stays black.
struct VNDLP_API LayerDef : RecordStreams {
    float positionZ = 0;          ///< height of the layer's top, mm
    float exposureTime = 0;       ///< exposure, s
    float lightOffDelay = 0;      ///< light-off time after the layer, s
    unsigned int dataOffset = 0;  ///< file offset of the encoded image
    unsigned int dataSize = 0;    ///< bytes of the encoded image
    unsigned int pageNumber = 0;  ///< 0
    unsigned int tableSize = 0;   ///< bytes of the extended record in front of the encoded image, 84
    unsigned int reserved28 = 0;  ///< 0
    unsigned int reserved32 = 0;  ///< 0
    /// The encoded image, scrambled where the file has a key; `dataSize` bytes when filled. Not part of the 36 bytes.
    std::vector<unsigned char> data;

    LayerDef() = default;
    explicit LayerDef(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    /// Writes the 36 bytes; the encoded image is written by `CTBWrite`.
    void Serialization();
    /// Reads the 36 bytes.
    /// \param readData true reads the encoded image too: moves to `dataOffset` and fills `data` with `dataSize` bytes,
    ///                 or with as many as the file holds there. The position stays behind it.
    void DeSerialization(bool readData);

    /// Encodes a layer image.
    /// \param pixels     `size` grey bytes.
    /// \param key        the file's scrambling key; 0 leaves the result unscrambled.
    /// \param layerIndex index of the layer, which the scrambling depends on.
    static std::vector<unsigned char> encodeCtbImage(unsigned char* pixels, unsigned int size, unsigned int key,
                                                     unsigned int layerIndex);
    /// The same for an image with padding behind its rows.
    /// \param pixels the first of `height` rows of `width` grey bytes each.
    /// \param stride bytes from one row to the next; negative where rows are stored bottom up.
    static std::vector<unsigned char> encodeCtbImage(const unsigned char* pixels, unsigned int width,
                                                     unsigned int height, std::ptrdiff_t stride, unsigned int key,
                                                     unsigned int layerIndex);
    /// Reads and decodes this layer's image: `dataSize` bytes at `dataOffset` of the `FileRead`. The position stays
    /// behind them; `data` is not used.
    /// \return width x height grey bytes, 0 where the encoded data end early (so all 0 for a `dataSize` of 0); what
    ///         they hold beyond the image is left out. When the file does not hold all of it an error line is printed
    ///         and what is there is decoded. Empty, with an error line, for an image of more than `kMostLayerPixels`
    ///         pixels.
    std::vector<unsigned char> decodeCtbImage(unsigned int width, unsigned int height, unsigned int layerIndex,
                                              unsigned int key);
    /// The same into a buffer of the caller's.
    /// \param pixels `size` bytes, all of which are set; of any size.
    /// \return 0; -1, with an error line, when the file does not hold all of it (what is there is decoded).
    int decodeCtbImageInto(unsigned char* pixels, std::size_t size, unsigned int layerIndex, unsigned int key);

    /// Reads this layer's encoded image, as `decodeCtbImage` does, and adds up its runs: a sound layer has as many
    /// pixels as its screen.
    /// \return pixels, also beyond any screen; -1 when the file does not hold all of it (with an error line) or it ends
    ///         within a run.
    long long codedPixelCount(unsigned int layerIndex, unsigned int key);

    /// Appends one encoded run.
    /// \param count pixels; nothing happens for 0. Beyond 0x0FFFFFFF no length is written.
    /// \param value seven-bit grey; bit 7 is set *in place* for a count above 1.
    static void addRep(unsigned int& count, unsigned char& value, std::vector<unsigned char>& out);
    /// Advances `position` by `count` and, for a `value` of at least `threshold`, sets the bytes passed over (those
    /// that lie within `out`) to it. Nothing happens for a `count` below 1.
    void FillSpan(std::vector<unsigned char>& out, int& position, int count, unsigned char value,
                  unsigned char threshold);
};

/// The extended layer record, 84 bytes: a whole `LayerDef` and 48 bytes more.
struct VNDLP_API LayerDefEx : RecordStreams {
    LayerDef layerDef;               ///< the fields of the layer's table entry; its `data` is not used
    unsigned int totalSize = 0;      ///< 84 + the layer's `dataSize`
    float liftHeight = 0;            ///< lift distance after this layer, mm
    float liftSpeed = 0;             ///< lift speed, mm/min
    float liftHeight2 = 0;           ///< second-stage lift distance, mm
    float liftSpeed2 = 0;            ///< second-stage lift speed, mm/min
    float retractSpeed = 0;          ///< retract speed, mm/min
    float retractHeight2 = 0;        ///< second-stage retract distance, mm
    float retractSpeed2 = 0;         ///< second-stage retract speed, mm/min
    float restTimeBeforeLift = 0;    ///< rest before lift, s
    float restTimeAfterLift = 0;     ///< rest after lift, s
    float restTimeAfterRetract = 0;  ///< rest after retract, s
    float lightPwm = 0;              ///< light of this layer

    LayerDefEx() = default;
    explicit LayerDefEx(const FileRead& file) : RecordStreams(file) {}

    static unsigned int size();
    /// Writes the record; its `layerDef` takes over its `FileWrite` first.
    void Serialization();
    /// Reads the record; its `layerDef` takes over its `FileRead` first.
    void DeSerialization();
};

/// Lays out and writes a whole CTB file.
///
/// Fill the records through the accessors, then call `encode` and `close`. The writer owns its records, those pushed
/// into its lists (made with `new`) among them, and frees them on destruction; an entry taken out of a list is the
/// taker's to delete. Every write step points the records it writes at the writer's stream.
///
/// When the file could not be written whole (a full disk, say) one error line is printed, by whichever of `encode` and
/// `close` notices first, and both return a negative result.
class VNDLP_API CTBWrite {
public:
    /// Header, print parameters and slicer information with their defaults; empty lists; no file.
    CTBWrite();
    /// Frees the records and closes the file.
    ~CTBWrite();
    CTBWrite(const CTBWrite&) = delete;
    CTBWrite& operator=(const CTBWrite&) = delete;

    /// Creates or truncates the file, closing the current one first. The records stay as they are.
    /// \param path   file name, UTF-8.
    /// \param verify true first verifies the checksum trailer of the file that is there (`vndlp::CheckSum`; a CTB file
    ///               has none, so this refuses it).
    /// \return 0; -1 when the verification fails (the file is left alone); -3 when the file cannot be opened. Both
    ///         print a message, and no file is open then.
    int openDlpFile(std::string path, bool verify);

    HeaderSettings* headerSettings();
    /// Two entries; further ones are written too, but no offset in the file accounts for them (`encode` warns).
    std::vector<PreView*>* preViews();
    PrintParameters* printParameters();
    SlicerInfo* slicerInfo();
    std::vector<LayerDef*>& layerDef();
    /// From version `kFirstExtendedVersion` on, one entry per layer.
    std::vector<LayerDefEx*>& layerDefEx();

    /// Writes the whole file: all records with their final offsets, which are computed here and stored back into the
    /// records. `HeaderSettings::layerCount`, from which the size of the layer table is computed, should be the number
    /// of entries in `layerDef()`: a warning is printed where it is not.
    /// \return 0; -1 with a message. Nothing is written when no file is open, when there are fewer than two previews,
    ///         when an entry of a list is null, when a layer lacks its `LayerDefEx`, or when the file would exceed the
    ///         4 GiB its offsets reach. -1 is also the result when a record declares more bytes than its buffer holds
    ///         (zeros are written for the rest) and when the file could not be written whole.
    int encode();

    // The steps of `encode`, each writing at the current position. They return 0, or -1 with a message when no file is
    // open or for the reasons given at `encode` that concern them.
    int writeHeader();
    int writePreviews();
    int writePrintParameters();
    int writeSlicerInfo();
    /// Writes the layer table, then extended record and encoded image of every layer.
    int writeLayerDefs();
    /// Writes all extended records back to back. Not a step of `encode`.
    int writeLayerDefExs();

    /// Closes the file. \return 0, also when none is open; -1, with a message, when it could not be written whole.
    int close();

    /// Scrambles the encoded data of a layer: an XOR stream that depends on key and layer index, so that the same call
    /// unscrambles. A key of 0 changes nothing.
    static std::vector<unsigned char> LayerRleCrypt(unsigned int key, unsigned int layerIndex,
                                                    std::vector<unsigned char> data);
    /// The same in place.
    static void LayerRleCryptBuffer(unsigned int key, unsigned int layerIndex, std::vector<unsigned char>& data);

private:
    bool haveLayers();
    bool layersFit(unsigned long long tableOffset);
    unsigned int bytesInFront() const;

    FileWrite m_file;
    std::unique_ptr<vndlp::SectionWriter> m_sections;
    std::unique_ptr<HeaderSettings> m_header;
    std::vector<PreView*> m_preViews;
    std::unique_ptr<PrintParameters> m_printParameters;
    std::unique_ptr<SlicerInfo> m_slicerInfo;
    std::vector<LayerDef*> m_layerDefs;
    std::vector<LayerDefEx*> m_layerDefExs;
};

/// Reads a CTB file. Call `openDlpFile` and `parseFile`, then the queries in any order. The records that queries return
/// belong to the caller and read from this reader's stream, which must outlive their use.
///
/// What a query needs and the file does not hold gives an empty or shorter result and one error line.
class VNDLP_API CTBRead {
public:
    CTBRead();
    /// Frees the header and closes the file.
    ~CTBRead();
    CTBRead(const CTBRead&) = delete;
    CTBRead& operator=(const CTBRead&) = delete;

    /// Opens a file, closing the current one first and forgetting its header.
    /// \param path   file name, UTF-8.
    /// \param verify true first verifies the checksum trailer (`vndlp::CheckSum`; a CTB file has none, so this refuses
    ///               it).
    /// \return 0; -1 when the verification fails; -3 when the file cannot be opened. Both print a message, and no file
    ///         is open then.
    int openDlpFile(std::string path, bool verify);
    /// Reads the header at the current position, which is the start of a freshly opened file. The argument is ignored.
    /// \return 0 when no file is open, else 1: also for a file shorter than a header (missing fields keep their
    ///         defaults then, and an error line is printed). The magic is not looked at.
    int parseFile(bool);
    /// Reads the header at the current position. \return 0, also when no file is open: nothing is read then.
    int readHeader();
    /// The header read; null before. It stays the reader's.
    const HeaderSettings* headerSettings() const;
    /// Reads the two previews, which stand at offset 112, one behind the other.
    /// \return two records, the caller's to delete; of what the file does not hold the fields keep their defaults. None
    ///         when no file is open.
    std::vector<PreView*> preViews();
    /// Reads the print parameters at the header's offset; of what the file does not hold the fields keep their
    /// defaults.
    PrintParameters printParameters();
    /// Reads the slicer information at the header's offset, likewise. See `SlicerInfo::DeSerialization` for the machine
    /// name.
    SlicerInfo slicerInfo();
    /// Reads the layer table: `antiAliasLevel` x `layerCount` entries, one behind the other.
    /// \param readData true reads each entry's encoded image as well, which moves the position: the next entry is then
    ///                 read from *behind that image*, not from the table, and zeros behind the end of the file. Pass
    ///                 false and use `readLayerImage`.
    /// \return the entries, the caller's to delete. Entries of further levels that a file does not repeat are made of
    ///         whatever stands behind the table. When the file is too short for one level, or for a table of more than
    ///         8192 entries: those that begin in the file, the last one perhaps cut off. With `readData` the images of
    ///         a damaged file stay empty once all of them together exceed a small multiple of the file.
    std::vector<LayerDef*> layerDef(bool readData);
    /// Reads the extended record of every layer, 84 bytes in front of its encoded image, once for each of
    /// `antiAliasLevel` levels (the same records every time), and appends them to the reader's list.
    /// \return the list, so a second call returns the records of the first again, in front of its own. The records are
    ///         the caller's to delete. Reading ends at the first record that is not, or not whole, in the file.
    std::vector<LayerDefEx*> layerDefEx();
    /// Decodes a layer image: `layer->decodeCtbImage` with the resolution and key of `header`. `ex` is ignored.
    std::vector<unsigned char> readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex,
                                              LayerDefEx* ex);
    /// Reads 84 bytes at the layer's `dataOffset` into `ex` and the `dataSize` bytes behind them, as they are, into the
    /// layer's `data`, which holds as many as the file had there afterwards.
    void readLayerImage(LayerDef* layer, LayerDefEx* ex);
    /// Closes the file. \return 0.
    int closeDlpFile();

private:
    bool isReady(const char* what);
    unsigned long long bytesFrom(long long offset);
    unsigned int seekTo(long long offset, unsigned int bytes, const char* what);
    unsigned long long tableEntries() const;
    std::vector<std::unique_ptr<LayerDef>> readTable(bool readData, bool& isWhole);

    FileRead m_file;
    std::unique_ptr<HeaderSettings> m_header;
    std::vector<LayerDefEx*> m_layerDefExs;
};

}  // namespace CTB

#endif
