/// A job or slice file as the check takes it: facts, and each layer's lit runs.

#pragma once

#include "tools/base/settings.h"
#include "tools/jobs/source.h"

#include <vndlp/check_file.h>

#include <string>
#include <vector>

namespace vndlp::tools {

/// A layer on its way into the check.
struct SourceLayer {
    CheckLayer layer;
    double areaMm2;  ///< what a slice file's layer cures, see `readCheckLayer`
};

/// Layers may be read in several threads at once.
class CheckSource {
public:
    /// \param threshold greys above it are lit.
    /// \param wished    settings of printer, profile and options.
    /// Throws Failure.
    CheckSource(const std::string& path, const PrintSettings& wished, int threshold);

    const CheckJob& job() const { return m_job; }
    int layerCount() const { return m_layerCount; }
    /// What was missing and assumed, for the user.
    const std::vector<std::string>& notes() const { return m_notes; }

    /// Reads one layer. Throws Failure.
    /// \param scratch saves allocations.
    SourceLayer readLayer(int index, GreyImage& scratch) const;
    /// Hands a layer to the check, in order.
    void addLayer(int index, SourceLayer& layer, JobCheck& check) const;

    /// One layer's greys, for drawing; shapes are painted white. Throws Failure.
    void paintLayer(int index, GreyImage& out) const;

private:
    void openFile();
    void openJob();
    void take(const PrintSettings& settings);
    void assumeTheRest();
    [[noreturn]] void fail(const SliceResult& result) const;

    std::string m_path;
    Source m_source;
    CheckJob m_job;
    int m_layerCount = 0;
    int m_threshold;
    std::vector<std::string> m_notes;
};

}  // namespace vndlp::tools
