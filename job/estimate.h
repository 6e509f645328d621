/// Volume and print time of a job.

#pragma once

#include "job/verify.h"

namespace vndlp::job {

/// Lit area of every layer; NaN where it is not known. Layers that cannot be decoded have none.
[[nodiscard]] SliceResult layerAreas(const Model& model, const ProgressSink& progress, std::vector<double>& areasMm2);

[[nodiscard]] SliceResult estimateJob(const Model& model, const ProgressSink& progress, SliceEstimate& estimate);

}  // namespace vndlp::job
