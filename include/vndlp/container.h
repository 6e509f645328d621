/// \file container.h
/// The vendor DLP container: its records, `VndlpRead` and `VndlpWrite`.
///
/// One file is: head magic, header, parameters, (V2 and line) the layer area table, (V2 from version 3) the slicing
/// settings, the layers, tail magic, checksum trailer. All numbers are big-endian; the byte layout of every record is
/// in docs/format-vndlp.md.
///
/// Layer area values are whatever the caller supplies; handed to `DLPWriter` or the wrappers in square micrometres they
/// are stored in thousandths of a square millimetre, and the reader's total volume then comes out in millilitres.

#ifndef VNDLP_CONTAINER_H
#define VNDLP_CONTAINER_H

#include <vndlp/export.h>
#include <vndlp/image.h>
#include <vndlp/mesh.h>
#include <vndlp/streams.h>

#include <memory>
#include <string>
#include <vector>

namespace vndlp {

/// The stored value of a layer's area: a thousandth of what the caller gives, rounded to the nearest whole number,
/// halves away from zero, its low 32 bits.
/// \param area square micrometres, for a stored value in thousandths of a square millimetre. NaN, or a number whose
///             thousandth is beyond 64 bits, gives 0.
VNDLP_API unsigned int storedLayerArea(double area);

/// Header of the first generation, magic "VNKT3D".
struct VNDLP_API DlpV1Header {
    unsigned short layerCount = 0;
    unsigned short resolution_x = 0;  ///< screen width, pixels
    unsigned short resolution_y = 0;  ///< screen height, pixels
    DlpImage smallPreview{116, 116, DlpImage::PIXEL_RGB16};
    DlpImage largePreview{290, 290, DlpImage::PIXEL_RGB16};

    /// Gives every preview without pixels a zero-filled (black) one.
    void needData();
    /// Frees the pixels of all previews.
    void release();
    /// Prints the numbers, one line each.
    void show() const;
    /// Bytes of the previews and their tags in a file: 195116.
    int thumbImageSize() const;
};

/// Settings inside the V2 and line headers, 64 bytes in a file. dataType and dataSubType are not stored.
struct VNDLP_API VndlpBackUse {
    int dataType = 3;
    int dataSubType = 2;
    unsigned int machineHeightUm = 0;  ///< micrometres
    unsigned int flags = 0;            ///< bit 0 XY compensation, bit 4 support pad, bit 8 automatic support of all
    float supportDensity = 0;
    int blurPixel = 0;
    unsigned short lineExposureTime = 0;
    float totalVolume = 0;
    float sliceModelX = 0;  ///< size of the sliced model along x
    float sliceModelY = 0;
    float sliceModelZ = 0;
    unsigned char reserved[30] = {};

    void setDataType(int type, int subType);
    /// \param mm height in millimetres; kept as whole micrometres, truncated.
    void setMachineHeight(float mm);
    /// \return millimetres.
    float getMachineHeight() const;
    bool isEnableXYCompensate() const;
    void setEnableXYCompensate(bool on);
    bool isSupportPad() const;
    void setSupportPad(bool on);
    bool isAutoAllSupport() const;
    void setAutoAllSupport(bool on);
    float getSupportDensity() const;
    /// The name is spelled so.
    void settSupportDensity(float value);
    int getBlurPixel() const;
    void setBlurPixel(int value);
    float getExposeTimeVnLine() const;
    /// Kept as a whole number from 0 to 65535, truncated.
    void setExposeTimeVnLine(float value);
    float getTotalVolume() const;
    void setTotalVolume(float value);
    float getSliceModelX() const;
    void setSliceModelX(float value);
    float getSliceModelY() const;
    void setSliceModelY(float value);
    float getSliceModelZ() const;
    void setSliceModelZ(float value);

    /// Writes the 64 bytes at the stream's position, in its file byte order. \return 0.
    int write(FileWrite& out);
    /// Reads the 64 bytes. \return 0.
    int read(FileRead& in);
};

/// Header of the second generation, magic "VNKT3DV2".
struct VNDLP_API DlpV2Header {
    unsigned short versionCode = 3;  ///< below 3: no slicing settings, XOR trailer; from 3 on: settings, CRC trailer
    std::string machine_type;
    unsigned short layerCount = 0;
    unsigned short resolution_x = 0;
    unsigned short resolution_y = 0;
    VndlpBackUse backUse;
    DlpImage smallPreview{116, 116, DlpImage::PIXEL_RGB16};
    DlpImage middlePreview{290, 290, DlpImage::PIXEL_RGB16};
    DlpImage largePreview{290, 290, DlpImage::PIXEL_RGB16};

    void needData();
    void release();
    void show() const;
    /// 363318.
    int thumbImageSize() const;
};

/// Header of the line variant, magic "VNLINEV2": as `DlpV2Header` but for the default version.
struct VNDLP_API DlpV2LineHeader {
    unsigned short versionCode = 2;
    std::string machine_type;
    unsigned short layerCount = 0;
    unsigned short resolution_x = 0;
    unsigned short resolution_y = 0;
    VndlpBackUse backUse;
    DlpImage smallPreview{116, 116, DlpImage::PIXEL_RGB16};
    DlpImage middlePreview{290, 290, DlpImage::PIXEL_RGB16};
    DlpImage largePreview{290, 290, DlpImage::PIXEL_RGB16};

    void needData();
    void release();
    void show() const;
    /// 363318.
    int thumbImageSize() const;
};

/// Header of the third generation, magic "VNKT3D3".
struct VNDLP_API DlpV3Header {
    DlpImage smallPreview{116, 116, DlpImage::PIXEL_RGB16};
    DlpImage secondPreview{212, 182, DlpImage::PIXEL_RGB16};
    DlpImage thirdPreview{212, 182, DlpImage::PIXEL_RGB16};
    unsigned short z_begin = 0;
    unsigned short z_end = 0;
    unsigned short layerCount = 0;
    unsigned short resolution_x = 0;
    unsigned short resolution_y = 0;

    void needData();
    void release();
    void show() const;
    /// 181254.
    int thumbImageSize() const;
};

/// Print parameters, in files of every kind. Platform sizes (mm) and layer thickness (mm) are kept as decimal text. A
/// file with an empty one of the three texts cannot be read back.
struct VNDLP_API DlpParameters {
    std::string platformX;
    std::string platformY;
    std::string thickness;
    unsigned short exposure_time = 0;  ///< tenths of a second
    unsigned short light_off_delay = 0;
    unsigned short first_exposure_time = 0;  ///< seconds
    unsigned short first_layer_count = 0;
    unsigned short first_lift_distance = 0;
    unsigned short first_lift_speed = 0;
    unsigned short lifting_distance = 0;
    unsigned short lifting_speed = 0;
    unsigned short retract_speed = 0;
    unsigned short firstBrightnessPVM = 255;  ///< light power of the bottom layers, 0 to 255
    unsigned short brightnessPVM = 255;       ///< light power of the other layers

    /// The texts as numbers; 0 for text that is none.
    double parsePlatformX() const;
    double parsePlatformY() const;
    double parseThickness() const;
    void show() const;
};

/// Slicing settings, in V2 files from version 3 on.
struct VNDLP_API DlpSliceBasicParameters {
    std::string sliceSoftVersion;
    std::string consumables;
    unsigned char enableBOffset = 0;
    int bOffsetThickness = 0;
    int bOffsetFocalLength = 0;
    unsigned char enableXYCompensation = 0;
    short XYCompensation = 0;
    unsigned char enableZCompensation = 0;
    short ZCompensation = 0;
    unsigned char enableAntiAliasing = 0;
    unsigned char antiAliasingMixGray = 0;
    unsigned char antiAliasingMaxGray = 0;
    unsigned char enableImageBlur = 0;
    unsigned char imageBlurPixelNum = 0;

    void show() const;
};

/// Image parameters, behind the head of line files.
struct VNDLP_API DlpImageParam {
    short zThrough = 0;
    short enableAliasing = 0;
    short minGray = 0;
    short maxGray = 0;

    void show() const;
};

/// Every record of one file. Only the header that `headerType` selects is meaningful.
struct VNDLP_API DlpFileStructure {
    DlpV1Header v1Header;
    DlpV2Header v2Header;
    DlpV3Header v3Header;
    DlpV2LineHeader lineHeader;
    int headerType = 0;     ///< 1 = V1, 2 = V2, 3 = V3, 12 = line; anything else: not available
    int headerVersion = 0;  ///< becomes the V2 header's versionCode when the file is written
    DlpParameters parameters;
    DlpSliceBasicParameters sliceBasicParameters;

    /// True when `headerType` is one of the four kinds.
    bool isAvailable() const;
    /// The active header's numbers; 0 when not available. Setters keep the low 16 bits and do nothing when not
    /// available.
    int layerCount() const;
    void setLayerCount(int count);
    int getResolutionX() const;
    /// The name is spelled so.
    int getResulutionY() const;
    void setResolution(int x, int y);
    /// The V2 or line header's version; 0 for other kinds, which also ignore the setter.
    unsigned short getVersionCode();
    void setVersionCode(unsigned short version);
    /// Sets the V2 or line header's machine type; ignored for other kinds.
    void setMachineType(std::string type);
    /// The V2 or line header's back use; null for other kinds. Owned by this structure.
    VndlpBackUse* getVndlpBackUse();
    const VndlpBackUse* getVndlpBackUse() const;
    /// Copies every field but the last 10 reserved bytes into the active header's back use.
    /// \return 1; 0 for kinds without one.
    int setBackUse(const VndlpBackUse& backUse);
    /// Allocates the active header's previews, black.
    void needData();
    /// Frees the previews of all four headers.
    void release();
    /// Prints the active header's numbers (for the line kind, as ever, those of the V2 header) and the parameters.
    void show() const;
};

/// Reads vendor container files.
///
/// Every failure is printed as one line beginning "error: ". Counts and lengths in a file are held against what the
/// file still holds before anything is allocated.
///
/// A copy has its own structure and vectors but shares the open file: reading with one moves the position of both, and
/// closing one closes both.
class VNDLP_API VndlpRead {
public:
    VndlpRead();
    VndlpRead(const VndlpRead& other);
    VndlpRead& operator=(const VndlpRead& other);
    ~VndlpRead();

    /// Opens a file, closing the current one.
    /// \param checkSum verify the checksum trailer first.
    /// \return 0; -1 when the trailer does not match or cannot be checked; -3 when the file cannot be opened.
    int openDlpFile(std::string path, bool checkSum);
    void close();

    /// Reads the head of the open file: magic, header, parameters, area table, slicing settings. The position is then
    /// at the first layer (of a line file: at its image parameters). A V2 or line file written for no layers and
    /// without an area table lacks the tag behind it too and cannot be read back.
    /// \param withPreview read the previews too; otherwise they are skipped and stay without pixels.
    /// \return 0; -1 no open file; -2 unknown magic or wrong tag; -3 layer count beyond the file; -4 zero resolution or
    ///         bad parameters; -5 bad slicing settings. After a failure the file is closed and the structure holds what
    ///         was read before it.
    int readDlpStructure(bool withPreview);

    /// Reads a whole file of runs, without verifying its trailer, and closes it.
    /// \param structureOnly stop behind the head.
    /// \return as `readDlpStructure` (-3 also when the file cannot be opened), or -5 when a layer cannot be read.
    /// Line files cannot be read this way: see `readLayerPath`.
    int readDlpFile(std::string path, bool structureOnly, bool withPreview);

    /// Read one header at the position. \return 0; -1 no open file; -2 wrong tag; -3 layer count; -4 zero resolution.
    int readDlpV1Header(DlpV1Header& header, bool withPreview);
    int readDlpV2Header(DlpV2Header& header, bool withPreview);
    int readDlpLineV2Header(DlpV2LineHeader& header, bool withPreview);
    int readDlpV3Header(DlpV3Header& header, bool withPreview);

    /// Reads the parameters and, where `areas` is given, as many area values as it has entries, and a tag.
    /// \return 0; -1 no open file; -2 wrong tag; -3 an empty text.
    int readDlpParameters(DlpParameters& parameters, std::vector<unsigned int>* areas);
    /// \return 0; -1 no open file; -2 wrong tag.
    int readDlpSliceBasicParameters(DlpSliceBasicParameters& parameters);
    /// \return 0; -1 no open file; -2 wrong tag.
    int readDlpImageParam(DlpImageParam& parameters);

    /// Reads one layer of runs at the position and adds its volume to the total.
    /// \param runs receives the runs behind what it holds.
    /// \param area receives the area value; null when the layer has none in the file.
    /// \return 0; -1 no open file; -2 wrong tag; -5 run count beyond the file. A failure closes the file.
    int readLayerWhiteData(std::vector<WhiteData>& runs, unsigned int* area);
    /// Reads one layer of polylines. Coordinates are the file's own units.
    /// \param paths replaced by the polylines; every point's z equals its y, whatever the file holds.
    /// \param withZ the points in the file have a z, which is read and dropped.
    /// \return the number of polylines; -1 no open file; -2 wrong tag or a count the file cannot hold (the file is
    ///         closed).
    int readLayerPath(std::vector<std::vector<Vec3i>>& paths, unsigned int* area, bool withZ);
    /// Reads one layer of mesh vertices behind those the mesh has.
    /// \return the number of vertices read; -1 no open file; -2 wrong tag; -5 count beyond the file (closed for both).
    int readLayerMesh(trimesh::TriMesh& mesh, unsigned int* area, bool withZ);

    /// Reads the next layer as runs, with its area for V2 files only (other kinds leave `area` untouched).
    /// \return 0; -5 on any failure.
    int getWhiteDatas(std::vector<WhiteData>& runs, unsigned int* area);

    /// Steps over one layer of runs without reading them; takes no part in the total volume.
    /// \param area     receives the area value; null when the layer has none in the file.
    /// \param runCount receives the number of runs.
    /// \return as `readLayerWhiteData`.
    int skipLayerWhiteData(unsigned int* area, unsigned int& runCount);
    /// Step over one layer of polylines or of mesh vertices (with area, without z). What announces more than the file
    /// holds fails without being walked through.
    /// \return as `readLayerPath` and `readLayerMesh`, but 0 for success.
    int skipLayerPath(unsigned int& area, unsigned int& polylineCount, unsigned long long& pointCount);
    int skipLayerMesh(unsigned int& area, unsigned int& vertexCount);
    /// Moves to a position in the file, such as a result of `currentPosition`.
    /// \return 0; negative when it lies outside.
    int seek(long long position);

    /// Reads 2 bytes. \return true when they are the split tag; otherwise a message is printed.
    bool readSplitTagAndCheck();
    /// Reads one length-prefixed string. \return 0; -1 no open file.
    int readTag(std::string& text);

    /// Sniffs a file's magic and version. \return 0, or -1 with a message.
    int getFileVersion(const char* path, std::string& versionName, int& subVersionNum);

    /// The magic a file of the kind last read must end with (in front of its trailer); empty before the first head.
    std::string tailMagic() const;
    /// What the last head read said.
    int getLayerCount();
    void sendResolution(unsigned short& x, unsigned short& y);
    /// Total volume of the layers read so far: sum of area value x layer thickness / 10^6. Millilitres when area values
    /// are thousandths of a square millimetre. The name is spelled so.
    float getTotalValum();
    /// Position in the open file; -1 when none is open.
    long long currentPosition();
    /// Bytes behind the position; 0 when no file is open.
    long long remaining();

    /// The head of V2 and line files as plain values.
    /// \param smallPreview, middlePreview, largePreview buffers of 26912, 168200 and 168200 bytes; left as they are
    ///        where the head was read without previews.
    /// \return false for V1 and V3 files; true otherwise.
    bool getHeaderParaV2(std::string& magic, unsigned short& versionCode, std::string& machineType,
                         unsigned short& layerCount, unsigned short& resolutionX, unsigned short& resolutionY,
                         char* smallPreview, char* middlePreview, char* largePreview);
    /// The parameters as plain values.
    /// \param areas   replaced by the area table (V2 and line files; else emptied).
    /// \param areaSum the areas are added to what it holds.
    /// \return true.
    bool getStructDataPara(std::string& platformX, std::string& platformY, std::string& thickness,
                           unsigned short& exposure_time, unsigned short& light_off_delay,
                           unsigned short& first_exposure_time, unsigned short& first_layer_count,
                           unsigned short& first_lift_distance, unsigned short& first_lift_speed,
                           unsigned short& lifting_distance, unsigned short& lifting_speed,
                           unsigned short& retract_speed, unsigned short& firstBrightnessPVM,
                           unsigned short& brightnessPVM, std::vector<unsigned int>& areas,
                           unsigned long long& areaSum);

    /// The records read; null before the first head was read and after `takeDlpFileStructure`. Owned by the reader.
    DlpFileStructure* getDlpFileStructure();
    /// Hands the records to the caller, who deletes them.
    DlpFileStructure* takeDlpFileStructure();
    /// Exchange the reader's vector with the caller's: the area table, and the runs read by `readDlpFile`.
    void swapLayerAreas(std::vector<unsigned int>& areas);
    void swapWhiteDatas(std::vector<std::vector<WhiteData>>& runs);

private:
    int readLayerHead(unsigned int* area, unsigned int& count);
    int readLayerEnd();

    std::unique_ptr<DlpFileStructure> m_structure;
    std::shared_ptr<FileRead> m_input;
    std::vector<unsigned int> m_layerAreas;
    std::vector<std::vector<WhiteData>> m_layerRuns;
    int m_resolutionX;
    int m_resolutionY;
    int m_layerCount;
    float m_totalVolume;
    float m_pixelArea;
    std::string m_magic;
};

/// Writes vendor container files, whole (`writeDlpFile`) or step by step.
///
/// Every failure is printed as one line beginning "error: " or "Error: " and leaves the partial file on disk. The
/// output is buffered: a full disk shows in the result of `writeTail`.
///
/// A copy has its own structure and vectors but shares the open file, as copies of `VndlpRead` do.
class VNDLP_API VndlpWrite {
public:
    VndlpWrite();
    VndlpWrite(const VndlpWrite& other);
    VndlpWrite& operator=(const VndlpWrite& other);
    ~VndlpWrite();

    /// Creates or truncates a file. \return 0; -1 when it cannot be opened.
    int openDlpFile(std::string path);
    /// Closes the file as it is, without tail and trailer.
    void close();
    /// Hands buffered bytes to the system. \return 0; negative when not all could be written.
    int flush();
    /// True when something given to the file could not be written; stays so until the next `openDlpFile`.
    bool failed() const;
    /// Position in the file; 0 when none is open; the largest int beyond 2 GiB.
    int filePosition();

    /// \return 0; -10 when the structure's header kind is none of the four.
    int judgeDlpFileStructure(DlpFileStructure& structure);
    /// Judges the writer's own structure and vectors; the name is spelled so.
    /// \return 0; -6 no structure; -10 unknown header kind; -9 (V2 and line) area and run tables of different lengths.
    int internel_judgeDlpFileStructure();

    /// Exchange the writer's object with the caller's.
    void swapDlpFileStructure(DlpFileStructure*& structure);
    void swapLayerAreas(std::vector<unsigned int>& areas);
    void swapWhiteDatas(std::vector<std::vector<WhiteData>>& runs);

    /// Writes a whole file from the structure, areas and runs given by the swaps.
    /// \return 0; -1 cannot open; -6, -9, -10 as judged, or layer count and areas differ; -11 fewer run lists than
    ///         layers; -20 the trailer could not be appended; -21 not everything could be written.
    int writeDlpFile(std::string path);

    /// Writes the head: magic, header, parameters, area table, slicing settings.
    /// \param areas the area table; null (V2 and line) reserves it, to be filled by `writeLayerAreasDealyer`.
    /// \return 0; -1 no open file; -6 a preview without pixels, or a layer count other than that of `areas`; -10 header
    ///         kind. Sets the V2 header's versionCode to the structure's headerVersion.
    int writeDlpStructure(DlpFileStructure& structure, std::vector<unsigned int>* areas = nullptr);

    /// Write one header. \return 0; -1 no open file; -6 a preview without pixels.
    int writeDlpV1Header(DlpV1Header& header);
    int writeDlpV2Header(DlpV2Header& header);
    int writeDlpLineV2Header(DlpV2LineHeader& header);
    int writeDlpV3Header(DlpV3Header& header);

    /// Writes the parameters, then the area table and a tag (`areas` given), or zeros in its place (`layerCount` of 1
    /// or more), or nothing.
    /// \return 0; -1 no open file; -7 as `skipLayerAreas`.
    int writeDlpParameters(DlpParameters& parameters, std::vector<unsigned int>* areas, int layerCount);
    /// \return 0; -1 no open file.
    int writeDlpSliceBasicParameters(DlpSliceBasicParameters& parameters);
    /// The file must be open. \return 0.
    int writeDlpImageParam(const DlpImageParam& parameters);

    /// Reserves a table of `layerCount` x 4 + 2 bytes at the position, to be filled by `writeLayerAreasDealyer`.
    /// \return 0; -1 no open file; -7 from 2^29 layers on (nothing is reserved then).
    int skipLayerAreas(int layerCount);
    /// Fills the table reserved last in this file: the values, then a tag. Returns to the end of the file. With fewer
    /// values than were reserved the rest of the room stays as it is. The name is spelled so.
    /// \return 0; -2 no open file; -7, with nothing written, for more values than were reserved: they would overwrite
    ///         what follows the table.
    int writeLayerAreasDealyer(std::vector<unsigned int>& areas);

    /// Write one layer at the position.
    /// \param area the area value in front of the layer; null for none.
    /// \return 0; negative when the file failed before or now.
    int writeLayerWhiteData(std::vector<WhiteData>& runs, unsigned int* area);
    /// The same from packed runs, as `grayDataPackedRuns` makes them.
    /// \param packed 6 bytes a run.
    int writeLayerPackedRuns(const std::vector<unsigned char>& packed, unsigned int* area);
    /// A layer of polylines.
    /// \param withZ write each point's z as well.
    /// \return 0; negative on failure.
    int writeLayerPath(const std::vector<std::vector<Vec3i>>& paths, unsigned int* area, bool withZ);
    /// A layer of mesh vertices. \return the number of vertices; negative on failure.
    int writeLayerTrimesh(const trimesh::TriMesh& mesh, unsigned int* area, bool withZ);

    void writeSplitTag();
    /// Finishes the file: tail magic, close, trailer.
    ///
    /// The trailer holds the sum kept while writing. The file is not read again: bytes that someone else has changed
    /// in it meanwhile do not enter the sum, and verifying finds them. Only a file whose length has changed is read.
    /// \return 0; -1 no open file; -20 the trailer could not be appended; -21 not everything could be written (a full
    ///         disk, an I/O error): the file is closed, incomplete and unsealed.
    int writeTail(int headerType);

private:
    template <class Header>
    int writeHeader(Header& header);
    int layerResult() const;

    std::unique_ptr<DlpFileStructure> m_structure;
    std::shared_ptr<FileWrite> m_output;
    std::vector<unsigned int> m_layerAreas;
    std::vector<std::vector<WhiteData>> m_layerRuns;
    long long m_tablePosition;
    int m_tableEntries;
};

}  // namespace vndlp

#endif
