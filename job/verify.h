/// What verification finds, and the trailer.

#pragma once

#include "job/model.h"

#include <functional>

namespace vndlp::job {

/// Tells of one finding. \return false to stop.
using FindingSink = std::function<bool(SliceFinding&&)>;
/// Tells how far a long call is. \return false to stop.
using ProgressSink = std::function<bool(std::uint64_t done, std::uint64_t all)>;

/// Where all that the records tell of ends, in front of the trailer; -1: not known.
std::int64_t structureEnd(const Model& model);

[[nodiscard]] SliceResult readTrailer(const Model& model, SliceTrailer& trailer, const ProgressSink& progress);

/// Records, tables and offsets: all of the structure but the trailer, so that little is read.
[[nodiscard]] SliceResult verifyLayout(const Model& model, const FindingSink& tell);
/// What the records of a layer say twice; part of the layout.
[[nodiscard]] SliceResult verifyCopies(const Model& model, std::uint32_t layer, const FindingSink& tell);
[[nodiscard]] SliceResult verifyStructure(const Model& model, const FindingSink& tell, const ProgressSink& progress);
[[nodiscard]] SliceResult verifyLayer(const Model& model, std::uint32_t layer, const FindingSink& tell);

}  // namespace vndlp::job
