#include "tools/commands/describe.h"

#include "tools/base/failure.h"
#include "tools/base/pipeline.h"
#include "tools/base/terminal.h"
#include "tools/commands/moves.h"

#include <vndlp/formats.h>

#include <charconv>
#include <cmath>
#include <limits>

namespace vndlp::tools {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kUmPerMm = 1000;

Json orNull(std::int64_t value) { return value < 0 ? Json(nullptr) : Json(value); }

Json settingsJson(const PrintSettings& settings) {
    Json json = Json::object();
    for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
        if (!settings.has(key->name)) continue;
        if (key->type == SliceValueType::text) {
            json[key->name] = utf8Of(settings.text(key->name));
        } else if (key->type == SliceValueType::integer) {
            json[key->name] = static_cast<std::int64_t>(std::llround(settings.number(key->name)));
        } else {
            json[key->name] = numberOrNull(settings.number(key->name));
        }
    }
    return json;
}

Json trailerJson(const Source& source) {
    SliceTrailer trailer;
    if (!source.isJob()) require(source.path, source.file->trailer(trailer));
    static constexpr const char* kKinds[] = {"none", "xor", "crc32"};
    static constexpr const char* kStates[] = {"none", "ok", "wrong", "missing"};
    const bool hasTrailer = trailer.kind != SliceTrailerKind::none;
    const bool isStored = hasTrailer && trailer.state != SliceTrailerState::missing;
    return {{"kind", kKinds[static_cast<int>(trailer.kind)]},
            {"stored", isStored ? Json(trailer.stored) : Json(nullptr)},
            {"computed", hasTrailer ? Json(trailer.computed) : Json(nullptr)},
            {"state", kStates[static_cast<int>(trailer.state)]}};
}

Json previewsJson(const Source& source) {
    Json previews = Json::array();
    if (source.isJob()) {
        int index = 0;
        for (const ColourImage& picture : source.readPictures()) {
            previews.push_back({{"name", std::to_string(index++)},
                                {"width", picture.width},
                                {"height", picture.height},
                                {"blank", isBlank(picture)}});
        }
        return previews;
    }
    for (std::uint32_t i = 0; i < source.file->info().previews; ++i) {
        SlicePreviewInfo info;
        if (!source.file->previewInfo(i, info).isOk()) continue;  // the findings tell of it
        previews.push_back(
            {{"name", info.name}, {"width", info.width}, {"height", info.height}, {"blank", info.isBlank}});
    }
    return previews;
}

Json rawJson(const SliceFile& file) {
    Json json = Json::object();
    // names differ, so each is put behind the others without a search
    auto& members = json.get_ref<Json::object_t&>();
    SliceRawField field;
    for (std::uint64_t i = 0; file.raw(i, field).isOk(); ++i) {
        Json value = field.type == SliceValueType::text      ? Json(utf8Of(field.text))
                     : field.type == SliceValueType::integer ? Json(field.integer)
                                                             : numberOrNull(field.number);
        members.emplace_back(field.name, Json{{"value", std::move(value)},
                                              {"unit", field.unit},
                                              {"offset", field.offset},
                                              {"size", field.bytes},
                                              {"fixed", field.isFixed}});
    }
    return json;
}

Json layerJson(int index, const LayerRow& row) {
    return {{"index", index},
            {"z_mm", numberOrNull(row.facts.zMm)},
            {"offset", orNull(row.facts.offset)},
            {"bytes", orNull(row.facts.bytes)},
            {"runs", orNull(row.facts.runs)},
            {"lit_px", orNull(row.facts.litPixels)},
            {"area_mm2", numberOrNull(row.facts.areaMm2)},
            {"settings", settingsJson(row.settings)}};
}

/// Facts of a layer of a job, whose layers are no records of one file.
LayerRow jobRow(const Source& source, int index, GreyImage& scratch) {
    LayerRow row;
    const Geometry geometry = geometryOf(source);
    row.facts.zMm = (index + 1) * source.settings.numberOr("layer_height_mm", kNaN);
    row.facts.areaMm2 = kNaN;
    row.settings = source.layerSettings(index);
    try {
        if (source.kind == SliceLayers::images) {
            source.readLayer(index, scratch);
            const std::uint64_t lit = countLit(scratch);
            row.facts.litPixels = static_cast<std::int64_t>(lit);
            row.facts.areaMm2 =
                static_cast<double>(lit) * geometry.pixelXUm * geometry.pixelYUm / (kUmPerMm * kUmPerMm);
        } else {
            const SliceShapes shapes = source.readShapes(index);
            row.facts.runs = static_cast<std::int64_t>(shapes.pathEnds.size());
            row.facts.areaMm2 = areaOf(shapes) / (kUmPerMm * kUmPerMm);
        }
    } catch (const Failure& failure) {
        row.problem = failure.what();
    }
    return row;
}

LayerRow sliceRow(const Source& source, int index) {
    LayerRow row;
    row.facts.zMm = kNaN;
    row.facts.areaMm2 = kNaN;
    const SliceResult result = source.file->layerFacts(static_cast<std::uint32_t>(index), row.facts);
    if (!result.isOk()) row.problem = describeResult(source.path, result);
    row.settings = source.layerSettings(index);
    return row;
}

}  // namespace

std::string formatName(const Source& source) {
    if (source.isJob()) return "job";
    for (const SliceFormatRow& row : kSliceFormats) {
        if (row.format == source.file->info().format) return std::string(row.name);
    }
    return "none";
}

Geometry geometryOf(const Source& source) {
    if (!source.isJob()) {
        const SliceInfo& info = source.file->info();
        return {info.pixelXUm, info.pixelYUm, info.sizeXMm, info.sizeYMm, info.sizeZMm};
    }
    const PrintSettings& s = source.settings;
    Geometry geometry{};
    geometry.sizeXMm = s.numberOr("display_width_mm", kNaN);
    geometry.sizeYMm = s.numberOr("display_height_mm", kNaN);
    geometry.sizeZMm = s.numberOr("machine_height_mm", kNaN);
    geometry.pixelXUm = geometry.sizeXMm * kUmPerMm / source.width;
    geometry.pixelYUm = geometry.sizeYMm * kUmPerMm / source.height;
    return geometry;
}

std::vector<SliceFinding> findingsOf(const Source& source) {
    std::vector<SliceFinding> findings;
    if (source.isJob()) return source.damage;
    std::uint64_t errors = 0;
    require(source.path, source.file->verifyStructure(
                             [](void* context, const SliceFinding& finding) {
                                 static_cast<std::vector<SliceFinding>*>(context)->push_back(finding);
                                 return 0;
                             },
                             &findings, errors));
    if (hasIllustrativeConstants(*source.file)) {
        findings.push_back({SliceSeverity::note, -1, -1, kIllustrativeText});
    }
    return findings;
}

Json jsonOf(const SliceFinding& finding) {
    static constexpr const char* kSeverities[] = {"", "error", "warning", "note"};
    return {{"severity", kSeverities[static_cast<int>(finding.severity)]},
            {"offset", orNull(finding.offset)},
            {"layer", orNull(finding.layer)},
            {"text", utf8Of(finding.text)}};
}

std::vector<LayerRow> layerRowsOf(const Source& source, int threads) {
    std::vector<LayerRow> rows;
    SliceHeadState state;
    if (!source.isJob()) require(source.path, source.file->headState(state));
    const int count = source.isJob() ? source.layerCount : static_cast<int>(state.layersFound);
    rows.reserve(static_cast<std::size_t>(count));
    ProgressBar bar("reading", count);
    runOrdered<GreyImage, LayerRow>(
        count, threads,
        [&](int index, GreyImage& scratch) {
            return source.isJob() ? jobRow(source, index, scratch) : sliceRow(source, index);
        },
        [&](int index, LayerRow&& row) {
            rows.push_back(std::move(row));
            bar.advanceTo(index + 1);
        });
    return rows;
}

Totals totalsOfRows(const Source& source, const std::vector<LayerRow>& rows) {
    constexpr double kMm3PerMl = 1000;
    double areaMm2 = 0;
    for (const LayerRow& row : rows) areaMm2 += row.problem.empty() ? row.facts.areaMm2 : 0;
    Totals totals;
    totals.volumeMl = areaMm2 * source.settings.numberOr("layer_height_mm", kNaN) / kMm3PerMl;
    totals.fileS = source.settings.numberOr("print_time_s", kNaN);
    totals.estimateS = movesSeconds(source.settings, source.layerCount, source.layerSettings).total();
    totals.model = "moves";
    return totals;
}

Totals totalsOf(const Source& source, int threads) {
    if (source.isJob()) return totalsOfRows(source, layerRowsOf(source, threads));
    SliceEstimate estimate;
    if (!source.file->estimate(estimate).isOk()) return {kNaN, kNaN, kNaN, "moves"};
    return {estimate.volumeMl, estimate.fileS, estimate.estimateS, estimate.model};
}

double steady(double value) {
    constexpr int kDigits = 12;
    char text[32];
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, kDigits - 1);
    if (error == std::errc()) std::from_chars(text, end, value);
    return value;
}

Json describeSource(const Source& source, const std::vector<SliceFinding>& findings, const DescribeOptions& options) {
    const Geometry geometry = geometryOf(source);
    std::vector<LayerRow> rows;
    if (options.layers) rows = layerRowsOf(source, options.threads);
    // a job's layers are not read twice; those of a slice file are known to it by now
    const Totals totals = options.totals                     ? *options.totals
                          : options.layers && source.isJob() ? totalsOfRows(source, rows)
                                                             : totalsOf(source, options.threads);
    Json json = {{"file", utf8Of(source.path)},
                 {"bytes", source.bytes},
                 {"format", formatName(source)},
                 {"version", source.isJob() ? 0 : source.file->info().version},
                 {"layers", source.layerCount},
                 {"width_px", source.width},
                 {"height_px", source.height},
                 {"pixel_um", {{"x", numberOrNull(geometry.pixelXUm)}, {"y", numberOrNull(geometry.pixelYUm)}}},
                 {"size_mm",
                  {{"x", numberOrNull(geometry.sizeXMm)},
                   {"y", numberOrNull(geometry.sizeYMm)},
                   {"z", numberOrNull(geometry.sizeZMm)}}},
                 {"settings", settingsJson(source.settings)},
                 {"volume_ml", numberOrNull(steady(totals.volumeMl))},
                 {"print_time",
                  {{"file_s", numberOrNull(totals.fileS)},
                   {"estimate_s", numberOrNull(steady(totals.estimateS))},
                   {"model", totals.model}}},
                 {"trailer", trailerJson(source)},
                 {"previews", previewsJson(source)},
                 {"raw", source.isJob() ? Json::object() : rawJson(*source.file)},
                 {"findings", Json::array()}};
    for (const SliceFinding& finding : findings) json["findings"].push_back(jsonOf(finding));
    if (!options.layers) return json;
    Json& table = json["layer_table"] = Json::array();
    int index = 0;
    for (const LayerRow& row : rows) table.push_back(layerJson(index++, row));
    return json;
}

std::string jsonText(const Json& json, bool onOneLine) {
    const std::string text = json.dump(onOneLine ? -1 : 2, ' ', false, Json::error_handler_t::replace);
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        char escaped[8];
        if (byte == 0x7F) {
            shown += "\\u007f";
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            std::snprintf(escaped, sizeof escaped, "\\u%04x", next);
            shown += escaped;
            ++i;
        } else {
            shown += text[i];
        }
    }
    return shown + "\n";
}

Json numberOrNull(double value) { return std::isfinite(value) ? Json(value) : Json(nullptr); }

}  // namespace vndlp::tools
