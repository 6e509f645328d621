#include "tools/drawings/svg.h"

#include "tools/base/failure.h"

#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string_view>

namespace vndlp::tools {

namespace {

constexpr int kDeepestGroup = 100;
constexpr double kUmPerPixel = 25400.0 / 96;
constexpr std::string_view kSpace = " \t\r\n\f";

struct Unit {
    std::string_view name;
    double um;
};
constexpr Unit kPhysicalUnits[] = {
    {"mm", 1000}, {"cm", 10000}, {"in", 25400}, {"pt", 25400.0 / 72}, {"pc", 25400.0 / 6}, {"Q", 250},
};

/// Elements that draw nothing by themselves.
constexpr std::string_view kPassedOver[] = {"defs",           "title",          "desc",    "metadata", "style",
                                            "symbol",         "clipPath",       "marker",  "script",   "mask",
                                            "linearGradient", "radialGradient", "pattern", "filter",   "view"};

/// Numbers separated by spaces or a comma, as SVG writes them.
class NumberReader {
public:
    explicit NumberReader(std::string_view text) : m_text(text) {}

    void skipSpace() { m_text.remove_prefix(std::min(m_text.find_first_not_of(kSpace), m_text.size())); }
    bool atEnd() {
        skipSpace();
        return m_text.empty();
    }
    /// The next character, which must be there.
    char peek() const { return m_text.front(); }
    void skipOne() { m_text.remove_prefix(1); }
    void skipSeparator() {
        skipSpace();
        if (!m_text.empty() && m_text.front() == ',') m_text.remove_prefix(1);
    }

    std::optional<double> next() {
        skipSpace();
        std::string_view digits = m_text;
        if (digits.starts_with('+')) digits.remove_prefix(1);
        // "inf" and "nan" are no numbers here
        if (digits.empty() || digits.find_first_not_of("0123456789.-") == 0) return std::nullopt;
        double value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (error != std::errc() || !std::isfinite(value)) return std::nullopt;
        m_text.remove_prefix(static_cast<std::size_t>(end - m_text.data()));
        return value;
    }
    std::string_view rest() const { return m_text; }

private:
    std::string_view m_text;
};

struct Length {
    double value = 0;
    double um = 0;  ///< micrometres of one unit; 0 when the unit is none of a ruler's
};

std::optional<Length> parseLength(std::string_view text) {
    NumberReader numbers(text);
    const std::optional<double> value = numbers.next();
    if (!value || !(*value > 0)) return std::nullopt;
    std::string_view unit = numbers.rest();
    unit = unit.substr(0, unit.find_last_not_of(kSpace) + 1);
    if (unit == "%") return std::nullopt;
    for (const Unit& row : kPhysicalUnits) {
        if (unit == row.name) return Length{*value, row.um};
    }
    if (unit.empty() || unit == "px") return Length{*value, 0};
    return std::nullopt;
}

class SvgReader {
public:
    explicit SvgReader(const std::string& name) : m_name(name) {}

    SvgDrawing read(std::span<const unsigned char> bytes) {
        pugi::xml_document document;
        const pugi::xml_parse_result result =
            document.load_buffer(bytes.data(), bytes.size(), pugi::parse_default, pugi::encoding_auto);
        if (!result) {
            throw Failure(m_name + ": no SVG: " + result.description() + " at offset " + std::to_string(result.offset));
        }
        const pugi::xml_node root = document.document_element();
        if (elementName(root) != "svg") throw Failure(m_name + ": no SVG: the document is not an <svg>");
        readFrame(root);
        refuseTransform(root);
        readChildren(root, false, 0);
        return std::move(m_drawing);
    }

private:
    [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
        // the parser's offset lies behind the '<'
        throw Failure(m_name + ": <" + printable(node.name()) + "> at offset " +
                      std::to_string(node.offset_debug() - 1) + ": " + what);
    }

    /// Without the prefix of SVG itself; elements of other vocabularies keep theirs.
    static std::string_view elementName(const pugi::xml_node& node) {
        std::string_view name = node.name();
        if (name.starts_with("svg:")) name.remove_prefix(4);
        return name;
    }

    /// Where the drawing lies in its own units, and how long one is.
    void readFrame(const pugi::xml_node& root) {
        const std::optional<Length> width = parseLength(root.attribute("width").value());
        const std::optional<Length> height = parseLength(root.attribute("height").value());
        const pugi::xml_attribute viewBox = root.attribute("viewBox");
        double boxWidth = 0;
        double boxHeight = 0;
        if (viewBox) {
            NumberReader numbers(viewBox.value());
            for (double* value : {&m_left, &m_top, &boxWidth, &boxHeight}) {
                const std::optional<double> number = numbers.next();
                if (!number) fail(root, "its viewBox is not four numbers");
                *value = *number;
                numbers.skipSeparator();
            }
            if (!numbers.atEnd() || boxWidth <= 0 || boxHeight <= 0) fail(root, "its viewBox is not four numbers");
        } else if (width && height) {
            boxWidth = width->um > 0 ? width->value * width->um / kUmPerPixel : width->value;
            boxHeight = height->um > 0 ? height->value * height->um / kUmPerPixel : height->value;
        } else {
            fail(root, "it has neither a viewBox nor a size");
        }
        m_bottom = m_top + boxHeight;
        if (width && width->um > 0) {
            m_umPerUnit = width->value * width->um / boxWidth;
            m_drawing.hasSize = true;
            if (height && height->um > 0) {
                const double umPerUnit = height->value * height->um / boxHeight;
                if (std::fabs(umPerUnit / m_umPerUnit - 1) > 0.001) {
                    fail(root, "its size and its viewBox have different proportions");
                }
            }
        }
        m_drawing.widthUm = boxWidth * m_umPerUnit;
        m_drawing.heightUm = boxHeight * m_umPerUnit;
    }

    static bool isHidden(const pugi::xml_node& node) {
        if (node.attribute("display").value() == std::string_view("none")) return true;
        std::string style = node.attribute("style").value();
        std::erase(style, ' ');
        return style.find("display:none") != std::string::npos;
    }

    static bool turnsOver(const pugi::xml_node& node) {
        std::string transform = node.attribute("transform").value();
        std::replace(transform.begin(), transform.end(), ',', ' ');
        NumberReader text(transform);
        text.skipSpace();
        if (!text.rest().starts_with("scale(")) return false;
        NumberReader numbers(text.rest().substr(6));
        const std::optional<double> x = numbers.next();
        const std::optional<double> y = numbers.next();
        numbers.skipSpace();
        const std::string_view end = numbers.rest();
        return x == 1.0 && y == -1.0 && end.starts_with(')') &&
               end.find_first_not_of(kSpace, 1) == std::string_view::npos;
    }

    void refuseTransform(const pugi::xml_node& node) const {
        std::string_view transform = node.attribute("transform").value();
        const std::string_view style = node.attribute("style").value();
        const std::size_t inStyle = style.find("transform:");
        // "text-transform:" moves nothing
        const bool moves = inStyle != std::string_view::npos && (inStyle == 0 || style[inStyle - 1] != '-');
        if (transform.find_first_not_of(kSpace) == std::string_view::npos && !moves) return;
        fail(node, "it is moved or turned by transform=\"" + printable(transform.empty() ? style : transform) +
                       "\"; apply transforms to the coordinates before saving");
    }

    void readChildren(const pugi::xml_node& parent, bool isTurnedOver, int depth) {
        if (depth > kDeepestGroup) fail(parent, "groups lie too deep in each other");
        for (const pugi::xml_node& node : parent.children()) {
            if (node.type() != pugi::node_element) continue;
            const std::string_view element = elementName(node);
            const bool isForeign = element.find(':') != std::string_view::npos;
            const bool draws =
                std::find(std::begin(kPassedOver), std::end(kPassedOver), element) == std::end(kPassedOver);
            if (isForeign || !draws || isHidden(node)) continue;
            if (element == "g" || element == "a") {
                const bool turns = !isTurnedOver && turnsOver(node);
                if (!turns) refuseTransform(node);
                readChildren(node, isTurnedOver || turns, depth + 1);
                continue;
            }
            refuseTransform(node);
            m_isTurnedOver = isTurnedOver;
            if (element == "path") {
                readPath(node);
            } else if (element == "polyline" || element == "polygon") {
                readPoints(node, element == "polygon");
            } else {
                fail(node, "this shape is not supported; convert it to a path of straight lines");
            }
        }
    }

    void readPoints(const pugi::xml_node& node, bool isPolygon) {
        NumberReader numbers(node.attribute("points").value());
        Polyline polyline;
        while (!numbers.atEnd()) {
            const std::optional<double> x = numbers.next();
            numbers.skipSeparator();
            const std::optional<double> y = numbers.next();
            numbers.skipSeparator();
            if (!x || !y) fail(node, "its points are not pairs of numbers");
            polyline.push_back(place(node, *x, *y));
        }
        finish(polyline, isPolygon);
    }

    void readPath(const pugi::xml_node& node) {
        NumberReader text(node.attribute("d").value());
        Polyline polyline;
        char command = 0;
        bool hasBegun = false;
        double x = 0;
        double y = 0;
        double startX = 0;
        double startY = 0;
        const auto number = [&] {
            const std::optional<double> value = text.next();
            if (!value) fail(node, std::string("a number is missing behind ") + command);
            text.skipSeparator();
            return *value;
        };
        const auto closeSubpath = [&] {
            finish(polyline, true);
            x = startX;
            y = startY;
        };
        while (!text.atEnd()) {
            const char next = text.peek();
            if ((next >= 'A' && next <= 'Z') || (next >= 'a' && next <= 'z')) {
                command = next;
                text.skipOne();
                if (command == 'Z' || command == 'z') {
                    closeSubpath();
                    continue;
                }
                if (std::string_view("MmLlHhVv").find(command) == std::string_view::npos) {
                    fail(node, std::string("command ") + command +
                                   " draws a curve or is unknown; flatten curves to straight lines");
                }
            } else if (command == 'M' || command == 'm') {
                // further points of a moveto are lines
                command = command == 'M' ? 'L' : 'l';
            } else if (command == 'Z' || command == 'z') {
                fail(node, "a number stands behind Z");
            }
            if (!hasBegun && command != 'M' && command != 'm') fail(node, "its data does not begin with M");
            hasBegun = true;
            const bool isRelative = command >= 'a';
            const double fromX = isRelative ? x : 0;
            const double fromY = isRelative ? y : 0;
            if (command == 'H' || command == 'h') {
                x = fromX + number();
            } else if (command == 'V' || command == 'v') {
                y = fromY + number();
            } else {
                x = fromX + number();
                y = fromY + number();
            }
            if (command == 'M' || command == 'm') {
                finish(polyline, false);
                startX = x;
                startY = y;
            } else if (polyline.empty()) {
                // a line behind a closed subpath goes on from where that began
                polyline.push_back(place(node, startX, startY));
            }
            polyline.push_back(place(node, x, y));
        }
        finish(polyline, false);
    }

    /// A point of the drawing in micrometres from its lower left corner, y up.
    Vec3i place(const pugi::xml_node& node, double x, double y) const {
        const double umX = (m_isTurnedOver ? x : x - m_left) * m_umPerUnit;
        const double umY = (m_isTurnedOver ? y : m_bottom - y) * m_umPerUnit;
        constexpr double kFarthest = 2147483647;
        if (!(std::fabs(umX) <= kFarthest && std::fabs(umY) <= kFarthest)) {
            fail(node, "a point lies more than two kilometres away");
        }
        return {static_cast<int>(std::lround(umX)), static_cast<int>(std::lround(umY)), 0};
    }

    /// Takes over a polyline, if it is one, and empties it.
    void finish(Polyline& polyline, bool close) {
        const auto same = [](const Vec3i& a, const Vec3i& b) { return a.x == b.x && a.y == b.y; };
        if (close && polyline.size() > 2 && !same(polyline.front(), polyline.back())) {
            polyline.push_back(polyline.front());
        }
        if (polyline.size() > 1) m_drawing.polylines.push_back(polyline);
        polyline.clear();
    }

    std::string m_name;
    SvgDrawing m_drawing;
    double m_left = 0;
    double m_top = 0;
    double m_bottom = 0;
    double m_umPerUnit = 1;
    bool m_isTurnedOver = false;
};

}  // namespace

SvgDrawing readSvg(std::span<const unsigned char> bytes, const std::string& name) {
    return SvgReader(name).read(bytes);
}

}  // namespace vndlp::tools
