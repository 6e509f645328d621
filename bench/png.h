/// The road most slicers take: layers as PNG, and the layers of the sample job, which are stored so.

#pragma once

#include "bench/layers.h"
#include "tools/jobs/job.h"

#include <spng.h>

#include <algorithm>
#include <cstdlib>

namespace vndlp::bench {

/// A layer as grey PNG at zlib's fastest level, without filters.
inline std::vector<unsigned char> encodePng(const Layer& layer) {
    spng_ctx* const context = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(context, SPNG_ENCODE_TO_BUFFER, 1);
    spng_set_option(context, SPNG_IMG_COMPRESSION_LEVEL, 1);
    spng_set_option(context, SPNG_FILTER_CHOICE, SPNG_DISABLE_FILTERING);
    spng_ihdr header{};
    header.width = static_cast<std::uint32_t>(layer.width);
    header.height = static_cast<std::uint32_t>(layer.height);
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_GRAYSCALE;
    spng_set_ihdr(context, &header);
    spng_encode_image(context, layer.pixels.data(), layer.pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    std::size_t size = 0;
    int error = 0;
    void* const data = spng_get_png_buffer(context, &size, &error);
    std::vector<unsigned char> png(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + size);
    std::free(data);
    spng_ctx_free(context);
    return png;
}

/// A full plate of a job's models, side by side.
inline Layer plateLayer(tools::LayerSource& job, int index, int width, int height) {
    tools::GreyImage image;
    job.readLayer(index, image);
    Layer plate = emptyLayer(width, height);
    for (int y = 0; y < height; ++y) {
        const unsigned char* const row = image.row(y % image.height);
        for (int x = 0; x < width; x += image.width) {
            std::copy_n(row, std::min(image.width, width - x),
                        plate.pixels.begin() + static_cast<std::ptrdiff_t>(y) * width + x);
        }
    }
    return plate;
}

/// A layer from the middle of the sample job.
inline Layer towerLayer() {
    const std::unique_ptr<tools::LayerSource> job = tools::openJob(VNDLP_EXAMPLES_DIR "/lattice_tower.sl1");
    tools::GreyImage image;
    job->readLayer(job->layerCount() / 2, image);
    return {image.width, image.height, std::move(image.pixels)};
}

}  // namespace vndlp::bench
