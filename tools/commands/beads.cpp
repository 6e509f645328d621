#include "tools/base/failure.h"
#include "tools/base/output_file.h"
#include "tools/base/terminal.h"
#include "tools/commands/command.h"
#include "tools/images/transform.h"
#include "tools/jobs/names.h"
#include "tools/jobs/source.h"

#include <vndlp/calibration.h>
#include <vndlp/v4.h>

#include <algorithm>
#include <cmath>

namespace vndlp::tools {

namespace {

constexpr int kPictureWidth = 1512;

/// The screen the bead field lies behind, pixels.
constexpr std::uint32_t kFieldWidth = 15120;
constexpr std::uint32_t kFieldHeight = 6230;

struct Colour {
    unsigned char red, green, blue;
};
constexpr Colour kLitBead{255, 160, 0};
constexpr Colour kLitOutline{255, 200, 80};
constexpr Colour kDarkOutline{90, 90, 110};

/// A picture of a layer's bead field: the layer in white, lit beads filled, all beads outlined.
class BeadPicture {
public:
    explicit BeadPicture(const GreyImage& layer) {
        ColourImage full;
        const int height =
            std::max(1, static_cast<int>(std::lround(static_cast<double>(kPictureWidth) * layer.height / layer.width)));
        full.width = layer.width;
        full.height = layer.height;
        full.pixels.resize(layer.pixels.size() * 4);
        for (std::size_t i = 0; i < layer.pixels.size(); ++i) {
            std::fill_n(full.pixels.begin() + static_cast<std::ptrdiff_t>(4 * i), 3, layer.pixels[i]);
            full.pixels[4 * i + 3] = 255;
        }
        m_picture = resizeColour(full, kPictureWidth, height);
        m_scale = static_cast<double>(kPictureWidth) / layer.width;
    }

    void draw(const std::vector<VNDLPV4::GeoPoint>& outline, bool lit) {
        if (lit) fill(outline);
        for (std::size_t i = 0; i < outline.size(); ++i) {
            line(outline[i], outline[(i + 1) % outline.size()], lit ? kLitOutline : kDarkOutline);
        }
    }

    const ColourImage& picture() const { return m_picture; }

private:
    double x(const VNDLPV4::GeoPoint& point) const { return static_cast<double>(point.first) * m_scale; }
    double y(const VNDLPV4::GeoPoint& point) const { return static_cast<double>(point.second) * m_scale; }

    void blend(int px, int py, const Colour& colour, int percent) {
        if (px < 0 || py < 0 || px >= m_picture.width || py >= m_picture.height) return;
        unsigned char* pixel =
            m_picture.pixels.data() + 4 * (static_cast<std::size_t>(py) * static_cast<std::size_t>(m_picture.width) +
                                           static_cast<std::size_t>(px));
        const unsigned char target[] = {colour.red, colour.green, colour.blue};
        for (int c = 0; c < 3; ++c) {
            pixel[c] = static_cast<unsigned char>((pixel[c] * (100 - percent) + target[c] * percent) / 100);
        }
    }

    /// Colours every pixel whose middle lies inside the outline (crossings of a ray to the right are counted).
    void fill(const std::vector<VNDLPV4::GeoPoint>& outline) {
        double left = 1e9, right = -1e9, top = 1e9, bottom = -1e9;
        for (const VNDLPV4::GeoPoint& point : outline) {
            left = std::min(left, x(point));
            right = std::max(right, x(point));
            top = std::min(top, y(point));
            bottom = std::max(bottom, y(point));
        }
        // a bead may be far larger than the picture of a small screen
        const int lastRow = std::min(static_cast<int>(bottom), m_picture.height - 1);
        const int lastColumn = std::min(static_cast<int>(right), m_picture.width - 1);
        for (int py = std::max(static_cast<int>(top), 0); py <= lastRow; ++py) {
            for (int px = std::max(static_cast<int>(left), 0); px <= lastColumn; ++px) {
                if (isInside(outline, px + 0.5, py + 0.5)) blend(px, py, kLitBead, 45);
            }
        }
    }

    bool isInside(const std::vector<VNDLPV4::GeoPoint>& outline, double px, double py) const {
        bool inside = false;
        for (std::size_t i = 0, j = outline.size() - 1; i < outline.size(); j = i++) {
            const bool crosses = (y(outline[i]) > py) != (y(outline[j]) > py);
            if (crosses &&
                px < (x(outline[j]) - x(outline[i])) * (py - y(outline[i])) / (y(outline[j]) - y(outline[i])) +
                         x(outline[i])) {
                inside = !inside;
            }
        }
        return inside;
    }

    void line(const VNDLPV4::GeoPoint& from, const VNDLPV4::GeoPoint& to, const Colour& colour) {
        const double dx = x(to) - x(from);
        const double dy = y(to) - y(from);
        const int steps = std::max(1, static_cast<int>(std::max(std::abs(dx), std::abs(dy))));
        for (int i = 0; i <= steps; ++i) {
            blend(static_cast<int>(x(from) + dx * i / steps), static_cast<int>(y(from) + dy * i / steps), colour, 80);
        }
    }

    ColourImage m_picture;
    double m_scale = 1;
};

struct BeadsOptions {
    std::string file;
    std::optional<long long> layer;
    std::string output;
    bool force = false;
};

int beads(const BeadsOptions& options) {
    const SliceFile file = openSlices(options.file);
    const SliceInfo& info = file.info();
    if (info.format != SliceFormat::vndlpv4) {
        throw Failure(options.file + ": not a V4 file; only those have bead masks");
    }
    const auto index = static_cast<std::uint32_t>(options.layer.value_or(0));
    if (index >= info.layers) {
        throw UsageFailure(options.file + ": has no layer " + std::to_string(index) + ", its layers are 0 to " +
                           std::to_string(static_cast<long long>(info.layers) - 1));
    }
    VNDLPV4::LampBeadCal field;
    field.m_printBuild = false;
    VNDLPV4::initPrinterBeadField(field);
    std::vector<unsigned char> mask;
    require(options.file, file.layerBeads(index, mask));
    const bool stored = !mask.empty();
    if (!stored) {
        SliceLayerData data;
        require(options.file, file.layerData(index, data));
        mask = VNDLPV4::LayerDef::beadMaskOfCode(data.bytes, info.width, field);
    }
    GreyImage layer{static_cast<int>(info.width), static_cast<int>(info.height), {}};
    if (std::int64_t{info.width} * info.height > kMaxGreyPixels) {
        throw Failure(options.file + ": its screen is too large for a picture");
    }
    layer.pixels.resize(static_cast<std::size_t>(info.width) * info.height);
    require(options.file, file.layerPixels(index, layer.pixels.data(), 0, layer.pixels.size()));
    if (info.width != kFieldWidth || info.height != kFieldHeight) {
        printNote(options.file + ": the bead field lies behind a screen of " + std::to_string(kFieldWidth) + " x " +
                  std::to_string(kFieldHeight) + " pixels, not behind this one of " + std::to_string(info.width) +
                  " x " + std::to_string(info.height));
    }
    BeadPicture picture(layer);
    const std::vector<std::vector<VNDLPV4::GeoPoint>> outlines = field.getLampMask();
    std::size_t lit = 0;
    // unlit beads first, so that they do not cut into the lit ones' outlines
    for (const bool wanted : {false, true}) {
        for (std::size_t bead = 0; bead < outlines.size(); ++bead) {
            const bool on = bead < mask.size() * 8 && field.mgetBit(mask, static_cast<unsigned>(bead));
            if (on != wanted) continue;
            picture.draw(outlines[bead], on);
            if (on) ++lit;
        }
    }
    const std::vector<unsigned char> png = encodePng(picture.picture());
    writeWholeFile(options.output, png.data(), png.size(), options.force);
    printRemark(printable(options.output) + ": layer " + std::to_string(index) + ", " + std::to_string(lit) + " of " +
                std::to_string(outlines.size()) + " beads lit, mask " +
                (stored ? "as stored in the file" : "worked out from the layer (the file has none)") + "\n");
    return kSuccess;
}

class Beads : public Command {
public:
    void describe(Syntax& syntax) override {
        constexpr long long kLastLayer = 65534;
        syntax.word("FILE", m_options.file, "V4 slice file");
        syntax.whole("--layer", m_options.layer, 0, kLastLayer, "layer, from 0");
        syntax.require("--layer");
        syntax.text("-o,--output", m_options.output, "PNG to write");
        syntax.require("--output");
        syntax.flag("-f,--force", m_options.force, "replace an existing PNG");
        syntax.footer("Example:\n  vndlp beads tower.vndlpv4 --layer 50 -o mask.png");
    }
    int run() override {
        if (!endsWithIgnoringCase(m_options.output, ".png")) {
            throw UsageFailure(m_options.output + ": is written as PNG; its name must end in .png");
        }
        return beads(m_options);
    }

private:
    BeadsOptions m_options;
};

}  // namespace

std::unique_ptr<Command> makeBeads() { return std::make_unique<Beads>(); }

}  // namespace vndlp::tools
