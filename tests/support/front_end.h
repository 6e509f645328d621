/// What the suites of the front end's writers share.

#pragma once

#include <vndlp/writer.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace vndlp::test {

/// An image with these pixels, of as many bytes a pixel as there are.
inline SliceImage sliceImage(const std::vector<unsigned char>& pixels, unsigned width, unsigned height) {
    SliceImage image{static_cast<unsigned>(pixels.size()), width, height, nullptr};
    image.pixels.reset(new unsigned char[pixels.size() + 1]);
    std::copy(pixels.begin(), pixels.end(), image.pixels.get());
    return image;
}

/// Opens the file and writes the header with these previews; the first result that is not 0.
inline int openAndWriteHeader(DLPWriter& writer, std::vector<SliceImage> previews) {
    const int opened = writer.openFile();
    return opened < 0 ? opened : writer.writeHeader(previews);
}

/// Numbers the numbers of a job's parameters, in file order: `first` and what follows.
template <class Parameters, class Number>
void numberParameters(Parameters& p, Number first) {
    for (Number* field : {&p.exposure_time, &p.light_off_delay, &p.first_exposure_time, &p.first_layer_count,
                          &p.first_lift_distance, &p.first_lift_speed, &p.lifting_distance, &p.lifting_speed,
                          &p.retract_speed, &p.firstBrightnessPVM, &p.brightnessPVM}) {
        *field = first++;
    }
}

}  // namespace vndlp::test
