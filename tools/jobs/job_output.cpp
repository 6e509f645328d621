#include "tools/jobs/job_output.h"

#include "tools/jobs/job_settings.h"

#include <cmath>
#include <cstdio>

namespace vndlp::tools {

namespace {

/// Lines "key = value" of the settings that are there.
class Lines {
public:
    explicit Lines(const PrintSettings& settings) : m_settings(settings) {}

    void add(const std::string& name, const std::string& value) { m_text += name + " = " + value + "\n"; }
    void addSetting(const std::string& name, const char* key) {
        if (!m_settings.has(key)) return;
        const std::string text = m_settings.text(key);
        if (text.find_first_of("\r\n") == std::string::npos && !text.empty()) add(name, text);
    }
    const std::string& text() const { return m_text; }

private:
    const PrintSettings& m_settings;
    std::string m_text;
};

/// The slicer's number of fading layers that gives this number of bottom layers back.
int fadeLayersOf(int bottomLayers) { return bottomLayers > 0 ? 2 * bottomLayers - 1 : 0; }

std::string configText(const JobToWrite& job) {
    const PrintSettings& s = job.settings;
    Lines lines(s);
    lines.add("action", "print");
    lines.addSetting("expTime", "exposure_s");
    lines.addSetting("expTimeFirst", "bottom_exposure_s");
    lines.add("jobDir", job.name);
    lines.addSetting("layerHeight", "layer_height_mm");
    lines.addSetting("materialName", "resin");
    if (s.has("bottom_layers")) {
        lines.add("numFade", std::to_string(fadeLayersOf(static_cast<int>(std::lround(s.number("bottom_layers"))))));
    }
    lines.add("numFast", std::to_string(job.layerCount));
    lines.add("numSlow", "0");
    lines.addSetting("printTime", "print_time_s");
    lines.addSetting("printerModel", "machine");
    lines.addSetting("usedMaterial", "resin_ml");
    return lines.text();
}

std::string printerText(const JobToWrite& job) {
    const PrintSettings& s = job.settings;
    Lines lines(s);
    lines.addSetting("display_height", "display_height_mm");
    lines.add("display_mirror_x", "0");
    lines.add("display_mirror_y", "0");
    lines.add("display_orientation", "landscape");
    lines.add("display_pixels_x", std::to_string(job.width));
    lines.add("display_pixels_y", std::to_string(job.height));
    lines.addSetting("display_width", "display_width_mm");
    const double ml = s.numberOr("resin_ml", 0);
    if (ml > 0 && s.has("resin_g")) lines.add("material_density", shortNumber(s.number("resin_g") / ml, 9));
    lines.addSetting("max_print_height", "machine_height_mm");
    return lines.text();
}

/// What the two files say when they are read again.
std::map<std::string, std::string> readAgain(const JobToWrite& job, const std::string& config,
                                             const std::string& printer) {
    Source source;
    source.path = job.name;
    try {
        takeJobSettings(parseJobSettings(job.name, config, printer), source);
    } catch (const std::exception&) {
        return {};  // a value beyond what these files take: everything stands in the third
    }
    std::map<std::string, std::string> values;
    for (const auto& [key, value] : source.settings.values()) values[key] = value.text;
    return values;
}

}  // namespace

void writeJobHead(const JobToWrite& job, ZipOutput& zip) {
    const std::string config = configText(job);
    const std::string printer = printerText(job);
    const std::map<std::string, std::string> said = readAgain(job, config, printer);
    HeldSettings others;
    others.layers = job.layerSettings;
    for (const auto& [key, value] : job.settings.values()) {
        const auto found = said.find(key);
        const bool isSaid = found != said.end() && found->second == value.text;
        if (!isSaid && key != "resolution_x" && key != "resolution_y") others.file[key] = value.text;
    }
    zip.add(kConfigName, config);
    zip.add(kPrinterConfigName, printer);
    zip.add(kArchiveSettingsName, settingsText(others));
    for (const ColourImage& picture : job.pictures) {
        zip.add("thumbnail/thumbnail" + std::to_string(picture.width) + "x" + std::to_string(picture.height) + ".png",
                encodePng(picture));
    }
}

std::string jobLayerName(const JobToWrite& job, int index) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%05d.png", index);
    return job.name + digits;
}

}  // namespace vndlp::tools
