/// The front end's writer for ".vnline".

#pragma once

#include "writer/common.h"

namespace vndlp {

/// Layers are geometry; the operations that take images do nothing.
class DLPLine final : public DLPWriter {
public:
    DLPLine();

    int openFile() override;
    int writeHeader(std::vector<SliceImage>& previews) override;
    int addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) override;
    int setLayerImageAt(int layerIndex, const SliceImage& image, double area) override;
    int addLayerMesh(const trimesh::TriMesh& mesh, double area) override;
    int addLayerPaths(unsigned layerIndex, const std::vector<std::vector<Vec3i>>& paths, double area) override;
    int finish() override;
    int cancel() override;
    void resizeLayers(int count) override;

private:
    void reset();

    VndlpWrite m_writer;
    SliceImage m_previewSmall;
    SliceImage m_previewLarge1;
    SliceImage m_previewLarge2;
    std::vector<unsigned int> m_layerAreas;
    ResolutionLoan m_resolution;
    AnnouncedLayers m_announced;
    FirstFailure m_failure;
};

}  // namespace vndlp
