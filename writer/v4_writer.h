/// The front end's writer for ".vndlpv4".

#pragma once

#include <vndlp/v4.h>
#include "writer/common.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace vndlp {

/// Copies of one bead field, each lent to one thread at a time. A copy is made when it is first needed.
class BeadFieldPool {
public:
    using Field = std::unique_ptr<VNDLPV4::LampBeadCal>;

    /// Builds the field and allows `count` copies in all; copies made before stay. Nothing happens for a count below 1.
    void prepare(int count);
    bool isPrepared() const { return m_field != nullptr; }

    /// A field on loan, given back on destruction.
    class Lease {
    public:
        Lease(BeadFieldPool& pool, Field field) : m_pool(pool), m_field(std::move(field)) {}
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease() { m_pool.put(std::move(m_field)); }
        VNDLPV4::LampBeadCal& operator*() const { return *m_field; }

    private:
        BeadFieldPool& m_pool;
        Field m_field;
    };

    /// Lends a field, waiting for one where all are lent. The pool must be prepared.
    Lease take();

private:
    void put(Field field);

    Field m_field;  // never lent
    std::mutex m_mutex;
    std::condition_variable m_returned;
    std::vector<Field> m_free;
    int m_copies = 0;
    int m_allowed = 0;
};

class DLPVNV4 final : public DLPWriter {
public:
    DLPVNV4();

    int openFile() override;
    int writeHeader(std::vector<SliceImage>& previews) override;
    int addLayerImage(unsigned layerIndex, const SliceImage& image, double area, int batchSize) override;
    int setLayerImageAt(int layerIndex, const SliceImage& image, double area) override;
    void setLayerArea(int layerIndex, double area) override;
    int finish() override;
    int cancel() override;
    void resizeLayers(int count) override;
    void setLightData(const std::vector<unsigned int>& data, long long value) override;
    void prepareLampBeadCal(int count) override;

private:
    void addPreview(const SliceImage& image);
    void fillHeader();
    void fillParameters();
    void fillSlicerInfo();
    int storeLayer(std::size_t index, const SliceImage& image, double area);
    void encodeInto(VNDLPV4::LayerDef& layer, unsigned index, const SliceImage& image);
    void warnOfOtherSize(unsigned index, const SliceImage& image);
    void completeMasks();
    void completeCounts();
    void reset();
    int refuseIndex(long long index);

    VNDLPV4::VNDLPV4Write m_writer;
    BeadFieldPool m_beadFields;
    std::vector<unsigned int> m_lightData;  // kept for the host; a V4 file has no place for it
    long long m_lightValue = 0;
    std::atomic<bool> m_sizeWarned{false};
    AnnouncedLayers m_announced;
    FirstFailure m_failure;
};

}  // namespace vndlp
