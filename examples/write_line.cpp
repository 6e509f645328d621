// Writes a line file from a mesh, a cone that is cut into layers: each layer is the mesh of its own cut.
//   write_line OUTPUT.vnline

#include <vndlp/vndlp.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr int kLayers = 60;
constexpr double kThicknessMm = 0.05;
constexpr int kCorners = 90;
constexpr double kPi = 3.14159265358979;

/// The cone: a ring of vertices, in millimetres, and a tip.
struct Cone {
    double radius = 20;
    double height = 10;
    double centreX = 34;
    double centreY = 60;
};

/// The outline of the cone at a height. Of a layer's vertices x and y go to the file, as they are.
trimesh::TriMesh cut(const Cone& cone, double z, double& areaMm2) {
    const double radius = cone.radius * (1 - z / cone.height);
    trimesh::TriMesh outline;
    for (int corner = 0; corner < kCorners; ++corner) {
        const double angle = 2 * kPi * corner / kCorners;
        outline.vertices.emplace_back(static_cast<float>(cone.centreX + radius * std::cos(angle)),
                                      static_cast<float>(cone.centreY + radius * std::sin(angle)),
                                      static_cast<float>(z));
    }
    areaMm2 = kPi * radius * radius;
    return outline;
}

int writeFile(const char* path) {
    const std::unique_ptr<vndlp::DLPWriter> writer(vndlp::createDLPWriter(path));
    if (writer == nullptr) return 1;
    writer->filePath = path;
    writer->machineType = "M01";
    writer->layerCount = kLayers;
    writer->resolutionX = 1440;
    writer->resolutionY = 2560;
    vndlp::DlpParameters& parameters = writer->fileStructure.parameters;
    parameters.platformX = "68.04";  // mm
    parameters.platformY = "120.96";
    parameters.thickness = "0.05";
    parameters.exposure_time = 25;  // tenths of a second
    parameters.first_exposure_time = 30;
    parameters.first_layer_count = 4;

    std::vector<vndlp::SliceImage> previews(3);
    if (writer->openFile() < 0 || writer->writeHeader(previews) < 0) return 1;
    const Cone cone;
    for (int layer = 0; layer < kLayers; ++layer) {
        double areaMm2 = 0;
        const trimesh::TriMesh outline = cut(cone, (layer + 0.5) * kThicknessMm, areaMm2);
        writer->addLayerMesh(outline, areaMm2 * 1e6);  // the area in square micrometres
    }
    return writer->finish();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && writeFile(argv[1]) == 0) return 0;
    std::fprintf(stderr, "usage: write_line OUTPUT.vnline\n");
    return 1;
}
