// The line files' reader, record by record.

#include "fuzz/harness.h"
#include "fuzz/pictures.h"
#include "tests/support/memory_file.h"

#include <vndlp/wrappers.h>

namespace vndlp::fuzz {

void run(const Bytes& input) {
    // the last byte chooses, so that real files are seeds
    const unsigned knob = input.back();
    const test::MemoryFile file(withPictures(input));
    VnLineV2ReadWrapper reader;
    if (reader.open(file.path(), false) != 0) return;
    DlpV2LineHeader header;
    DlpParameters parameters;
    DlpImageParam image;
    if (reader.readHeader(header, knob % 2 == 0) != 0) return;
    std::vector<unsigned int> areas(header.layerCount);
    if (reader.readDlpParam(parameters, areas) != 0 || reader.readDlpImageParam(image) != 0) return;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;
    for (unsigned int& area : areas) {
        const bool asMesh = knob % 4 > 1;
        const int count = asMesh ? reader.readLayerMesh(mesh, &area, false) : reader.readLayerPath(paths, area);
        if (count < 0) return;
        require(asMesh ? static_cast<std::size_t>(count) <= mesh.vertices.size()
                       : static_cast<std::size_t>(count) == paths.size());
    }
}

}  // namespace vndlp::fuzz
