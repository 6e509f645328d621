// Files opened and read.

#include "capi/capi.h"

#include <cmath>
#include <memory>
#include <vector>

using namespace vndlp;
using namespace vndlp::capi;

namespace {

template <class Open>
std::int32_t openWith(VndlpFile** out, Open&& open) noexcept {
    if (out == nullptr) return failNull();
    return guarded([&] {
        auto made = std::make_unique<VndlpFile>();
        const std::int32_t code = codeOf(open(made->file));
        if (code == VNDLP_OK) *out = made.release();
        return code;
    });
}

// Integers keep all their digits, numbers as few as tell them apart.
std::string textOf(const SliceRawField& field) {
    if (field.type == SliceValueType::text) return field.text;
    if (field.type == SliceValueType::integer) return std::to_string(field.integer);
    char text[32];
    for (const int digits : {9, 17}) {
        std::snprintf(text, sizeof text, "%.*g", digits, field.number);
        if (std::isnan(field.number) || std::strtod(text, nullptr) == field.number) break;
    }
    return text;
}

void fillRaw(VndlpRaw* out, const SliceRawField& field) {
    const bool isText = field.type == SliceValueType::text;
    fill(out, {0, static_cast<std::int32_t>(field.type), field.isFixed ? 1 : 0, keep(field.name, 0), field.unit,
               keep(textOf(field), 1), isText ? kNoNumber : field.number, field.offset, field.bytes});
}

}  // namespace

std::int32_t vndlp_open(const char* path, VndlpFile** out) {
    if (path == nullptr) return failNull();
    return openWith(out, [&](SliceFile& file) { return file.open(path); });
}

std::int32_t vndlp_open_memory(const void* data, std::size_t bytes, VndlpFile** out) {
    if (data == nullptr) return failNull();
    return openWith(out, [&](SliceFile& file) { return file.openMemory(data, bytes); });
}

std::int32_t vndlp_open_source(const VndlpSource* source, VndlpFile** out) {
    if (!isUsable(source)) return VNDLP_E_ARGUMENT;
    const VndlpSource given = taken(source);
    if (given.read == nullptr || given.bytes < 0) return fail(VNDLP_E_ARGUMENT, "a source without bytes or `read`");
    return openWith(out, [&](SliceFile& file) { return file.openSource({given.context, given.bytes, given.read}); });
}

void vndlp_close(VndlpFile* file) { delete file; }

std::int32_t vndlp_info(const VndlpFile* file, VndlpInfo* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    const SliceInfo& info = file->file.info();
    fill(out, {0, static_cast<std::int32_t>(info.format), info.version, static_cast<std::int32_t>(info.layerKind),
               info.layers, info.width, info.height, info.previews, info.bytes, info.pixelXUm, info.pixelYUm,
               info.sizeXMm, info.sizeYMm, info.sizeZMm});
    return VNDLP_OK;
}

std::int32_t vndlp_trailer(const VndlpFile* file, VndlpTrailer* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SliceTrailer trailer;
        const std::int32_t code = codeOf(file->file.trailer(trailer));
        if (code == VNDLP_OK) {
            fill(out, {0, static_cast<std::int32_t>(trailer.kind), static_cast<std::int32_t>(trailer.state),
                       trailer.stored, trailer.computed});
        }
        return code;
    });
}

std::int32_t vndlp_estimate(const VndlpFile* file, VndlpEstimate* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SliceEstimate estimate;
        const std::int32_t code = codeOf(file->file.estimate(estimate));
        if (code == VNDLP_OK) {
            fill(out, {0, estimate.volumeMl, estimate.fileS, estimate.estimateS, keep(estimate.model)});
        }
        return code;
    });
}

std::int32_t vndlp_get_number(const VndlpFile* file, const char* key, std::int64_t layer, double* out) {
    if (file == nullptr || key == nullptr || out == nullptr) return failNull();
    return guarded([&] {
        double value = 0;
        const std::int32_t code = codeOf(file->file.number(key, layer, value));
        if (code == VNDLP_OK) *out = value;
        return code;
    });
}

std::int32_t vndlp_get_text(const VndlpFile* file, const char* key, const char** out) {
    if (file == nullptr || key == nullptr || out == nullptr) return failNull();
    return guarded([&] {
        std::string value;
        const std::int32_t code = codeOf(file->file.text(key, value));
        if (code == VNDLP_OK) *out = keep(std::move(value));
        return code;
    });
}

std::int32_t vndlp_raw(const VndlpFile* file, std::uint64_t index, VndlpRaw* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SliceRawField field;
        const std::int32_t code = codeOf(file->file.raw(index, field));
        if (code == VNDLP_OK) fillRaw(out, field);
        return code;
    });
}

std::int32_t vndlp_raw_by_name(const VndlpFile* file, const char* name, VndlpRaw* out) {
    if (file == nullptr || name == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SliceRawField field;
        const std::int32_t code = codeOf(file->file.raw(std::string(name), field));
        if (code == VNDLP_OK) fillRaw(out, field);
        return code;
    });
}

std::int32_t vndlp_preview_info(const VndlpFile* file, std::uint32_t index, VndlpPreview* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SlicePreviewInfo preview;
        const std::int32_t code = codeOf(file->file.previewInfo(index, preview));
        if (code == VNDLP_OK) {
            fill(out, {0, preview.width, preview.height, preview.isBlank ? 1 : 0, keep(std::move(preview.name))});
        }
        return code;
    });
}

std::int32_t vndlp_preview(const VndlpFile* file, std::uint32_t index, std::uint8_t* rgb, std::size_t stride,
                           std::size_t bytes) {
    if (file == nullptr || rgb == nullptr) return failNull();
    return guarded([&] { return codeOf(file->file.preview(index, rgb, stride, bytes)); });
}

std::int32_t vndlp_layer(const VndlpFile* file, std::uint32_t layer, VndlpLayer* out) {
    if (file == nullptr) return failNull();
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    return guarded([&] {
        SliceLayerFacts facts;
        const std::int32_t code = codeOf(file->file.layerFacts(layer, facts));
        if (code == VNDLP_OK) {
            fill(out, {0, facts.offset, facts.bytes, facts.runs, facts.litPixels, facts.zMm, facts.areaMm2});
        }
        return code;
    });
}

std::int32_t vndlp_layer_pixels(const VndlpFile* file, std::uint32_t layer, std::uint8_t* to, std::size_t stride,
                                std::size_t bytes) {
    if (file == nullptr || to == nullptr) return failNull();
    return guarded([&] { return codeOf(file->file.layerPixels(layer, to, stride, bytes)); });
}

std::int32_t vndlp_layer_rows(const VndlpFile* file, std::uint32_t layer, VndlpRowFn row, void* context) {
    if (file == nullptr || row == nullptr) return failNull();
    return guarded([&] { return codeOf(file->file.layerRows(layer, row, context)); });
}

std::int64_t vndlp_layer_runs(const VndlpFile* file, std::uint32_t layer, VndlpRun* to, std::size_t capacity) {
    static_assert(sizeof(VndlpRun) == sizeof(SliceRun) && offsetof(VndlpRun, grey) == offsetof(SliceRun, grey));
    if (file == nullptr || (to == nullptr && capacity != 0)) return failNull();
    return guarded([&]() -> std::int64_t {
        std::uint64_t count = 0;
        const SliceResult result = file->file.layerRuns(layer, reinterpret_cast<SliceRun*>(to), capacity, count);
        return result.isOk() ? static_cast<std::int64_t>(count) : codeOf(result);
    });
}

std::int64_t vndlp_layer_points(const VndlpFile* file, std::uint32_t layer, double* xy, std::uint32_t* path,
                                std::size_t capacity) {
    if (file == nullptr || (xy == nullptr && capacity != 0)) return failNull();
    return guarded([&]() -> std::int64_t {
        SliceShapes shapes;
        const SliceResult result = file->file.layerShapes(layer, shapes);
        if (!result.isOk()) return codeOf(result);
        const bool isMesh = shapes.kind == SliceLayers::mesh;
        const std::size_t count = (isMesh ? shapes.vertices.size() : shapes.points.size()) / 2;
        std::uint32_t number = 0;
        for (std::size_t point = 0; point < std::min(count, capacity); ++point) {
            while (!isMesh && point >= shapes.pathEnds[number]) ++number;
            for (const std::size_t at : {2 * point, 2 * point + 1}) {
                xy[at] = isMesh ? static_cast<double>(shapes.vertices[at]) : shapes.points[at];
            }
            if (path != nullptr) path[point] = number;
        }
        return static_cast<std::int64_t>(count);
    });
}

std::int64_t vndlp_layer_beads(const VndlpFile* file, std::uint32_t layer, std::uint8_t* mask, std::size_t capacity) {
    if (file == nullptr || (mask == nullptr && capacity != 0)) return failNull();
    return guarded([&]() -> std::int64_t {
        std::vector<unsigned char> beads;
        const SliceResult result = file->file.layerBeads(layer, beads);
        if (!result.isOk()) return codeOf(result);
        std::copy_n(beads.begin(), std::min(beads.size(), capacity), mask);
        return static_cast<std::int64_t>(beads.size());
    });
}
