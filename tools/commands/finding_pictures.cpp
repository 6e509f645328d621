#include "tools/commands/finding_pictures.h"

#include "tools/base/output_file.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>

namespace vndlp::tools {

namespace {

constexpr std::int64_t kMargin = 12;       // pixels of the layer around a finding
constexpr std::int64_t kMostSide = 1200;   // of a picture; larger crops are thinned out
constexpr std::int64_t kWishedSide = 360;  // smaller crops are enlarged

using Colour = std::array<unsigned char, 3>;
constexpr Colour kFound = {224, 32, 32};

/// A layer with its image, kept for the next findings of the same layer.
struct DrawnLayer {
    int index = -1;
    GreyImage image;
    std::optional<CheckLayer> layer;

    void read(const CheckSource& source, int wanted) {
        if (index == wanted) return;
        index = wanted;
        if (wanted < 0) return;
        GreyImage scratch;
        layer.emplace(std::move(source.readLayer(wanted, scratch).layer));
        source.paintLayer(wanted, image);
    }
    unsigned char grey(std::int64_t x, std::int64_t y) const {
        return index < 0 ? 0 : image.row(static_cast<int>(y))[x];
    }
};

/// What of a layer a picture shows, and how large.
struct Crop {
    std::int64_t x0, y0, width, height;
    std::int64_t step;   // pixels of the layer for one of the picture
    std::int64_t scale;  // pixels of the picture for one of the layer

    std::int64_t pictureWidth() const { return (width + step - 1) / step * scale; }
    std::int64_t pictureHeight() const { return (height + step - 1) / step * scale; }
};

Crop cropAround(const std::vector<LitRun>& runs, const CheckJob& job) {
    std::int64_t x0 = job.width;
    std::int64_t y0 = job.height;
    std::int64_t x1 = 0;
    std::int64_t y1 = 0;
    for (const LitRun& run : runs) {
        x0 = std::min<std::int64_t>(x0, job.linesAreColumns ? run.line : run.first);
        x1 = std::max<std::int64_t>(x1, job.linesAreColumns ? run.line : run.last);
        y0 = std::min<std::int64_t>(y0, job.linesAreColumns ? run.first : run.line);
        y1 = std::max<std::int64_t>(y1, job.linesAreColumns ? run.last : run.line);
    }
    x0 = std::max<std::int64_t>(x0 - kMargin, 0);
    y0 = std::max<std::int64_t>(y0 - kMargin, 0);
    const std::int64_t width = std::min<std::int64_t>(x1 + kMargin, job.width - 1) - x0 + 1;
    const std::int64_t height = std::min<std::int64_t>(y1 + kMargin, job.height - 1) - y0 + 1;
    const std::int64_t side = std::max(width, height);
    return {x0, y0, width, height, (side + kMostSide - 1) / kMostSide, std::max<std::int64_t>(kWishedSide / side, 1)};
}

ColourImage drawFinding(const Crop& crop, const DrawnLayer& below, const DrawnLayer& own,
                        const std::vector<LitRun>& runs, bool runsAreColumns) {
    ColourImage picture{static_cast<int>(crop.pictureWidth()), static_cast<int>(crop.pictureHeight()), {}};
    const auto width = static_cast<std::size_t>(picture.width);
    picture.pixels.assign(width * static_cast<std::size_t>(picture.height) * 4, 255);
    const auto paint = [&](std::int64_t x, std::int64_t y, const Colour& colour) {
        for (std::int64_t i = 0; i < crop.scale * crop.scale; ++i) {
            const auto row = static_cast<std::size_t>((y - crop.y0) / crop.step * crop.scale + i / crop.scale);
            const auto column = static_cast<std::size_t>((x - crop.x0) / crop.step * crop.scale + i % crop.scale);
            std::copy(colour.begin(), colour.end(),
                      picture.pixels.begin() + static_cast<std::ptrdiff_t>((row * width + column) * 4));
        }
    };
    for (std::int64_t y = crop.y0; y < crop.y0 + crop.height; y += crop.step) {
        for (std::int64_t x = crop.x0; x < crop.x0 + crop.width; x += crop.step) {
            // the layer before is dark, what stays of the layer itself bright
            const auto grey = static_cast<unsigned char>(std::max(own.grey(x, y) * 3 / 4, below.grey(x, y) * 3 / 8));
            paint(x, y, {grey, grey, grey});
        }
    }
    for (const LitRun& run : runs) {
        for (std::uint32_t i = run.first; i <= run.last; ++i) {
            paint(runsAreColumns ? run.line : i, runsAreColumns ? i : run.line, kFound);
        }
    }
    return picture;
}

}  // namespace

void drawFindings(const CheckSource& source, const JobCheck& check, const std::vector<CheckFinding>& findings,
                  const std::string& folder) {
    makeFolder(folder);
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < findings.size(); ++i) {
        if (findings[i].pixels > 0) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return findings[a].layer < findings[b].layer; });
    DrawnLayer below;
    DrawnLayer own;
    for (const std::size_t i : order) {
        const CheckFinding& finding = findings[i];
        const auto index = static_cast<int>(finding.layer);
        if (own.index == index - 1) std::swap(own, below);
        below.read(source, index - 1);
        own.read(source, index);
        const std::vector<LitRun> runs =
            check.runsOf(finding, index > 0 ? &*below.layer : nullptr, *own.layer, static_cast<std::uint32_t>(index));
        if (runs.empty()) continue;
        const std::vector<unsigned char> png =
            encodePng(drawFinding(cropAround(runs, source.job()), below, own, runs, source.job().linesAreColumns));
        char name[64];
        std::snprintf(name, sizeof name, "%04zu_%s_layer_%05d.png", i + 1, nameOf(finding.kind), index);
        writeWholeFile((std::filesystem::path(folder) / name).string(), png.data(), png.size(), true);
    }
}

}  // namespace vndlp::tools
