/// \file print_time.h
/// How long a print job takes: `CPrinterTime`, a model of one machine and its job with four ways of summing it up, and
/// `calPrintTime`, a second estimate that times every move of the build plate by its speed profile.
///
/// This header is C and C++; C sees the functions at its end.
///
/// Nothing here reports failure. Both estimates write what they find to standard output, or to the handler of
/// `<vndlp/messages.h>`: the class with whatever number formatting `std::cout` has, the functions as printf does.

#ifndef VNDLP_PRINT_TIME_H
#define VNDLP_PRINT_TIME_H

#include <vndlp/export.h>

#ifdef __cplusplus

#include <map>
#include <string>
#include <vector>

namespace vndlp {

/// Print-time model of one machine and one job.
///
/// Fill in the job (exposures, layers, lift, screen, areas), name the machine, then ask a calculator. The calculators
/// may be called again and again; values may be set in any order, but `setMachineName` overwrites `m_motorSpeed`,
/// `m_levelHeight` and `m_fullSpeed`. No value is checked: a speed of 0 gives infinite times (with no
/// bottom layers, ones that are not a number).
///
/// Times are seconds, lengths millimetres, speeds millimetres per second. The general and the M33 estimate count whole
/// seconds of exposure only: 2.9 s is taken as 2 s, a negative or undefined exposure as 0.
///
/// "speed" below is the effective speed: `m_motorSpeed` where `m_fullSpeed` is set, else 1.5 times as much.
///
/// Not for concurrent use, not even of different objects: the window of `getDelayMaxArea` is shared by the process.
class VNDLP_API CPrinterTime {
public:
    float m_motorSpeed = 3.0F;           ///< Z motor, mm/s; M31 and M32 take its whole part as a speed level
    float m_firstLayerExposure = 30.0F;  ///< exposure of each bottom layer, s
    float m_exposure = 3.0F;             ///< exposure of each normal layer, s
    float m_lightOffDelay = 4.0F;        ///< wait with the light off after each layer, s
    float m_liftHeight = 8.0F;           ///< lift after each layer, mm
    int m_firstLayerNum = 1;             ///< number of bottom layers
    float m_layerExtraTime = 1.0F;       ///< fixed extra time of each layer, s
    float m_spareParam = 0.05F;          ///< kept for the host, read by no calculation
    float m_levelHeight = 236.0F;        ///< Z travel of the machine, mm
    bool m_fullSpeed = false;            ///< see "speed" above
    std::string m_machineName;           ///< as normalised by `setMachineName`
    int m_layerCount = 1;                ///< layers of the job, the bottom layers among them
    float m_layerHeight = 0.05F;         ///< layer thickness, mm
    float m_resolutionX = 0.0F;          ///< screen, pixels
    float m_resolutionY = 0.0F;          ///< screen, pixels
    float m_rotalAreaButFirst = 0.0F;    ///< kept for the host, read by no calculation
    float m_pixelX = 0.05F;              ///< pixel size, mm
    float m_pixelY = 0.05F;              ///< pixel size, mm
    /// Exposed area of each layer; the index is the layer number. The general estimate takes thousandths of a mm^2 (the
    /// area values of the vendor container as they are), the M33 estimate numbers on the scale of its bands, see
    /// `calculateM33DefaultParameters`. The other estimates do not read it.
    std::vector<double> m_maxAreaLineArea;
    std::map<std::string, int> m_levelHeightMap;  ///< machine table: Z travel, mm
    std::map<std::string, int> m_fullSpeedMap;    ///< machine table: 1 full speed, 0 not
    std::map<std::string, int> m_motorSpeedMap;   ///< machine table: motor speed, mm/s
    std::vector<double> m_delayWindow;            ///< the last areas the M33 estimate has seen, oldest first
    int m_delayWindowSize = 0;                    ///< 50 once `calM33PrintTime` has run; told, not obeyed

    /// The values above and the machine table: 28 machines, "M01" to "M28".
    CPrinterTime();
    CPrinterTime(const CPrinterTime& other);
    CPrinterTime& operator=(const CPrinterTime& other);
    ~CPrinterTime();

    /// Names the machine and takes its Z travel, full-speed flag and motor speed from the table.
    /// \param name what stands behind the first "QV-", if that occurs (in these capitals), is the name; letters are
    ///             then raised to capitals and every '-' is dropped, so "QV-m0-1" is "M01". A name the table does not
    ///             know, "M31" to "M33" among them, gives 236 mm, no full speed and 3 mm/s.
    void setMachineName(std::string name);

    void setLayerCount(int count);
    void setLayerHeight(float mm);
    /// Screen size in pixels.
    void setResolution(float x, float y);
    /// Pixel size in mm.
    void setPixel(float x, float y);
    void setRotalAreaButFirst(float value);
    /// Replaces `m_maxAreaLineArea`, see there for the unit.
    void setMaxAreaLineArea(std::vector<double> areas);
    void setFirstLayerExposure(float seconds);
    void setExposure(float seconds);
    void setLightOffDelay(float seconds);
    void setLiftHeight(float mm);
    /// Number of bottom layers.
    void setFirstLayerNum(int count);
    /// Fixed extra time of each layer.
    void setLayerExtraTime(float seconds);
    void setSpareParam(float value);
    /// The three values of the machine, for one that is not in the table. Call them behind `setMachineName`.
    void setMotorSpeed(float mmPerSecond);
    void setLevelHeight(float mm);
    void setFullSpeed(bool fullSpeed);

    /// Z travel of the named machine by the table; 236 when the table does not know it.
    float getLevelHeight();

    /// General estimate: every layer's time (see `getLayerTime`), one travel of `m_levelHeight` at speed, and
    /// `getImageArea(m_layerCount)`. With no more layers than bottom layers, all are bottom layers.
    ///
    /// Prints, behind the text of `getImageArea`, four lines in this order: "level_time = ", "print_time = " and
    /// "show_image_time = " in milliseconds, "total_time = " in seconds.
    /// \return seconds.
    float callPrinterTime();

    /// M31 estimate: bottom exposure x bottom layers, exposure x the layers above, light-off delay and return trip of
    /// each layer. With no more layers than bottom layers, the second term is layers x the whole bottom time.
    ///
    /// Prints the four terms in seconds on the lines "1. first_layer_time =", "2. print_time =", "3. delay_time =",
    /// "4. returntrip_time =", then "5. totalTime =", which repeats the return trips and is not the total.
    /// \return seconds.
    double calM31PrintTime();

    /// M32 estimate: as M31, with its own return trip and the four terms formed in single precision.
    float calM32PrintTime();

    /// M33 estimate: every layer's time without the light-off delay, one travel of `m_levelHeight` at speed, and for
    /// each layer the light-off delay plus what `calculateM33DefaultParameters` adds for its area, plus 11 s for each
    /// of the first eleven layers. The area window starts with 50 values of 65.
    ///
    /// Prints its input and the two results "delayLight is " and "totalTime : " in seconds; the only line end is behind
    /// the layer count, nothing ends the last line.
    /// \return seconds.
    /// \throw std::out_of_range with fewer areas than layers; by then all but the results are printed.
    float calM33PrintTime();

    /// Time of one lift and return in seconds: sqrt(2 x lift / a) with the acceleration a of the speed level, which is
    /// `m_motorSpeed` without its fraction, or lift / level at a level without one (infinite at level 0).
    ///
    /// | level | M31 a, mm/s^2 | M32 a, mm/s^2 |
    /// |-------|---------------|---------------|
    /// | 1     | 0.07          |               |
    /// | 2     | 0.12          | 0.109         |
    /// | 3     | 0.148         | 0.168         |
    /// | 4     |               | 0.223         |
    /// | 5     |               | 0.288         |
    float calculateM31ReturnTripTime();
    float calculateM32ReturnTripTime();

    /// Moves the M33 area window on by one layer and adds the wait that the window calls for: its mean (the sum of its
    /// areas / 50) times a factor. Below 10 and above 65 nothing is added.
    ///
    /// | mean            | factor |
    /// |-----------------|--------|
    /// | 10 to 20        | 0.14   |
    /// | above 20, to 30 | 0.15   |
    /// | above 30, to 40 | 0.16   |
    /// | above 40, to 50 | 0.17   |
    /// | above 50, to 65 | 0.18   |
    ///
    /// \param delay seconds, added to.
    /// \param area  of the layer; replaces the window's oldest, or joins an empty window. Not changed.
    void calculateM33DefaultParameters(double& delay, double& area);

    /// Smoothed area of the last ten layers. A rise fills the whole window at once, a fall enters it layer by layer.
    /// The window belongs to the process, not to the object.
    /// \param area  of the layer, mm^2.
    /// \param index layer number; 0 makes the whole window and its mean `area`.
    /// \return the window's mean, without its fraction.
    unsigned getDelayMaxArea(unsigned area, unsigned index);

    /// Time the images of the job are on show, seconds: for every entry of `m_maxAreaLineArea` the smoothed area / 1200
    /// without its fraction. Layer 0 counts as the whole screen, the others as their entry / 1000 without its fraction;
    /// an area no unsigned 32-bit number can hold counts as the nearest one that it can, an undefined one as 0.
    ///
    /// Prints "GetImageArea: The picture total area is " and the result, without a line end.
    /// \param layerCount only told from zero: the entries are what is summed. Not above 0: the result is 0.
    double getImageArea(double layerCount);

protected:
    /// Time of one layer in milliseconds: extra time, exposure, light-off delay where asked for, a lift and a drop of
    /// `m_liftHeight` at speed, 50 ms, and `m_layerHeight` / speed, which stays in seconds: its unit is long settled.
    double getLayerTime(unsigned exposureSeconds, bool withLightOffDelay);

    /// Fills the machine table.
    void initParameterValue();
};

}  // namespace vndlp

extern "C" {
#endif

/// Where each setting of `calPrintTime` stands in its array. They are the leading members of `CPrinterTime`, in the
/// same order and units.
enum {
    VNDLP_TIME_MOTOR_SPEED = 0,           ///< of lift and drop, mm/s
    VNDLP_TIME_FIRST_LAYER_EXPOSURE = 1,  ///< exposure of each bottom layer, s
    VNDLP_TIME_EXPOSURE = 2,              ///< exposure of each normal layer, s
    VNDLP_TIME_LIGHT_OFF_DELAY = 3,       ///< wait with the light off after each layer, s
    VNDLP_TIME_LIFT_HEIGHT = 4,           ///< lift after each layer, mm
    VNDLP_TIME_FIRST_LAYER_NUM = 5,       ///< number of bottom layers; a fraction is dropped
    VNDLP_TIME_SETTING_COUNT = 6
};

/// Print time of a job, layer by layer: each takes its exposure, the light-off delay, a rest of 1 s, the lift, and the
/// drop over the same distance at the same speed. The first layers, as many as the settings say, are bottom layers and
/// take the bottom exposure.
///
/// A move starts and ends at rest. A step of the motor moves the plate 0.000625 mm, and the motor gains and loses speed
/// at A = 80000 steps/s^2 (50 mm/s^2). A move of D = distance / 0.000625 steps at up to V = speed / 0.000625 steps/s
/// takes
///
///     D / V + V / A      where D >= V * V / A: full speed is reached, the profile is a trapezium
///     2 * sqrt(D / A)    else: the plate brakes before it is up to speed, the profile is a triangle
///
/// seconds. D and V are not rounded to whole steps. So 8 mm at 3 mm/s, 12800 steps at 4800 steps/s, take
/// 2.66667 + 0.06 s, and 0.125 mm at the same speed, 200 steps where full speed needs 288, take 0.1 s.
///
/// Prints one line a layer (times in seconds, layers count from 0), for the first 100000 layers only,
///
///     layer 0 : exposure 30.00 s, light off 4.00 s, rest 1.00 s, lift 2.727 s, drop 2.727 s, total 40.453 s
///
/// and a last line "total hour : %.2d h %.2d min %.2d s\n" with the total split into hours, minutes and whole seconds,
/// the fraction dropped; hours beyond an int show as the largest int.
///
/// \param settings   6 values in the order of the enumeration above, not changed; one that is negative, infinite or not
///                   a number counts as 0. Without speed or lift height the plate does not move and the moves take 0 s.
/// \param layerCount layers of the job, bottom layers included. The run time grows with the printed lines only.
/// \return seconds, always finite; 0, and nothing is printed, when `settings` is null. 0 layers take 0 s.
VNDLP_API double calPrintTime(float* settings, unsigned int layerCount);

#ifdef __cplusplus
}
#endif

#endif
