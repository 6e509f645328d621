/// \file wrappers.h
/// Writing and reading container files from flat parameter records, without the writer front end.

#ifndef VNDLP_WRAPPERS_H
#define VNDLP_WRAPPERS_H

#include <vndlp/container.h>
#include <vndlp/export.h>

#include <memory>
#include <string>
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
/// the layers, `writeTail`, `close`. Layers are given by `setLayerImage`, in any order. Calls between `open` and
/// `close` need a successful `open`.
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
    /// Writes the head of the file. \return true; false, with nothing written, unless parameters and all three previews
    /// were set and the head could be written.
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

}  // namespace vndlp

#endif
