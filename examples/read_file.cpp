// Reads any slice file and prints what it holds: read_file FILE

#include <vndlp/vndlp.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

int readVendorFile(const char* path, bool asMeshes) {
    vndlp::VndlpRead reader;
    if (reader.openDlpFile(path, true) < 0 || reader.readDlpStructure(false) < 0) return 1;
    const vndlp::DlpFileStructure& head = *reader.getDlpFileStructure();
    const bool isLine = head.headerType == 12;
    vndlp::DlpImageParam imageParam;
    if (isLine && reader.readDlpImageParam(imageParam) < 0) return 1;
    std::printf("%s, %d layers of %d x %d, %s mm thick\n", reader.tailMagic().c_str(), head.layerCount(),
                head.getResolutionX(), head.getResulutionY(), head.parameters.thickness.c_str());
    for (int layer = 0; layer < head.layerCount(); ++layer) {
        std::vector<vndlp::WhiteData> runs;
        std::vector<std::vector<vndlp::Vec3i>> paths;
        trimesh::TriMesh mesh;
        unsigned int area = 0;
        const int result = !isLine    ? reader.getWhiteDatas(runs, &area)
                           : asMeshes ? reader.readLayerMesh(mesh, &area, false)
                                      : reader.readLayerPath(paths, &area, false);
        // a line file does not say whether its layers are polylines or meshes: they are what they can be read as
        if (result < 0) return isLine && layer == 0 && !asMeshes ? readVendorFile(path, true) : 1;
        std::printf("layer %d: %.3f mm2, %zu runs, %zu polylines, %zu vertices\n", layer, area / 1000.0, runs.size(),
                    paths.size(), mesh.vertices.size());
    }
    return 0;
}

void printLayer(int layer, float topMm, const std::vector<unsigned char>& pixels) {
    const auto lit = std::count_if(pixels.begin(), pixels.end(), [](unsigned char grey) { return grey > 15; });
    std::printf("layer %d: top at %.3f mm, %lld lit pixels\n", layer, topMm, static_cast<long long>(lit));
}

int readV4File(const char* path) {
    VNDLPV4::VNDLPV4Read reader;
    if (reader.openDlpFile(path, true) < 0 || reader.parseFile() < 0 || !reader.isWhole()) return 1;
    const VNDLPV4::HeaderSettings* header = reader.headerSettings();
    std::printf("V4, %u layers of %u x %u\n", header->layerCount, header->resolutionX, header->resolutionY);
    int layer = 0;
    for (VNDLPV4::LayerDef* entry : reader.layerDef()) {  // the reader's own
        printLayer(layer, entry->positionZ, reader.readLayerImage(header, entry, layer));
        ++layer;
    }
    return 0;
}

int readCtbFile(const char* path) {
    CTB::CTBRead reader;
    const bool isRead = reader.openDlpFile(path, false) == 0 && reader.readHeader() == 0;
    const CTB::HeaderSettings* header = reader.headerSettings();
    if (!isRead || header->magic != CTB::kMagic) return 1;
    std::printf("CTB, %u layers of %u x %u\n", header->layerCount, header->resolutionX, header->resolutionY);
    int layer = 0;
    for (CTB::LayerDef* entry : reader.layerDef(false)) {
        printLayer(layer, entry->positionZ, reader.readLayerImage(header, entry, layer, nullptr));
        ++layer;
        delete entry;  // the caller's, unlike those of V4
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::string magic;
    int version = 0;
    if (vndlp::VndlpRead().getFileVersion(argv[1], magic, version) < 0) return readCtbFile(argv[1]);
    if (magic == VNDLPV4::kV4HeaderText && version == VNDLPV4::kV4Version) return readV4File(argv[1]);
    return readVendorFile(argv[1], false);
}
