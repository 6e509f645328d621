/// What the program's print-time estimates take and give: the library's estimators behind one function, with the total
/// taken apart.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// The library's estimators.
enum class EstimateModel {
    General,  ///< CPrinterTime::callPrinterTime
    M31,      ///< CPrinterTime::calM31PrintTime
    M32,      ///< CPrinterTime::calM32PrintTime
    M33,      ///< CPrinterTime::calM33PrintTime
    Steps     ///< calPrintTime
};

/// A job. Every number lies between 0 and 1e9, the counts within an int.
struct EstimateInput {
    EstimateModel model = EstimateModel::General;
    /// Any spelling `CPrinterTime::setMachineName` takes. An unknown or empty one gives that class's defaults. Not read
    /// by Steps.
    std::string machineName;
    /// Replaces the machine's motor speed where above 0. M31 and M32 read its whole part as a speed level and need it
    /// at 1 or above. Not read by Steps, which has the two speeds below.
    double motorSpeedMmPerSecond = 0;

    double exposureSeconds = 3;
    double bottomExposureSeconds = 30;
    unsigned bottomLayerCount = 1;
    double lightOffDelaySeconds = 4;
    double liftHeightMm = 8;
    double liftSpeedMmPerMinute = 180;     ///< read by Steps only
    double retractSpeedMmPerMinute = 180;  ///< read by Steps only

    unsigned layerCount = 1;
    double layerHeightMm = 0.05;  ///< read by General and M33
    /// Screen, for the image time of the first layer in General.
    unsigned resolutionX = 0;
    unsigned resolutionY = 0;
    double pixelWidthMm = 0.05;
    double pixelHeightMm = 0.05;
    /// Exposed area of each layer, mm^2; read by General and M33. General takes as many as there are, M33 at least one
    /// for each layer. CPrinterTime gets them in thousandths of a mm^2 for General and in cm^2 for M33, whose bands of
    /// 10 to 65 then span what a small screen can light.
    std::vector<double> layerAreasMm2;
};

/// Where the time of a job goes, seconds. The parts sum to the total.
///
/// | part        | General, M33                                                        | M31, M32     | Steps       |
/// |-------------|---------------------------------------------------------------------|--------------|-------------|
/// | exposure    | whole seconds of every layer                                        | as given     | as given    |
/// | lift        | lift and drop at motor speed                                        | return trips | the moves   |
/// | delays      | light-off, 1.05 s a layer; M33: waits by area, 11 s for 11 layers   | light-off    | light-off,  |
/// |             |                                                                     |              | 1 s of rest |
/// | levelTravel | Z travel of the machine                                             | 0            | 0           |
/// | image       | General: by area; M33: 0                                            | 0            | 0           |
struct EstimateBreakdown {
    double exposure = 0;
    double lift = 0;
    double delays = 0;
    double levelTravel = 0;
    double image = 0;
};

struct Estimate {
    double totalSeconds = 0;  ///< what the library returns; Steps adds what another retract speed makes of the drops
    EstimateBreakdown parts;
};

/// Estimates a job. The library's estimator runs for the whole job first, then once for each part with every value that
/// feeds the other parts at 0, so that its formulas stand in the library only. Each run prints the library's lines on
/// standard output. What single precision leaves between the total and the sum of the parts goes to the largest part.
/// \param problem receives one line that says why the job cannot be estimated; else not touched.
/// \return nothing when the job cannot be estimated.
[[nodiscard]] std::optional<Estimate> estimatePrintTime(const EstimateInput& input, std::string& problem);

}  // namespace vndlp::tools
