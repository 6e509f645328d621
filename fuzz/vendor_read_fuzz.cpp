// The vendor container's reader: sniffing, verifying, the whole-file reader and the layer by layer readers.

#include "fuzz/memory_file.h"

#include <vndlp/vndlp.h>

using namespace vndlp;

namespace {

void readLayers(VndlpRead& reader, unsigned kind) {
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    unsigned int area = 0;
    for (int layer = 0; layer < reader.getLayerCount(); ++layer) {
        int code = 0;
        switch (kind % 4) {
            case 0: code = reader.getWhiteDatas(runs, &area); break;
            case 1: code = reader.readLayerPath(paths, &area, kind % 8 > 3); break;
            case 2: code = reader.readLayerMesh(mesh, &area, kind % 8 > 3); break;
            default: {
                unsigned int count = 0;
                code = reader.skipLayerWhiteData(&area, count);
                break;
            }
        }
        if (code < 0) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    // the last byte chooses, so that real files are seeds
    const unsigned knob = data[size - 1];
    const fuzz::MemoryFile file(data, size);
    VndlpRead reader;
    if (knob % 2 == 0) {
        reader.readDlpFile(file.path(), false, knob % 4 == 0);
        return 0;
    }
    if (reader.openDlpFile(file.path(), knob % 16 == 1) != 0) return 0;
    if (reader.readDlpStructure(knob % 32 > 15) != 0) return 0;
    readLayers(reader, knob >> 2);
    return 0;
}
