#include "job/layer_encoding.h"

#include "ctb/layer_codec.h"
#include "ctb/scramble.h"
#include "job/layer_data.h"

#include <vndlp/calibration.h>
#include <vndlp/container.h>
#include <vndlp/image.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <utility>

namespace vndlp::job {

namespace {

constexpr double kUm2PerMm2 = 1e6;
constexpr std::uint32_t kSmallestKey = 255;
constexpr std::uint32_t kLargestKey = kSmallestKey + 0x7FFF;

std::uint64_t litPixels(const ByteList& code) {
    CTB::RunReader runs(code.data(), code.size());
    std::uint64_t lit = 0;
    for (CTB::Run run{}; runs.take(run);) lit += CTB::decodedGrey(run.grey) > kLitThreshold ? run.count : 0;
    return lit;
}

std::uint32_t areaOf(const LayerTarget& target, std::uint64_t lit, double areaMm2) {
    return storedLayerArea(std::isnan(areaMm2) ? static_cast<double>(lit) * target.pixelAreaUm2 : areaMm2 * kUm2PerMm2);
}

/// Mask and scrambling of encoded data.
void complete(const LayerTarget& target, BeadFieldLender& beads, SliceEncoded::State& layer) {
    if (target.hasBeads) {
        auto field = beads.take();
        layer.mask = VNDLPV4::LayerDef::beadMaskOfCode(layer.bytes, target.width, *field);
        beads.giveBack(std::move(field));
    }
    CTB::scramble(target.key, layer.layer, layer.bytes.data(), layer.bytes.size());
}

template <class Number>
void putNumber(Number value, ByteList& bytes) {
    const auto raw = storedNumber(value, BigEndian);
    bytes.insert(bytes.end(), raw.begin(), raw.end());
}

/// Twice the area of a polygon, with the sign of its direction.
double twiceArea(const std::vector<std::int32_t>& points, std::size_t first, std::size_t end) {
    double sum = 0;
    for (std::size_t i = first; i < end; ++i) {
        const std::size_t next = i + 1 < end ? i + 1 : first;
        sum += static_cast<double>(points[2 * i]) * points[2 * next + 1] -
               static_cast<double>(points[2 * next]) * points[2 * i + 1];
    }
    return sum;
}

double pathArea(const SliceShapes& shapes) {
    double sum = 0;
    std::size_t first = 0;
    for (const std::uint32_t end : shapes.pathEnds) {
        sum += twiceArea(shapes.points, first, end);
        first = end;
    }
    return std::abs(sum) / 2;
}

double meshArea(const std::vector<float>& v) {
    double sum = 0;
    for (std::size_t i = 0; i + 5 < v.size(); i += 6) {
        const auto at = [&v, i](std::size_t k) { return static_cast<double>(v[i + k]); };
        sum += std::abs((at(2) - at(0)) * (at(5) - at(1)) - (at(4) - at(0)) * (at(3) - at(1)));
    }
    return sum / 2;
}

bool isOnScreen(const LayerTarget& target, const SliceRun& run) {
    return run.column < target.width && run.lastRow < target.height && run.firstRow <= run.lastRow;
}

}  // namespace

std::unique_ptr<VNDLPV4::LampBeadCal> BeadFieldLender::take() {
    {
        const std::lock_guard lock(m_mutex);
        if (!m_fields.empty()) {
            auto field = std::move(m_fields.back());
            m_fields.pop_back();
            return field;
        }
    }
    auto field = std::make_unique<VNDLPV4::LampBeadCal>();
    field->m_printBuild = false;
    VNDLPV4::initPrinterBeadField(*field);
    return field;
}

void BeadFieldLender::giveBack(std::unique_ptr<VNDLPV4::LampBeadCal> field) {
    const std::lock_guard lock(m_mutex);
    m_fields.push_back(std::move(field));
}

// the key is no secret, it stands in the header
std::uint32_t drawKey() {
    std::random_device device;
    return std::uniform_int_distribution<std::uint32_t>(kSmallestKey, kLargestKey)(device);
}

void encodePixels(const LayerTarget& target, BeadFieldLender& beads, const unsigned char* pixels, std::size_t stride,
                  double areaMm2, SliceEncoded::State& layer) {
    if (target.format == SliceFormat::vndlp) {
        grayDataPackedRuns(pixels, static_cast<int>(target.width), static_cast<int>(target.height),
                           static_cast<std::ptrdiff_t>(stride), layer.bytes);
        layer.count = static_cast<std::uint32_t>(layer.bytes.size() / kPackedRunBytes);
        layer.area = areaOf(target, countPackedPixels(layer.bytes), areaMm2);
        return;
    }
    CTB::RunEncoder encoder(layer.bytes, CTB::EndlessRun::split);
    if (stride == target.width) {
        encoder.add(pixels, stride * target.height);
    } else {
        for (std::uint32_t y = 0; y < target.height; ++y) encoder.add(pixels + y * stride, target.width);
    }
    encoder.finish();
    if (target.format == SliceFormat::vndlpv4) {
        layer.area = areaOf(target, std::isnan(areaMm2) ? litPixels(layer.bytes) : 0, areaMm2);
    }
    complete(target, beads, layer);
}

bool encodeOrderedRuns(const LayerTarget& target, const SliceRun* runs, std::size_t count, SliceEncoded::State& layer) {
    if (target.format != SliceFormat::vndlp) return false;
    ByteList packed(count * kPackedRunBytes);
    std::uint64_t lit = 0;
    std::uint32_t behind = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const SliceRun& run = runs[i];
        const std::uint32_t order = std::uint32_t{run.column} << 16 | run.firstRow;
        if (!isOnScreen(target, run) || run.grey <= kLitThreshold || order < behind) return false;
        behind = (std::uint32_t{run.column} << 16 | run.lastRow) + 1;
        lit += run.lastRow - run.firstRow + 1u;
        const auto column = static_cast<float>(run.column);
        whiteData2Bits(
            {{column, static_cast<float>(run.firstRow)}, {column, static_cast<float>(run.lastRow)}, run.grey},
            packed.data() + i * kPackedRunBytes);
    }
    layer.bytes = std::move(packed);
    layer.count = static_cast<std::uint32_t>(count);
    layer.area = areaOf(target, lit, std::nan(""));
    return true;
}

SliceResult encodeAnyRuns(const LayerTarget& target, BeadFieldLender& beads, const SliceRun* runs, std::size_t count,
                          SliceEncoded::State& layer) {
    if (encodeOrderedRuns(target, runs, count, layer)) return {};
    ByteList pixels;
    CTB::makeBlack(pixels, std::size_t{target.width} * target.height);
    for (std::size_t i = 0; i < count; ++i) {
        const SliceRun& run = runs[i];
        if (!isOnScreen(target, run)) {
            return failure(SliceCode::size, "run " + std::to_string(i) + " is not on the screen", -1, layer.layer);
        }
        unsigned char* pixel = pixels.data() + std::size_t{run.firstRow} * target.width + run.column;
        for (std::uint32_t y = run.firstRow; y <= run.lastRow; ++y, pixel += target.width) *pixel = run.grey;
    }
    encodePixels(target, beads, pixels.data(), target.width, std::nan(""), layer);
    return {};
}

SliceResult encodeShapes(const SliceShapes& shapes, double areaMm2, SliceEncoded::State& layer) {
    if (shapes.kind == SliceLayers::mesh) {
        layer.isMesh = true;
        layer.count = static_cast<std::uint32_t>(shapes.vertices.size() / 2);
        for (std::size_t i = 0; i < 2 * std::size_t{layer.count}; ++i) putNumber(shapes.vertices[i], layer.bytes);
        layer.area = storedLayerArea(std::isnan(areaMm2) ? meshArea(shapes.vertices) : areaMm2 * kUm2PerMm2);
        return {};
    }
    std::size_t at = 0;
    for (const std::uint32_t end : shapes.pathEnds) {
        if (end < at || std::size_t{2} * end > shapes.points.size()) {
            return failure(SliceCode::argument, "the ends of the polylines are not in order", -1, layer.layer);
        }
        putNumber(static_cast<std::uint32_t>(end - at), layer.bytes);
        for (; at < end; ++at) {
            putNumber(shapes.points[2 * at], layer.bytes);
            putNumber(shapes.points[2 * at + 1], layer.bytes);
        }
    }
    layer.count = static_cast<std::uint32_t>(shapes.pathEnds.size());
    layer.area = storedLayerArea(std::isnan(areaMm2) ? pathArea(shapes) : areaMm2 * kUm2PerMm2);
    return {};
}

SliceResult encodeCopy(const LayerTarget& target, const Model& from, std::uint32_t fromLayer, const LayerPlace& place,
                       SliceEncoded::State& layer) {
    SliceResult result = checkData(from, fromLayer, place);
    if (result.isOk()) result = readData(from, fromLayer, place, layer.bytes);
    if (result.isOk()) result = readBeads(from, place, layer.mask);
    if (!result.isOk()) return result;
    layer.count = place.count;
    layer.area = place.area;
    layer.isMesh = place.isMesh;
    if (from.isVendor()) {
        // headers of the first generation hold no areas
        const bool isCounted = !hasAreaTable(from.info.headerKind) && target.format == SliceFormat::vndlp;
        if (isCounted) layer.area = areaOf(target, countPackedPixels(layer.bytes), std::nan(""));
        return result;
    }
    CTB::scramble(target.key, layer.layer, layer.bytes.data(), layer.bytes.size());
    return result;
}

}  // namespace vndlp::job
