// The vendor container's reader: sniffing, verifying, the whole-file reader and the layer by layer readers.

#include "fuzz/harness.h"
#include "fuzz/pictures.h"
#include "tests/support/memory_file.h"

#include <vndlp/vndlp.h>

namespace vndlp::fuzz {

namespace {

int readLayer(VndlpRead& reader, unsigned kind) {
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    unsigned int area = 0;
    unsigned int count = 0;
    unsigned long long points = 0;
    switch (kind % 6) {
        case 0: return reader.getWhiteDatas(runs, &area);
        case 1: return reader.readLayerPath(paths, &area, kind > 7);
        case 2: return reader.readLayerMesh(mesh, &area, kind > 7);
        case 3: return reader.skipLayerPath(area, count, points);
        case 4: return reader.skipLayerMesh(area, count);
        default: return reader.skipLayerWhiteData(&area, count);
    }
}

}  // namespace

void run(const Bytes& input) {
    // the last byte chooses, so that real files are seeds
    const unsigned knob = input.back();
    const test::MemoryFile file(withPictures(input));
    VndlpRead reader;
    if (knob % 2 == 0) {
        if (reader.readDlpFile(file.path(), false, knob % 4 == 0) != 0) return;
        std::vector<std::vector<WhiteData>> runs;
        reader.swapWhiteDatas(runs);
        require(static_cast<int>(runs.size()) == reader.getLayerCount());
        return;
    }
    if (knob % 16 == 1) CheckSum::instance().appendFileSum(file.path().c_str());
    if (reader.openDlpFile(file.path(), knob % 16 == 1) != 0) return;
    if (reader.readDlpStructure(knob % 32 > 15) != 0) return;
    for (int layer = 0; layer < reader.getLayerCount(); ++layer) {
        const long long before = reader.currentPosition();
        if (readLayer(reader, knob >> 4) < 0) return;
        // a layer that was read moved the position, and not beyond the file
        require(reader.currentPosition() > before && reader.remaining() >= 0);
    }
}

}  // namespace vndlp::fuzz
