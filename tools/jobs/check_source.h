/// A job or slice file as the check takes it: facts, and each layer's lit runs.

#pragma once

#include "tools/jobs/input.h"

#include <vndlp/job_check.h>

#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// The area a file holds of a layer, and what the layer has, mm^2.
struct ComparedArea {
    double storedMm2;
    double litMm2;
};

/// Layers may be read in several threads at once.
class CheckSource {
public:
    /// \param threshold greys above it are lit.
    /// Throws Failure, UsageFailure for a wrong profile or assignment.
    CheckSource(const std::string& path, const std::string& profile, const std::vector<std::string>& assignments,
                int threshold);

    const CheckJob& job() const { return m_job; }
    int layerCount() const { return m_input.layerCount; }
    /// What was missing and assumed, for the user.
    const std::vector<std::string>& notes() const { return m_notes; }

    /// Reads one layer. Throws Failure.
    /// \param scratch saves allocations.
    CheckLayer readLayer(int index, GreyImage& scratch) const;

    /// One layer's greys, for drawing; shapes are painted white. Throws Failure.
    void paintLayer(int index, GreyImage& out) const;

private:
    std::vector<LitRun> litRunsOfShapes(int index) const;
    void takeSettings(const std::string& path);

    Input m_input;
    CheckJob m_job;
    int m_threshold;
    std::vector<std::string> m_notes;
};

}  // namespace vndlp::tools
