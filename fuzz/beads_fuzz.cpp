// The bead field, built from any numbers and asked about any places.

#include "fuzz/choices.h"

#include <vndlp/calibration.h>

#include <algorithm>
#include <cmath>

namespace vndlp::fuzz {

namespace {

long long length(Choices& choices) {
    switch (choices.upTo(3)) {
        case 0: return choices.any<long long>();
        case 1: return choices.any<int>();
        default: return choices.any<std::uint16_t>();
    }
}

/// Whether a box is quickly looked through: few bands, or so many that only the beads are looked at. What lies between,
/// and what products that wrap make of far points, is walked triangle by triangle, seconds at a time; no box on a
/// printer's screen is that large.
bool isQuick(const VNDLPV4::LampBeadCal& field, double x0, double y0, double x1, double y1) {
    const double farthest = std::max({std::fabs(x0), std::fabs(y0), std::fabs(x1), std::fabs(y1)});
    if (farthest * std::fabs(static_cast<double>(field.m_scale)) > 4e18) return false;
    const double bands =
        (std::fabs(x1 - x0) + std::fabs(y1 - y0)) / std::fabs(static_cast<double>(field.mbeaddesc.cstep));
    return !(bands > 100 && bands < 1e5);
}

std::vector<float> shifts(Choices& choices) {
    std::vector<float> values(choices.upTo(3));
    for (float& value : values) value = choices.upTo(1) == 0 ? choices.any<float>() : 0.5F;
    return values;
}

void build(Choices& choices, VNDLPV4::LampBeadCal& field) {
    field.m_printBuild = choices.upTo(15) == 0;
    std::vector<unsigned> beads(choices.upTo(3));
    for (unsigned& count : beads) count = choices.upTo(6);
    const long long scale = length(choices);
    const long long extentX = length(choices);
    const long long extentY = length(choices);
    const unsigned pixelsX = choices.upTo(2000);
    const unsigned pixelsY = choices.upTo(2000);
    const unsigned columns = choices.upTo(6);
    const std::vector<float> offsetX = shifts(choices);
    const std::vector<float> offsetY = shifts(choices);
    const auto edges = static_cast<unsigned short>(choices.upTo(3) == 0 ? choices.upTo(20) : 6);
    const long long radius = length(choices);
    const unsigned step = choices.upTo(3) == 0 ? choices.any<unsigned>() : 120;
    field.initLampBeadCal(scale, extentX, extentY, pixelsX, pixelsY, columns, beads, offsetX, offsetY, edges, radius,
                          step, choices.upTo(360));
}

}  // namespace

void run(const Bytes& input) {
    Choices choices(input);
    // the tables of a field, whatever the numbers it is built of
    allowBytes(64 << 20);
    VNDLPV4::LampBeadCal field;
    build(choices, field);
    Bytes mask(field.m_maskBytes);
    for (int i = 0; i < 8 && choices.left() > 0; ++i) {
        const long long screen = std::max(1LL, static_cast<long long>(field.m_pixelsX) * field.m_pixelsY);
        const auto first = static_cast<unsigned>(choices.any<unsigned>() % screen);
        const unsigned pixels = choices.upTo(5000);
        const double rows = 1.0 + pixels / std::max(1.0, static_cast<double>(field.m_pixelsX));
        const auto width = static_cast<double>(field.m_extentX);
        if (!isQuick(field, 0, 0, width, rows * static_cast<double>(field.m_zoneH))) continue;
        field.getsubzonedata(first, first + pixels, mask);
    }
    unsigned count = 0;
    std::vector<unsigned> beads;
    const long long x0 = length(choices);
    const long long y0 = length(choices);
    const long long x1 = length(choices);
    const long long y1 = length(choices);
    if (isQuick(field, static_cast<double>(x0), static_cast<double>(y0), static_cast<double>(x1),
                static_cast<double>(y1))) {
        field.whereami(x0, y0, x1, y1, count, mask, false);
        field.reset();
        field.whereami(x0, y0, x1, y1, beads);
    }
    for (const unsigned bead : beads) require(bead < field.m_beadCount);
    field.getbeaddata(x0, y0);
    Bytes image(std::size_t{8} * 2000, 255);
    field.setParamandUse(choices.any<int>(), choices.any<int>(), choices.any<int>(), static_cast<int>(choices.upTo(40)),
                         choices.any<int>(), image.data(), image.size());
}

}  // namespace vndlp::fuzz
