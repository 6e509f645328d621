/// Findings: numbers, severity, order and words.

#pragma once

#include "job/check_layer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vndlp {

/// Makes the findings of one job, and keeps those that are wanted.
class FindingList {
public:
    FindingList(const CheckJob& job, const CheckOptions& options) : m_job(job), m_options(options) {}

    bool wants(CheckKind kind) const { return (m_options.kinds >> static_cast<unsigned>(kind) & 1U) != 0; }

    /// A finding of some layers, without any numbers.
    static CheckFinding make(CheckKind kind, std::int64_t layer, std::int64_t lastLayer);
    void setPixels(CheckFinding& finding, std::uint64_t pixels) const;
    void setVoxels(CheckFinding& finding, std::uint64_t voxels) const;
    void setBox(CheckFinding& finding, const LineBox& box) const;

    void add(CheckFinding finding);
    /// Gives each finding its severity. \param layers of the whole job.
    std::vector<CheckFinding> takeSorted(std::int64_t layers);

private:
    const CheckJob& m_job;
    const CheckOptions& m_options;
    std::vector<CheckFinding> m_findings;
};

/// Layer height for heights and volumes, mm; 0 when it is not known.
double knownLayerHeight(const CheckJob& job);

std::string describeFinding(const CheckJob& job, const CheckFinding& finding);

}  // namespace vndlp
