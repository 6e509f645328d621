/// The data of a layer, taken apart without an image: strict, piece by piece, in any number of threads.

#pragma once

#include "job/model.h"

#include <cstddef>
#include <cstdint>

namespace vndlp::job {

/// Where a layer stands. \return `index` for one that is not there, `damaged` for one whose place is not known.
[[nodiscard]] SliceResult placeOfLayer(const Model& model, std::uint32_t layer, LayerPlace& place);

/// The same of a layer whose image can be held in memory: `kind` for shapes, `damaged` for more pixels than any screen.
[[nodiscard]] SliceResult placeOfImage(const Model& model, std::uint32_t layer, LayerPlace& place);

/// Checks a layer's data as every decoder does, and no more.
[[nodiscard]] SliceResult checkData(const Model& model, std::uint32_t layer, const LayerPlace& place);
/// Counts a layer's runs and pixels, once for each layer of a file.
[[nodiscard]] SliceResult countData(const Model& model, std::uint32_t layer, const LayerPlace& place,
                                    LayerCounts& counts);
/// \param stride bytes from one row to the next, at least the width.
[[nodiscard]] SliceResult decodePixels(const Model& model, std::uint32_t layer, const LayerPlace& place,
                                       unsigned char* pixels, std::size_t stride);
[[nodiscard]] SliceResult decodeRows(const Model& model, std::uint32_t layer, const LayerPlace& place, SliceRowFn row,
                                     void* context);
[[nodiscard]] SliceResult decodeRuns(const Model& model, std::uint32_t layer, const LayerPlace& place,
                                     std::vector<SliceRun>& runs);
[[nodiscard]] SliceResult decodeLit(const Model& model, std::uint32_t layer, const LayerPlace& place, int threshold,
                                    SliceLitFn lit, void* context);
[[nodiscard]] SliceResult decodeShapes(const Model& model, std::uint32_t layer, const LayerPlace& place,
                                       SliceShapes& shapes);
/// The encoded data, unscrambled.
[[nodiscard]] SliceResult readData(const Model& model, std::uint32_t layer, const LayerPlace& place,
                                   std::vector<unsigned char>& data);
/// The bead mask in a layer's entry; empty without.
[[nodiscard]] SliceResult readBeads(const Model& model, const LayerPlace& place, std::vector<unsigned char>& mask);

}  // namespace vndlp::job
