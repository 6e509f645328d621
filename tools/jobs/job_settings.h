/// What a job says about itself beside its layers, and the rules that follow from it.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vndlp::tools {

enum class DisplayOrientation { kLandscape, kPortrait };

/// The values of a job's two .ini files; what they do not tell is empty.
struct JobSettings {
    // config.ini
    std::optional<std::string> jobDir;           ///< name of the job, what its layers' names begin with
    std::optional<double> layerHeightMm;         ///< else layer_height of the other file
    std::optional<double> exposureSeconds;       ///< else exposure_time of the other file
    std::optional<double> firstExposureSeconds;  ///< of layer 0; else initial_exposure_time of the other file
    std::optional<int> fadeLayers;               ///< numFade; else faded_layers of the other file
    std::optional<int> slowLayers;               ///< numSlow
    std::optional<int> fastLayers;               ///< numFast; slowLayers + fastLayers = layers
    std::optional<double> usedMaterialMl;
    std::optional<double> printTimeSeconds;
    std::optional<std::string> materialName;
    std::optional<std::string> printerModel;
    // prusaslicer.ini
    std::optional<int> displayPixelsX;
    std::optional<int> displayPixelsY;
    std::optional<double> displayWidthMm;
    std::optional<double> displayHeightMm;
    std::optional<DisplayOrientation> displayOrientation;  ///< portrait: the layers are turned, Y pixels wide, X high
    std::optional<bool> displayMirrorX;
    std::optional<bool> displayMirrorY;
    std::optional<double> initialLayerHeightMm;
    std::optional<double> gammaCorrection;
    std::optional<double> materialDensity;  ///< g/ml
    std::optional<double> maxPrintHeightMm;

    // vndlp.json or settings.json
    std::map<std::string, std::string> others;                 ///< by key; they win over the two files
    std::map<int, std::map<std::string, std::string>> layers;  ///< of single layers

    /// What was missing and what was taken for it, or that nothing was: one sentence each, for the user.
    std::vector<std::string> assumptions;
};

constexpr const char* kConfigName = "config.ini";
constexpr const char* kPrinterConfigName = "prusaslicer.ini";

/// Makes settings of the texts of the two files; a file that the job does not have is empty.
///
/// A line is `key = value`, its end LF or CRLF; a byte order mark, blank lines, comments (# or ;), section lines and
/// unknown keys are passed over, an empty value is none, and of two lines with the same key the later holds. Adds to
/// `assumptions` where a value of one file stands in for one of the other.
/// \param jobPath the job's name in messages.
/// Throws Failure for a number that is none or out of its range, naming file, line and key.
JobSettings parseJobSettings(const std::string& jobPath, const std::optional<std::string>& config,
                             const std::optional<std::string>& printerConfig);

/// Number of bottom layers that stands for a number of fading layers: round((fadeLayers + 1) / 2).
/// \param fadeLayers at least 0.
int bottomLayerCount(int fadeLayers);

/// Exposure of a layer in seconds: from `firstSeconds` for layer 0 it falls by equal steps until, behind the fading
/// layers, it is `seconds`; never below that.
/// \param layer      from 0.
/// \param fadeLayers at least 0.
double exposureOfLayer(int layer, double seconds, double firstSeconds, int fadeLayers);

/// The same from a job's settings: without a first exposure every layer gets the normal one, without a number of fading
/// layers there are none. Empty when the job tells no exposure.
std::optional<double> exposureOfLayer(const JobSettings& settings, int layer);

}  // namespace vndlp::tools
