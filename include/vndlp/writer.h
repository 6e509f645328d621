/// \file writer.h
/// The writer front end: one interface for every slice file format, the format chosen by the output's extension.
///
///     std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter("model.vndlp"));
///     writer->filePath = "model.vndlp";
///     writer->layerCount = 100;                            // and the other settings
///     std::vector<vndlp::SliceImage> previews(3);          // three, even if empty
///     if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return;
///     for (unsigned i = 0; i < 100; ++i) writer->addLayerImage(i, image(i), areaInSquareMicrometres(i), 8);
///     if (writer->finish() < 0) return;                    // the only place that shows a full disk

#ifndef VNDLP_WRITER_H
#define VNDLP_WRITER_H

#include <vndlp/container.h>
#include <vndlp/export.h>
#include <vndlp/image.h>
#include <vndlp/mesh.h>

#include <memory>
#include <string>
#include <vector>

namespace vndlp {

/// An image handed to a writer. Copies share the pixels; the front end never copies pixel bytes.
///
/// Layers: 8-bit grey, one byte a pixel, row by row from the top row, `stride` bytes from one row to the next.
/// Previews: three bytes a pixel (blue, green, red) for CTB and V4; the V2 and line writers do not write the previews
/// they are given.
struct SliceImage {
    unsigned int size = 0;  ///< bytes of the pixels; CTB encodes just these, whatever the sides say (0: all)
    unsigned int width = 0;
    unsigned int height = 0;
    std::shared_ptr<unsigned char[]> pixels;
    unsigned int stride = 0;  ///< layers: bytes from one row to the next, at least `width`; 0: `width`
};

/// Writes one slice file. Made by `createDLPWriter`; the public members are set between that and `writeHeader`.
///
/// Calls, in this order: `openFile`; `writeHeader`; the layers, either `addLayerImage` for each in order, or
/// `resizeLayers` and `setLayerImageAt` for each in any order (line files: `addLayerMesh` or `addLayerPaths`);
/// `finish`, or `cancel` to abandon the file. Other orders give malformed files.
///
/// Operations that return an int return 0 (or a count) on success and a negative value on failure, which is also
/// printed as a line beginning "error: ". An operation a format does not have does nothing and returns 0. The first
/// failure of a layer is returned by `finish` as well.
///
/// Areas are given in square micrometres and stored divided by 1000, rounded, halves away from zero.
///
/// One thread at a time drives a writer, but for `setLayerImageAt` as said there. The library starts no threads.
class VNDLP_API DLPWriter {
public:
    unsigned int headerType = 0;     ///< container header kind, set by the format's writer
    unsigned int headerVersion = 0;  ///< version beside it; the V2 writer stores it as the header's versionCode
    unsigned int formatFlag = 0;
    int layerCount = 0;  ///< layers that will be delivered, at most 65535
    std::string filePath;
    std::string machineType;
    float modelBox[6] = {};        ///< bounding box of the model: min x, y, z, max x, y, z
    bool modelBoxValid = false;    ///< whether `modelBox` holds one
    unsigned int resolutionX = 0;  ///< screen width, pixels; V2 and line files: unless set in `fileStructure`
    unsigned int resolutionY = 0;
    unsigned int printTime = 0;  ///< s (CTB, V4)
    double bedSizeX = 300.0;     ///< mm (CTB, V4)
    double bedSizeY = 300.0;
    double bedSizeZ = 300.0;
    unsigned long long reserved0 = 0;
    unsigned int reserved1 = 0;
    unsigned int resinVolume = 0;  ///< the 32 bits are stored unchanged (CTB, V4)
    float resinWeight = 0;         ///< g (CTB, V4)
    std::string machineName;       ///< V4: used instead of `machineType`
    unsigned int zThrough = 0;     ///< image parameters (line files), low 16 bits each
    unsigned int enableAliasing = 0;
    unsigned int minGray = 0;
    unsigned int maxGray = 0;
    unsigned long long reserved2 = 0;
    unsigned long long reserved3 = 0;
    /// The slicer fills `parameters` and `sliceBasicParameters`; `writeHeader` completes the rest.
    DlpFileStructure fileStructure;

    virtual ~DLPWriter();
    DLPWriter(const DLPWriter&) = delete;
    DLPWriter& operator=(const DLPWriter&) = delete;

    /// Opens `filePath`. \return 0; negative when it cannot be opened.
    virtual int openFile() = 0;

    /// Takes the first three previews (their pixel pointers are moved out of the vector) and writes or prepares the
    /// header. CTB and V4 files keep the first two. V2 and line files carry blank previews whatever is given.
    /// \return 0 on success; negative on failure (a line file's head that could not be written shows in `finish` only);
    ///         with fewer than three previews their number, and nothing is written.
    virtual int writeHeader(std::vector<SliceImage>& previews) = 0;

    /// Delivers the next layer.
    /// \param layerIndex the number of layers delivered before.
    /// \param image      shared until the layer is written; CTB: encoded at once, and all encoded data kept until
    ///                   `finish`.
    /// \param area       lit area.
    /// \param batchSize  V2: layers are converted and written when this many are pending; 0 writes at once, a negative
    ///                   value leaves them all to `finish`. At most that many images are held. Ignored by other
    ///                   formats.
    ///
    /// CTB: layer 0 again empties the layer table; but the extended records stay, so that those of the first start are
    /// written beside the new layers.
    virtual int addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) = 0;

    /// Stores a layer, in any order, into tables sized by `resizeLayers`. May be called from several threads at once
    /// for different layers.
    ///
    /// V2: *the runs of every layer stand twice in the file that `finish` writes after it*: use `addLayerImage` for
    /// files that print as sliced. And a call beyond the number of layers (a layer given again, or a second job with
    /// the same writer) writes out all layers as they are and empties the tables.
    ///
    /// V4: encoded before the call returns, with a bead-calibration worker of its own for as many threads as
    /// `prepareLampBeadCal` was asked for. A layer may be given again.
    /// \return 0; negative for an index outside the tables ("invalid vector subscript") or an image without pixels.
    virtual int setLayerImageAt(int layerIndex, const SliceImage& image, double area) = 0;

    /// Line files: a layer as mesh; x and y of its vertices are written.
    /// \return the number of vertices; negative on failure.
    virtual int addLayerMesh(const trimesh::TriMesh& mesh, double area);
    /// Line files: a layer as polylines; x and y of their points are written.
    /// \param layerIndex not used: layers are written in the order of the calls.
    /// \return 0; negative on failure.
    virtual int addLayerPaths(unsigned layerIndex, const std::vector<std::vector<Vec3i>>& paths, double area);
    /// V4: rewrites the area of a stored layer.
    virtual void setLayerArea(int layerIndex, double area);

    /// Writes what is pending, the layer tables and the tail, and closes the file.
    /// \return 0; negative for the first failure since `openFile`, and, with an error line, for layers other than
    ///         `layerCount` announced to `writeHeader`, for more than 65535, and for a header that was refused. The
    ///         file is written then all the same, and incomplete.
    virtual int finish() = 0;

    /// Closes the file and deletes it. \return the result of the deletion, 0 on success.
    virtual int cancel() = 0;

    /// Sizes every per-layer table to exactly `count` entries: surplus entries are dropped, new ones are empty.
    virtual void resizeLayers(int count) = 0;

    /// V4: copies the light source's data into the writer.
    virtual void setLightData(const std::vector<unsigned int>& data, long long value);
    /// V4: builds `count` bead-calibration workers, so that as many threads can encode layers at once; nothing below 1.
    virtual void prepareLampBeadCal(int count);

protected:
    DLPWriter();
};

/// Makes the writer for a path by its ending, case-sensitive: ".vndlpv4" the V4 container, ".vndlp" the vendor
/// container, ".vnline" its line variant, ".ctb" CTB.
/// \return a writer the caller owns; null for any other ending.
VNDLP_API DLPWriter* createDLPWriter(const std::string& path);

}  // namespace vndlp

#endif
