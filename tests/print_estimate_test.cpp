#include "tools/commands/print_estimate.h"

#include <vndlp/print_time.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using vndlp::tools::Estimate;
using vndlp::tools::EstimateBreakdown;
using vndlp::tools::EstimateInput;
using vndlp::tools::EstimateModel;

/// 100 layers, 4 of them bottom layers, on a machine of 236 mm, 5 mm/s, full speed.
EstimateInput job(EstimateModel model) {
    EstimateInput input;
    input.model = model;
    input.machineName = "QV-m0-1";
    input.exposureSeconds = 2.5;
    input.bottomLayerCount = 4;
    input.layerCount = 100;
    input.resolutionX = 1200;
    input.resolutionY = 800;
    input.layerAreasMm2.assign(100, 3600);
    return input;
}

Estimate estimated(const EstimateInput& input) {
    std::string problem;
    testing::internal::CaptureStdout();
    const auto result = estimatePrintTime(input, problem);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(result.has_value()) << problem;
    return result.value_or(Estimate{});
}

void expectParts(const EstimateInput& input, const EstimateBreakdown& expected) {
    const Estimate estimate = estimated(input);
    double sum = 0;
    for (const auto part : {&EstimateBreakdown::exposure, &EstimateBreakdown::lift, &EstimateBreakdown::delays,
                            &EstimateBreakdown::levelTravel, &EstimateBreakdown::image}) {
        EXPECT_NEAR(estimate.parts.*part, expected.*part, 2e-3);
        sum += estimate.parts.*part;
    }
    EXPECT_NEAR(sum, estimate.totalSeconds, 1e-9 * estimate.totalSeconds);
}

TEST(PrintEstimate, TakesEveryModelApart) {
    EstimateInput input = job(EstimateModel::General);
    // exposures cut to 30 and 2 s; 2 x 8 / 5 s and 0.05 / 5 ms a layer; 4 + 1.05 s a layer; 236 / 5 s;
    // layer 0 is the screen of 2400 mm^2 (2 s), the others 3600 mm^2 (3 s)
    expectParts(input, {4 * 30 + 96 * 2, 320.001, 505, 47.2, 2 + 99 * 3});
    EXPECT_NEAR(estimated(input).totalSeconds, 312 + 320.001 + 505 + 47.2 + 299, 1e-3);
    input.model = EstimateModel::M31;
    input.machineName = "M31";  // level 3
    input.liftHeightMm = 7.4;   // 10 s a return trip
    expectParts(input, {4 * 30 + 96 * 2.5, 1000, 400, 0, 0});
    input.model = EstimateModel::M32;
    input.motorSpeedMmPerSecond = 4;
    input.liftHeightMm = 11.15;  // 10 s a return trip
    expectParts(input, {4 * 30 + 96 * 2.5, 1000, 400, 0, 0});
    input = job(EstimateModel::M33);
    input.layerAreasMm2.assign(100, 6500);  // 65 cm^2, 11.7 s a layer
    expectParts(input, {4 * 30 + 96 * 2, 320.001, 100 * (4 + 1.05 + 11.7) + 11 * 11, 47.2, 0});
    input.model = EstimateModel::Steps;
    const double move = 12800.0 / 4800 + 4800.0 / 80000;
    expectParts(input, {4 * 30 + 96 * 2.5, 100 * 2 * move, 500, 0, 0});
    input.retractSpeedMmPerMinute = 360;
    expectParts(input, {4 * 30 + 96 * 2.5, 100 * (move + 12800.0 / 9600 + 9600.0 / 80000), 500, 0, 0});
}

}  // namespace
