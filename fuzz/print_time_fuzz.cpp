// The print-time models, with numbers of any bits.

#include "fuzz/harness.h"

#include <vndlp/print_time.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vndlp::fuzz {

void run(const Bytes& input) {
    float numbers[16] = {};
    std::memcpy(numbers, input.data(), std::min(input.size(), sizeof numbers));
    const unsigned int layers = input.size() < 2 ? 0 : input[0] * 256u + input[1];
    require(std::isfinite(calPrintTime(numbers, layers)));

    CPrinterTime model;
    model.setMachineName(std::string(input.begin(), input.end()));
    model.setLayerCount(static_cast<int>(layers % 1000) - 10);
    model.setMaxAreaLineArea(std::vector<double>(numbers, numbers + 16));
    model.setFirstLayerExposure(numbers[2]);
    model.setExposure(numbers[3]);
    model.setLightOffDelay(numbers[4]);
    model.setLiftHeight(numbers[5]);
    model.setMotorSpeed(numbers[6]);
    model.setResolution(numbers[7], numbers[8]);
    model.setPixel(numbers[9], numbers[10]);
    model.setFirstLayerNum(static_cast<int>(input.back()) - 20);
    model.callPrinterTime();
    model.calM31PrintTime();
    model.calM32PrintTime();
    try {
        model.calM33PrintTime();
    } catch (const std::out_of_range&) {  // fewer areas than layers
    }
}

}  // namespace vndlp::fuzz
