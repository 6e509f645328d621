/// \file wrappers.h
/// Writing and reading container files from flat parameter records, without the writer front end.

#ifndef VNDLP_WRAPPERS_H
#define VNDLP_WRAPPERS_H

#include <vndlp/container.h>
#include <vndlp/export.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace vndlp {

/// Everything `VndlpV2Wrapper` wants to know of a job. Values go into 16-bit fields with their low 16 bits.
struct VNDLP_API DlpV2ParamWrapper {
    /// Has no effect on the file: the structure's header version, which the wrapper leaves 0, wins when the header is
    /// written. The file is of version 0, has no slicing settings and an XOR trailer.
    unsigned int versionCode = 2;
    std::string machineType;
    int layerCount = 0;
    int resolutionX = 0;  ///< pixels
    int resolutionY = 0;
    float machineHeight;     ///< mm; no default, to be set by the caller
    int enableXYCompensate;  ///< non-zero is true; no default
    int supportPad;          ///< no default
    int autoAllSupport;      ///< no default
    float supportDensity;    ///< no default
    float platformX = 0;     ///< mm, stored as text with six decimals
    float platformY = 0;
    float thickness = 0;  ///< mm
    int exposure_time = 0;
    int light_off_delay = 0;
    int first_exposure_time = 0;
    int first_layer_count = 0;
    int first_lift_distance = 0;
    int first_lift_speed = 0;
    int lifting_distance = 0;
    int lifting_speed = 0;
    int retract_speed = 0;
    int firstBrightnessPVM = 0;
    int brightnessPVM = 0;

    DlpV2ParamWrapper();
    DlpV2ParamWrapper(const DlpV2ParamWrapper& other);
    DlpV2ParamWrapper(DlpV2ParamWrapper&& other) noexcept;
    DlpV2ParamWrapper& operator=(const DlpV2ParamWrapper& other);
    DlpV2ParamWrapper& operator=(DlpV2ParamWrapper&& other) noexcept;
    ~DlpV2ParamWrapper();
};

/// Writes a ".vndlp" file of the V2 kind from a parameter record, grey previews and grey layer images.
///
/// Calls: `open`, `setDlpV2Param`, `setGrayPreview116X116`, `setGrayPreview290X290` for 0 and 1, `writeDlpStructure`,
/// the layers, `writeTail`, `close`. Layers are given by `setLayerImage`, in any order. Calls without an open file
/// write nothing, and null pixels are refused with a message.
///
/// Slicers that want version 3 files, or layers streamed without keeping their runs, use `createDLPWriter` and
/// `DLPWriter::addLayerImage` instead: two habits of this class give files a slicer may not expect, see
/// `DlpV2ParamWrapper::versionCode` and `wrieLayerImage`.
///
/// Copies share the structure and the open file: go on with one of them only.
class VNDLP_API VndlpV2Wrapper {
public:
    VndlpV2Wrapper();
    VndlpV2Wrapper(const VndlpV2Wrapper& other);
    VndlpV2Wrapper& operator=(const VndlpV2Wrapper& other);
    ~VndlpV2Wrapper();

    /// Creates the file. \return 0; negative when it cannot be opened.
    int open(std::string path);
    /// Takes the parameters over and sizes the layer tables.
    void setDlpV2Param(const DlpV2ParamWrapper& p);
    /// \param grey 116 x 116 grey bytes, row-major. Each becomes a 16-bit pixel.
    void setGrayPreview116X116(unsigned char* grey);
    /// \param grey  290 x 290 grey bytes, row-major.
    /// \param which 0 or 1; any other value has no preview and is ignored.
    void setGrayPreview290X290(unsigned char* grey, int which);
    /// Converts a layer and keeps its runs until `writeTail`; a layer given twice keeps the last image.
    /// \param layerIndex 0 to layer count - 1; any other is refused with a message.
    /// \param grey       width x height bytes, row-major; not kept.
    /// \param area       layer area in thousandths of the stored unit.
    void setLayerImage(int layerIndex, unsigned char* grey, int width, int height, double area);
    /// Converts a layer and writes it at once. The name is spelled so.
    ///
    /// What the file gets is not what was given: the *image height* stands as the area in front of the layer (the area
    /// table holds the given area), and `writeTail` writes one empty layer per layer of the parameters behind the
    /// streamed ones. Use `setLayerImage`, or `DLPWriter::addLayerImage` to stream.
    void wrieLayerImage(unsigned char* grey, int width, int height, double area);
    /// Writes the head of the file.
    /// \return true; false, with nothing written, unless parameters and all three previews were set; false, too, when
    ///         the head could not be written.
    bool writeDlpStructure();
    /// Writes the kept layers, the area table and the tail, and seals the file.
    /// \return 0; negative for the first failure: see `VndlpWrite::writeLayerAreasDealyer`, `VndlpWrite::writeTail`.
    int writeTail();
    /// Empties the layer tables and frees the previews.
    void clear();
    /// Closes the file and frees the structure.
    void close();

private:
    std::shared_ptr<DlpFileStructure> m_structure;
    VndlpWrite m_writer;
    std::vector<std::vector<WhiteData>> m_layerRuns;
    std::vector<unsigned int> m_layerAreas;
    unsigned int m_readyFlags;
};

/// Everything `VnLineV2WriteWrapper` wants to know of a job. Values go into 16-bit fields with their low 16 bits.
struct VNDLP_API DlpLineV2ParamWrapper {
    unsigned int versionCode = 2;  ///< stored in the line header; the trailer is a CRC whatever it is
    std::string machineName;       ///< stored as the header's machine type
    int layerCount = 0;
    int resolutionX = 0;  ///< pixels
    int resolutionY = 0;
    float machineHeight = 0;  ///< mm
    int enableXYCompensate;   ///< non-zero is true; no default, to be set by the caller
    int supportPad;           ///< no default
    int autoAllSupport;       ///< no default
    float supportDensity;     ///< no default
    int blurPixel;            ///< no default
    float platformX = 0;      ///< mm, stored as text with six decimals
    float platformY = 0;
    float thickness = 0;  ///< mm
    int exposure_time = 0;
    int light_off_delay = 0;
    int first_exposure_time = 0;
    int first_layer_count = 0;
    int first_lift_distance = 0;
    int first_lift_speed = 0;
    int lifting_distance = 0;
    int lifting_speed = 0;
    int retract_speed = 0;
    int firstBrightnessPVM = 0;
    int brightnessPVM = 0;
    int zThrough = 0;  ///< this and the next three become the `DlpImageParam` of the file
    int enableAliasing = 0;
    int minGray = 0;
    int maxGray = 0;

    DlpLineV2ParamWrapper();
    DlpLineV2ParamWrapper(const DlpLineV2ParamWrapper& other);
    DlpLineV2ParamWrapper(DlpLineV2ParamWrapper&& other) noexcept;
    DlpLineV2ParamWrapper& operator=(const DlpLineV2ParamWrapper& other);
    DlpLineV2ParamWrapper& operator=(DlpLineV2ParamWrapper&& other) noexcept;
    ~DlpLineV2ParamWrapper();

    /// \return the value stored under `key`, up to its first NUL byte; empty when there is none.
    static std::string findKey(const std::unordered_map<std::string, std::string>& map, const std::string& key);

    /// Fills the fields that slicer settings name; the other fields keep their values. A missing key, and text that
    /// does not begin with a number, gives 0; what follows a number is ignored ("30s" is 30).
    ///
    /// Whole numbers: "exposure_time", "light_off_delay", "first_exposure_time", "first_layer_count",
    /// "first_lift_distance", "first_lift_speed", "lifting_distance", "lifting_speed", "retract_speed",
    /// "zthrough_deep_value" (`zThrough`), "minimum_grayscale" (`minGray`), "maximum_grayscale" (`maxGray`).
    /// A decimal number: "layer_height" (`thickness`).
    /// "anti_aliasing": 1 for exactly "true", else 0 (`enableAliasing`).
    /// "machine_name": where the text contains "Vantakor", its *first nine characters* are cut off, wherever the word
    /// stands: meant for names that begin with it and a space.
    void setVal(const std::unordered_map<std::string, std::string>& map);
};

/// Writes a ".vnline" file from a parameter record, preview pixels and one set of polylines per layer. For layers given
/// as meshes use `createDLPWriter`.
///
/// Calls: `open`, `setDlpLineV2Param`, `setGrayPreview116X116`, `setGrayPreview290X290` for 0 and 1,
/// `writeDlpStructure`, `setLayerPath` for each layer in order, `writeTail`, `close`. Calls without a successful `open`
/// write nothing.
///
/// Copies share the structure and the open file: go on with one of them only.
class VNDLP_API VnLineV2WriteWrapper {
public:
    VnLineV2WriteWrapper();
    VnLineV2WriteWrapper(const VnLineV2WriteWrapper& other);
    VnLineV2WriteWrapper& operator=(const VnLineV2WriteWrapper& other);
    ~VnLineV2WriteWrapper();

    /// Creates the file. \return 0; negative when it cannot be opened.
    int open(std::string path);
    /// Takes the parameters over.
    void setDlpLineV2Param(const DlpLineV2ParamWrapper& p);
    /// \param pixels 116 x 116 preview pixels of two bytes, row-major, 26912 bytes, stored as they are; null keeps the
    ///               preview black. Unlike the V2 wrapper, nothing is converted.
    void setGrayPreview116X116(unsigned char* pixels);
    /// \param pixels 290 x 290 preview pixels of two bytes, 168200 bytes; null keeps the preview black.
    /// \param which  0 or 1; any other value has no preview and is ignored.
    void setGrayPreview290X290(unsigned char* pixels, int which);
    /// Writes the next layer.
    /// \param layerIndex not used: layers are written in the order of the calls.
    /// \param paths      polylines; of each point x and y are written.
    /// \param area       layer area in thousandths of the stored unit.
    void setLayerPath(int layerIndex, const std::vector<std::vector<Vec3i>>& paths, double area);
    /// Writes the head of the file and the image parameters.
    /// \return as `VndlpV2Wrapper::writeDlpStructure`.
    bool writeDlpStructure();
    /// Fills the area table, writes the tail and seals the file.
    /// \return 0; negative for the first failure: see `VndlpWrite::writeLayerAreasDealyer`, `VndlpWrite::writeTail`.
    ///         Layers that could not be written are reported here.
    int writeTail();
    /// Forgets the layers' areas and frees the previews: called before the object writes another file.
    void clear();
    /// Closes the file and frees the structure.
    void close();
    /// Hands buffered bytes to the system. \return 0; negative when not all could be written.
    int flush();

private:
    std::shared_ptr<DlpFileStructure> m_structure;
    DlpImageParam m_imageParam;
    VndlpWrite m_writer;
    std::vector<unsigned int> m_layerAreas;
    unsigned int m_readyFlags;
};

/// Reads ".vnline" files record by record.
///
/// Calls: `open`, `readHeader`, `readDlpParam` with as many areas as the header has layers, `readDlpImageParam`, then
/// `readLayerPath` or `readLayerMesh` for each layer: the file does not say which of the two its layers are.
///
///     vndlp::VnLineV2ReadWrapper reader;
///     vndlp::DlpV2LineHeader header;
///     vndlp::DlpParameters parameters;
///     vndlp::DlpImageParam imageParameters;
///     if (reader.open("model.vnline", true) < 0 || reader.readHeader(header, true) < 0) return;
///     std::vector<unsigned int> areas(header.layerCount);
///     if (reader.readDlpParam(parameters, areas) < 0 || reader.readDlpImageParam(imageParameters) < 0) return;
///     std::vector<std::vector<vndlp::Vec3i>> paths;
///     for (unsigned int& area : areas) {
///         if (reader.readLayerPath(paths, area) < 0) return;
///         use(paths);
///     }
///
/// Every failure is printed as a line beginning "error: ". A copy shares the open file, as copies of `VndlpRead` do.
class VNDLP_API VnLineV2ReadWrapper {
public:
    VnLineV2ReadWrapper();
    VnLineV2ReadWrapper(const VnLineV2ReadWrapper& other);
    VnLineV2ReadWrapper& operator=(const VnLineV2ReadWrapper& other);
    ~VnLineV2ReadWrapper();

    /// \param verify check the trailer first.
    /// \return 0; -1 when it does not match; -3 when the file cannot be opened.
    int open(std::string path, bool verify);
    void close();
    /// Reads the head magic, whatever it is, and the header.
    /// \param withPreview read the previews too; otherwise they are skipped and stay without pixels.
    /// \return 0; -1 no open file; -2 wrong tag; -3 layer count beyond the file; -4 zero resolution.
    int readHeader(DlpV2LineHeader& header, bool withPreview);
    /// \param areas filled with as many values of the area table as it has entries: size it to the header's layer
    ///              count.
    /// \return 0; -1 on any failure.
    int readDlpParam(DlpParameters& params, std::vector<unsigned int>& areas);
    /// Line files have no such record: for files of the V2 kind from version 3 on. \return 0; -1 on any failure.
    int readDlpSliceBasicParam(DlpSliceBasicParameters& params);
    /// \return 0; -1 no open file; -2 wrong tag.
    int readDlpImageParam(DlpImageParam& param);
    /// Reads one layer of mesh vertices (x and y) behind those the mesh has; z is 0.
    /// \param area receives the area value; null for layers without one.
    /// \param flag not used.
    /// \return the number of vertices; negative on failure, see `VndlpRead::readLayerMesh`.
    int readLayerMesh(trimesh::TriMesh& mesh, unsigned int* area, bool flag);
    /// Reads one layer of polylines; every point's z equals its y.
    /// \return the number of polylines; negative on failure, see `VndlpRead::readLayerPath`.
    int readLayerPath(std::vector<std::vector<Vec3i>>& paths, unsigned int& area);

private:
    VndlpRead m_reader;
};

}  // namespace vndlp

#endif
