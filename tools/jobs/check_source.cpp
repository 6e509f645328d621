#include "tools/jobs/check_source.h"

#include "tools/base/failure.h"
#include "tools/base/text.h"
#include "tools/drawings/polylines.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vndlp::tools {

namespace {

constexpr double kAssumedPixelUm = 50;
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

std::vector<LitRun> litRunsOf(const GreyImage& image, int threshold) {
    std::vector<LitRun> runs;
    for (int y = 0; y < image.height; ++y) appendRow(image.row(y), image.width, y, threshold, runs);
    return runs;
}

GreyImage blackImage(const CheckJob& job) {
    GreyImage image{static_cast<int>(job.width), static_cast<int>(job.height), {}};
    image.pixels.assign(std::size_t{job.width} * job.height, 0);
    return image;
}

}  // namespace

CheckSource::CheckSource(const std::string& path, const PrintSettings& wished, int threshold)
    : m_path(path), m_source(openSource(path)), m_threshold(threshold) {
    if (!m_source.isJob()) {
        openFile();
    } else {
        openJob();
    }
    take(wished);
    // the screen of a profile is the printer's; that of the file is the job's own
    m_job.printerWidth = wished.has("resolution_x") ? static_cast<std::uint32_t>(wished.number("resolution_x")) : 0;
    m_job.printerHeight = wished.has("resolution_y") ? static_cast<std::uint32_t>(wished.number("resolution_y")) : 0;
    if (m_job.printerWidth == 0) m_job.printerWidth = m_job.width;
    if (m_job.printerHeight == 0) m_job.printerHeight = m_job.height;
    assumeTheRest();
}

void CheckSource::openFile() {
    const SliceFile& file = *m_source.file;
    const SliceInfo& info = file.info();
    SliceHeadState state;
    SliceResult result = file.headState(state);
    if (!result.isOk()) fail(result);
    if (!state.isWhole) fail({SliceCode::damaged, 0, -1, state.offset, state.text});
    m_job = checkJobOf(file);
    m_layerCount = static_cast<int>(info.layers);
    if (!(info.pixelXUm > 0)) m_job.pixelXUm = 0;
    if (!(info.pixelYUm > 0)) m_job.pixelYUm = 0;
    if (info.layerKind == SliceLayers::mesh) {
        m_notes.push_back(m_path + ": its layers are meshes, which are checked for empty ones only");
    }
}

void CheckSource::openJob() {
    m_layerCount = m_source.layerCount;
    m_job.width = static_cast<std::uint32_t>(m_source.width);
    m_job.height = static_cast<std::uint32_t>(m_source.height);
    m_job.pixelXUm = 0;
    m_job.pixelYUm = 0;
    take(m_source.settings);
}

void CheckSource::take(const PrintSettings& s) {
    const auto number = [&s](const char* key, double& value) {
        if (s.has(key)) value = s.number(key);
    };
    if (s.has("display_width_mm")) m_job.pixelXUm = s.number("display_width_mm") * 1000 / m_job.width;
    if (s.has("display_height_mm")) m_job.pixelYUm = s.number("display_height_mm") * 1000 / m_job.height;
    number("layer_height_mm", m_job.layerHeightMm);
    number("machine_height_mm", m_job.machineHeightMm);
    number("exposure_s", m_job.exposureS);
    number("bottom_exposure_s", m_job.bottomExposureS);
    number("pwm", m_job.lightPower);
    number("bottom_pwm", m_job.bottomLightPower);
    if (s.has("bottom_layers")) m_job.bottomLayers = std::llround(s.number("bottom_layers"));
}

void CheckSource::assumeTheRest() {
    if (!(m_job.pixelXUm > 0) || !(m_job.pixelYUm > 0)) {
        m_notes.push_back(m_path + ": the size of the screen is not known, pixels are taken for " +
                          shortNumber(kAssumedPixelUm / 1000) + " mm");
        if (!(m_job.pixelXUm > 0)) m_job.pixelXUm = kAssumedPixelUm;
        if (!(m_job.pixelYUm > 0)) m_job.pixelYUm = kAssumedPixelUm;
    }
    if (m_job.layerHeightMm < 0) {
        m_job.layerHeightMm = kAssumedLayerHeightMm;
        m_notes.push_back(m_path + ": the layer height is not known and taken for " +
                          shortNumber(kAssumedLayerHeightMm) + " mm");
    }
}

void CheckSource::fail(const SliceResult& result) const { throw Failure(describeResult(m_path, result)); }

SourceLayer CheckSource::readLayer(int index, GreyImage& scratch) const {
    SourceLayer read{CheckLayer(m_job), 0};
    if (!m_source.isJob()) {
        const SliceResult result = readCheckLayer(*m_source.file, m_job, static_cast<std::uint32_t>(index), m_threshold,
                                                  read.layer, read.areaMm2);
        if (!result.isOk()) fail(result);
        return read;
    }
    std::vector<LitRun> runs;
    if (m_source.kind != SliceLayers::images) {
        runs = litRunsOfPolylines(polylinesOf(m_source.readShapes(index)), m_job.width, m_job.height, m_job.pixelXUm,
                                  m_job.pixelYUm);
    } else {
        m_source.readLayer(index, scratch);
        runs = litRunsOf(scratch, m_threshold);
    }
    read.layer.append(runs.data(), runs.size());
    read.layer.close();
    return read;
}

void CheckSource::addLayer(int index, SourceLayer& layer, JobCheck& check) const {
    const double litMm2 = static_cast<double>(layer.layer.litPixels()) * m_job.pixelXUm * m_job.pixelYUm / 1e6;
    check.addLayer(layer.layer);
    if (!m_source.isJob())
        compareAreas(*m_source.file, static_cast<std::uint32_t>(index), layer.areaMm2, litMm2, check);
}

void CheckSource::paintLayer(int index, GreyImage& out) const {
    if (m_source.isJob() && m_source.kind == SliceLayers::images) {
        m_source.readLayer(index, out);
        removePadding(out);
        return;
    }
    out = blackImage(m_job);
    if (!m_source.isJob() && m_source.file->info().layerKind == SliceLayers::images) {
        const SliceResult result =
            m_source.file->layerPixels(static_cast<std::uint32_t>(index), out.pixels.data(), 0, out.pixels.size());
        if (!result.isOk()) fail(result);
        return;
    }
    GreyImage scratch;
    for (const LitRun& run : readLayer(index, scratch).layer.litRuns()) {
        unsigned char* const row = out.pixels.data() + std::size_t{run.line} * out.stride();
        std::fill(row + run.first, row + run.last + 1, static_cast<unsigned char>(255));
    }
}

}  // namespace vndlp::tools
