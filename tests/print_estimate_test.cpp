#include "tools/print_estimate.h"

#include <vndlp/print_time.h>

#include <gtest/gtest.h>

#include <limits>
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

void expectParts(const Estimate& estimate, const EstimateBreakdown& expected) {
    const EstimateBreakdown& parts = estimate.parts;
    EXPECT_NEAR(parts.exposure, expected.exposure, 2e-3);
    EXPECT_NEAR(parts.lift, expected.lift, 2e-3);
    EXPECT_NEAR(parts.delays, expected.delays, 2e-3);
    EXPECT_NEAR(parts.levelTravel, expected.levelTravel, 2e-3);
    EXPECT_NEAR(parts.image, expected.image, 2e-3);
    EXPECT_NEAR(parts.exposure + parts.lift + parts.delays + parts.levelTravel + parts.image, estimate.totalSeconds,
                1e-9 * estimate.totalSeconds);
}

std::string problemOf(const EstimateInput& input) {
    std::string problem;
    EXPECT_FALSE(estimatePrintTime(input, problem).has_value());
    return problem;
}

TEST(PrintEstimate, General) {
    const Estimate estimate = estimated(job(EstimateModel::General));
    // exposures cut to 30 and 2 s; 2 x 8 / 5 s and 0.05 / 5 ms a layer; 4 + 1.05 s a layer; 236 / 5 s;
    // layer 0 is the screen of 2400 mm^2 (2 s), the others 3600 mm^2 (3 s)
    expectParts(estimate, {4 * 30 + 96 * 2, 320.001, 505, 47.2, 2 + 99 * 3});
    EXPECT_NEAR(estimate.totalSeconds, 312 + 320.001 + 505 + 47.2 + 299, 1e-3);
}

TEST(PrintEstimate, M31) {
    EstimateInput input = job(EstimateModel::M31);
    input.machineName = "M31";  // level 3
    input.liftHeightMm = 7.4;   // 10 s a return trip
    expectParts(estimated(input), {4 * 30 + 96 * 2.5, 1000, 400, 0, 0});
}

TEST(PrintEstimate, M32) {
    EstimateInput input = job(EstimateModel::M32);
    input.machineName = "M32";
    input.motorSpeedMmPerSecond = 4;
    input.liftHeightMm = 11.15;  // 10 s a return trip
    expectParts(estimated(input), {4 * 30 + 96 * 2.5, 1000, 400, 0, 0});
}

TEST(PrintEstimate, M33) {
    EstimateInput input = job(EstimateModel::M33);
    input.layerAreasMm2.assign(100, 6500);  // 65 cm^2, 11.7 s a layer
    expectParts(estimated(input), {4 * 30 + 96 * 2, 320.001, 100 * (4 + 1.05 + 11.7) + 11 * 11, 47.2, 0});
}

TEST(PrintEstimate, Steps) {
    EstimateInput input = job(EstimateModel::Steps);
    const double move = calMoveTime(8, 3);
    expectParts(estimated(input), {4 * 30 + 96 * 2.5, 100 * 2 * move, 500, 0, 0});
    input.retractSpeedMmPerMinute = 360;
    expectParts(estimated(input), {4 * 30 + 96 * 2.5, 100 * (move + calMoveTime(8, 6)), 500, 0, 0});
}

TEST(PrintEstimate, TotalIsTheLibrarys) {
    const EstimateInput input = job(EstimateModel::General);
    vndlp::CPrinterTime model;
    model.setMachineName("M01");
    model.setExposure(2.5F);
    model.setFirstLayerNum(4);
    model.setLayerCount(100);
    model.setResolution(1200, 800);
    model.setMaxAreaLineArea(std::vector<double>(100, 3600000));
    testing::internal::CaptureStdout();
    const double total = static_cast<double>(model.callPrinterTime());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(estimated(input).totalSeconds, total);
}

TEST(PrintEstimate, HasNothingToEstimate) {
    EstimateInput input;
    input.layerCount = 0;
    input.bottomLayerCount = 0;
    for (const auto model : {EstimateModel::M31, EstimateModel::M32, EstimateModel::Steps}) {
        input.model = model;
        EXPECT_EQ(estimated(input).totalSeconds, 0);
    }
    input.model = EstimateModel::M33;
    expectParts(estimated(input), {0, 0, 0, 236 / 4.5, 0});
}

TEST(PrintEstimate, SaysWhatIsWrong) {
    EstimateInput input = job(EstimateModel::General);
    input.exposureSeconds = -1;
    EXPECT_EQ(problemOf(input), "exposure: expected 0 to 1e9, found -1");
    input = job(EstimateModel::General);
    input.liftHeightMm = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(problemOf(input), "lift height: expected 0 to 1e9, found nan");
    input = job(EstimateModel::General);
    input.layerAreasMm2[7] = 2e9;
    EXPECT_EQ(problemOf(input), "area of layer 7: expected 0 to 1e9 mm^2, found 2e+09");
    input = job(EstimateModel::Steps);
    input.layerCount = 4294967295U;
    EXPECT_EQ(problemOf(input), "layers: expected at most 2147483647, found 4294967295");
    input = job(EstimateModel::M32);
    input.motorSpeedMmPerSecond = 0.5;
    EXPECT_EQ(problemOf(input), "motor speed: expected at least 1 mm/s, found 0.5");
    input = job(EstimateModel::M33);
    input.layerAreasMm2.pop_back();
    EXPECT_EQ(problemOf(input), "areas: M33 needs one for each of 100 layers, found 99");
}

}  // namespace
