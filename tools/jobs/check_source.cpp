#include "tools/jobs/check_source.h"

#include "tools/base/failure.h"
#include "tools/base/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace vndlp::tools {

namespace {

constexpr double kAssumedPixelMm = 0.05;
constexpr double kAssumedLayerHeightMm = 0.05;
constexpr std::ptrdiff_t kDarkPiece = 64;

bool isDark(const unsigned char* pixels, int threshold) {
    unsigned char brightest = 0;
    for (std::ptrdiff_t i = 0; i < kDarkPiece; ++i) brightest = std::max(brightest, pixels[i]);
    return brightest <= threshold;
}

/// Appends a row's runs of greys above a threshold.
void appendRow(const unsigned char* pixels, int width, int row, int threshold, std::vector<LitRun>& runs) {
    const unsigned char* const end = pixels + width;
    const unsigned char* next = pixels;
    for (;;) {
        while (end - next >= kDarkPiece && isDark(next, threshold)) next += kDarkPiece;
        next = std::find_if(next, end, [threshold](unsigned char grey) { return grey > threshold; });
        if (next == end) return;
        const unsigned char* const first = next;
        next = std::find_if(next, end, [threshold](unsigned char grey) { return grey <= threshold; });
        runs.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(first - pixels),
                        static_cast<std::uint32_t>(next - pixels - 1)});
    }
}

}  // namespace

CheckSource::CheckSource(const std::string& path, const std::string& profile,
                         const std::vector<std::string>& assignments, int threshold)
    : m_input(openInput(path)), m_threshold(threshold) {
    if (!profile.empty()) applyProfile(profile, m_input.settings);
    for (const std::string& assignment : assignments) applyOption(assignment, m_input.settings);
    takeSettings(path);
}

void CheckSource::takeSettings(const std::string& path) {
    const PrintSettings& s = m_input.settings;
    m_job.width = static_cast<std::uint32_t>(m_input.width);
    m_job.height = static_cast<std::uint32_t>(m_input.height);
    const auto take = [&s](const char* key, double& value) {
        if (s.has(key)) value = s.number(key);
    };
    double widthMm = 0;
    double heightMm = 0;
    take("display_width_mm", widthMm);
    take("display_height_mm", heightMm);
    if (widthMm <= 0 || heightMm <= 0) {
        m_notes.push_back(path + ": the size of the screen is not known, pixels are taken for " +
                          shortNumber(kAssumedPixelMm) + " mm");
    }
    m_job.pixelXUm = widthMm > 0 ? widthMm * 1000 / m_input.width : kAssumedPixelMm * 1000;
    m_job.pixelYUm = heightMm > 0 ? heightMm * 1000 / m_input.height : kAssumedPixelMm * 1000;
    take("layer_height_mm", m_job.layerHeightMm);
    if (m_job.layerHeightMm < 0) {
        m_job.layerHeightMm = kAssumedLayerHeightMm;
        m_notes.push_back(path + ": the layer height is not known and taken for " + shortNumber(kAssumedLayerHeightMm) +
                          " mm");
    }
    take("machine_height_mm", m_job.machineHeightMm);
    take("exposure_s", m_job.exposureS);
    take("bottom_exposure_s", m_job.bottomExposureS);
    take("pwm", m_job.lightPower);
    take("bottom_pwm", m_job.bottomLightPower);
    if (s.has("bottom_layers")) m_job.bottomLayers = s.whole("bottom_layers");
    // the screen of a profile is the printer's; that of the file is the job's own
    const auto takeScreen = [&s](const char* key, std::uint32_t own, std::uint32_t& pixels) {
        pixels = own;
        if (s.has(key) && s.origin(key) > Origin::job) pixels = static_cast<std::uint32_t>(s.whole(key));
    };
    takeScreen("resolution_x", m_job.width, m_job.printerWidth);
    takeScreen("resolution_y", m_job.height, m_job.printerHeight);
}

std::vector<LitRun> CheckSource::litRunsOfShapes(int index) const {
    return litRunsOfPolylines(m_input.readOutlines(index).polylines, m_job.width, m_job.height, m_job.pixelXUm,
                              m_job.pixelYUm);
}

CheckLayer CheckSource::readLayer(int index, GreyImage& scratch) const {
    CheckLayer layer(m_job);
    if (m_input.readOutlines) {
        const std::vector<LitRun> runs = litRunsOfShapes(index);
        layer.append(runs.data(), runs.size());
    } else {
        m_input.readLayer(index, scratch);
        std::vector<LitRun> runs;
        for (int y = 0; y < scratch.height; ++y) {
            runs.clear();
            appendRow(scratch.row(y), scratch.width, y, m_threshold, runs);
            layer.append(runs.data(), runs.size());
        }
    }
    layer.close();
    return layer;
}

void CheckSource::paintLayer(int index, GreyImage& out) const {
    if (!m_input.readOutlines) {
        m_input.readLayer(index, out);
        removePadding(out);
        return;
    }
    out = GreyImage{m_input.width, m_input.height, {}};
    out.pixels.assign(static_cast<std::size_t>(out.width) * static_cast<std::size_t>(out.height), 0);
    for (const LitRun& run : litRunsOfShapes(index)) {
        unsigned char* const row = out.pixels.data() + std::size_t{run.line} * out.stride();
        std::fill(row + run.first, row + run.last + 1, static_cast<unsigned char>(255));
    }
}

}  // namespace vndlp::tools
