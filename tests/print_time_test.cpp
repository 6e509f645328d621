#include <vndlp/print_time.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using vndlp::CPrinterTime;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kMost = std::numeric_limits<float>::max();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct OpenedPrinterTime : CPrinterTime {
    using CPrinterTime::getLayerTime;
    using CPrinterTime::initParameterValue;
};

template <class Call>
std::string printed(Call&& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

template <class Call>
auto silently(Call&& call) {
    testing::internal::CaptureStdout();
    const auto result = call();
    testing::internal::GetCapturedStdout();
    return result;
}

/// 5 mm/s at full speed, so that a lift of 8 mm and back takes 3.2 s; 2 bottom layers of 10.
CPrinterTime tenLayerJob() {
    CPrinterTime job;
    job.setMachineName("M01");
    job.setLayerCount(10);
    job.setFirstLayerNum(2);
    return job;
}

TEST(MachineName, IsNormalised) {
    const std::pair<const char*, const char*> names[] = {
        {"m01", "M01"},
        {"QV-m0-1", "M01"},
        {"slicer QV-m-0-1-", "M01"},
        {"qv-m01", "QVM01"},
        {"QV-QV-M01", "QVM01"},
        {"QV", "QV"},
        {"QV-", ""},
        {"", ""},
        {"M\xE9-1", "M\xE9\x31"},
    };
    for (const auto& [given, normalised] : names) {
        CPrinterTime job;
        job.setMachineName(given);
        EXPECT_EQ(job.m_machineName, normalised) << given;
        EXPECT_EQ(job.m_motorSpeed, job.m_machineName == "M01" ? 5.0F : 3.0F) << given;
    }
}

TEST(LayerTime, SumsItsParts) {
    OpenedPrinterTime job;
    job.setMotorSpeed(5);
    job.setFullSpeed(true);
    // extra 1000, exposure 7000, light off 4000, layer height 0.05 / 5 unscaled, lift and drop 2 x 8 / 5 s, 50
    EXPECT_NEAR(job.getLayerTime(7, true), 1000 + 7000 + 4000 + 0.01 + 3200 + 50, 1e-6);
    EXPECT_NEAR(job.getLayerTime(7, false), 1000 + 7000 + 0.01 + 3200 + 50, 1e-6);
    job.setFullSpeed(false);  // 7.5 mm/s
    EXPECT_NEAR(job.getLayerTime(0, false), 1000 + 0.05 / 7.5 + 16000 / 7.5 + 50, 1e-6);

    job.setLiftHeight(0);
    job.setLayerHeight(0);
    job.setLightOffDelay(0);
    job.setLayerExtraTime(0.1F);  // a little above 0.1; the float product is 100 exactly, the double one is not
    EXPECT_EQ(job.getLayerTime(0, true), 150.0);
    EXPECT_EQ(job.getLayerTime(4294967295U, true), 4294967295150.0);
}

TEST(GeneralEstimate, AddsLayersLevelAndImages) {
    CPrinterTime job = tenLayerJob();
    job.setResolution(1000, 500);
    job.setPixel(0.05F, 0.05F);                  // the whole screen: 1250 mm^2
    job.setMaxAreaLineArea({7, 2400000, 1999});  // means 1250, 2400, (9 x 2400 + 1) / 10: 1 + 2 + 1 s
    float total = 0;
    // 8 x 11250.01 + 2 x 38250.01 ms; 236 mm at 5 mm/s
    EXPECT_EQ(printed([&] { total = job.callPrinterTime(); }),
              "GetImageArea: The picture total area is 4level_time = 47200\n"
              "print_time = 166500\n"
              "show_image_time = 4000\n"
              "total_time = 217.7\n");
    EXPECT_FLOAT_EQ(total, 217.7001F);
}

TEST(GeneralEstimate, CutsExposuresAndSurvivesExtremes) {
    const auto estimate = [](CPrinterTime& job) { return silently([&] { return job.callPrinterTime(); }); };
    CPrinterTime job = tenLayerJob();
    job.setLayerCount(2);  // no more than bottom layers
    EXPECT_FLOAT_EQ(estimate(job), 2 * 38.25001F + 47.2F);
    job.setLayerCount(10);
    job.setFirstLayerNum(0);
    const std::pair<float, float> exposures[] = {{2.9F, 10 * 10.25001F + 47.2F}, {0.9F, 10 * 8.25001F + 47.2F},
                                                 {-2.9F, 10 * 8.25001F + 47.2F}, {-kInfinity, 10 * 8.25001F + 47.2F},
                                                 {kNaN, 10 * 8.25001F + 47.2F},  {1e20F, 10 * 4294967295.0F},
                                                 {kInfinity, 10 * 4294967295.0F}};
    for (const auto& [exposure, seconds] : exposures) {
        job.setExposure(exposure);
        EXPECT_FLOAT_EQ(estimate(job), seconds) << exposure;
    }
    job.setExposure(3);
    job.setLayerCount(std::numeric_limits<int>::max());
    job.setFirstLayerNum(std::numeric_limits<int>::min());
    // 4294967295 normal layers less 2147483648 bottom layers
    EXPECT_FLOAT_EQ(estimate(job), static_cast<float>(4294967295.0 * 11.25001 - 2147483648.0 * 38.25001));
    job.setMotorSpeed(0);
    job.setLayerCount(2);
    job.setFirstLayerNum(1);
    EXPECT_EQ(estimate(job), kInfinity);
}

TEST(ImageArea, GoesByTheEntriesNotByTheLayerCount) {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    struct {
        std::vector<double> areas;
        double width, layers, seconds;
    } const cases[] = {
        {{}, 0, 3, 0},
        {{0, 1200000, 1200000}, 1200, 0, 0},
        {{0, 1200000, 1200000}, 1200, kNone, 0},
        {{0, 1200000, 1200000}, 1200, 1, 3},  // layer 0 is the screen of 1200 mm^2
        {{0, -1e30, kNone}, 0, 1, 0},
        {{0, 1e30}, 0, 1, 3579139},  // 4294967295 / 1200
    };
    for (const auto& c : cases) {
        CPrinterTime job;
        job.setResolution(static_cast<float>(c.width), 400);
        job.setMaxAreaLineArea(c.areas);
        double seconds = -1;
        std::ostringstream expected;
        expected << "GetImageArea: The picture total area is " << c.seconds;
        EXPECT_EQ(printed([&] { seconds = job.getImageArea(c.layers); }), expected.str());
        EXPECT_EQ(seconds, c.seconds);
    }
}

TEST(RecentArea, FallsSlowlyAndRisesAtOnce) {
    CPrinterTime job;
    EXPECT_EQ(job.getDelayMaxArea(1000, 0), 1000U);
    EXPECT_EQ(job.getDelayMaxArea(500, 1), 950U);   // (9 x 1000 + 500) / 10
    EXPECT_EQ(job.getDelayMaxArea(940, 2), 944U);   // (8 x 1000 + 500 + 940) / 10
    EXPECT_EQ(job.getDelayMaxArea(944, 13), 944U);  // not below the mean: all ten slots
    CPrinterTime another;
    EXPECT_EQ(another.getDelayMaxArea(900, 4), 939U);  // (9 x 944 + 900) / 10, fraction dropped
    EXPECT_EQ(job.getDelayMaxArea(4294967295U, 0), 4294967295U);
    EXPECT_EQ(job.getDelayMaxArea(0, 0), 0U);
}

TEST(RecentAreaDeathTest, StartsFromItsInitialTable) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process, and so a fresh table
    const auto mean = [](unsigned area) { return CPrinterTime().getDelayMaxArea(area, 1); };
    EXPECT_EXIT(std::exit(mean(23999) == 20399 ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(std::exit(mean(24000) == 24000 ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(M31AndM32Estimates, AddFourTerms) {
    CPrinterTime job = tenLayerJob();
    job.setMotorSpeed(3);
    job.setLiftHeight(7.4F);
    double total = 0;
    EXPECT_EQ(printed([&] { total = job.calM31PrintTime(); }),
              "1. first_layer_time =60\n"
              "2. print_time =24\n"
              "3. delay_time =40\n"
              "4. returntrip_time =100\n"
              "5. totalTime =100\n");
    EXPECT_NEAR(total, 224, 1e-4);
    job.setMotorSpeed(4);
    job.setLiftHeight(11.15F);
    job.setExposure(2.5F);  // not cut to whole seconds here
    EXPECT_EQ(printed([&] { total = job.calM32PrintTime(); }),
              "1. first_layer_time =60\n"
              "2. print_time =20\n"
              "3. delay_time =40\n"
              "4. returntrip_time =100\n"
              "5. totalTime =100\n");
    EXPECT_FLOAT_EQ(static_cast<float>(total), 220);

    // the whole bottom time for every layer when there are no more; a return trip of 10 s
    job.setLayerCount(2);
    EXPECT_FLOAT_EQ(silently([&] { return job.calM32PrintTime(); }), 60 + 2 * 60 + 8 + 20);
    job.setMotorSpeed(3);
    job.setLiftHeight(7.4F);
    EXPECT_NEAR(silently([&] { return job.calM31PrintTime(); }), 60 + 2 * 60 + 8 + 20, 1e-4);
}

TEST(M33Estimate, AddsAreaDelays) {
    CPrinterTime job;
    job.setMotorSpeed(5);
    job.setFullSpeed(true);
    job.setLayerCount(12);
    job.setMaxAreaLineArea(std::vector<double>(12, 65.0));
    float total = 0;
    // 12 x (4 + 65 x 0.18) + 11 x 11 s; 11 x 7250.01 + 34250.01 ms and 236 mm at 5 mm/s
    EXPECT_EQ(printed([&] { total = job.calM33PrintTime(); }),
              "m_firstLayerExposure =30m_exposure =3m_lightOffDelay =4m_liftHeight =8m_firstLayerNum =1"
              " MaxLayerGraphOutlineVec's size is 12, printedLayer is 12\n"
              "delayLight:0,m_sPrintParamater.InitExposure30,motorSpeed5,m_sPrintParamater.PrintExposure3"
              ", delayLight is 309.4totalTime : 470.6");
    EXPECT_FLOAT_EQ(total, 470.60012F);
    EXPECT_EQ(job.m_delayWindowSize, 50);
    EXPECT_EQ(job.m_delayWindow, std::vector<double>(50, 65.0));
}

TEST(M33Estimate, ComparesBottomLayersAsUnsignedAndNeedsAnAreaForEveryLayer) {
    CPrinterTime job;
    job.setMotorSpeed(5);
    job.setFullSpeed(true);
    job.setFirstLayerNum(-1);  // more than any number of layers
    job.setLayerCount(1);
    job.setMaxAreaLineArea({1.0});
    // 64 x 50 - 63 of the fresh window: a mean of 63.72, every time
    for (int i = 0; i < 2; ++i)
        EXPECT_FLOAT_EQ(silently([&] { return job.calM33PrintTime(); }), 4 + 63.72F * 0.18F + 11 + 47.2F + 34.25001F);

    job.setLayerCount(2);
    testing::internal::CaptureStdout();
    EXPECT_THROW(job.calM33PrintTime(), std::out_of_range);
    EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with("m_sPrintParamater.PrintExposure3"));
}

TEST(M33Delay, GoesByTheBandOfTheMeanOfTheLastFifty) {
    const std::pair<double, double> factors[] = {
        {9.99, 0},     {10, 0.14}, {20, 0.14},    {20.01, 0.15}, {30, 0.15}, {30.01, 0.16}, {40, 0.16},
        {40.01, 0.17}, {50, 0.17}, {50.01, 0.18}, {65, 0.18},    {65.01, 0}, {-20, 0},
    };
    CPrinterTime job;
    for (auto [area, factor] : factors) {
        job.m_delayWindow.assign(50, area);
        double delay = 4;
        job.calculateM33DefaultParameters(delay, area);
        EXPECT_NEAR(delay, 4 + area * factor, 1e-9) << area;
    }
    job.m_delayWindow.assign(50, 20.0);
    job.m_delayWindow.front() = 1000.0;  // drops out
    double delay = 0;
    double area = 70;
    job.calculateM33DefaultParameters(delay, area);
    EXPECT_NEAR(delay, 21 * 0.15, 1e-9);  // (49 x 20 + 70) / 50 = 21
    EXPECT_EQ(job.m_delayWindow.size(), 50U);
    EXPECT_EQ(job.m_delayWindow.back(), 70);

    job.m_delayWindow.clear();
    delay = 0;
    area = 500;
    job.calculateM33DefaultParameters(delay, area);
    EXPECT_NEAR(delay, 10 * 0.14, 1e-9);  // the divisor is 50 however many there are
}

/// What one of the two moves of a layer takes that has nothing besides but its second of rest.
double moveTime(float distanceMm, float speedMmPerSecond) {
    float settings[VNDLP_TIME_SETTING_COUNT] = {};
    settings[VNDLP_TIME_LIFT_HEIGHT] = distanceMm;
    settings[VNDLP_TIME_MOTOR_SPEED] = speedMmPerSecond;
    return (calPrintTime(settings, 1) - 1) / 2;
}

TEST(MoveTime, HasItsProfileFromFullSpeedDownToNoMove) {
    // 12800 steps at 4800 steps/s, gained and lost within 288 steps
    EXPECT_NEAR(moveTime(8, 3), 12800.0 / 4800 + 4800.0 / 80000, 1e-9);
    // 200 of 288 steps: 100 steps gaining speed in sqrt(200 / 80000) = 0.05 s, as many losing it
    EXPECT_NEAR(moveTime(0.125F, 3), 0.1, 1e-9);
    // the profiles meet where full speed is just reached
    EXPECT_NEAR(moveTime(0.18F, 3), 0.12, 1e-7);  // 2 x 4800 / 80000
    EXPECT_NEAR(moveTime(0.1799999F, 3), 0.12, 1e-6);
    EXPECT_NEAR(moveTime(0.1800001F, 3), 0.12, 1e-6);
    for (const float none : {0.0F, -1.0F, kNaN, kInfinity, -kInfinity}) {
        EXPECT_EQ(moveTime(none, 3), 0) << none;
        EXPECT_EQ(moveTime(8, none), 0) << none;
    }
    for (const float speed : {std::numeric_limits<float>::denorm_min(), kMost})
        EXPECT_TRUE(std::isfinite(moveTime(kMost, speed))) << speed;
}

TEST(StepEstimate, SumsLayersAndPrintsThem) {
    float settings[] = {3, 30, 2.5F, 4, 8, 2};
    double total = 0;
    EXPECT_EQ(printed([&] { total = calPrintTime(settings, 3); }),
              "layer 0 : exposure 30.00 s, light off 4.00 s, rest 1.00 s, lift 2.727 s, drop 2.727 s, total 40.453 s\n"
              "layer 1 : exposure 30.00 s, light off 4.00 s, rest 1.00 s, lift 2.727 s, drop 2.727 s, total 40.453 s\n"
              "layer 2 : exposure 2.50 s, light off 4.00 s, rest 1.00 s, lift 2.727 s, drop 2.727 s, total 12.953 s\n"
              "total hour : 00 h 01 min 33 s\n");
    EXPECT_NEAR(total, 93.86, 1e-9);
}

TEST(StepEstimate, TakesUnusableSettingsForZeroAndHasLimits) {
    float settings[] = {3, 3600, 0, 0, 0, 8};  // more bottom layers than layers
    double total = 0;
    EXPECT_EQ(
        printed([&] { total = calPrintTime(settings, 1); }),
        "layer 0 : exposure 3600.00 s, light off 0.00 s, rest 1.00 s, lift 0.000 s, drop 0.000 s, total 3601.000 s\n"
        "total hour : 01 h 00 min 01 s\n");
    EXPECT_EQ(total, 3601);
    EXPECT_EQ(printed([&] { total = calPrintTime(settings, 0); }), "total hour : 00 h 00 min 00 s\n");
    EXPECT_EQ(total, 0);
    EXPECT_EQ(printed([&] { total = calPrintTime(nullptr, 5); }), "");
    EXPECT_EQ(total, 0);
    for (const float unusable : {-1.0F, kNaN, kInfinity, -kInfinity}) {
        std::fill(std::begin(settings), std::end(settings), unusable);
        EXPECT_EQ(silently([&] { return calPrintTime(settings, 7); }), 7) << unusable;  // the rests
    }
    float many[] = {3, 0, 2.5F, 4, 8, 0};
    const std::string text = printed([&] { total = calPrintTime(many, 4294967295U); });
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100001);
    EXPECT_NEAR(total / 4294967295.0, 2.5 + 4 + 1 + 2 * 2.7266666667, 1e-8);
    float greatest[] = {3, kMost, kMost, 4, 8, kMost};
    const std::string longest = printed([&] { total = calPrintTime(greatest, 4294967295U); });
    EXPECT_TRUE(std::isfinite(total));
    EXPECT_NE(longest.find("total hour : 2147483647 h "), std::string::npos);
}

}  // namespace
