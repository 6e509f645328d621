/// \file v4.h
/// The V4 container: its six records, the codecs of its layers, and the whole-file reader and writer.
///
/// A file is laid out like this (H: bytes of the header; P0, P1: bytes of the two encoded previews; L: layers; S: bytes
/// of a table entry, 40 or 120; D[i]: bytes of layer i's encoded data):
///
/// | offset                | bytes    | what                                                        |
/// |-----------------------|----------|-------------------------------------------------------------|
/// | 0                     | H        | `HeaderSettings`                                            |
/// | H                     | 32       | first `PreView`                                             |
/// | H + 32                | P0       | its encoded image                                           |
/// | H + 32 + P0           | 32       | second `PreView`                                            |
/// | H + 64 + P0           | P1       | its encoded image                                           |
/// | A = H + 64 + P0 + P1  | 68       | `PrintParameters`                                           |
/// | A + 68                | 76       | `SlicerInfo`                                                |
/// | T = A + 144           | S x L    | layer table, one `LayerDef` per layer                       |
/// | T + S x L             |          | per layer its `LayerDefEx` (44 bytes), then its data (D[i]) |
/// | behind the layers     | 44 x L   | all `LayerDefEx` records once more                          |
/// | behind those          | 4        | checksum trailer, where `headerText1` is a magic with one   |
///
/// Every number is little-endian but for the header's version and the two lengths of its strings, which are big-endian.
/// Nothing is padded. All offsets are 32-bit.
///
/// What a file says about itself is never trusted: lengths and counts are bounded by the bytes that are there.

#ifndef VNDLP_V4_H
#define VNDLP_V4_H

#include <vndlp/calibration.h>
#include <vndlp/export.h>
#include <vndlp/formats.h>
#include <vndlp/streams.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vndlp {
class SectionWriter;
}

namespace VNDLPV4 {

using vndlp::FileRead;
using vndlp::FileWrite;

/// The first header string of the files that the front end writes: the magic that gives a file its checksum trailer.
constexpr const char* kV4HeaderText = "VNKT3DV2";
/// The version of every V4 file. In a file that begins with `kV4HeaderText` it tells a V4 file from a vendor container.
constexpr unsigned short kV4Version = vndlp::kV4FileVersion;
/// Bytes of the extension of a `LayerDef`.
constexpr std::size_t kLayerExtensionBytes = 80;

// Every record below has: copies that are deep; `size()`, its bytes in a file; `Serialization(file)`, which writes it
// at the file's position; `DeSerialization(file)`, which reads it from there and notes where it began and ended.
// Neither moves anywhere else, and both leave the position behind the record. The stream must be open; its file byte
// order does not matter. Reading past the end of the file gives zeros.

/// The file header.
struct VNDLP_API HeaderSettings {
    std::string headerText1;                 ///< first string; `kV4HeaderText` in the front end's files
    unsigned short version = 0;              ///< format version; writing sets it to 4
    std::string headerText2;                 ///< second string: machine name
    unsigned short resolutionX = 0;          ///< width of a layer image, pixels
    unsigned short resolutionY = 0;          ///< height of a layer image, pixels
    float floatField0 = 0;                   ///< printable area along X, mm
    float floatField1 = 0;                   ///< printable area along Y, mm
    float floatField2 = 0;                   ///< printable height, mm
    float floatField3 = 0;                   ///< height of the print, mm
    float floatField4 = 0;                   ///< layer thickness, mm
    unsigned int word0 = 0;                  ///< bottom layers
    unsigned int previewLargeOffset = 0;     ///< file offset of the first `PreView`
    unsigned int layerDefOffset = 0;         ///< file offset of the layer table
    unsigned int layerCount = 0;             ///< entries of the layer table
    unsigned int previewSmallOffset = 0;     ///< file offset of the second `PreView`
    unsigned int word5 = 0;                  ///< print time, s
    unsigned int word6 = 0;                  ///< projection type, 1
    unsigned int printParametersOffset = 0;  ///< file offset of `PrintParameters`
    unsigned int word8 = 0;                  ///< size of `PrintParameters`, 68
    unsigned int word9 = 0;                  ///< anti-aliasing level, 1
    short shortField0 = 0;                   ///< light of normal layers, 0 to 255
    short shortField1 = 0;                   ///< light of bottom layers, 0 to 255
    unsigned int encryptionKey = 0;          ///< key of the layer scrambling; 0 = not scrambled
    unsigned int slicerInfoOffset = 0;       ///< file offset of `SlicerInfo`
    unsigned int word12 = 0;                 ///< size of `SlicerInfo`, 76
    float tailFloat0 = 0;                    ///< exposure of normal layers, s
    float tailFloat1 = 0;                    ///< exposure of bottom layers, s
    float tailFloat2 = 0;                    ///< light-off time between layers, s

    // not in the file
    unsigned int headerText1Size = 1;  ///< characters of `headerText1` + 1, as of the last reading or writing
    unsigned int headerText2Size = 1;  ///< likewise for `headerText2`
    unsigned int beginPosition = 0;    ///< where the record last read began in its file
    unsigned int endPosition = 0;      ///< where it ended

    /// Bytes in a file: 102 and, for each string, its characters and one.
    unsigned int size() const;
    void Serialization(FileWrite& file);
    void DeSerialization(FileRead& file);
};

/// A preview image: 32 bytes, followed by its image, `imageSize` bytes, encoded as CTB previews are.
struct VNDLP_API PreView {
    unsigned int resolutionX = 0;  ///< width, pixels
    unsigned int resolutionY = 0;  ///< height, pixels
    unsigned int imageOffset = 0;  ///< file offset of the encoded image
    unsigned int imageSize = 0;    ///< bytes of the encoded image
    unsigned int reserved16 = 0;
    unsigned int reserved20 = 0;
    unsigned int reserved24 = 0;
    unsigned int reserved28 = 0;

    // not in the file
    std::vector<unsigned char> imageData;  ///< the encoded image, `imageSize` bytes; fewer where the file ended earlier
    unsigned int beginPosition = 0;        ///< where the record last read began in its file
    unsigned int endPosition = 0;          ///< where its encoded image ended

    static unsigned int size();
    /// Writes the record and `imageSize` bytes of `imageData`. Where `imageData` holds fewer, zeros take the place of
    /// the rest, so that what follows stands where the offsets say, and an error line is printed.
    void Serialization(FileWrite& file);
    /// Reads the record, then the encoded image from behind it, wherever `imageOffset` points.
    void DeSerialization(FileRead& file);

    /// Encodes pixels: three bytes each, of which encoding keeps the top five bits, row by row from the top row.
    /// \param pixels `size` bytes; what is missing from a last pixel counts as 0.
    static std::vector<unsigned char> Encode(const unsigned char* pixels, std::size_t size);
    /// Decodes `imageData`.
    /// \return `resolutionX` x `resolutionY` x 3 bytes, 0 where the encoded data end early; what they hold beyond that
    ///         is left out. Empty, with an error line, for an image of more than 2^24 pixels.
    std::vector<unsigned char> decodeImage() const;
};

/// Print parameters, 68 bytes.
struct VNDLP_API PrintParameters {
    float bottomLiftHeight = 0;         ///< lift distance after a bottom layer, mm
    float bottomLiftSpeed = 0;          ///< lift speed after a bottom layer, mm/min
    float liftHeight = 0;               ///< lift distance after a normal layer, mm
    float liftSpeed = 0;                ///< lift speed, mm/min
    float retractSpeed = 0;             ///< retract speed, mm/min
    float volume = 0;                   ///< resin volume, ml
    float weight = 0;                   ///< resin weight, g
    float price = 0;                    ///< resin cost
    float bottomLightOffDelay = 0;      ///< light-off time after bottom layers, s
    float lightOffDelay = 0;            ///< light-off time after normal layers, s
    unsigned int bottomLayerCount = 0;  ///< bottom layers
    float reserved44 = 0;
    float reserved48 = 0;
    float reserved52 = 0;
    float reserved56 = 0;
    float reserved60 = 0;
    unsigned int word64 = 0;

    // not in the file
    unsigned int beginPosition = 0;  ///< where the record last read began in its file
    unsigned int endPosition = 0;    ///< where it ended

    static unsigned int size();
    void Serialization(FileWrite& file);
    void DeSerialization(FileRead& file);
};

/// Slicer information, 76 bytes.
///
/// What is written is not what is read back: `word44` and `word60` are whole numbers written as floats, and reading
/// takes the floats' bits for whole numbers. `word44` = 3 comes back as 0x40400000. Kept, since files are so.
struct VNDLP_API SlicerInfo {
    float bottomLiftHeight2 = 0;  ///< second-stage bottom lift distance, mm
    float bottomLiftSpeed2 = 0;   ///< second-stage bottom lift speed, mm/min
    float liftHeight2 = 0;        ///< second-stage lift distance, mm
    float liftSpeed2 = 0;         ///< second-stage lift speed, mm/min
    float retractHeight2 = 0;     ///< second-stage retract distance, mm
    float retractSpeed2 = 0;      ///< second-stage retract speed, mm/min
    float restTimeAfterLift = 0;  ///< rest after lift, s
    unsigned int word28 = 0;
    unsigned int word32 = 0;  ///< writing sets it to 0x01A4FA00
    unsigned int word36 = 0;
    unsigned int word40 = 0;
    unsigned int word44 = 0;         ///< anti-aliasing flag; written as a float, its bits read back
    unsigned int word60 = 0;         ///< transition layers; written as a float *at offset 48*, its bits read back
    unsigned int word48 = 0;         ///< slicer version, at offset 52
    float restTimeAfterRetract = 0;  ///< rest after retract, s
    float restTimeAfterLift2 = 0;    ///< second rest after lift, s
    unsigned int word64 = 0;
    unsigned int word68 = 0;
    unsigned int word72 = 0;

    // not in the file
    unsigned int beginPosition = 0;  ///< where the record last read began in its file
    unsigned int endPosition = 0;    ///< where it ended

    static unsigned int size();
    void Serialization(FileWrite& file);
    void DeSerialization(FileRead& file);
};

/// Gives the pixels of a row of a layer image: `width` grey bytes that stay valid until the next call. Rows are asked
/// for once each, from the top.
using RowSource = std::function<const unsigned char*(unsigned int row)>;
/// Takes the pixels of a row: `width` grey bytes that are valid during the call. Rows come once each, from the top.
using RowSink = std::function<void(unsigned int row, const unsigned char* pixels)>;

/// One entry of the layer table, 40 bytes or 120, and the codecs of layer images.
///
/// A layer image is `resolutionX` x `resolutionY` grey bytes, row by row from the top row, no padding. It is
/// encoded as CTB layers are: runs of equal greys, across row ends, of seven bits each. A grey comes back with its
/// lowest bit set, 0 and 1 come back as 0. The encoded data are the same whether they are made and decoded whole
/// (*plain*) or row by row (*16K*), for screens so large that an image of their own is better not kept; see `is16k`.
///
/// A layer may carry its bead mask (`calibration.h`), one bit per LED bead of the light source: *sub-zone*.
struct VNDLP_API LayerDef {
    float positionZ = 0;             ///< height of the layer's top, mm
    float exposureTime = 0;          ///< exposure, s
    float lightOffDelay = 0;         ///< light-off time after the layer, s
    unsigned int dataOffset = 0;     ///< file offset of the layer's `LayerDefEx`; the encoded image follows that
    unsigned int dataSize = 0;       ///< 44 + bytes of the encoded image
    unsigned int pageNumber = 0;     ///< 0
    unsigned int tableSize = 0;      ///< bytes of the extended record in front of the encoded image, 44
    unsigned int reserved28 = 0;     ///< 0
    unsigned int extensionFlag = 0;  ///< not 0: the extension is there
    unsigned int word36 = 0;         ///< lit area: thousandths of what the slicer gives, rounded
    // The extension, in the file only when `extensionFlag` is not 0. Its 80 bytes, in file order, are the bead mask and
    // zeros behind it.
    long long extension0 = 0;
    long long extension1 = 0;
    long long extension2 = 0;
    long long extension3 = 0;
    long long extension4 = 0;
    long long extension5 = 0;
    long long extension6 = 0;
    long long extension7 = 0;
    long long extension8 = 0;
    long long extension9 = 0;

    // not in the entry
    std::vector<unsigned char> data;  ///< the encoded image, scrambled where the file has a key
    unsigned int beginPosition = 0;   ///< where the record last read began in its file
    unsigned int endPosition = 0;     ///< where it ended

    /// 40, or 120 with the extension.
    unsigned int size() const;
    /// Writes the entry; the encoded image is written by `VNDLPV4Write`.
    void Serialization(FileWrite& file);
    void DeSerialization(FileRead& file);

    /// The bead mask of the layer.
    /// \param bytes length of the mask; at most 80.
    /// \return that many bytes; empty for a layer without extension.
    std::vector<unsigned char> beadMask(std::size_t bytes = kPrinterMaskBytes) const;
    /// Stores a bead mask in the extension, zeros behind it, and sets `extensionFlag` to 1.
    /// \return false, with nothing changed, for a mask of more than 80 bytes.
    bool setBeadMask(const std::vector<unsigned char>& mask);

    /// True for images that are better taken row by row: wider than 15360 pixels, or of more than 2^26 pixels.
    static bool is16k(unsigned int width, unsigned int height);

    /// Encodes a layer image.
    /// \param pixels     `size` grey bytes.
    /// \param key        the file's scrambling key; 0 leaves the result unscrambled.
    /// \param layerIndex index of the layer, which the scrambling depends on.
    static std::vector<unsigned char> encodeImage(const unsigned char* pixels, std::size_t size, unsigned int key,
                                                  unsigned int layerIndex);
    /// The same from an image given row by row. A source that returns null ends the image early.
    static std::vector<unsigned char> encodeImage_16k(unsigned int width, unsigned int height, const RowSource& rows,
                                                      unsigned int key, unsigned int layerIndex);
    /// The same, and the layer's bead mask. A pixel is lit when its encoded grey is not 0, that is from a grey of 2 on.
    /// Runs of lit pixels are cut at row ends before the field is asked, as a run across several rows would light too
    /// few beads. Pixels beyond the field's screen light nothing.
    /// \param pixels width x height grey bytes.
    /// \param beads  an initialised field; it is reset first.
    /// \param mask   becomes the mask, `beads.m_maskBytes` bytes.
    static std::vector<unsigned char> encodeImageSubZone(const unsigned char* pixels, unsigned int width,
                                                         unsigned int height, unsigned int key, unsigned int layerIndex,
                                                         LampBeadCal& beads, std::vector<unsigned char>& mask);
    /// Adds up the runs of a layer's encoded data, not scrambled: a sound layer has as many pixels as its screen.
    /// \return pixels, also beyond any screen; -1 when the data end within a run.
    static long long codedPixels(const std::vector<unsigned char>& code);
    /// The bead mask from a layer's encoded data, as `encodeImageSubZone` makes it from the image.
    /// \param code  the encoded data, not scrambled.
    /// \param width pixels of a row.
    static std::vector<unsigned char> beadMaskOfCode(const std::vector<unsigned char>& code, unsigned int width,
                                                     LampBeadCal& beads);
};

/// The extended layer record, 44 bytes.
struct VNDLP_API LayerDefEx {
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

    // not in the file
    unsigned int beginPosition = 0;  ///< where the record last read began in its file
    unsigned int endPosition = 0;    ///< where it ended

    static unsigned int size();
    void Serialization(FileWrite& file);
    void DeSerialization(FileRead& file);
};

/// Lays out and writes a whole V4 file.
///
/// Fill the records through the accessors, then call `encode` and `close`. A record lives as long as the writer or the
/// caller holds it.
///
/// When the file could not be written whole (a full disk, say) one error line is printed, by whichever of `encode`,
/// `writeTail` and `close` notices first, and all of them return a negative result.
class VNDLP_API VNDLPV4Write {
public:
    /// Header, print parameters and slicer information with their defaults; empty lists; no file.
    VNDLPV4Write();
    /// Closes the file.
    ~VNDLPV4Write();
    VNDLPV4Write(const VNDLPV4Write&) = delete;
    VNDLPV4Write& operator=(const VNDLPV4Write&) = delete;

    /// Creates or truncates the file, closing the current one first. The records stay as they are.
    /// \param path   file name, UTF-8.
    /// \param verify true first verifies the checksum trailer of the file that is there (`vndlp::CheckSum`).
    /// \return 0; -1 when the verification fails (the file is left alone); -3 when the file cannot be opened. Both
    ///         print a message, and no file is open then.
    int openDlpFile(std::string path, bool verify);
    /// The same.
    int changeDlpFile(std::string path, bool verify);

    std::shared_ptr<HeaderSettings> headerSettings();
    std::shared_ptr<PrintParameters> printParameters();
    std::shared_ptr<SlicerInfo> slicerInfo();
    /// The offsets in the file account for the first two; a missing one counts as an image of 0 bytes, and further ones
    /// are written with a warning.
    std::vector<std::shared_ptr<PreView>>* preViews();
    /// The offsets in the file take every entry for one like the first: entries with and without extension are written
    /// as they are, with a warning, and cannot be read back.
    std::vector<std::shared_ptr<LayerDef>>& layerDef();
    /// One entry per layer.
    std::vector<std::shared_ptr<LayerDefEx>>& layerDefEx();

    /// Writes the whole file: all records with their final offsets, which are computed here and stored back into the
    /// records, and the checksum trailer. `HeaderSettings::layerCount`, from which the size of the layer table is
    /// computed, should be the number of entries in `layerDef()`: a warning is printed where it is not.
    ///
    /// The trailer is the one `vndlp::CheckSum` knows for a file that begins with `headerText1`. For any other text the
    /// file has none: `CheckSum` and `writeTail` print their messages, and the file is complete all the same.
    /// \param unused not used.
    /// \return 0; -1 with a message. Nothing is written when no file is open, when an entry of a list is null, when a
    ///         layer lacks its `LayerDefEx` or has a `dataSize` below 44, or when the layers would reach beyond the
    ///         4 GiB of their offsets. -1 is also the result when a record declares more bytes than its buffer holds
    ///         (zeros are written for the rest) and when the file or its trailer could not be written whole.
    int encode(std::string unused);

    // The steps of `encode`, each writing at the current position. They return 0, or -1 with a message when no file is
    // open or for the reasons given at `encode` that concern them.
    int writeHeader();
    int writePreviews();
    int writePrintParameters();
    int writeSlicerInfo();
    /// Writes the layer table, then `LayerDefEx` (from header version 3 on) and encoded image of every layer.
    int writeLayerDefs();
    /// Writes all extended records back to back.
    int writeLayerDefExs();
    /// Hands what is written to the system and appends the trailer at the end of the file; the file stays open, and
    /// should only be closed then. The trailer holds the sum kept while writing, see `vndlp::VndlpWrite::writeTail`.
    /// \return 0; -1 with a message when no file is open or when the file could not be written whole; the negative
    ///         result of `CheckSum::appendFileSum`, with a message, when there is no trailer.
    int writeTail();

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
    bool isExtended() const;
    unsigned int entrySize() const;
    void warnOfOtherEntries();

    FileWrite m_file;
    std::unique_ptr<vndlp::SectionWriter> m_sections;
    std::shared_ptr<HeaderSettings> m_header;
    std::vector<std::shared_ptr<PreView>> m_preViews;
    std::shared_ptr<PrintParameters> m_printParameters;
    std::shared_ptr<SlicerInfo> m_slicerInfo;
    std::vector<std::shared_ptr<LayerDef>> m_layerDefs;
    std::vector<std::shared_ptr<LayerDefEx>> m_layerDefExs;
};

/// Reads a V4 file. Call `openDlpFile` and `parseFile`, then the queries in any order.
///
/// The records stay the reader's: they are valid until the step that reads them runs again, until `openDlpFile`, and
/// until the reader's end. `parseFile` does not read the encoded images of layers.
///
/// A damaged file is read as far as it goes: `parseFile` and its steps return 0, what is missing stays as constructed,
/// the first thing found missing since `openDlpFile` is reported in one error line, and `isWhole` is false from then
/// on.
class VNDLP_API VNDLPV4Read {
public:
    VNDLPV4Read();
    /// Frees the records and closes the file.
    ~VNDLPV4Read();
    VNDLPV4Read(const VNDLPV4Read&) = delete;
    VNDLPV4Read& operator=(const VNDLPV4Read&) = delete;

    /// Opens a file, closing the current one first and forgetting its records.
    /// \param path   file name, UTF-8.
    /// \param verify true first verifies the checksum trailer (`vndlp::CheckSum`).
    /// \return 0; -1 when the verification fails; -3 when the file cannot be opened. Both print a message, and no file
    ///         is open then.
    int openDlpFile(std::string path, bool verify);

    /// Reads all records: header (at the current position, which is the start of a freshly opened file), previews,
    /// print parameters, slicer information, layer table, extended records.
    /// \return 0; -1, with a message, when no file is open.
    int parseFile();

    // The steps of `parseFile`. They return 0, also for a damaged file; -1, with a message, when no file is open or no
    // header read.
    int readHeader();
    /// Reads two previews, the second from behind the first. The list has two entries afterwards, whatever the file
    /// holds.
    int readPreviews();
    int readPrintParameters();
    int readSlicerInfo();
    /// Reads as many entries as the header states and the file holds, the last one perhaps cut off; `tableSize` of each
    /// is set to 44.
    int readLayerDefs();
    /// Reads the extended record in front of each layer's encoded image. The list has one entry for each of the
    /// table's.
    int readLayerDefExs();

    /// False once something that a record announced was not in the file.
    bool isWhole() const;

    /// The records; null or empty before they are read.
    const HeaderSettings* headerSettings() const;
    const PrintParameters* printParameters() const;
    const SlicerInfo* slicerInfo() const;
    std::vector<PreView*> preViews();
    std::vector<LayerDef*> layerDef();
    std::vector<LayerDefEx*> layerDefEx();

    /// The stream, for callers that read more.
    FileRead& getFileRead();
    /// Closes the file; the records stay. \return 0, also when none is open.
    int closeDlpFile();

    // Layer images. `header` gives the image's size and the scrambling key, `layer` where its encoded data lie,
    // `layerIndex` is its index. The data are read from the file; `layer->data` plays no part but where said. Where the
    // file does not hold all of them, an error line is printed and what is there is decoded.

    /// \return width x height grey bytes, 0 where the encoded data end early; what they hold beyond the image is left
    /// out.
    ///         Empty, with an error line, without header or layer and for an image of more than 2^28 pixels.
    std::vector<unsigned char> readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex);
    /// The same into `layer->data`, which becomes the *pixels*, with the header that was read.
    /// \return 0; -1 with an error line.
    int readLayerImage(LayerDef* layer, int layerIndex);
    /// The same into a buffer of the caller's.
    /// \param pixels `size` bytes, all of which are set; of any size.
    /// \return 0; -1 with an error line.
    int readLayerImage(const HeaderSettings* header, LayerDef* layer, int layerIndex, unsigned char* pixels,
                       std::size_t size);

    /// The image row by row, with memory for its encoded data and one row only; for images of any size.
    /// \return 0; -1 with an error line.
    int readLayerImage_16k(const HeaderSettings* header, LayerDef* layer, int layerIndex, const RowSink& rows);
    /// As `readLayerImage`: the encoded data are the same.
    std::vector<unsigned char> readLayerImage_16k(const HeaderSettings* header, LayerDef* layer, int layerIndex);
    int readLayerImage_16k(const HeaderSettings* header, LayerDef* layer, int layerIndex, unsigned char* pixels,
                           std::size_t size);

    /// Copies the bytes of `v` to `out`, which has room for them.
    static void vectorToChar(std::vector<unsigned char> v, char* out);

private:
    bool isReady(const char* what);
    bool seekTo(long long offset, unsigned int bytes, const std::string& what);
    void noteShort(const std::string& what, unsigned long long declared, unsigned long long held,
                   const char* unit = "bytes");
    /// Takes a piece of the encoded data. \return how many of its bytes it has used.
    using TakePiece = std::function<std::size_t(const unsigned char* code, std::size_t size)>;
    bool readCode(const HeaderSettings* header, const LayerDef* layer, int layerIndex, const TakePiece& take);
    int decodeOver(const HeaderSettings* header, const LayerDef* layer, int layerIndex, unsigned char* pixels,
                   std::size_t size);

    FileRead m_file;
    std::unique_ptr<HeaderSettings> m_header;
    std::vector<std::unique_ptr<PreView>> m_preViews;
    std::unique_ptr<PrintParameters> m_printParameters;
    std::unique_ptr<SlicerInfo> m_slicerInfo;
    std::vector<std::unique_ptr<LayerDef>> m_layerDefs;
    std::vector<std::unique_ptr<LayerDefEx>> m_layerDefExs;
    bool m_whole = true;
};

}  // namespace VNDLPV4

#endif
