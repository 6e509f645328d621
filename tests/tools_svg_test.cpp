// Drawings: what is written, what is read, what is refused.

#include "support/png.h"
#include "tools/drawings/svg.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace vndlp::tools {
namespace {

using Points = std::vector<std::vector<std::pair<int, int>>>;

Points pointsOf(const Polylines& polylines) {
    Points all;
    for (const Polyline& polyline : polylines) {
        all.emplace_back();
        for (const Vec3i& p : polyline) all.back().emplace_back(p.x, p.y);
    }
    return all;
}

SvgDrawing read(const std::string& text) {
    return readSvg({reinterpret_cast<const unsigned char*>(text.data()), text.size()}, "a.svg");
}

/// A drawing of 2 x 1 mm whose units are micrometres.
SvgDrawing readShapes(const std::string& shapes) {
    return read("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"2mm\" height=\"1mm\" viewBox=\"0 0 2000 1000\">" +
                shapes + "</svg>");
}

std::string failureOfShapes(const std::string& shapes) {
    return test::failureOf([&] { readShapes(shapes); });
}

Polylines samplePolylines() {
    return {{{0, 0, 0}, {900, 0, 0}, {900, 900, 0}, {0, 0, 0}},
            {{500, 200, 0}, {400, 100, 0}, {600, 100, 0}, {500, 200, 0}},
            {{-5, 7, 0}, {10, 20, 0}}};
}

TEST(SvgWrite, ADrawingHoldsTheFilesNumbers) {
    EXPECT_EQ(svgOf(shapesOf(samplePolylines()), {{0, 0, 2000, 1000}, true}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"2mm\" height=\"1mm\" viewBox=\"0 -1000 2000 1000\">\n"
              "<g transform=\"scale(1 -1)\">\n"
              "<path fill=\"#5b7fa6\" fill-rule=\"evenodd\" d=\"M0 0 L900 0 L900 900 Z\n"
              "M500 200 L400 100 L600 100 Z\n"
              "\"/>\n"
              "<path fill=\"none\" stroke=\"#a63d40\" stroke-width=\"2\" d=\"M-5 7 L10 20\n"
              "\"/>\n"
              "</g>\n</svg>\n");
}

TEST(SvgWrite, WhatIsWrittenIsReadBack) {
    for (const bool isMicrometres : {true, false}) {
        for (const Box& box : {Box{0, 0, 2000, 1000}, {-700, -300, 900, 900}}) {
            EXPECT_EQ(pointsOf(read(svgOf(shapesOf(samplePolylines()), {box, isMicrometres})).polylines),
                      pointsOf(samplePolylines()));
        }
    }
}

TEST(SvgRead, ShapesBecomePolylinesWithYUp) {
    EXPECT_EQ(pointsOf(readShapes("<polygon points='0,0 100,0 100,50'/>").polylines),
              (Points{{{0, 1000}, {100, 1000}, {100, 950}, {0, 1000}}}));
    EXPECT_EQ(pointsOf(readShapes("<!-- c --><g><polyline points='1 2\n3,4'/></g>").polylines),
              (Points{{{1, 998}, {3, 996}}}));
    EXPECT_EQ(pointsOf(readShapes("<path d='M10 0H20V30L.5e1-1.5Z'/>").polylines),
              (Points{{{10, 1000}, {20, 1000}, {20, 970}, {5, 1002}, {10, 1000}}}));
    // relative commands, repeated ones, points behind a moveto, a line behind Z
    EXPECT_EQ(pointsOf(readShapes("<path d='m10,10 5,0 0,5zl1-1m100 0h1 1v2'/>").polylines),
              (Points{{{10, 990}, {15, 990}, {15, 985}, {10, 990}},
                      {{10, 990}, {11, 991}},
                      {{111, 991}, {112, 991}, {113, 991}, {113, 989}}}));
    // one point draws nothing, two points that are closed are a line
    EXPECT_EQ(pointsOf(readShapes("<path d='M1 1M2 2ZM3 3L4 4Z'/>").polylines), (Points{{{3, 997}, {4, 996}}}));
}

TEST(SvgRead, SizesGiveTheUnit) {
    const std::pair<const char*, double> cases[] = {
        {"width='1cm' viewBox='0 0 100 100'", 100}, {"width='1in' height='1in' viewBox='0 0 1 1'", 25400},
        {"width='96px' height='96px'", 1},          {"width='25.4mm' height='25.4mm'", 25400.0 / 96},
        {"width='100%' viewBox='0 0 10 10'", 1},    {"viewBox='0,0,10,10'", 1}};
    for (const auto& [size, unit] : cases) {
        const SvgDrawing drawing = read(std::string("<svg ") + size + "><polyline points='0 0 1 0'/></svg>");
        EXPECT_NEAR(drawing.polylines.at(0).at(1).x, unit, 0.5) << size;
        EXPECT_EQ(drawing.hasSize, unit != 1) << size;
    }
    // the lower left corner of the viewBox is the origin
    const SvgDrawing drawing = read("<svg viewBox='100 200 30 40'><polyline points='100 240 130 200'/></svg>");
    EXPECT_EQ(pointsOf(drawing.polylines), (Points{{{0, 0}, {30, 40}}}));
    EXPECT_EQ(drawing.heightUm, 40);
}

TEST(SvgRead, WhatIsNotShownIsPassedOver) {
    EXPECT_TRUE(readShapes("<defs><circle r='1'/></defs><title>t</title><metadata><x/></metadata>"
                           "<sodipodi:namedview><rect/></sodipodi:namedview><g display='none'><rect/></g>"
                           "<path style='fill:red; display: none' d='C'/>text")
                    .polylines.empty());
    EXPECT_EQ(readShapes("<svg:path style='text-transform:none' d='M0 0 1 1'/>").polylines.size(), 1U);
}

TEST(SvgRead, RefusalsSayWhyAndWhere) {
    const std::string notSupported = "this shape is not supported; convert it to a path of straight lines";
    const std::string curve = " draws a curve or is unknown; flatten curves to straight lines";
    const std::string moved = "it is moved or turned by transform=\"";
    const std::string mend = "\"; apply transforms to the coordinates before saving";
    const std::pair<const char*, std::string> cases[] = {
        {"<circle r='1'/>", "<circle> at offset 89: " + notSupported},
        {"<g><text/></g>", "<text> at offset 92: " + notSupported},
        {"<path d='M0 0C1 1 2 2 3 3'/>", "<path> at offset 89: command C" + curve},
        {"<path d='M0 0A1 1 0 0 0 5 5'/>", "<path> at offset 89: command A" + curve},
        {"<path d='L0 0'/>", "<path> at offset 89: its data does not begin with M"},
        {"<path d='1 2'/>", "<path> at offset 89: its data does not begin with M"},
        {"<path d='M0'/>", "<path> at offset 89: a number is missing behind M"},
        {"<path d='M0 nan'/>", "<path> at offset 89: a number is missing behind M"},
        {"<path d='M0 0 1 1 Z 5'/>", "<path> at offset 89: a number stands behind Z"},
        {"<polygon points='1 2 3'/>", "<polygon> at offset 89: its points are not pairs of numbers"},
        {"<polygon points='inf 0'/>", "<polygon> at offset 89: its points are not pairs of numbers"},
        {"<polygon points='3e9 0'/>", "<polygon> at offset 89: a point lies more than two kilometres away"},
        {"<g transform='translate(1 2)'/>", "<g> at offset 89: " + moved + "translate(1 2)" + mend},
        {"<g transform='scale(1 -1) '><g transform='scale(1,-1)'/></g>",
         "<g> at offset 117: " + moved + "scale(1,-1)" + mend},
        {"<path style='transform:scale(2)' d='M0 0'/>", "<path> at offset 89: " + moved + "transform:scale(2)" + mend},
    };
    for (const auto& [shapes, message] : cases) EXPECT_EQ(failureOfShapes(shapes), "a.svg: " + message) << shapes;
    std::string deep;
    for (int i = 0; i < 200; ++i) deep += "<g>";
    for (int i = 0; i < 200; ++i) deep += "</g>";
    EXPECT_NE(failureOfShapes(deep).find("groups lie too deep in each other"), std::string::npos);
    for (const char* text :
         {"", "no xml", "<svg", "<html/>", "<svg/>", "<svg viewBox='0 0 1'/>", "<svg viewBox='0 0 0 5'/>",
          "<svg viewBox='0 0 1 1' transform='rotate(1)'/>", "<svg width='1mm' height='2mm' viewBox='0 0 1 1'/>"}) {
        EXPECT_THROW(read(text), Failure) << text;
    }
}

}  // namespace
}  // namespace vndlp::tools
