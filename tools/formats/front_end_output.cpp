/// Writing through the library's writer front end: formats whose layers it encodes as they are delivered.

#include "tools/formats/front_end_output.h"
#include "tools/base/failure.h"
#include "tools/formats/vendor_records.h"
#include "tools/images/transform.h"
#include "tools/jobs/input.h"

#include <vndlp/writer.h>

#include <bit>
#include <cstdint>

namespace vndlp::tools {

namespace {

struct PixelSize {
    int width;
    int height;
};
// the large preview stands first in the file
constexpr PixelSize kPreviewSizes[] = {{400, 300}, {200, 125}, {200, 125}};

constexpr PixelSize kBeadScreen{15120, 6230};

/// A picture as the three bytes a pixel (blue, green, red) that previews are encoded from.
SliceImage previewOf(const ColourImage& picture, const PixelSize& size) {
    const ColourImage scaled = resizeColour(picture, size.width, size.height);
    SliceImage preview;
    preview.width = static_cast<unsigned int>(size.width);
    preview.height = static_cast<unsigned int>(size.height);
    preview.size = preview.width * preview.height * 3;
    preview.pixels.reset(new unsigned char[preview.size]);
    unsigned char* out = preview.pixels.get();
    for (std::size_t i = 0; i < scaled.pixels.size(); i += 4) {
        *out++ = scaled.pixels[i + 2];
        *out++ = scaled.pixels[i + 1];
        *out++ = scaled.pixels[i];
    }
    return preview;
}

class FrontEndOutput final : public SliceOutput {
public:
    FrontEndOutput(std::string path, const std::string& temporary)
        : m_path(std::move(path)), m_writer(createDLPWriter(temporary)), m_storesAreas(m_path.ends_with(".vndlpv4")) {
        if (m_writer == nullptr) throw Failure(m_path + ": the library has no writer for this ending");
        m_writer->filePath = temporary;
    }

    void begin(const OutputJob& job) override {
        const PrintSettings& s = job.settings;
        m_pixelArea = pixelAreaOf(s, job.width, job.height);
        DLPWriter& w = *m_writer;
        w.layerCount = job.layerCount;
        w.machineType = s.text("machine");
        w.machineName = s.text("machine");
        w.resolutionX = static_cast<unsigned int>(job.width);
        w.resolutionY = static_cast<unsigned int>(job.height);
        w.bedSizeX = s.number("display_width_mm");
        w.bedSizeY = s.number("display_height_mm");
        w.bedSizeZ = s.number("machine_height_mm");
        w.printTime = static_cast<unsigned int>(s.number("print_time_s"));
        w.resinVolume = std::bit_cast<std::uint32_t>(static_cast<float>(s.number("resin_ml")));
        w.resinWeight = static_cast<float>(s.number("resin_g"));
        w.fileStructure.parameters = parametersOf(s);
        w.fileStructure.sliceBasicParameters = sliceParametersOf(s);
        std::vector<SliceImage> previews;
        std::size_t picture = job.pictures.size();
        for (const PixelSize& size : kPreviewSizes) {
            picture = picture > 0 ? picture - 1 : 0;
            previews.push_back(previewOf(job.pictures.at(picture), size));
        }
        if (w.openFile() < 0) throw Failure(m_path + ": cannot be created");
        if (w.writeHeader(previews) < 0) fail();
        w.resizeLayers(job.layerCount);
        // the bead field lies behind this screen only; formats without bead masks have nothing to prepare
        if (job.width == kBeadScreen.width && job.height == kBeadScreen.height) w.prepareLampBeadCal(job.threads);
    }

    EncodedLayer encode(int index, GreyImage& image) override {
        SliceImage layer;
        layer.width = static_cast<unsigned int>(image.width);
        layer.height = static_cast<unsigned int>(image.height);
        layer.stride = static_cast<unsigned int>(image.stride());
        layer.size = static_cast<unsigned int>(image.pixels.size() - image.padding);
        // lent for the call: the writer keeps the code, not the pixels
        layer.pixels = std::shared_ptr<unsigned char[]>(image.pixels.data() + image.padding, [](unsigned char*) {});
        const double area = m_storesAreas ? countLit(image) * m_pixelArea : 0;
        if (m_writer->setLayerImageAt(index, layer, area) < 0) fail();
        return {};
    }

    void write(int /*index*/, EncodedLayer&& /*layer*/) override {}

    void finish() override {
        if (m_writer->finish() < 0) fail();
    }

private:
    [[noreturn]] void fail() const {
        throw Failure(m_path + ": could not be written completely: the disk is full, or the system reports an error");
    }

    std::string m_path;
    std::unique_ptr<DLPWriter> m_writer;
    bool m_storesAreas;
    double m_pixelArea = 0;  // square micrometres
};

}  // namespace

std::unique_ptr<SliceOutput> createFrontEndOutput(const std::string& path, const std::string& temporary) {
    return std::make_unique<FrontEndOutput>(path, temporary);
}

}  // namespace vndlp::tools
