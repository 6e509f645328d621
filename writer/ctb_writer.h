/// The front end's writer for ".ctb".

#pragma once

#include <vndlp/ctb.h>
#include "writer/common.h"

#include <utility>

namespace vndlp {

/// Layers are encoded as they come and kept encoded; the file is written by `finish`.
class DLPCTB final : public DLPWriter {
public:
    DLPCTB();

    int openFile() override;
    int writeHeader(std::vector<SliceImage>& previews) override;
    int addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) override;
    int setLayerImageAt(int layerIndex, const SliceImage& image, double area) override;
    int finish() override;
    int cancel() override;
    void resizeLayers(int count) override;

private:
    using Layer = std::pair<std::unique_ptr<CTB::LayerDef>, std::unique_ptr<CTB::LayerDefEx>>;

    void addPreview(const SliceImage& image);
    void fillHeader();
    void fillPrintParameters();
    void fillSlicerInfo();
    Layer encodeLayer(unsigned int layerIndex, const SliceImage& image);
    bool isExtended();
    void emptyLists();

    SliceImage m_previewSmall;
    SliceImage m_previewLarge1;
    SliceImage m_previewLarge2;
    VndlpWrite m_vendorWriter;  // never opened
    CTB::CTBWrite m_writer;
    AnnouncedLayers m_announced;
    FirstFailure m_failure;
};

}  // namespace vndlp
