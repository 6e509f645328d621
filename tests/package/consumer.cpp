// Writes a line file with a mesh layer, reads the mesh back and says which mesh type that was.

#include <vndlp/vndlp.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace {

bool writeFile(const char* path, const trimesh::TriMesh& mesh) {
    const std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter(path));
    std::vector<vndlp::SliceImage> previews(3);
    if (writer == nullptr) return false;
    writer->filePath = path;
    writer->layerCount = 1;
    writer->resolutionX = 1440;
    writer->resolutionY = 2560;
    writer->fileStructure.parameters.platformX = "68.04";
    writer->fileStructure.parameters.platformY = "120.96";
    writer->fileStructure.parameters.thickness = "0.05";
    return writer->openFile() == 0 && writer->writeHeader(previews) == 0 && writer->addLayerMesh(mesh, 5000) == 2 &&
           writer->finish() == 0;
}

bool readFile(const char* path, trimesh::TriMesh& mesh) {
    vndlp::VndlpRead reader;
    vndlp::DlpImageParam imageParam;
    unsigned int area = 0;
    return reader.openDlpFile(path, true) == 0 && reader.readDlpStructure(false) == 0 &&
           reader.readDlpImageParam(imageParam) == 0 && reader.readLayerMesh(mesh, &area, false) == 2 && area == 5;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    trimesh::TriMesh written;
    trimesh::TriMesh read;
    written.vertices.emplace_back(1.0F, 2.0F, 0.0F);
    written.vertices.emplace_back(-3.5F, 4.0F, 0.0F);
    if (!writeFile(argv[1], written) || !readFile(argv[1], read)) return 1;
    if (read.vertices.size() != 2 || read.vertices[1][0] != -3.5F || read.vertices[1][1] != 4.0F) return 1;
#if defined(VNDLP_WITH_TRIMESH2)
    std::puts("meshes of trimesh2");
#else
    std::puts("meshes of our own");
#endif
    return 0;
}
