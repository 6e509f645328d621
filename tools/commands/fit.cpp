#include "tools/commands/fit.h"

#include "tools/base/failure.h"

#include <cmath>

namespace vndlp::tools {

namespace {

constexpr double kPixelTolerance = 0.01;
constexpr double kHeightToleranceMm = 1e-6;
constexpr double kUmPerMm = 1000;

std::string sizeText(double x, double y) { return shortNumber(x, 2) + " x " + shortNumber(y, 2); }

bool isOff(double own, double wanted) { return std::fabs(own - wanted) > kPixelTolerance * wanted; }

void requireResolution(const std::string& path, const FitJob& job, int width, int height) {
    if (job.isGeometry || (job.width == width && job.height == height)) return;
    const std::string sizes = path + ": layers are " + sizeText(job.width, job.height) +
                              " pixels, the printer's screen is " + sizeText(width, height);
    if (job.width == height && job.height == width) throw Failure(sizes + "; --rotate 90 turns them");
    if (job.width > width || job.height > height) throw Failure(sizes + "; slice the model again for this printer");
    if (!job.pads) throw Failure(sizes + "; --pad sets them into its middle");
}

void requirePixels(const std::string& path, const FitJob& job, const PrintSettings& printer) {
    for (const char* key : {"resolution_x", "resolution_y", "display_width_mm", "display_height_mm"}) {
        if (!printer.has(key)) return;
    }
    const double x = printer.number("display_width_mm") * kUmPerMm / printer.number("resolution_x");
    const double y = printer.number("display_height_mm") * kUmPerMm / printer.number("resolution_y");
    if (job.isGeometry || !std::isfinite(job.pixelXUm) || !std::isfinite(job.pixelYUm)) return;
    if (!isOff(job.pixelXUm, x) && !isOff(job.pixelYUm, y)) return;
    throw Failure(path + ": its pixels are " + sizeText(job.pixelXUm, job.pixelYUm) + " um, the printer's " +
                  sizeText(x, y) + " um; slice the model again for this printer");
}

}  // namespace

void requireFit(const std::string& path, const FitJob& job, const Printer& printer) {
    const PrintSettings& s = printer.settings;
    if (s.has("resolution_x") && s.has("resolution_y")) {
        requireResolution(path, job, static_cast<int>(s.number("resolution_x")),
                          static_cast<int>(s.number("resolution_y")));
    }
    requirePixels(path, job, s);
    const double height = s.numberOr("machine_height_mm", 0);
    if (height > 0 && std::isfinite(job.topMm) && job.topMm > height + kHeightToleranceMm) {
        throw Failure(path + ": the top of the last layer is at " + shortNumber(job.topMm, 4) +
                      " mm, above the printer's build height of " + shortNumber(height, 4) + " mm");
    }
    const std::string machine = s.text("machine");
    if (!machine.empty() && !job.machine.empty() && job.machine != machine && job.wantedMachine.empty()) {
        throw Failure(path + ": is for the machine " + job.machine + ", the printer is " + machine +
                      "; --set machine=" + machine + " takes it all the same");
    }
    if (!printer.mirror.empty() && job.mirror != printer.mirror) {
        throw Failure(path + ": the printer's images are mirrored; --mirror " + printer.mirror + " does it");
    }
}

}  // namespace vndlp::tools
