/// Layers on their way into a file.

#pragma once

#include "job/edits.h"

#include <vndlp/slice_write.h>
#include <vndlp/v4.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace vndlp::job {

/// What the layers of a file are encoded for.
struct LayerTarget {
    SliceFormat format = SliceFormat::none;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    double pixelAreaUm2 = 0;
    std::uint32_t key = 0;
    bool hasBeads = false;
};

/// Fields of LED beads, lent to one thread each.
class BeadFieldLender {
public:
    [[nodiscard]] std::unique_ptr<VNDLPV4::LampBeadCal> take();
    void giveBack(std::unique_ptr<VNDLPV4::LampBeadCal> field);

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<VNDLPV4::LampBeadCal>> m_fields;
};

/// Encodes an image. \param areaMm2 NaN: counted.
void encodePixels(const LayerTarget& target, BeadFieldLender& beads, const unsigned char* pixels, std::size_t stride,
                  double areaMm2, SliceEncoded::State& layer);
/// Encodes runs that stand as a `.vndlp` has them; false for others.
bool encodeOrderedRuns(const LayerTarget& target, const SliceRun* runs, std::size_t count, SliceEncoded::State& layer);
/// \return `size` for runs outside the screen.
[[nodiscard]] SliceResult encodeAnyRuns(const LayerTarget& target, BeadFieldLender& beads, const SliceRun* runs,
                                        std::size_t count, SliceEncoded::State& layer);
[[nodiscard]] SliceResult encodeShapes(const SliceShapes& shapes, double areaMm2, SliceEncoded::State& layer);
/// A layer of a file of the same format, checked, scrambled for the new one.
[[nodiscard]] SliceResult encodeCopy(const LayerTarget& target, const Model& from, std::uint32_t fromLayer,
                                     const LayerPlace& place, SliceEncoded::State& layer);

/// A layer of a file that stands at a place, put into a writer's file.
[[nodiscard]] SliceResult putPlaced(SliceWriter& writer, std::uint32_t layer, const Model& from,
                                    std::uint32_t fromLayer, const LayerPlace& place);

/// A key for a new CTB file: never 0.
std::uint32_t drawKey();

}  // namespace vndlp::job

namespace vndlp {

struct SliceEncoded::State {
    std::uint32_t layer = 0;
    std::vector<unsigned char> bytes;  ///< as they go to the file
    std::uint32_t count = 0;
    std::uint32_t area = 0;
    std::vector<unsigned char> mask;
    const void* writer = nullptr;  ///< that it was encoded for
    bool isMesh = false;
};

}  // namespace vndlp
