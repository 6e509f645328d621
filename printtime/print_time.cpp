#include <vndlp/print_time.h>

#include "io/report.h"
#include "printtime/quiet_estimate.h"
#include "printtime/truncate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <numeric>
#include <span>
#include <sstream>
#include <string>
#include <utility>

namespace vndlp {

namespace {

/// Gathers a message and prints it whole, where messages go: through `std::cout`, with the number format that stream
/// has, or to the caller's handler.
class Log {
public:
    Log() {
        m_text.copyfmt(std::cout);
        m_text.exceptions(std::ios::goodbit);
    }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() {
        const std::string text = m_text.str();
        if (!handleMessage(text.c_str())) std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    template <class Value>
    Log& operator<<(const Value& value) {
        m_text << value;
        return *this;
    }

private:
    std::ostringstream m_text;
};

constexpr float kUnknownLevelHeight = 236.0F;
constexpr float kUnknownMotorSpeed = 3.0F;

struct MachineRow {
    const char* name;
    int levelHeight;  // mm
    int fullSpeed;
    int motorSpeed;  // mm/s
};

constexpr MachineRow kMachines[] = {
    {"M01", 236, 1, 5}, {"M02", 170, 0, 1}, {"M03", 136, 1, 5}, {"M04", 236, 0, 3}, {"M05", 320, 1, 3},
    {"M06", 320, 1, 3}, {"M07", 325, 1, 3}, {"M08", 136, 1, 3}, {"M09", 320, 1, 3}, {"M10", 286, 1, 3},
    {"M11", 175, 0, 1}, {"M12", 170, 0, 1}, {"M13", 236, 0, 5}, {"M14", 170, 0, 1}, {"M15", 245, 0, 1},
    {"M16", 176, 0, 1}, {"M17", 176, 0, 1}, {"M18", 236, 0, 5}, {"M19", 320, 1, 3}, {"M20", 100, 1, 1},
    {"M21", 136, 1, 5}, {"M22", 135, 1, 5}, {"M23", 132, 1, 5}, {"M24", 132, 1, 5}, {"M25", 320, 1, 3},
    {"M26", 136, 0, 3}, {"M27", 136, 1, 5}, {"M28", 325, 1, 3},
};

float lookUp(const std::map<std::string, int>& table, const std::string& name, float unknown) {
    const auto row = table.find(name);
    return row == table.end() ? unknown : static_cast<float>(row->second);
}

constexpr char capital(char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

double effectiveSpeed(const CPrinterTime& job) { return job.m_fullSpeed ? job.m_motorSpeed : job.m_motorSpeed * 1.5; }

double levelTimeMs(const CPrinterTime& job) { return double{job.m_levelHeight} * 1000 / effectiveSpeed(job); }

// 64 bits, since two ints may lie further apart than an int can say
std::int64_t layersAboveBottom(const CPrinterTime& job) {
    return std::int64_t{job.m_layerCount} - std::int64_t{job.m_firstLayerNum};
}

double layerTimeMs(const CPrinterTime& job, unsigned exposureSeconds, bool withLightOffDelay) {
    const double speed = effectiveSpeed(job);
    const float extra = job.m_layerExtraTime * 1000;  // single precision, unlike the rest
    double time = double{extra} + exposureSeconds * 1000.0;
    if (withLightOffDelay) time += double{job.m_lightOffDelay} * 1000;
    time += job.m_layerHeight / speed;  // seconds among milliseconds: every estimate has been made with it
    return time + 2.0 * job.m_liftHeight / speed * 1000 + 50;
}

/// The terms of the M31 and M32 estimates, seconds. They differ in the precision of the terms, `Term`, and in the
/// return trip.
template <class Term>
struct Terms {
    Term firstLayers;
    Term normalLayers;
    Term delays;
    Term returnTrips;

    Terms(const CPrinterTime& job, float returnTripSeconds) {
        const Term layers = static_cast<Term>(job.m_layerCount);
        firstLayers = static_cast<Term>(job.m_firstLayerNum) * Term{job.m_firstLayerExposure};
        normalLayers = job.m_firstLayerNum < job.m_layerCount
                           ? static_cast<Term>(layersAboveBottom(job)) * Term{job.m_exposure}
                           : layers * firstLayers;
        delays = layers * Term{job.m_lightOffDelay};
        returnTrips = Term{returnTripSeconds} * layers;
    }
    [[nodiscard]] double sum() const { return double{firstLayers} + normalLayers + delays + returnTrips; }
};

template <class Term>
double loggedSum(const Terms<Term>& terms) {
    Log() << "1. first_layer_time =" << terms.firstLayers << '\n'
          << "2. print_time =" << terms.normalLayers << '\n'
          << "3. delay_time =" << terms.delays << '\n'
          << "4. returntrip_time =" << terms.returnTrips << '\n'
          << "5. totalTime =" << terms.returnTrips << '\n';  // not the total, and kept so
    return terms.sum();
}

struct LevelAcceleration {
    int level;
    double mmPerSecond2;
};

constexpr LevelAcceleration kM31Accelerations[] = {{1, 0.07}, {2, 0.12}, {3, 0.148}};
constexpr LevelAcceleration kM32Accelerations[] = {{2, 0.109}, {3, 0.168}, {4, 0.223}, {5, 0.288}};

float returnTripTime(const CPrinterTime& job, std::span<const LevelAcceleration> accelerations) {
    // adding 0 turns a level of -0, which no integer knows, into 0
    const double level = std::trunc(double{job.m_motorSpeed}) + 0.0;
    for (const LevelAcceleration& row : accelerations) {
        if (level == row.level) return static_cast<float>(std::sqrt(2.0 * job.m_liftHeight / row.mmPerSecond2));
    }
    return static_cast<float>(job.m_liftHeight / level);
}

constexpr int kDelayWindowSize = 50;
constexpr double kDelayWindowStart = 65.0;
constexpr int kSlowLayers = 11;
constexpr double kSlowLayerDelay = 11.0;  // s

struct AreaBand {
    double upTo;  // inclusive; the band begins above the one before it
    double secondsPerArea;
};

constexpr double kLowestBandBegin = 10.0;  // inclusive
constexpr AreaBand kAreaBands[] = {{20.0, 0.14}, {30.0, 0.15}, {40.0, 0.16}, {50.0, 0.17}, {65.0, 0.18}};

double secondsPerArea(double area) {
    if (!(area >= kLowestBandBegin)) return 0;
    for (const AreaBand& band : kAreaBands) {
        if (area <= band.upTo) return band.secondsPerArea;
    }
    return 0;
}

constexpr unsigned kAreaPerImageSecond = 1200;  // mm^2

/// The areas of the last ten layers and their mean, without its fraction.
class AreaWindow {
public:
    unsigned next(unsigned area, unsigned index) {
        if (index == 0) m_mean = area;  // which then fills the window too
        m_areas[index % std::size(m_areas)] = area;
        if (area >= m_mean) std::fill(std::begin(m_areas), std::end(m_areas), area);
        const auto sum = std::accumulate(std::begin(m_areas), std::end(m_areas), std::uint64_t{0});
        m_mean = static_cast<unsigned>(sum / std::size(m_areas));
        return m_mean;
    }

private:
    unsigned m_areas[10] = {20000, 20000, 20000, 20000, 20000, 20000, 20000, 20000, 20000, 20000};
    unsigned m_mean = 24000;
};

double imageSeconds(const CPrinterTime& job, double layerCount, AreaWindow& window) {
    if (!(layerCount > 0)) return 0;
    double seconds = 0;
    const float screenArea = job.m_resolutionY * job.m_resolutionX * job.m_pixelX * job.m_pixelY;
    for (std::size_t i = 0; i < job.m_maxAreaLineArea.size(); ++i) {
        const double area = i == 0 ? double{screenArea} : job.m_maxAreaLineArea[i] / 1000.0;
        const unsigned mean = window.next(truncatedToUnsigned(area), static_cast<unsigned>(i));
        const unsigned wholeSeconds = mean / kAreaPerImageSecond;
        seconds += wholeSeconds;
    }
    return seconds;
}

/// The window that the process has.
AreaWindow& sharedWindow() {
    static AreaWindow window;
    return window;
}

/// The general estimate, milliseconds but for the sum.
struct GeneralTerms {
    double levelTime;
    double printTime;
    double showImageTime;

    GeneralTerms(const CPrinterTime& job, double secondsOfImages) {
        levelTime = levelTimeMs(job);
        const double bottomLayerTime = layerTimeMs(job, truncatedToUnsigned(job.m_firstLayerExposure), true);
        const double normalLayerTime = layerTimeMs(job, truncatedToUnsigned(job.m_exposure), true);
        printTime =
            job.m_firstLayerNum < job.m_layerCount
                ? normalLayerTime * static_cast<double>(layersAboveBottom(job)) + job.m_firstLayerNum * bottomLayerTime
                : job.m_layerCount * bottomLayerTime;
        showImageTime = secondsOfImages * 1000;
    }
    [[nodiscard]] double seconds() const { return (printTime + levelTime + showImageTime) / 1000; }
};

/// What every layer of the M33 estimate takes but for the waits, milliseconds.
double m33PrintTimeMs(const CPrinterTime& job) {
    const double levelTime = levelTimeMs(job);
    // without the light-off delay, which the loop over the layers accounts for
    const double bottomLayerTime = layerTimeMs(job, truncatedToUnsigned(job.m_firstLayerExposure), false);
    const double normalLayerTime = layerTimeMs(job, truncatedToUnsigned(job.m_exposure), false);
    // unsigned, so that a negative number of bottom layers is a large one here
    const bool hasNormalLayers = static_cast<unsigned>(job.m_firstLayerNum) < static_cast<unsigned>(job.m_layerCount);
    return hasNormalLayers ? normalLayerTime * static_cast<double>(layersAboveBottom(job)) +
                                 job.m_firstLayerNum * bottomLayerTime + levelTime
                           : levelTime + job.m_layerCount * bottomLayerTime;
}

/// The waits of the M33 estimate, seconds; moves the job's window on.
double m33WaitSeconds(CPrinterTime& job) {
    job.m_delayWindowSize = kDelayWindowSize;
    job.m_delayWindow.assign(kDelayWindowSize, kDelayWindowStart);
    double waits = 0;
    for (int i = 0; i < job.m_layerCount; ++i) {
        double delay = job.m_lightOffDelay;
        double area = job.m_maxAreaLineArea.at(static_cast<std::size_t>(i));
        job.calculateM33DefaultParameters(delay, area);
        if (i < kSlowLayers) delay += kSlowLayerDelay;
        waits += delay;
    }
    return waits;
}

double m33Seconds(double waitSeconds, double printTimeMs) { return (waitSeconds * 1000 + printTimeMs) / 1000; }

}  // namespace

QuietEstimate estimateQuietly(CPrinterTime job) {
    if (job.m_machineName == "M31") return {"M31", Terms<double>(job, job.calculateM31ReturnTripTime()).sum()};
    if (job.m_machineName == "M32") {
        return {"M32", double{static_cast<float>(Terms<float>(job, job.calculateM32ReturnTripTime()).sum())}};
    }
    if (job.m_machineName == "M33") {
        const double waits = m33WaitSeconds(job);
        return {"M33", double{static_cast<float>(m33Seconds(waits, m33PrintTimeMs(job)))}};
    }
    if (job.m_levelHeightMap.count(job.m_machineName) == 0) return {};
    AreaWindow window;
    return {"general",
            double{static_cast<float>(GeneralTerms(job, imageSeconds(job, job.m_layerCount, window)).seconds())}};
}

CPrinterTime::CPrinterTime() { initParameterValue(); }
CPrinterTime::CPrinterTime(const CPrinterTime& other) = default;
CPrinterTime& CPrinterTime::operator=(const CPrinterTime& other) = default;
CPrinterTime::~CPrinterTime() = default;

void CPrinterTime::initParameterValue() {
    for (const MachineRow& row : kMachines) {
        m_levelHeightMap[row.name] = row.levelHeight;
        m_fullSpeedMap[row.name] = row.fullSpeed;
        m_motorSpeedMap[row.name] = row.motorSpeed;
    }
}

void CPrinterTime::setMachineName(std::string name) {
    static constexpr char kPrefix[] = "QV-";
    const std::size_t prefix = name.find(kPrefix);
    if (prefix != std::string::npos) name.erase(0, prefix + sizeof kPrefix - 1);
    std::transform(name.begin(), name.end(), name.begin(), capital);
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
    m_machineName = std::move(name);
    m_levelHeight = getLevelHeight();
    m_fullSpeed = lookUp(m_fullSpeedMap, m_machineName, 0.0F) > 0;
    m_motorSpeed = lookUp(m_motorSpeedMap, m_machineName, kUnknownMotorSpeed);
}

void CPrinterTime::setLayerCount(int count) { m_layerCount = count; }
void CPrinterTime::setLayerHeight(float mm) { m_layerHeight = mm; }

void CPrinterTime::setResolution(float x, float y) {
    m_resolutionX = x;
    m_resolutionY = y;
}

void CPrinterTime::setPixel(float x, float y) {
    m_pixelX = x;
    m_pixelY = y;
}

void CPrinterTime::setRotalAreaButFirst(float value) { m_rotalAreaButFirst = value; }
void CPrinterTime::setMaxAreaLineArea(std::vector<double> areas) { m_maxAreaLineArea = std::move(areas); }
void CPrinterTime::setFirstLayerExposure(float seconds) { m_firstLayerExposure = seconds; }
void CPrinterTime::setExposure(float seconds) { m_exposure = seconds; }
void CPrinterTime::setLightOffDelay(float seconds) { m_lightOffDelay = seconds; }
void CPrinterTime::setLiftHeight(float mm) { m_liftHeight = mm; }
void CPrinterTime::setFirstLayerNum(int count) { m_firstLayerNum = count; }
void CPrinterTime::setLayerExtraTime(float seconds) { m_layerExtraTime = seconds; }
void CPrinterTime::setSpareParam(float value) { m_spareParam = value; }
void CPrinterTime::setMotorSpeed(float mmPerSecond) { m_motorSpeed = mmPerSecond; }
void CPrinterTime::setLevelHeight(float mm) { m_levelHeight = mm; }
void CPrinterTime::setFullSpeed(bool fullSpeed) { m_fullSpeed = fullSpeed; }

float CPrinterTime::getLevelHeight() { return lookUp(m_levelHeightMap, m_machineName, kUnknownLevelHeight); }

double CPrinterTime::getLayerTime(unsigned exposureSeconds, bool withLightOffDelay) {
    return layerTimeMs(*this, exposureSeconds, withLightOffDelay);
}

float CPrinterTime::callPrinterTime() {
    const GeneralTerms terms(*this, getImageArea(m_layerCount));
    Log() << "level_time = " << terms.levelTime << '\n'
          << "print_time = " << terms.printTime << '\n'
          << "show_image_time = " << terms.showImageTime << '\n'
          << "total_time = " << terms.seconds() << '\n';
    return static_cast<float>(terms.seconds());
}

double CPrinterTime::getImageArea(double layerCount) {
    const double seconds = imageSeconds(*this, layerCount, sharedWindow());
    Log() << "GetImageArea: The picture total area is " << seconds;
    return seconds;
}

unsigned CPrinterTime::getDelayMaxArea(unsigned area, unsigned index) { return sharedWindow().next(area, index); }

double CPrinterTime::calM31PrintTime() { return loggedSum(Terms<double>(*this, calculateM31ReturnTripTime())); }

float CPrinterTime::calM32PrintTime() {
    return static_cast<float>(loggedSum(Terms<float>(*this, calculateM32ReturnTripTime())));
}

float CPrinterTime::calculateM31ReturnTripTime() { return returnTripTime(*this, kM31Accelerations); }

float CPrinterTime::calculateM32ReturnTripTime() { return returnTripTime(*this, kM32Accelerations); }

float CPrinterTime::calM33PrintTime() {
    Log() << "m_firstLayerExposure =" << m_firstLayerExposure << "m_exposure =" << m_exposure
          << "m_lightOffDelay =" << m_lightOffDelay << "m_liftHeight =" << m_liftHeight
          << "m_firstLayerNum =" << m_firstLayerNum;
    const double printTime = m33PrintTimeMs(*this);
    Log() << " MaxLayerGraphOutlineVec's size is " << m_maxAreaLineArea.size() << ", printedLayer is " << m_layerCount
          << '\n'
          << "delayLight:" << 0 << ",m_sPrintParamater.InitExposure" << m_firstLayerExposure << ",motorSpeed"
          << effectiveSpeed(*this) << ",m_sPrintParamater.PrintExposure" << m_exposure;

    const double delayLight = m33WaitSeconds(*this);
    const double total = m33Seconds(delayLight, printTime);
    Log() << ", delayLight is " << delayLight << "totalTime : " << total;
    return static_cast<float>(total);
}

void CPrinterTime::calculateM33DefaultParameters(double& delay, double& area) {
    if (!m_delayWindow.empty()) m_delayWindow.erase(m_delayWindow.begin());
    m_delayWindow.push_back(area);
    // summed anew each time: a running sum would gather rounding errors
    const double mean = std::accumulate(m_delayWindow.begin(), m_delayWindow.end(), 0.0) / kDelayWindowSize;
    delay += mean * secondsPerArea(mean);
}

}  // namespace vndlp
