/// The whole layers of a file that may be cut or damaged.

#pragma once

#include "job/model.h"
#include "job/verify.h"

#include <vndlp/slice_write.h>

#include <cstdint>
#include <map>
#include <vector>

namespace vndlp::job {

struct FoundLayers {
    std::map<std::uint32_t, LayerPlace> whole;  ///< by number
    std::vector<SliceFinding> hurt;             ///< one for each layer that is not, or for several that are missing
};

/// `damaged` for a head without what layers are found by.
[[nodiscard]] SliceResult checkHead(const Model& model);

/// Reads every layer's data. Layers of vendor files behind a damaged one are found again by the tags between layers
/// and, where the format has them, the areas in front of layers, which the table in the head repeats.
[[nodiscard]] SliceResult findLayers(const Model& model, const ProgressSink& progress, FoundLayers& found);

}  // namespace vndlp::job
