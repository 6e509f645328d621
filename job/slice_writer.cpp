#include "ctb/preview_codec.h"
#include "ctb/record_fields.h"
#include "io/running_sum.h"
#include "job/carry_over.h"
#include "job/layer_data.h"
#include "job/layer_encoding.h"
#include "job/new_job.h"
#include "job/plan_changes.h"
#include "job/preview_scaling.h"
#include "job/skeleton.h"
#include "job/values.h"
#include "v4/record_fields.h"

#include <vndlp/container.h>
#include <vndlp/ctb.h>
#include <vndlp/slice_write.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace vndlp {

namespace {

using job::ByteList;
using job::Edits;
using job::failure;
using job::Model;
using job::plain;

constexpr double kCounted = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t kBytesReached = 0xFFFFFFFF;  // by a 32-bit offset
constexpr std::size_t kMostWaitingBytes = std::size_t{1} << 26;

SliceResult badSize(SliceFormat format, const std::string& what, std::uint64_t most) {
    return failure(SliceCode::value,
                   "." + job::formatName(format) + " files hold " + what + " up to " + std::to_string(most));
}

SliceResult checkTarget(SliceFormat format, const SliceTarget& t) {
    if (t.width == 0 || t.height == 0 || t.layers == 0) {
        return failure(SliceCode::argument, "a width, a height and a number of layers are needed");
    }
    const bool isVendor = format == SliceFormat::vndlp || format == SliceFormat::vnline;
    const std::uint32_t columns = format == SliceFormat::vndlp ? kMaxRunColumns : CTB::kLongestImageSide;
    const std::uint32_t rows = format == SliceFormat::vndlp ? kMaxRunRows : CTB::kLongestImageSide;
    if (t.width > columns) return badSize(format, "widths", columns);
    if (t.height > rows) return badSize(format, "heights", rows);
    if (!isVendor && std::uint64_t{t.width} * t.height > CTB::kMostLayerPixels) {
        return badSize(format, "screens of pixels", CTB::kMostLayerPixels);
    }
    if (isVendor && t.layers > static_cast<std::uint32_t>(kMaxLayers)) return badSize(format, "layers", kMaxLayers);
    return {};
}

bool fitsMemory(std::size_t& stride, std::uint32_t width, std::uint32_t height, std::size_t bytes) {
    if (stride == 0) stride = width;
    return stride >= width && width <= bytes && (bytes - width) / stride >= height - 1;
}

void store(ByteList& bytes, std::size_t offset, std::uint32_t value, BYTEORDER order) {
    const auto raw = storedNumber(value, order);
    std::copy(raw.begin(), raw.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

void append32(ByteList& bytes, std::uint32_t value) {
    const auto raw = storedNumber(value, BigEndian);
    bytes.insert(bytes.end(), raw.begin(), raw.end());
}

/// A sum over bytes that come one behind the other.
class Sum {
public:
    void add(const unsigned char* data, std::size_t size) {
        for (std::size_t done = 0; done < size;) {
            const auto now = static_cast<unsigned>(std::min<std::size_t>(size - done, 1u << 30));
            m_crc = CheckSum::instance().makeCrc(m_crc, const_cast<unsigned char*>(data) + done, now);
            done += now;
        }
        for (std::size_t i = 0; i < (m_isXor ? size : 0); ++i) m_xor = static_cast<unsigned char>(m_xor ^ data[i]);
        m_length += size;
    }
    void setXor() { m_isXor = true; }
    /// The sum of these bytes behind others.
    [[nodiscard]] std::uint32_t behind(const ByteList& head) const {
        Sum front = *this;
        front.m_crc = 0;
        front.m_xor = 0;
        front.add(head.data(), head.size());
        if (m_isXor) {
            const auto all = static_cast<signed char>(front.m_xor ^ m_xor);
            return static_cast<std::uint32_t>(static_cast<std::int32_t>(all));
        }
        return crcBeforeZeros(front.m_crc, m_length) ^ m_crc;
    }
    /// Whether it is the trailer that follows these bytes.
    [[nodiscard]] std::uint32_t value() const {
        return m_isXor ? static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(m_xor))) : m_crc;
    }

private:
    bool m_isXor = false;
    std::uint32_t m_crc = 0;
    unsigned char m_xor = 0;
    unsigned long long m_length = 0;
};

/// Layers that came before their turn: in memory, in a file beside the output where they are many.
class WaitingLayers {
public:
    [[nodiscard]] bool has(std::uint32_t layer) const { return m_layers.count(layer) != 0; }
    [[nodiscard]] SliceResult add(const std::string& path, std::unique_ptr<SliceEncoded::State> state) {
        Waiting waiting;
        const std::size_t size = state->bytes.size();
        const std::uint32_t layer = state->layer;
        if (m_held + size > kMostWaitingBytes) {
            if (!m_spill.isOpen() && !m_spill.create(path)) return job::outputFailure(m_spill);
            if (!m_spill.write(m_spilled, state->bytes.data(), size)) return job::outputFailure(m_spill);
            waiting.offset = m_spilled;
            waiting.bytes = size;
            m_spilled += static_cast<std::int64_t>(size);
            state->bytes = {};
        } else {
            m_held += size;
        }
        waiting.state = std::move(state);
        m_layers.emplace(layer, std::move(waiting));
        return {};
    }
    [[nodiscard]] SliceResult take(std::uint32_t layer, std::unique_ptr<SliceEncoded::State>& state) {
        Waiting waiting = std::move(m_layers.at(layer));
        m_layers.erase(layer);
        state = std::move(waiting.state);
        if (waiting.offset < 0) {
            m_held -= state->bytes.size();
            return {};
        }
        state->bytes.resize(waiting.bytes);
        return m_spill.read(waiting.offset, state->bytes.data(), waiting.bytes) ? SliceResult()
                                                                                : job::outputFailure(m_spill);
    }
    void clear() {
        m_layers.clear();
        m_spill.discard();
    }

private:
    struct Waiting {
        std::unique_ptr<SliceEncoded::State> state;
        std::int64_t offset = -1;  // in the file
        std::size_t bytes = 0;
    };
    std::map<std::uint32_t, Waiting> m_layers;
    std::size_t m_held = 0;
    NewFile m_spill;
    std::int64_t m_spilled = 0;
};

struct PreviewTarget {
    std::uint32_t width;
    std::uint32_t height;
    job::Picture picture;  // empty: what the head has
    bool isResized = false;
};

}  // namespace

struct SliceWriter::State {
    enum class Phase { settings, layers, failed, finished };

    State(std::string toPath, const SliceTarget& toTarget) : path(std::move(toPath)), target(toTarget) {}

    SliceResult create();
    SliceResult set(const SliceChange& change);
    SliceResult start();
    SliceResult startOnce();
    SliceResult put(std::unique_ptr<SliceEncoded::State> layer);
    SliceResult finish();
    void discard();

    [[nodiscard]] SliceResult encodePlaced(const Model& model, std::uint32_t fromLayer, const job::LayerPlace& place,
                                           SliceEncoded::State& layer);
    [[nodiscard]] SliceResult prepare(std::uint32_t layer, SliceEncoded& encoded);
    [[nodiscard]] bool isLike() const { return likeModel != nullptr && likeModel->info.format == format; }

    std::string path;
    SliceTarget target;
    SliceFormat format = SliceFormat::none;
    const Model* likeModel = nullptr;
    std::vector<std::string> notes;
    std::vector<SliceAssumed> assumed;
    std::vector<PreviewTarget> previews;
    job::LayerTarget layerTarget;
    job::BeadFieldLender beads;
    std::mutex mutex;
    Phase phase = Phase::settings;
    SliceResult firstFailure;

private:
    SliceResult makeSkeleton();
    SliceResult applyFresh(ByteList& head);
    SliceResult replacePreview(std::uint32_t index);
    SliceResult setScramblingKey();
    SliceResult writeNext(const SliceEncoded::State& layer);
    SliceResult append(const ByteList& bytes);
    SliceResult missing() const;
    SliceResult verify(std::uint32_t sum);
    SliceResult seal();
    SliceResult fail(SliceResult result);

    ByteList m_skeleton;
    SliceFile m_skeletonFile;
    std::unique_ptr<Edits> m_edits;
    std::map<std::string, SliceResult> m_refused;  // settings of `like` that the format refuses
    std::string m_notKept;
    std::vector<std::string> m_roundings;
    std::vector<std::string> m_given;
    job::SkeletonParts m_parts;
    bool m_hasAreas = false;
    std::int64_t m_dataOffset = 0;  // in an entry, as the next three
    std::int64_t m_dataSize = 0;
    std::int64_t m_area = 0;
    std::int64_t m_mask = 0;
    EnumCheckSumType m_trailer = CHECKSUM_NONE;
    std::string m_tail;
    NewFile m_out;
    Sum m_sum;
    std::int64_t m_at = 0;
    std::uint32_t m_next = 0;
    bool m_isMesh = false;
    bool m_hasShapes = false;
    WaitingLayers m_waiting;
};

SliceResult SliceWriter::State::create() {
    format = target.format != SliceFormat::none ? target.format : sliceFormatOfPath(path);
    if (format == SliceFormat::none) {
        return failure(SliceCode::format,
                       "unknown output format; the name must end in .vndlp, .vnline, .ctb or .vndlpv4");
    }
    if (target.like != nullptr) {
        if (!target.like->isOpen()) return plain(SliceCode::argument);
        likeModel = &target.like->state()->model;
        const SliceInfo& info = likeModel->info;
        if (target.width == 0 && target.height == 0) {
            target.width = info.width;
            target.height = info.height;
        }
        if (target.layers == 0) target.layers = info.layers;
    }
    if (target.hasKey && format != SliceFormat::ctb) {
        return failure(SliceCode::key, "." + job::formatName(format) + " files are written without a key");
    }
    SliceResult result = checkTarget(format, target);
    if (result.isOk()) result = makeSkeleton();
    if (!result.isOk()) return result;
    if (!m_out.create(path)) return job::outputFailure(m_out);
    return result;
}

SliceResult SliceWriter::State::makeSkeleton() {
    job::SkeletonPlan plan{format, target.width, target.height, {}};
    for (std::uint32_t i = 0; i < target.layers; ++i) {
        const bool isTold = !target.likeLayers.empty();
        const std::uint32_t told = isTold && i < target.likeLayers.size() ? target.likeLayers[i] : job::kNoLayer;
        plan.from.push_back(!isLike() ? job::kNoLayer : isTold ? told : i);
    }
    SliceResult result;
    if (isLike()) {
        result = job::likeHead(*target.like, plan, m_skeleton);
    } else {
        m_skeleton = job::freshHead(format, target.width, target.height);
        result = applyFresh(m_skeleton);
    }
    if (result.isOk()) result = job::appendLayers(plan, isLike() ? target.like : nullptr, m_skeleton);
    if (result.isOk()) result = m_skeletonFile.openMemory(m_skeleton.data(), m_skeleton.size());
    if (!result.isOk()) return result;
    const Model& model = m_skeletonFile.state()->model;
    m_edits = std::make_unique<Edits>(model);
    if (likeModel != nullptr && !isLike()) {
        result = job::carryRawFields(*likeModel, *m_edits);
        if (result.isOk()) result = job::carryLayers(*likeModel, *m_edits);
        m_notKept = job::notKeptText(*likeModel, model);
    }
    for (const job::PreviewPlace& place : model.previews) previews.push_back({place.width, place.height, {}, false});
    if (likeModel == nullptr || isLike()) return result;
    const std::vector<job::Picture> pictures = job::picturesOf(*target.like);
    for (std::size_t i = 0; i < previews.size() && !pictures.empty(); ++i) {
        previews[i].picture = pictures[job::pictureFor(i, pictures.size(), model.isVendor())];
        if (model.isVendor() || likeModel->isVendor()) continue;
        // both formats hold pictures of any size
        previews[i].width = previews[i].picture.width;
        previews[i].height = previews[i].picture.height;
    }
    return result;
}

/// The settings of a head that is not like another: those of the file it is made after, and what is assumed.
SliceResult SliceWriter::State::applyFresh(ByteList& head) {
    SliceFile file;
    SliceResult result = file.openMemory(head.data(), head.size());
    if (!result.isOk()) return result;
    Edits edits(file.state()->model);
    job::ChangePlan plan;
    std::vector<job::NewSetting> settings = job::settingsOfNewJob(format, target.width, target.height, likeModel);
    for (const job::NewSetting& setting : settings) {
        SliceResult set = job::planChange({setting.key, setting.value, {}}, edits, plan, !setting.isAssumed);
        if (set.code == SliceCode::value) m_refused[setting.key] = set;
        if (!set.isOk() && set.code != SliceCode::value && set.code != SliceCode::key) return set;
        if (setting.isAssumed && set.isOk()) assumed.push_back({setting.key, setting.value});
    }
    m_roundings = plan.roundings;
    if (result = edits.moveOffsets(); result.isOk()) head = job::applied(edits, head);
    return result;
}

SliceResult SliceWriter::State::set(const SliceChange& change) {
    if (phase != Phase::settings) return failure(SliceCode::order, "settings are given before the first layer");
    job::ChangePlan plan;
    SliceResult result = job::planChange(change, *m_edits, plan);
    if (!result.isOk()) return result;
    m_given.push_back(change.key);
    m_refused.erase(change.key);
    // what was said of a value that is replaced no longer holds
    if (change.layers.empty()) {
        const std::string begin = change.key + " ";
        m_roundings.erase(std::remove_if(m_roundings.begin(), m_roundings.end(),
                                         [&](const std::string& r) { return r.compare(0, begin.size(), begin) == 0; }),
                          m_roundings.end());
    }
    m_roundings.insert(m_roundings.end(), plan.roundings.begin(), plan.roundings.end());
    assumed.erase(
        std::remove_if(assumed.begin(), assumed.end(), [&](const SliceAssumed& a) { return a.key == change.key; }),
        assumed.end());
    return result;
}

SliceResult SliceWriter::State::replacePreview(std::uint32_t index) {
    PreviewTarget& preview = previews[index];
    const Model& model = m_edits->model();
    const job::PreviewPlace& place = model.previews[index];
    if (preview.picture.rgb.empty() && !preview.isResized) return {};
    if (preview.picture.rgb.empty()) {
        preview.picture = {preview.width, preview.height, ByteList(std::size_t{3} * preview.width * preview.height)};
    }
    job::Picture picture = job::fitted(preview.picture, preview.width, preview.height);
    preview.picture = {};
    if (place.coding == job::PreviewCoding::rgb565) {
        m_edits->replace(place.offset, place.bytes, job::packed565(picture));
        return {};
    }
    for (std::size_t i = 0; i < picture.rgb.size(); i += 3) std::swap(picture.rgb[i], picture.rgb[i + 2]);
    ByteList code = CTB::encodePreview(picture.rgb.data(), picture.rgb.size());
    const std::string record = "PreView." + std::to_string(index) + ".";
    const std::pair<const char*, std::size_t> numbers[] = {
        {"resolutionX", preview.width}, {"resolutionY", preview.height}, {"imageSize", code.size()}};
    for (const auto& [member, value] : numbers) {
        const job::FieldPlace* field = model.field(record + member);
        const auto raw = storedNumber(static_cast<std::uint32_t>(value), LittleEndian);
        m_edits->replace(field->offset, field->bytes, {raw.begin(), raw.end()});
    }
    m_edits->replace(place.offset, place.bytes, std::move(code));
    return {};
}

SliceResult SliceWriter::State::setScramblingKey() {
    const Model& model = m_edits->model();
    std::uint32_t key = model.key;
    if (format == SliceFormat::ctb) {
        const bool isUnscrambled = isLike() && model.key == 0;
        key = target.hasKey ? target.key : isUnscrambled ? 0 : job::drawKey();
        const job::FieldPlace* field = model.field("HeaderSettings.encryptionKey");
        const auto raw = storedNumber(key, LittleEndian);
        m_edits->replace(field->offset, field->bytes, {raw.begin(), raw.end()});
    }
    layerTarget.key = key;
    return {};
}

SliceResult SliceWriter::State::start() {
    const std::lock_guard lock(mutex);
    return startOnce();
}

SliceResult SliceWriter::State::startOnce() {
    if (phase != Phase::settings) return phase == Phase::layers ? SliceResult() : plain(SliceCode::order);
    if (!m_refused.empty()) return m_refused.begin()->second;
    SliceResult result;
    if (format == SliceFormat::vndlpv4 && !isLike()) {
        // as the format's writers do: both kinds of layers wait alike unless told otherwise
        result = job::completeV4Waits(m_given, likeModel != nullptr && !likeModel->isVendor(), *m_edits);
    }
    for (std::uint32_t i = 0; result.isOk() && i < previews.size(); ++i) result = replacePreview(i);
    if (result.isOk()) result = setScramblingKey();
    if (result.isOk()) result = m_edits->moveOffsets();
    if (!result.isOk()) return fail(result);
    ByteList bytes = job::applied(*m_edits, m_skeleton);
    m_edits.reset();
    m_skeleton = std::move(bytes);
    if (result = m_skeletonFile.openMemory(m_skeleton.data(), m_skeleton.size()); !result.isOk()) return fail(result);
    const Model& model = m_skeletonFile.state()->model;
    m_parts = job::takeApart(model, m_skeleton);
    const job::FieldSpecs& fields = *model.layerRecords.front().fields;
    m_dataOffset = job::offsetInRecord(fields, "dataOffset");
    m_dataSize = job::offsetInRecord(fields, "dataSize");
    m_area = format == SliceFormat::vndlpv4 ? job::offsetInRecord(fields, "word36") : -1;
    const std::int64_t plainEntry = job::fixedBytes(fields);
    m_mask = m_parts.entryBytes > plainEntry ? plainEntry : -1;
    m_hasAreas = hasAreaTable(model.info.headerKind);
    m_trailer = model.trailerKind;
    if (m_trailer == CHECKSUM_XOR) m_sum.setXor();
    if (model.isVendor()) m_tail = std::string(model.magic->tailMagic);
    layerTarget.format = format;
    layerTarget.width = target.width;
    layerTarget.height = target.height;
    layerTarget.hasBeads = m_mask >= 0;
    layerTarget.pixelAreaUm2 = model.info.sizeXMm * 1000 / target.width * model.info.sizeYMm * 1000 / target.height;
    m_at = static_cast<std::int64_t>(m_parts.head.size() + m_parts.entries.size());
    notes = m_roundings;
    if (!m_notKept.empty()) notes.push_back(m_notKept);
    m_skeletonFile.close();
    m_skeleton = {};
    phase = Phase::layers;
    // the room of head and tables, which are written last
    const ByteList room(static_cast<std::size_t>(m_at));
    return m_out.write(0, room.data(), room.size()) ? result : fail(job::outputFailure(m_out));
}

/// Remembers the first failure; nothing is left of the file.
SliceResult SliceWriter::State::fail(SliceResult result) {
    if (phase != Phase::failed) firstFailure = result;
    phase = Phase::failed;
    m_out.discard();
    m_waiting.clear();
    return result;
}

SliceResult SliceWriter::State::prepare(std::uint32_t layer, SliceEncoded& encoded) {
    encoded = {};
    SliceResult result = start();
    if (!result.isOk()) return result;
    if (layer >= target.layers) {
        return failure(SliceCode::index, "the file has layers 0 to " + std::to_string(target.layers - 1), -1, layer);
    }
    encoded.state() = std::make_unique<SliceEncoded::State>();
    encoded.state()->layer = layer;
    encoded.state()->writer = this;
    return result;
}

SliceResult SliceWriter::State::put(std::unique_ptr<SliceEncoded::State> layer) {
    const std::lock_guard lock(mutex);
    if (phase == Phase::failed) return firstFailure;
    if (phase != Phase::layers) return failure(SliceCode::order, "the file is finished", -1, layer->layer);
    if (layer->layer < m_next || m_waiting.has(layer->layer)) {
        return failure(SliceCode::order, "layer " + std::to_string(layer->layer) + " is given twice", -1, layer->layer);
    }
    if (format == SliceFormat::vnline && layer->count > 0) {
        if (m_hasShapes && layer->isMesh != m_isMesh) {
            return failure(SliceCode::kind, "a file holds polylines or a mesh, not both", -1, layer->layer);
        }
        m_hasShapes = true;
        m_isMesh = layer->isMesh;
    }
    if (layer->layer != m_next) {
        SliceResult result = m_waiting.add(path, std::move(layer));
        return result.isOk() ? result : fail(result);
    }
    SliceResult result = writeNext(*layer);
    while (result.isOk() && m_waiting.has(m_next)) {
        result = m_waiting.take(m_next, layer);
        if (result.isOk()) result = writeNext(*layer);
    }
    return result.isOk() ? result : fail(result);
}

SliceResult SliceWriter::State::append(const ByteList& bytes) {
    if (!m_out.write(m_at, bytes.data(), bytes.size())) return job::outputFailure(m_out);
    if (m_trailer != CHECKSUM_NONE) m_sum.add(bytes.data(), bytes.size());
    m_at += static_cast<std::int64_t>(bytes.size());
    return {};
}

SliceResult SliceWriter::State::writeNext(const SliceEncoded::State& layer) {
    const std::size_t index = m_next++;
    const bool isVendor = format == SliceFormat::vndlp || format == SliceFormat::vnline;
    ByteList front;
    if (isVendor) {
        if (m_hasAreas) {
            store(m_parts.head, static_cast<std::size_t>(m_parts.tableAt) + index * kAreaBytes, layer.area, BigEndian);
            append32(front, layer.area);
        }
        append32(front, layer.count);
        SliceResult result = append(front);
        if (result.isOk()) result = append(layer.bytes);
        return result.isOk() ? append({kSplitTag >> 8, kSplitTag & 0xFF}) : result;
    }
    const bool isCtb = format == SliceFormat::ctb;
    const auto recordBytes = static_cast<std::size_t>(m_parts.recordBytes);
    const std::size_t entry = index * static_cast<std::size_t>(m_parts.entryBytes);
    const auto field = [entry](std::int64_t offset) { return entry + static_cast<std::size_t>(offset); };
    const auto codeBytes = static_cast<std::int64_t>(layer.bytes.size());
    const std::int64_t data = isCtb ? m_at + m_parts.recordBytes : m_at;
    const std::int64_t size = isCtb ? codeBytes : m_parts.recordBytes + codeBytes;
    if (m_at + m_parts.recordBytes + codeBytes > kBytesReached) {
        return failure(SliceCode::value, "the file would be larger than its offsets reach", -1, layer.layer);
    }
    store(m_parts.entries, field(m_dataOffset), static_cast<std::uint32_t>(data), LittleEndian);
    store(m_parts.entries, field(m_dataSize), static_cast<std::uint32_t>(size), LittleEndian);
    if (m_area >= 0) store(m_parts.entries, field(m_area), layer.area, LittleEndian);
    if (m_mask >= 0) {
        const auto mask = m_parts.entries.begin() + static_cast<std::ptrdiff_t>(field(m_mask));
        std::fill_n(mask, VNDLPV4::kLayerExtensionBytes, static_cast<unsigned char>(0));
        std::copy_n(layer.mask.begin(), std::min<std::size_t>(layer.mask.size(), VNDLPV4::kLayerExtensionBytes), mask);
    }
    const auto record = m_parts.records.begin() + static_cast<std::ptrdiff_t>(index * recordBytes);
    front.assign(record, record + static_cast<std::ptrdiff_t>(recordBytes));
    if (isCtb && recordBytes > 0) {
        // heights, times and places stand in the table, too
        const auto begin = m_parts.entries.begin() + static_cast<std::ptrdiff_t>(entry);
        std::copy_n(begin, m_dataSize + static_cast<std::int64_t>(sizeof(std::uint32_t)), front.begin());
        store(front, CTB::kLayerDefBytes, static_cast<std::uint32_t>(CTB::kLayerDefExBytes + codeBytes), LittleEndian);
    }
    SliceResult result = append(front);
    return result.isOk() ? append(layer.bytes) : result;
}

SliceResult SliceWriter::State::missing() const {
    std::vector<std::uint32_t> layers;
    for (std::uint32_t i = m_next; i < target.layers; ++i) {
        if (!m_waiting.has(i)) layers.push_back(i);
    }
    if (layers.empty()) return {};
    return failure(SliceCode::order,
                   std::string(layers.size() == 1 ? "layer " : "layers ") + job::layerListText(layers) +
                       (layers.size() == 1 ? " is missing" : " are missing"),
                   -1, layers.front());
}

/// Reads the file back: what cannot be verified does not get its name.
SliceResult SliceWriter::State::verify(std::uint32_t sum) {
    Sum read;
    if (m_trailer == CHECKSUM_XOR) read.setXor();
    ByteList piece(job::kPieceBytes);
    for (std::int64_t at = 0; at < m_at;) {
        const auto now =
            static_cast<std::size_t>(std::min<std::int64_t>(m_at - at, static_cast<std::int64_t>(piece.size())));
        if (!m_out.read(at, piece.data(), now)) return job::outputFailure(m_out);
        read.add(piece.data(), now);
        at += static_cast<std::int64_t>(now);
    }
    if (read.value() == sum) return {};
    return failure(SliceCode::file, "the file read back differs from the file written; the disk may be failing");
}

SliceResult SliceWriter::State::seal() {
    SliceResult result;
    if (!m_tail.empty()) {
        ByteList tail;
        append32(tail, static_cast<std::uint32_t>(m_tail.size() + 1));
        tail.insert(tail.end(), m_tail.c_str(), m_tail.c_str() + m_tail.size() + 1);
        result = append(tail);
    } else {
        result = append(m_parts.seconds.empty() ? m_parts.seconds : m_parts.records);
    }
    if (!result.isOk()) return result;
    ByteList head = m_parts.head;
    head.insert(head.end(), m_parts.entries.begin(), m_parts.entries.end());
    if (!m_out.write(0, head.data(), head.size())) return job::outputFailure(m_out);
    if (m_trailer == CHECKSUM_NONE) return result;
    const std::uint32_t sum = m_sum.behind(head);
    if (result = verify(sum); !result.isOk()) return result;
    const auto trailer = storedNumber(sum, BigEndian);
    return m_out.write(m_at, trailer.data(), trailer.size()) ? result : job::outputFailure(m_out);
}

SliceResult SliceWriter::State::finish() {
    const std::lock_guard lock(mutex);
    if (phase == Phase::failed) return firstFailure;
    if (phase == Phase::finished) return failure(SliceCode::order, "the file is finished");
    SliceResult result = phase == Phase::settings ? startOnce() : SliceResult();
    if (!result.isOk()) return result;
    if (result = missing(); !result.isOk()) return result;
    if (result = seal(); !result.isOk()) return fail(result);
    if (!m_out.commit()) return fail(job::outputFailure(m_out));
    m_waiting.clear();
    phase = Phase::finished;
    return result;
}

void SliceWriter::State::discard() {
    const std::lock_guard lock(mutex);
    m_out.discard();
    m_waiting.clear();
    phase = Phase::finished;
}

SliceResult SliceWriter::State::encodePlaced(const Model& model, std::uint32_t fromLayer, const job::LayerPlace& place,
                                             SliceEncoded::State& layer) {
    const bool holdsShapes = model.info.format == SliceFormat::vnline;
    if (holdsShapes != (format == SliceFormat::vnline)) {
        return failure(SliceCode::kind,
                       holdsShapes ? "its layers are shapes, not images" : "its layers are images, not shapes", -1,
                       fromLayer);
    }
    const bool isSameScreen = model.info.width == target.width && model.info.height == target.height;
    if (model.info.format == format && (isSameScreen || holdsShapes)) {
        return job::encodeCopy(layerTarget, model, fromLayer, place, layer);
    }
    if (!isSameScreen) {
        return failure(SliceCode::size,
                       "layers of " + std::to_string(model.info.width) + " x " + std::to_string(model.info.height) +
                           " pixels do not fit the screen",
                       -1, fromLayer);
    }
    ByteList pixels(std::size_t{model.info.width} * model.info.height);
    SliceResult result = job::decodePixels(model, fromLayer, place, pixels.data(), model.info.width);
    if (!result.isOk()) return result;
    const bool isStored = model.info.format == SliceFormat::vndlpv4 || hasAreaTable(model.info.headerKind);
    job::encodePixels(layerTarget, beads, pixels.data(), model.info.width, isStored ? place.area / 1000.0 : kCounted,
                      layer);
    return result;
}

SliceEncoded::SliceEncoded() = default;
SliceEncoded::SliceEncoded(SliceEncoded&& other) noexcept = default;
SliceEncoded& SliceEncoded::operator=(SliceEncoded&& other) noexcept = default;
SliceEncoded::~SliceEncoded() = default;

SliceWriter::SliceWriter() = default;
SliceWriter::SliceWriter(SliceWriter&& other) noexcept = default;
SliceWriter& SliceWriter::operator=(SliceWriter&& other) noexcept = default;
SliceWriter::~SliceWriter() = default;

namespace {

/// Runs a call on a writer that has been created.
template <class State, class Call>
SliceResult onWriter(State& state, Call&& call) {
    if (state == nullptr) return plain(SliceCode::argument);
    return job::guarded([&] { return call(*state); });
}

}  // namespace

SliceResult SliceWriter::create(const std::string& path, const SliceTarget& target) {
    return job::guarded([&] {
        m_state.reset();
        auto state = std::make_unique<State>(path, target);
        SliceResult result = state->create();
        if (result.isOk()) m_state = std::move(state);
        return result;
    });
}

SliceFormat SliceWriter::format() const { return m_state == nullptr ? SliceFormat::none : m_state->format; }

SliceResult SliceWriter::set(const SliceChange& change) {
    return onWriter(m_state, [&](State& s) { return s.set(change); });
}

SliceResult SliceWriter::setNumber(const std::string& key, std::int64_t layer, double value) {
    return onWriter(m_state, [&](State& s) {
        if (layer >= s.target.layers || layer < -1) return plain(SliceCode::index);
        if (!std::isfinite(value)) return failure(SliceCode::value, key + " is not a number");
        return s.set({key, job::exactText(value), layer < 0 ? std::string() : std::to_string(layer)});
    });
}

SliceResult SliceWriter::setText(const std::string& key, const std::string& value) {
    return onWriter(m_state, [&](State& s) { return s.set({key, value, {}}); });
}

std::uint32_t SliceWriter::previewCount() const {
    return m_state == nullptr ? 0 : static_cast<std::uint32_t>(m_state->previews.size());
}

SliceResult SliceWriter::previewSize(std::uint32_t index, std::uint32_t& width, std::uint32_t& height) const {
    return onWriter(m_state, [&](State& s) {
        if (index >= s.previews.size()) return plain(SliceCode::index);
        width = s.previews[index].width;
        height = s.previews[index].height;
        return SliceResult();
    });
}

SliceResult SliceWriter::setPreviewSize(std::uint32_t index, std::uint32_t width, std::uint32_t height) {
    return onWriter(m_state, [&](State& s) {
        if (index >= s.previews.size()) return plain(SliceCode::index);
        if (s.phase != State::Phase::settings) return plain(SliceCode::order);
        if (s.format == SliceFormat::vndlp || s.format == SliceFormat::vnline) return plain(SliceCode::kind);
        if (width == 0 || height == 0 || std::uint64_t{width} * height > CTB::kMostPreviewPixels) {
            return plain(SliceCode::size);
        }
        PreviewTarget& preview = s.previews[index];
        preview.width = width;
        preview.height = height;
        preview.isResized = true;
        return SliceResult();
    });
}

SliceResult SliceWriter::setPreview(std::uint32_t index, const unsigned char* rgb, std::uint32_t width,
                                    std::uint32_t height, std::size_t stride) {
    return onWriter(m_state, [&](State& s) {
        if (index >= s.previews.size()) return plain(SliceCode::index);
        if (s.phase != State::Phase::settings) return failure(SliceCode::order, "previews come before the first layer");
        if (rgb == nullptr || width == 0 || height == 0) return plain(SliceCode::argument);
        const std::size_t row = std::size_t{3} * width;
        if (stride == 0) stride = row;
        if (stride < row) return plain(SliceCode::size);
        job::Picture picture{width, height, {}};
        picture.rgb.reserve(row * height);
        for (std::uint32_t y = 0; y < height; ++y)
            picture.rgb.insert(picture.rgb.end(), rgb + y * stride, rgb + y * stride + row);
        s.previews[index].picture = std::move(picture);
        return SliceResult();
    });
}

SliceResult SliceWriter::start() {
    return onWriter(m_state, [](State& s) { return s.start(); });
}

const std::vector<std::string>& SliceWriter::notes() const {
    static const std::vector<std::string> none;
    return m_state == nullptr ? none : m_state->notes;
}

const std::vector<SliceAssumed>& SliceWriter::assumed() const {
    static const std::vector<SliceAssumed> none;
    return m_state == nullptr ? none : m_state->assumed;
}

SliceResult SliceWriter::encode(std::uint32_t layer, const unsigned char* pixels, std::size_t stride, std::size_t bytes,
                                double areaMm2, SliceEncoded& encoded) {
    return onWriter(m_state, [&](State& s) {
        SliceResult result = s.prepare(layer, encoded);
        if (!result.isOk()) return result;
        if (pixels == nullptr) return plain(SliceCode::argument);
        if (s.format == SliceFormat::vnline) return failure(SliceCode::kind, "holds shapes, not images", -1, layer);
        if (!fitsMemory(stride, s.target.width, s.target.height, bytes)) {
            return failure(SliceCode::size,
                           "the memory does not hold an image of " + std::to_string(s.target.width) + " x " +
                               std::to_string(s.target.height) + " pixels",
                           -1, layer);
        }
        job::encodePixels(s.layerTarget, s.beads, pixels, stride, areaMm2, *encoded.state());
        return result;
    });
}

SliceResult SliceWriter::encodeRuns(std::uint32_t layer, const SliceRun* runs, std::size_t count,
                                    SliceEncoded& encoded) {
    return onWriter(m_state, [&](State& s) {
        SliceResult result = s.prepare(layer, encoded);
        if (!result.isOk()) return result;
        if (runs == nullptr && count > 0) return plain(SliceCode::argument);
        if (s.format == SliceFormat::vnline) return failure(SliceCode::kind, "holds shapes, not images", -1, layer);
        return job::encodeAnyRuns(s.layerTarget, s.beads, runs, count, *encoded.state());
    });
}

SliceResult SliceWriter::encodeShapes(std::uint32_t layer, const SliceShapes& shapes, double areaMm2,
                                      SliceEncoded& encoded) {
    return onWriter(m_state, [&](State& s) {
        SliceResult result = s.prepare(layer, encoded);
        if (!result.isOk()) return result;
        if (s.format != SliceFormat::vnline) return failure(SliceCode::kind, "holds images, not shapes", -1, layer);
        return job::encodeShapes(shapes, areaMm2, *encoded.state());
    });
}

SliceResult SliceWriter::encodeFrom(std::uint32_t layer, const SliceFile& from, std::uint32_t fromLayer,
                                    SliceEncoded& encoded) {
    return onWriter(m_state, [&](State& s) {
        if (!from.isOpen()) return plain(SliceCode::argument);
        SliceResult result = s.prepare(layer, encoded);
        if (!result.isOk()) return result;
        job::LayerPlace place;
        const Model& model = from.state()->model;
        result = job::placeOfLayer(model, fromLayer, place);
        return result.isOk() ? s.encodePlaced(model, fromLayer, place, *encoded.state()) : result;
    });
}

SliceResult SliceWriter::put(SliceEncoded& encoded) {
    return onWriter(m_state, [&](State& s) {
        std::unique_ptr<SliceEncoded::State> layer = std::move(encoded.state());
        if (layer == nullptr || layer->writer != &s) {
            return failure(SliceCode::argument, "the layer was not encoded by this writer");
        }
        return s.put(std::move(layer));
    });
}

SliceResult SliceWriter::putPixels(std::uint32_t layer, const unsigned char* pixels, std::size_t stride,
                                   std::size_t bytes, double areaMm2) {
    SliceEncoded encoded;
    SliceResult result = encode(layer, pixels, stride, bytes, areaMm2, encoded);
    return result.isOk() ? put(encoded) : result;
}

SliceResult SliceWriter::putRuns(std::uint32_t layer, const SliceRun* runs, std::size_t count) {
    SliceEncoded encoded;
    SliceResult result = encodeRuns(layer, runs, count, encoded);
    return result.isOk() ? put(encoded) : result;
}

SliceResult SliceWriter::putShapes(std::uint32_t layer, const SliceShapes& shapes, double areaMm2) {
    SliceEncoded encoded;
    SliceResult result = encodeShapes(layer, shapes, areaMm2, encoded);
    return result.isOk() ? put(encoded) : result;
}

SliceResult SliceWriter::putLayer(std::uint32_t layer, const SliceFile& from, std::uint32_t fromLayer) {
    SliceEncoded encoded;
    SliceResult result = encodeFrom(layer, from, fromLayer, encoded);
    return result.isOk() ? put(encoded) : result;
}

SliceResult SliceWriter::finish() {
    return onWriter(m_state, [](State& s) { return s.finish(); });
}

SliceResult SliceWriter::cancel() {
    return onWriter(m_state, [](State& s) {
        s.discard();
        return SliceResult();
    });
}

}  // namespace vndlp

namespace vndlp::job {

SliceResult putPlaced(SliceWriter& writer, std::uint32_t layer, const Model& from, std::uint32_t fromLayer,
                      const LayerPlace& place) {
    SliceEncoded encoded;
    SliceWriter::State* state = writer.state();
    SliceResult result = state->prepare(layer, encoded);
    if (result.isOk()) result = state->encodePlaced(from, fromLayer, place, *encoded.state());
    return result.isOk() ? writer.put(encoded) : result;
}

}  // namespace vndlp::job
