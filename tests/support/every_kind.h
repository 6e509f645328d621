/// A small sound file of every kind, as the library's writers make them.

#pragma once

#include "support/front_end.h"

#include <vndlp/vndlp.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vndlp::test {

/// A kind of slice file.
struct FileKind {
    std::string name;
    std::string ending;
    std::function<int(const std::string& path)> write;  ///< 0, or the negative result that stopped it
};

constexpr unsigned int kKindWidth = 24;  ///< of the layers, pixels
constexpr unsigned int kKindHeight = 10;
constexpr int kKindLayers = 3;

/// A layer: a bar of one grey and a speckled row.
inline SliceImage kindLayer(int index) {
    const unsigned int size = kKindWidth * kKindHeight;
    SliceImage image{size, kKindWidth, kKindHeight, std::shared_ptr<unsigned char[]>(new unsigned char[size]())};
    for (unsigned int x = 0; x < kKindWidth; ++x) image.pixels[x] = static_cast<unsigned char>(x * 37);
    for (unsigned int at = 50; at < 120; ++at) image.pixels[at] = static_cast<unsigned char>(255 - 2 * index);
    return image;
}

/// A coloured picture of 6 x 4 pixels, three bytes each.
inline SliceImage kindPreview() {
    SliceImage image{72, 6, 4, std::shared_ptr<unsigned char[]>(new unsigned char[72])};
    for (unsigned int i = 0; i < 72; ++i) image.pixels[i] = static_cast<unsigned char>(i < 36 ? 200 : i * 7);
    return image;
}

inline std::vector<std::vector<Vec3i>> kindPaths(int index) {
    return {{Vec3i(100, 100, 0), Vec3i(1200, 100, 0), Vec3i(1200, 400 + index, 0), Vec3i(100, 100, 0)},
            {Vec3i(-3, 7, 0), Vec3i(500, 60, 0)}};
}

inline void fillKindParameters(DlpFileStructure& structure) {
    DlpParameters& p = structure.parameters;
    p.platformX = "1.2";
    p.platformY = "0.5";
    p.thickness = "0.05";
    numberParameters<DlpParameters, unsigned short>(p, 2);
    structure.sliceBasicParameters.sliceSoftVersion = "V1";
    structure.sliceBasicParameters.consumables = "resin";
}

/// Through the container writer. \param kind header kind. \param version of a V2 file.
inline int writeKind(const std::string& path, int kind, int version) {
    auto structure = std::make_unique<DlpFileStructure>();
    structure->headerType = kind;
    structure->headerVersion = version;
    structure->needData();
    structure->setLayerCount(kKindLayers);
    structure->setResolution(kKindWidth, kKindHeight);
    structure->setMachineType("M1");
    fillKindParameters(*structure);
    std::vector<unsigned int> areas;
    std::vector<std::vector<WhiteData>> runs(kKindLayers);
    for (int i = 0; i < kKindLayers; ++i) {
        if (kind == 2) areas.push_back(70u + static_cast<unsigned int>(i));
        grayDataVecWhiteData(kindLayer(i).pixels.get(), kKindWidth, kKindHeight, runs[static_cast<std::size_t>(i)]);
    }
    VndlpWrite writer;
    DlpFileStructure* given = structure.release();
    writer.swapDlpFileStructure(given);
    delete given;
    writer.swapLayerAreas(areas);
    writer.swapWhiteDatas(runs);
    return writer.writeDlpFile(path);
}

/// Through the front end, which goes by the name's ending.
inline int writeKind(const std::string& path, bool asMesh = false) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    if (writer == nullptr) throw std::invalid_argument(path);
    const bool isLine = path.size() > 7 && path.compare(path.size() - 7, 7, ".vnline") == 0;
    writer->filePath = path;
    writer->layerCount = kKindLayers;
    writer->machineType = "M1";
    writer->machineName = "M4";
    writer->resolutionX = kKindWidth;
    writer->resolutionY = kKindHeight;
    fillKindParameters(writer->fileStructure);
    std::vector<SliceImage> previews(3, kindPreview());
    // the sequence goes on whatever fails: `finish` tells, and closes
    int result = writer->openFile();
    if (result < 0) return result;
    writer->writeHeader(previews);
    for (int i = 0; i < kKindLayers; ++i) {
        const double area = 70000.0 + 1000 * i;
        if (!isLine) {
            writer->addLayerImage(static_cast<unsigned>(i), kindLayer(i), area, 1);
        } else if (!asMesh) {
            writer->addLayerPaths(static_cast<unsigned>(i), kindPaths(i), area);
        } else {
            trimesh::TriMesh mesh;
            mesh.vertices.emplace_back(1.5F, 2.0F, 0.0F);
            mesh.vertices.emplace_back(30.0F, static_cast<float>(i), 0.0F);
            writer->addLayerMesh(mesh, area);
        }
    }
    return writer->finish();
}

inline const std::vector<FileKind>& everyKind() {
    static const std::vector<FileKind> kinds = {
        {"v1", ".vndlp", [](const std::string& path) { return writeKind(path, 1, 0); }},
        {"v2_version2", ".vndlp", [](const std::string& path) { return writeKind(path, 2, 2); }},
        {"v2_version3", ".vndlp", [](const std::string& path) { return writeKind(path, 2, 3); }},
        {"v2_front_end", ".vndlp", [](const std::string& path) { return writeKind(path); }},
        {"v3", ".vndlp", [](const std::string& path) { return writeKind(path, 3, 0); }},
        {"line", ".vnline", [](const std::string& path) { return writeKind(path); }},
        {"line_mesh", ".vnline", [](const std::string& path) { return writeKind(path, true); }},
        {"ctb", ".ctb", [](const std::string& path) { return writeKind(path); }},
        {"v4", ".vndlpv4", [](const std::string& path) { return writeKind(path); }},
    };
    return kinds;
}

}  // namespace vndlp::test
