/// What every format's writer does alike.

#pragma once

#include <vndlp/writer.h>
#include "io/platform.h"
#include "io/report.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace vndlp {

/// Pictures a header takes from the slicer.
constexpr std::size_t kPreviewCount = 3;

/// The result code of what fails in the front end itself; the container writers' codes are passed on.
enum WriterCode : int { kWriterOk = 0, kTooFewLayers = -7, kBadImage = -30, kBadLayerIndex = -31 };

/// Keeps the first failure of a job: later calls go on, and `finish` still tells of it. Noting is safe from several
/// threads at once.
class FirstFailure {
public:
    /// Notes a result and returns it.
    int note(int result) {
        int none = 0;
        if (result < 0) m_code.compare_exchange_strong(none, result);
        return result;
    }
    int code() const { return m_code; }
    void clear() { m_code = 0; }

private:
    std::atomic<int> m_code{0};
};

/// Moves the first three previews out of the caller's vector; false, with nothing moved, when there are fewer.
inline bool takePreviews(std::vector<SliceImage>& from, SliceImage& first, SliceImage& second, SliceImage& third) {
    if (from.size() < kPreviewCount) return false;
    std::size_t next = 0;
    for (SliceImage* to : {&first, &second, &third}) {
        SliceImage& image = from[next++];
        to->size = image.size;
        to->width = image.width;
        to->height = image.height;
        to->pixels = std::move(image.pixels);
    }
    return true;
}

/// Tells of layers that were announced and not delivered; of too many the container's writer tells.
inline int checkLayerCount(std::size_t delivered, int announced) {
    if (static_cast<long long>(delivered) >= announced) return kWriterOk;
    report("error: %zu layers delivered, %d were announced\n", delivered, announced);
    return kTooFewLayers;
}

/// Bytes from one row of a layer image to the next.
inline std::size_t strideOf(const SliceImage& image) { return image.stride != 0 ? image.stride : image.width; }

/// Whether a layer image can be read: it has pixels, and its size (where it states one) covers its rows.
inline int checkLayerImage(const SliceImage& image, long long layerIndex) {
    const unsigned long long pixels = static_cast<unsigned long long>(image.width) * image.height;
    if (pixels == 0) return kWriterOk;
    if (image.pixels == nullptr) {
        report("error: layer %lld has no pixels\n", layerIndex);
        return kBadImage;
    }
    if (strideOf(image) < image.width) {
        report("error: layer %lld: %u bytes from row to row for %u pixels\n", layerIndex, image.stride, image.width);
        return kBadImage;
    }
    const unsigned long long bytes = (image.height - 1ull) * strideOf(image) + image.width;
    if (pixels > 0x7FFFFFFF || (image.size != 0 && image.size < bytes)) {
        report("error: layer %lld: %u bytes given for %u x %u pixels\n", layerIndex, image.size, image.width,
               image.height);
        return kBadImage;
    }
    return kWriterOk;
}

/// Gives a structure whose own resolution is still 0 the writer's.
inline void completeResolution(DlpFileStructure& structure, unsigned int x, unsigned int y) {
    const int ownX = structure.getResolutionX();
    const int ownY = structure.getResulutionY();
    structure.setResolution(ownX != 0 ? ownX : static_cast<int>(x), ownY != 0 ? ownY : static_cast<int>(y));
}

}  // namespace vndlp
