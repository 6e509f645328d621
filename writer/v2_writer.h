/// The front end's writer for ".vndlp".

#pragma once

#include "writer/common.h"

#include <atomic>

namespace vndlp {

class DLPVNV2 final : public DLPWriter {
public:
    DLPVNV2();

    int openFile() override;
    int writeHeader(std::vector<SliceImage>& previews) override;
    int addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) override;
    int setLayerImageAt(int layerIndex, const SliceImage& image, double area) override;
    int finish() override;
    int cancel() override;
    void resizeLayers(int count) override;

private:
    void flushPending();
    void writeLayer(int layerIndex, const std::vector<unsigned char>& runs);
    void clearPending();
    void reset();

    std::atomic<unsigned long long> m_doneCount;  // calls of setLayerImageAt since construction, never reset
    VndlpWrite m_writer;
    SliceImage m_previewSmall;
    SliceImage m_previewLarge1;
    SliceImage m_previewLarge2;
    std::vector<int> m_layerAreas;
    std::vector<std::vector<unsigned char>> m_pendingRuns;  // packed, as they go to the file
    std::vector<unsigned char> m_runs;                      // of the layer being written
    std::vector<int> m_pendingIndex;
    std::vector<SliceImage> m_pendingImages;
    ResolutionLoan m_resolution;
    AnnouncedLayers m_announced;
    FirstFailure m_failure;
};

}  // namespace vndlp
