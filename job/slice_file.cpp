#include "ctb/preview_codec.h"
#include "job/estimate.h"
#include "job/layer_data.h"
#include "job/model.h"
#include "job/settings.h"
#include "job/verify.h"

#include <vndlp/ctb.h>
#include <vndlp/slice_file.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace vndlp {

namespace {

using job::failure;
using job::guarded;
using job::LayerPlace;
using job::Model;
using job::plain;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

double numberOr(const Model& model, const char* key, double otherwise) {
    double value = 0;
    return job::readNumber(model, *job::findSetting(key), -1, value).isOk() ? value : otherwise;
}

double orNone(double value) { return value > 0 ? value : kNone; }

void measure(Model& model) {
    SliceInfo& info = model.info;
    info.sizeXMm = orNone(numberOr(model, "display_width_mm", 0));
    info.sizeYMm = orNone(numberOr(model, "display_height_mm", 0));
    info.sizeZMm = numberOr(model, "machine_height_mm", kNone);
    info.pixelXUm = info.width > 0 ? info.sizeXMm * 1000 / info.width : kNone;
    info.pixelYUm = info.height > 0 ? info.sizeYMm * 1000 / info.height : kNone;
    info.previews = static_cast<std::uint32_t>(model.previews.size());
    model.layerHeightMm = orNone(numberOr(model, "layer_height_mm", 0));
    model.pixelAreaMm2 = info.pixelXUm * info.pixelYUm / 1e6;
}

/// What the layers of a line file are is told by the first that is not empty.
void findLayerKind(Model& model) {
    if (model.info.format != SliceFormat::vnline) return;
    model.info.layerKind = SliceLayers::paths;
    std::int64_t at = model.layersAt;
    LayerPlace place;
    for (std::uint32_t i = 0; at >= 0 && i < model.info.layers; ++i, at = place.end) {
        if (!job::locateVendorLayer(model, at, i, place)) return;
        if (place.count == 0) continue;
        if (place.isMesh) model.info.layerKind = SliceLayers::mesh;
        return;
    }
}

SliceResult readHead(job::Bytes bytes, Model& model) {
    model.bytes = std::move(bytes);
    unsigned char head[kSniffBytes] = {};
    const auto size = static_cast<std::size_t>(std::min<std::int64_t>(model.bytes.size(), sizeof head));
    SliceResult result = model.bytes.read(0, head, size);
    if (!result.isOk()) return result;
    const SniffedHead sniffed = sniffHead(head, size);
    const HeaderKind kind = sniffed.magic == nullptr ? kNoHeader : sniffed.magic->header;
    if (sniffed.format == SliceFormat::none || (sniffed.format != SliceFormat::ctb && kind == kNoHeader)) {
        return failure(SliceCode::format, size == 0 ? "is empty" : "is no slice file");
    }
    model.info.format = sniffed.format;
    model.info.bytes = model.bytes.size();
    model.magic = sniffed.magic;
    model.trailerKind = sniffed.checkSum;
    switch (sniffed.format) {
        case SliceFormat::ctb: job::readCtbHead(model); break;
        case SliceFormat::vndlpv4: job::readV4Head(model); break;
        default: job::readVendorHead(model, kind); break;
    }
    measure(model);
    findLayerKind(model);
    return result;
}

/// Opens what `source` is; null is a file that could not be opened.
SliceResult openState(SharedSource source, const std::string& path, std::unique_ptr<SliceFile::State>& state) {
    state.reset();
    if (source == nullptr) {
        const int code = errno;
        SliceResult result = failure(SliceCode::file, code != 0 ? std::strerror(code) : "cannot be opened");
        result.systemCode = code;
        return result;
    }
    if (source->isSequential()) return failure(SliceCode::file, "cannot seek: is a pipe");
    auto opened = std::make_unique<SliceFile::State>();
    opened->path = path;
    SliceResult result = readHead(job::Bytes(std::move(source)), opened->model);
    if (result.isOk()) state = std::move(opened);
    return result;
}

/// Runs a call on an open file.
template <class Call>
SliceResult onModel(const SliceFile::State* state, Call&& call) {
    if (state == nullptr) return plain(SliceCode::argument);
    return guarded([&] { return call(state->model); });
}

job::ProgressSink progressOf(SliceProgressFn progress, void* context) {
    return [progress, context](std::uint64_t done, std::uint64_t all) {
        return progress == nullptr || progress(context, done, all) == 0;
    };
}

/// Hands findings on and counts the errors.
job::FindingSink countingSink(SliceFindingFn finding, void* context, std::uint64_t& errors) {
    return [finding, context, &errors](SliceFinding&& found) {
        if (found.severity == SliceSeverity::error) ++errors;
        return finding == nullptr || finding(context, found) == 0;
    };
}

/// Whether rows of `rowBytes` bytes fit `bytes` bytes of memory; a stride of 0 becomes that of rows without gaps.
bool fits(std::size_t& stride, std::size_t rowBytes, std::uint32_t rows, std::size_t bytes) {
    if (stride == 0) stride = rowBytes;
    if (stride < rowBytes || rows == 0) return rows == 0;
    return rowBytes <= bytes && (bytes - rowBytes) / stride >= rows - 1;
}

/// A preview's pixels as red, green, blue.
SliceResult decodePreview(const Model& model, const job::PreviewPlace& place, std::vector<unsigned char>& rgb) {
    const std::uint64_t pixels = std::uint64_t{place.width} * place.height;
    if (pixels > CTB::kMostPreviewPixels) {
        return job::damaged(place.offset, "a preview of " + std::to_string(place.width) + " x " +
                                              std::to_string(place.height) + " pixels cannot be decoded");
    }
    std::vector<unsigned char> data(static_cast<std::size_t>(place.bytes));
    SliceResult result = model.bytes.read(place.offset, data.data(), data.size());
    if (!result.isOk()) return result;
    rgb.assign(static_cast<std::size_t>(pixels) * 3, 0);
    if (place.coding == job::PreviewCoding::repeatedRgb555) {
        CTB::decodePreview(data.data(), data.size(), rgb.data(), static_cast<std::size_t>(pixels));
        for (std::size_t i = 0; i < rgb.size(); i += 3) std::swap(rgb[i], rgb[i + 2]);  // from blue, green, red
        return result;
    }
    const auto widen = [](unsigned value, unsigned bits) {
        return static_cast<unsigned char>(value * 255 / ((1u << bits) - 1));
    };
    for (std::size_t i = 0; i < static_cast<std::size_t>(pixels); ++i) {
        const unsigned colour = static_cast<unsigned>(data[2 * i]) << 8 | data[2 * i + 1];
        rgb[3 * i] = widen(colour >> 11, 5);
        rgb[3 * i + 1] = widen(colour >> 5 & 63, 6);
        rgb[3 * i + 2] = widen(colour & 31, 5);
    }
    return result;
}

bool isBlank(const std::vector<unsigned char>& rgb) {
    for (std::size_t i = 3; i < rgb.size(); ++i) {
        if (rgb[i] != rgb[i - 3]) return false;
    }
    return true;
}

SliceResult fillRaw(const Model& model, std::string name, const job::FieldPlace& place, SliceRawField& field) {
    job::FieldValue value;
    SliceResult result = job::readField(model.bytes, place, value);
    if (!result.isOk()) return result;
    const job::FieldSpec& spec = *place.spec;
    field.name = std::move(name);
    field.unit = spec.unit;
    field.type = isText(spec.kind) || spec.kind == job::FieldKind::bytes ? SliceValueType::text
                 : spec.kind == job::FieldKind::f32                      ? SliceValueType::number
                                                                         : SliceValueType::integer;
    field.number = value.number;
    field.integer = value.integer;
    field.text = std::move(value.text);
    field.isFixed = spec.isFixed;
    constexpr std::int64_t kLengthBytes = 4;
    const bool hasLength = spec.kind == job::FieldKind::text8 || spec.kind == job::FieldKind::text16;
    const std::int64_t zero = spec.kind == job::FieldKind::text8 ? 1 : 0;
    field.offset = place.offset - (hasLength ? kLengthBytes : 0);
    field.bytes = place.bytes + (hasLength ? kLengthBytes + zero : 0);
    return result;
}

double heightOf(const Model& model, std::uint32_t layer) {
    job::FieldPlace place;
    job::FieldValue value;
    const std::string name = "LayerDef." + std::to_string(layer) + ".positionZ";
    if (!model.isVendor() && job::placeOfRaw(model, name, place).isOk() &&
        job::readField(model.bytes, place, value).isOk()) {
        return std::isfinite(value.number) ? value.number : kNone;
    }
    return (layer + 1.0) * model.layerHeightMm;
}

SliceResult fillFacts(const Model& model, std::uint32_t layer, SliceLayerFacts& facts) {
    LayerPlace place;
    SliceResult result = job::placeOfLayer(model, layer, place);
    if (!result.isOk()) return result;
    SliceLayerFacts made;
    made.offset = place.begin;
    made.bytes = place.end - place.begin;
    made.zMm = heightOf(model, layer);
    const bool isStored = model.info.format == SliceFormat::vndlpv4 || hasAreaTable(model.info.headerKind);
    made.areaMm2 = isStored ? place.area / 1000.0 : kNone;
    if (model.info.format == SliceFormat::vnline) {
        if (!place.isMesh) made.runs = place.count;
        facts = made;
        return result;
    }
    job::LayerCounts counts;
    result = job::placeOfImage(model, layer, place);
    if (result.isOk()) result = job::countData(model, layer, place, counts);
    if (!result.isOk()) return result;
    made.runs = static_cast<std::int64_t>(counts.runs);
    made.litPixels = static_cast<std::int64_t>(counts.lit);
    if (!isStored) made.areaMm2 = static_cast<double>(counts.lit) * model.pixelAreaMm2;
    facts = made;
    return result;
}

SliceResult noKey(const Model& model, const std::string& key) {
    return failure(SliceCode::key, findSliceKey(key) == nullptr
                                       ? "unknown setting \"" + key + "\""
                                       : std::string(kSliceFormats[static_cast<int>(model.info.format) - 1].name) +
                                             " files have no setting " + key + " of their own");
}

}  // namespace

SliceFile::SliceFile() = default;
SliceFile::SliceFile(SliceFile&& other) noexcept = default;
SliceFile& SliceFile::operator=(SliceFile&& other) noexcept = default;
SliceFile::~SliceFile() = default;

SliceResult SliceFile::open(const std::string& path) {
    return guarded([&] {
        errno = 0;
        return openState(openFileSource(path.c_str()), path, m_state);
    });
}

SliceResult SliceFile::openMemory(const void* data, std::size_t bytes) {
    if (data == nullptr) return plain(SliceCode::argument);
    return guarded([&] { return openState(memorySource(data, bytes), {}, m_state); });
}

SliceResult SliceFile::openSource(const SliceSource& source) {
    if (source.read == nullptr || source.bytes < 0) return plain(SliceCode::argument);
    return guarded([&] { return openState(callbackSource(source.read, source.context, source.bytes), {}, m_state); });
}

void SliceFile::close() { m_state.reset(); }

bool SliceFile::isOpen() const { return m_state != nullptr; }

const SliceInfo& SliceFile::info() const {
    static const SliceInfo none;
    return m_state == nullptr ? none : m_state->model.info;
}

const std::string& SliceFile::path() const {
    static const std::string none;
    return m_state == nullptr ? none : m_state->path;
}

SliceResult SliceFile::headState(SliceHeadState& state) const {
    return onModel(m_state.get(), [&](const Model& model) {
        const job::LayerTable& table = model.layers();
        SliceHeadState made;
        made.isWhole = model.headIsWhole && table.isWhole;
        made.layersFound = static_cast<std::uint32_t>(table.layers.size());
        if (!model.headIsWhole) {
            made.offset = model.headBrokeAt;
            made.text = model.whatBroke;
        } else if (!table.isWhole) {
            made.offset = table.brokenAt;
            made.text = (model.isVendor() ? "layer " + std::to_string(made.layersFound) + " " : "") + table.whatBroke;
        }
        state = std::move(made);
        return job::done();
    });
}

SliceResult SliceFile::number(const std::string& key, std::int64_t layer, double& value) const {
    return onModel(m_state.get(), [&](const Model& model) {
        const job::SettingRow* row = job::findSetting(key);
        SliceResult result = row == nullptr ? plain(SliceCode::key)
                             : layer < -1   ? plain(SliceCode::index)
                                            : job::readNumber(model, *row, layer, value);
        return result.code == SliceCode::key ? noKey(model, key) : result;
    });
}

SliceResult SliceFile::text(const std::string& key, std::string& value) const {
    return onModel(m_state.get(), [&](const Model& model) {
        const job::SettingRow* row = job::findSetting(key);
        SliceResult result = row == nullptr ? plain(SliceCode::key) : job::readText(model, *row, value);
        return result.code == SliceCode::key ? noKey(model, key) : result;
    });
}

SliceResult SliceFile::raw(std::uint64_t index, SliceRawField& field) const {
    return onModel(m_state.get(), [&](const Model& model) {
        std::string name;
        job::FieldPlace place;
        SliceResult result = job::placeOfRaw(model, index, name, place);
        return result.isOk() ? fillRaw(model, std::move(name), place, field) : result;
    });
}

SliceResult SliceFile::raw(const std::string& name, SliceRawField& field) const {
    return onModel(m_state.get(), [&](const Model& model) {
        job::FieldPlace place;
        SliceResult result = job::placeOfRaw(model, name, place);
        return result.isOk() ? fillRaw(model, name, place, field) : result;
    });
}

SliceResult SliceFile::trailer(SliceTrailer& trailer, SliceProgressFn progress, void* context) const {
    return onModel(m_state.get(), [&](const Model& model) {
        SliceTrailer made;
        SliceResult result = job::readTrailer(model, made, progressOf(progress, context));
        if (result.isOk()) trailer = made;
        return result;
    });
}

SliceResult SliceFile::estimate(SliceEstimate& estimate, SliceProgressFn progress, void* context) const {
    return onModel(m_state.get(), [&](const Model& model) {
        SliceEstimate made;
        SliceResult result = job::estimateJob(model, progressOf(progress, context), made);
        if (result.isOk()) estimate = made;
        return result;
    });
}

SliceResult SliceFile::previewInfo(std::uint32_t index, SlicePreviewInfo& preview) const {
    return onModel(m_state.get(), [&](const Model& model) {
        if (index >= model.previews.size()) return plain(SliceCode::index);
        const job::PreviewPlace& place = model.previews[index];
        std::vector<unsigned char> rgb;
        SliceResult result = decodePreview(model, place, rgb);
        if (!result.isOk()) return result;
        preview = {place.name, place.width, place.height, isBlank(rgb), place.offset, place.bytes};
        return result;
    });
}

SliceResult SliceFile::preview(std::uint32_t index, unsigned char* rgb, std::size_t stride, std::size_t bytes) const {
    if (rgb == nullptr) return plain(SliceCode::argument);
    return onModel(m_state.get(), [&](const Model& model) {
        if (index >= model.previews.size()) return plain(SliceCode::index);
        const job::PreviewPlace& place = model.previews[index];
        const std::size_t rowBytes = std::size_t{3} * place.width;
        std::vector<unsigned char> pixels;
        if (!fits(stride, rowBytes, place.height, bytes)) return plain(SliceCode::size);
        SliceResult result = decodePreview(model, place, pixels);
        if (!result.isOk() || rowBytes == 0) return result;
        for (std::uint32_t y = 0; y < place.height; ++y) {
            std::memcpy(rgb + y * stride, pixels.data() + y * rowBytes, rowBytes);
        }
        return result;
    });
}

SliceResult SliceFile::layerFacts(std::uint32_t layer, SliceLayerFacts& facts) const {
    return onModel(m_state.get(), [&](const Model& model) { return fillFacts(model, layer, facts); });
}

SliceResult SliceFile::layerPixels(std::uint32_t layer, unsigned char* pixels, std::size_t stride,
                                   std::size_t bytes) const {
    if (pixels == nullptr) return plain(SliceCode::argument);
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        SliceResult result = job::placeOfImage(model, layer, place);
        if (!result.isOk()) return result;
        if (!fits(stride, model.info.width, model.info.height, bytes)) return plain(SliceCode::size);
        return job::decodePixels(model, layer, place, pixels, stride);
    });
}

SliceResult SliceFile::layerRows(std::uint32_t layer, SliceRowFn row, void* context) const {
    if (row == nullptr) return plain(SliceCode::argument);
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        SliceResult result = job::placeOfImage(model, layer, place);
        return result.isOk() ? job::decodeRows(model, layer, place, row, context) : result;
    });
}

SliceResult SliceFile::layerRuns(std::uint32_t layer, SliceRun* runs, std::size_t capacity,
                                 std::uint64_t& count) const {
    if (runs == nullptr && capacity > 0) return plain(SliceCode::argument);
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        SliceResult result = job::placeOfImage(model, layer, place);
        if (!result.isOk()) return result;
        if (capacity == 0) {
            job::LayerCounts counts;
            result = job::countData(model, layer, place, counts);
            if (result.isOk()) count = counts.runs;
            return result;
        }
        std::vector<SliceRun> all;
        result = job::decodeRuns(model, layer, place, all);
        if (!result.isOk()) return result;
        const std::size_t taken = std::min(capacity, all.size());
        if (taken > 0) std::memcpy(runs, all.data(), taken * sizeof(SliceRun));
        count = all.size();
        return result;
    });
}

SliceResult SliceFile::layerLit(std::uint32_t layer, int threshold, SliceLitFn lit, void* context) const {
    if (lit == nullptr) return plain(SliceCode::argument);
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        SliceResult result = job::placeOfImage(model, layer, place);
        return result.isOk() ? job::decodeLit(model, layer, place, threshold, lit, context) : result;
    });
}

SliceAxis SliceFile::litAxis() const {
    return info().format == SliceFormat::vndlp ? SliceAxis::columns : SliceAxis::rows;
}

SliceResult SliceFile::layerShapes(std::uint32_t layer, SliceShapes& shapes) const {
    return onModel(m_state.get(), [&](const Model& model) {
        if (model.info.format != SliceFormat::vnline) {
            return failure(SliceCode::kind, "its layers are images, not shapes");
        }
        LayerPlace place;
        SliceShapes made;
        SliceResult result = job::placeOfLayer(model, layer, place);
        if (result.isOk()) result = job::decodeShapes(model, layer, place, made);
        if (result.isOk()) shapes = std::move(made);
        return result;
    });
}

SliceResult SliceFile::layerData(std::uint32_t layer, SliceLayerData& data) const {
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        SliceLayerData made;
        SliceResult result = job::placeOfLayer(model, layer, place);
        if (result.isOk()) result = job::readData(model, layer, place, made.bytes);
        if (!result.isOk()) return result;
        made.coding = !model.isVendor()                         ? SliceCoding::greyRuns
                      : model.info.format == SliceFormat::vndlp ? SliceCoding::packedRuns
                      : place.isMesh                            ? SliceCoding::mesh
                                                                : SliceCoding::polylines;
        made.count = place.count;
        made.area = place.area;
        made.hasArea = model.info.format == SliceFormat::vndlpv4 || hasAreaTable(model.info.headerKind);
        data = std::move(made);
        return result;
    });
}

SliceResult SliceFile::layerBeads(std::uint32_t layer, std::vector<unsigned char>& mask) const {
    return onModel(m_state.get(), [&](const Model& model) {
        LayerPlace place;
        std::vector<unsigned char> made;
        SliceResult result = job::placeOfLayer(model, layer, place);
        if (result.isOk()) result = job::readBeads(model, place, made);
        if (result.isOk()) mask = std::move(made);
        return result;
    });
}

SliceResult SliceFile::verify(SliceFindingFn finding, void* context, std::uint64_t& errors, SliceProgressFn progress,
                              void* progressContext) const {
    SliceResult result = verifyStructure(finding, context, errors, progress, progressContext);
    if (!result.isOk()) return result;
    std::uint64_t all = errors;
    for (std::uint32_t i = 0; i < m_state->model.layers().layers.size(); ++i) {
        if (progress != nullptr && progress(progressContext, i, m_state->model.info.layers) != 0) {
            return plain(SliceCode::stopped);
        }
        result = verifyLayer(i, finding, context, errors);
        if (!result.isOk()) return result;
        all += errors;
    }
    errors = all;
    return result;
}

SliceResult SliceFile::verifyStructure(SliceFindingFn finding, void* context, std::uint64_t& errors,
                                       SliceProgressFn progress, void* progressContext) const {
    errors = 0;
    return onModel(m_state.get(), [&](const Model& model) {
        return job::verifyStructure(model, countingSink(finding, context, errors),
                                    progressOf(progress, progressContext));
    });
}

SliceResult SliceFile::verifyLayer(std::uint32_t layer, SliceFindingFn finding, void* context,
                                   std::uint64_t& errors) const {
    errors = 0;
    return onModel(m_state.get(), [&](const Model& model) {
        return job::verifyLayer(model, layer, countingSink(finding, context, errors));
    });
}

std::unique_ptr<SliceFile> openSliceFile(const std::string& path, SliceResult* result) {
    std::unique_ptr<SliceFile> file(new (std::nothrow) SliceFile);
    SliceResult opened;
    opened.code = SliceCode::memory;
    if (file != nullptr) opened = file->open(path);
    if (!opened.isOk()) file.reset();
    if (result != nullptr) *result = std::move(opened);
    return file;
}

}  // namespace vndlp
