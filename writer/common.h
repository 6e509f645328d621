/// What every format's writer does alike.

#pragma once

#include <vndlp/formats.h>
#include <vndlp/writer.h>
#include "ctb/preview_codec.h"
#include "io/byte_order.h"
#include "io/platform.h"
#include "io/report.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace vndlp {

/// Previews a header takes from the slicer.
constexpr std::size_t kPreviewCount = 3;

/// The result code of what fails in the front end itself; the container writers' codes are passed on.
enum WriterCode : int { kWriterOk = 0, kOtherLayers = -7, kBadImage = -30, kBadLayerIndex = -31 };

/// Keeps the first failure of a job: later calls go on, and `finish` still returns it. Noting is safe from several
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

/// Gives a structure whose own resolution is 0 the writer's, anew for every file of the writer.
class ResolutionLoan {
public:
    void lendTo(DlpFileStructure& structure, unsigned int x, unsigned int y) {
        const int ownX = structure.getResolutionX();
        const int ownY = structure.getResulutionY();
        structure.setResolution(lend(ownX, m_x, x), lend(ownY, m_y, y));
    }

private:
    /// \param own    what the structure has: its own, or what it was lent for the file before.
    /// \param lent   what that was; becomes what it is lent now, 0 for nothing.
    /// \return what the structure is to have.
    static int lend(int own, int& lent, unsigned int given) {
        const bool isOwn = own != 0 && own != lent;
        lent = isOwn ? 0 : static_cast<unsigned short>(given);
        return isOwn ? own : lent;
    }

    int m_x = 0;
    int m_y = 0;
};

/// How many layers a header announces; `finish` reports others: no reader takes such a file for complete.
class AnnouncedLayers {
public:
    void set(int count) { m_count = std::max(count, 0); }
    /// \return negative, with an error line, when no header announced `delivered` layers.
    int settle(const std::string& path, std::size_t delivered) const {
        const long long announced = m_count;
        if (announced == static_cast<long long>(delivered) && announced <= kMaxLayers) return kWriterOk;
        if (announced == kNone) {
            report("error: %s: no header was written\n", path.c_str());
        } else if (announced == static_cast<long long>(delivered)) {
            report("error: %s: %zu layers, a file holds at most %d\n", path.c_str(), delivered, kMaxLayers);
        } else {
            report("error: %s: %lld layers were announced, %zu delivered\n", path.c_str(), announced, delivered);
        }
        return kOtherLayers;
    }

private:
    static constexpr int kNone = -1;
    int m_count = kNone;
};

/// Puts an image into the preview of a CTB or V4 file.
template <class PreView>
void fillPreview(PreView& preView, const SliceImage& image, FirstFailure& failure) {
    preView.resolutionX = image.width;
    preView.resolutionY = image.height;
    if (image.pixels == nullptr && image.size != 0) {
        report("error: a preview of %u bytes has no pixels\n", image.size);
        failure.note(kBadImage);
    } else {
        preView.imageData = CTB::encodePreview(image.pixels.get(), image.size);
    }
    preView.imageSize = static_cast<unsigned int>(preView.imageData.size());
}

/// Print parameters of a CTB or V4 file, as far as both take them alike.
template <class PrintParameters>
PrintParameters printParametersOf(const DLPWriter& writer) {
    const DlpParameters& from = writer.fileStructure.parameters;
    PrintParameters to;
    to.bottomLiftHeight = from.first_lift_distance;
    to.bottomLiftSpeed = from.first_lift_speed;
    to.liftHeight = from.lifting_distance;
    to.liftSpeed = from.lifting_speed;
    to.retractSpeed = from.retract_speed;
    to.volume = bitCast<float>(writer.resinVolume);
    to.weight = writer.resinWeight;
    return to;
}

}  // namespace vndlp
