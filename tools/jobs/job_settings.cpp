#include "tools/jobs/job_settings.h"

#include "tools/base/failure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <locale>
#include <map>
#include <sstream>

namespace vndlp::tools {

namespace {

struct Value {
    std::string text;
    int line = 0;
};
using Values = std::map<std::string, Value, std::less<>>;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

Values parseLines(std::string_view text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    Values values;
    for (int line = 1; !text.empty(); ++line) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view content = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t equals = content.find('=');
        const bool isComment = content.starts_with('#') || content.starts_with(';');
        if (isComment || equals == std::string_view::npos) continue;
        values[std::string(trimmed(content.substr(0, equals)))] = {std::string(trimmed(content.substr(equals + 1))),
                                                                   line};
    }
    return values;
}

struct Range {
    double low;
    double high;
};

constexpr Range kSeconds{0, 1e6};
constexpr Range kSum{0, 1e9};  // of a whole print: seconds, millilitres
constexpr Range kLayerHeightMm{0.0001, 100};
constexpr Range kLengthMm{0.001, 1e5};
constexpr Range kFactor{0, 1000};
constexpr Range kCount{0, 1e9};
constexpr Range kPixels{1, 65535};

/// Takes values out of one of the files; as a function object it is the visitor of the two lists below.
class Assign {
public:
    Assign(std::string where, const std::optional<std::string>& text)
        : m_where(std::move(where)), m_values(parseLines(text.value_or(""))) {}

    void operator()(std::string_view key, std::optional<std::string>& out) const {
        if (const Value* value = find(key)) out = value->text;
    }
    void operator()(std::string_view key, std::optional<double>& out, Range range) const {
        if (const Value* value = find(key)) out = number<double>(key, *value, range);
    }
    void operator()(std::string_view key, std::optional<int>& out, Range range) const {
        if (const Value* value = find(key)) out = number<int>(key, *value, range);
    }
    void operator()(std::string_view key, std::optional<bool>& out) const {
        if (const Value* value = find(key)) out = number<int>(key, *value, {0, 1}) == 1;
    }
    void operator()(std::string_view key, std::optional<DisplayOrientation>& out) const {
        const Value* value = find(key);
        if (value == nullptr) return;
        if (value->text == "landscape")
            out = DisplayOrientation::kLandscape;
        else if (value->text == "portrait")
            out = DisplayOrientation::kPortrait;
        else
            fail(key, *value, "is neither landscape nor portrait");
    }

private:
    const Value* find(std::string_view key) const {
        const auto found = m_values.find(key);
        return found == m_values.end() || found->second.text.empty() ? nullptr : &found->second;
    }

    template <class Number>
    Number number(std::string_view key, const Value& value, Range range) const {
        constexpr bool isWhole = std::is_integral_v<Number>;
        std::istringstream stream(value.text);
        stream.imbue(std::locale::classic());
        Number result{};
        stream >> result;
        if (stream.fail() || stream.peek() != std::istringstream::traits_type::eof())
            fail(key, value, isWhole ? "is not a whole number" : "is not a number");
        if (result < range.low || result > range.high)
            fail(key, value, "is not within " + textOf(range.low) + " and " + textOf(range.high));
        return result;
    }

    static std::string textOf(double value) {
        std::ostringstream stream;
        stream.imbue(std::locale::classic());
        stream.precision(10);
        stream << value;
        return stream.str();
    }

    [[noreturn]] void fail(std::string_view key, const Value& value, const std::string& what) const {
        throw Failure(m_where + ", line " + std::to_string(value.line) + ": " + std::string(key) + " = " +
                      printable(value.text) + " " + what + "; mend the line or slice the model again");
    }

    std::string m_where;
    Values m_values;
};

template <class Visitor>
void visitConfig(JobSettings& s, Visitor&& visit) {
    visit("jobDir", s.jobDir);
    visit("layerHeight", s.layerHeightMm, kLayerHeightMm);
    visit("expTime", s.exposureSeconds, kSeconds);
    visit("expTimeFirst", s.firstExposureSeconds, kSeconds);
    visit("numFade", s.fadeLayers, kCount);
    visit("numSlow", s.slowLayers, kCount);
    visit("numFast", s.fastLayers, kCount);
    visit("usedMaterial", s.usedMaterialMl, kSum);
    visit("printTime", s.printTimeSeconds, kSum);
    visit("materialName", s.materialName);
    visit("printerModel", s.printerModel);
}

template <class Visitor>
void visitPrinterConfig(JobSettings& s, Visitor&& visit) {
    visit("display_pixels_x", s.displayPixelsX, kPixels);
    visit("display_pixels_y", s.displayPixelsY, kPixels);
    visit("display_width", s.displayWidthMm, kLengthMm);
    visit("display_height", s.displayHeightMm, kLengthMm);
    visit("display_orientation", s.displayOrientation);
    visit("display_mirror_x", s.displayMirrorX);
    visit("display_mirror_y", s.displayMirrorY);
    visit("initial_layer_height", s.initialLayerHeightMm, kLayerHeightMm);
    visit("gamma_correction", s.gammaCorrection, kFactor);
    visit("material_density", s.materialDensity, kFactor);
    visit("max_print_height", s.maxPrintHeightMm, kLengthMm);
}

/// Fills what config.ini does not give from the slicer's own settings, and says so.
void fillFromPrinterConfig(JobSettings& s, const Assign& assign) {
    const auto fill = [&](const char* missing, const char* key, auto& out, Range range) {
        if (out.has_value()) return;
        assign(key, out, range);
        if (out.has_value())
            s.assumptions.push_back(std::string(kConfigName) + " does not give " + missing + ": " + key + " of " +
                                    kPrinterConfigName + " is used.");
    };
    fill("layerHeight", "layer_height", s.layerHeightMm, kLayerHeightMm);
    fill("expTime", "exposure_time", s.exposureSeconds, kSeconds);
    fill("expTimeFirst", "initial_exposure_time", s.firstExposureSeconds, kSeconds);
    fill("numFade", "faded_layers", s.fadeLayers, kCount);
}

}  // namespace

JobSettings parseJobSettings(const std::string& jobPath, const std::optional<std::string>& config,
                             const std::optional<std::string>& printerConfig) {
    JobSettings settings;
    const Assign fromPrinterConfig(jobPath + ": " + kPrinterConfigName, printerConfig);
    visitConfig(settings, Assign(jobPath + ": " + kConfigName, config));
    visitPrinterConfig(settings, fromPrinterConfig);
    fillFromPrinterConfig(settings, fromPrinterConfig);
    return settings;
}

int bottomLayerCount(int fadeLayers) { return static_cast<int>(std::lround((fadeLayers + 1.0) / 2)); }

double exposureOfLayer(int layer, double seconds, double firstSeconds, int fadeLayers) {
    return std::max(seconds, firstSeconds - layer * (firstSeconds - seconds) / (fadeLayers + 1.0));
}

std::optional<double> exposureOfLayer(const JobSettings& settings, int layer) {
    if (!settings.exposureSeconds.has_value()) return std::nullopt;
    const double seconds = *settings.exposureSeconds;
    return exposureOfLayer(layer, seconds, settings.firstExposureSeconds.value_or(seconds),
                           settings.fadeLayers.value_or(0));
}

}  // namespace vndlp::tools
