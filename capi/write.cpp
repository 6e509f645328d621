// Files written.

#include "capi/capi.h"

#include <vndlp/slice_write.h>

#include <cmath>
#include <memory>
#include <vector>

using namespace vndlp;
using namespace vndlp::capi;

struct VndlpWriter {
    // encoding takes a const handle: it changes nothing that another thread sees
    mutable SliceWriter writer;
};

struct VndlpEncoded {
    SliceEncoded encoded;
};

std::int32_t vndlp_create(const char* path, std::uint32_t width, std::uint32_t height, std::uint32_t layers,
                          const VndlpFile* like, VndlpWriter** out) {
    if (path == nullptr || out == nullptr) return failNull();
    if (width == 0 || height == 0 || layers == 0) return fail(VNDLP_E_SIZE, "a width, height or number of layers of 0");
    return guarded([&]() -> std::int32_t {
        if (!hasEnding(path)) return VNDLP_E_ARGUMENT;
        auto made = std::make_unique<VndlpWriter>();
        SliceTarget target;
        target.width = width;
        target.height = height;
        target.layers = layers;
        target.like = like == nullptr ? nullptr : &like->file;
        const std::int32_t code = codeOf(made->writer.create(path, target));
        if (code == VNDLP_OK) *out = made.release();
        return code;
    });
}

std::int32_t vndlp_set_number(VndlpWriter* writer, const char* key, std::int64_t layer, double value) {
    if (writer == nullptr || key == nullptr) return failNull();
    if (!std::isfinite(value)) return fail(VNDLP_E_VALUE, "no finite number");
    return guarded([&] { return codeOf(writer->writer.setNumber(key, layer, value)); });
}

std::int32_t vndlp_set_text(VndlpWriter* writer, const char* key, const char* value) {
    if (writer == nullptr || key == nullptr || value == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.setText(key, value)); });
}

std::int32_t vndlp_set_preview(VndlpWriter* writer, std::uint32_t index, const std::uint8_t* rgb, std::uint32_t width,
                               std::uint32_t height, std::size_t stride) {
    if (writer == nullptr || rgb == nullptr) return failNull();
    const std::uint64_t row = std::uint64_t{3} * width;
    if (row == 0 || height == 0 || (stride != 0 && stride < row)) {
        return fail(VNDLP_E_SIZE, "a preview without pixels, or a stride below three times the width");
    }
    return guarded([&] { return codeOf(writer->writer.setPreview(index, rgb, width, height, stride)); });
}

std::int32_t vndlp_encode(const VndlpWriter* writer, std::uint32_t layer, const std::uint8_t* pixels,
                          std::size_t stride, std::size_t bytes, VndlpEncoded** out) {
    if (writer == nullptr || pixels == nullptr || out == nullptr) return failNull();
    return guarded([&] {
        auto made = std::make_unique<VndlpEncoded>();
        const std::int32_t code = codeOf(writer->writer.encode(layer, pixels, stride, bytes, kNoNumber, made->encoded));
        if (code == VNDLP_OK) *out = made.release();
        return code;
    });
}

std::int32_t vndlp_put_encoded(VndlpWriter* writer, VndlpEncoded* layer) {
    const std::unique_ptr<VndlpEncoded> owned(layer);
    if (writer == nullptr || layer == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.put(owned->encoded)); });
}

std::int32_t vndlp_put_pixels(VndlpWriter* writer, std::uint32_t layer, const std::uint8_t* pixels, std::size_t stride,
                              std::size_t bytes) {
    if (writer == nullptr || pixels == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.putPixels(layer, pixels, stride, bytes, kNoNumber)); });
}

std::int32_t vndlp_put_runs(VndlpWriter* writer, std::uint32_t layer, const VndlpRun* runs, std::size_t count) {
    if (writer == nullptr || (runs == nullptr && count != 0)) return failNull();
    return guarded(
        [&] { return codeOf(writer->writer.putRuns(layer, reinterpret_cast<const SliceRun*>(runs), count)); });
}

std::int32_t vndlp_put_points(VndlpWriter* writer, std::uint32_t layer, const std::int32_t* xy,
                              const std::uint32_t* path, std::size_t count) {
    if (writer == nullptr || (xy == nullptr && count != 0)) return failNull();
    return guarded([&] {
        SliceShapes shapes;
        shapes.points.assign(xy, xy + 2 * count);
        std::uint32_t number = 0;
        for (std::size_t point = 0; path != nullptr && point < count; ++point) {
            if (path[point] < number || path[point] > count) {
                return fail(VNDLP_E_VALUE,
                            "the numbers of the polylines fall, or leave out more than there are points");
            }
            for (; number < path[point]; ++number) shapes.pathEnds.push_back(static_cast<std::uint32_t>(point));
        }
        if (count != 0) shapes.pathEnds.push_back(static_cast<std::uint32_t>(count));
        return codeOf(writer->writer.putShapes(layer, shapes, kNoNumber));
    });
}

std::int32_t vndlp_put_layer(VndlpWriter* writer, std::uint32_t layer, const VndlpFile* from,
                             std::uint32_t from_layer) {
    if (writer == nullptr || from == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.putLayer(layer, from->file, from_layer)); });
}

std::int32_t vndlp_finish(VndlpWriter* writer) {
    if (writer == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.finish()); });
}

std::int32_t vndlp_cancel(VndlpWriter* writer) {
    if (writer == nullptr) return failNull();
    return guarded([&] { return codeOf(writer->writer.cancel()); });
}

void vndlp_encoded_free(VndlpEncoded* layer) { delete layer; }

void vndlp_writer_free(VndlpWriter* writer) { delete writer; }
