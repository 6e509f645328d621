/// A file's job in another file.

#include "job/find_layers.h"
#include "job/layer_data.h"
#include "job/layer_encoding.h"
#include "job/plan_changes.h"
#include "job/results.h"

#include <vndlp/slice_write.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace vndlp {

namespace {

using job::Model;

/// One converting: what it reads, where it writes, whom it tells. Layers may be worked on in several threads.
class Conversion {
public:
    Conversion(const SliceFile& file, std::string output, const SliceConvertOptions& options,
               const SliceListener& listener)
        : m_file(file),
          m_model(file.state()->model),
          m_output(std::move(output)),
          m_options(options),
          m_listener(listener) {}

    SliceResult run() {
        m_format = m_options.format != SliceFormat::none ? m_options.format : sliceFormatOfPath(m_output);
        SliceResult result = job::checkHead(m_model);
        if (result.isOk()) result = refuse();
        if (result.isOk()) result = verify();
        if (!result.isOk()) return result;
        const bool isSame = m_format == m_model.info.format;
        return isSame && m_found.hurt.empty() && m_isStructureSound ? copy() : write();
    }

private:
    bool salvages() const { return m_options.salvage != SliceSalvage::no; }

    /// What is wrong with the call, before anything is read.
    SliceResult refuse() const {
        if (m_format == SliceFormat::none) {
            return job::failure(SliceCode::format,
                                "unknown output format; the name must end in .vndlp, .vnline, .ctb or .vndlpv4");
        }
        if (m_options.hasKey && m_format != SliceFormat::ctb) {
            return job::failure(SliceCode::key, "only .ctb files are written with a key");
        }
        const bool holdsShapes = m_model.info.format == SliceFormat::vnline;
        if (holdsShapes == (m_format == SliceFormat::vnline)) return {};
        return job::failure(SliceCode::kind, holdsShapes ? "its layers are shapes, which only .vnline files hold"
                                                         : "its layers are images, .vnline files hold shapes");
    }

    SliceResult verify() {
        SliceResult damage;
        SliceResult result = job::verifyStructure(
            m_model,
            [&](SliceFinding&& finding) {
                m_isStructureSound = false;
                if (salvages()) return job::tell(m_listener, finding).isOk();
                damage = job::damaged(finding.offset, std::move(finding.text), finding.layer);
                return false;
            },
            progress());
        if (!damage.isOk()) return damage;
        // layers of another format are checked as they are decoded
        const bool isLate = !salvages() && m_format != m_model.info.format;
        if (!result.isOk() || isLate) return result;
        if (!salvages()) return forEachLayer(m_model.info.layers, [this](std::uint32_t i) { return check(i); });
        return job::findLayers(m_model, progress(), m_found);
    }

    job::ProgressSink progress() const {
        return
            [this](std::uint64_t done, std::uint64_t all) { return job::tellProgress(m_listener, done, all).isOk(); };
    }

    SliceResult check(std::uint32_t layer) const {
        job::LayerPlace place;
        SliceResult result = job::placeOfLayer(m_model, layer, place);
        return result.isOk() ? job::checkData(m_model, layer, place) : result;
    }

    /// Calls `work(i)` for every layer, until one fails.
    template <class Work>
    SliceResult forEachLayer(std::uint32_t count, Work&& work) {
        struct Shared {
            Work& work;
            const SliceListener& listener;
            std::uint32_t count;
            std::mutex mutex;
            SliceResult first;
            std::uint32_t done = 0;
        } shared{work, m_listener, count, {}, {}, 0};
        const auto step = [](void* context, std::uint32_t layer) {
            auto& s = *static_cast<Shared*>(context);
            {
                const std::lock_guard lock(s.mutex);
                if (!s.first.isOk()) return;
            }
            SliceResult result = job::guarded([&] { return s.work(layer); });
            const std::lock_guard lock(s.mutex);
            if (result.isOk()) result = job::tellProgress(s.listener, ++s.done, s.count);
            // of several that fail at once the first layer counts
            if (!result.isOk() && (s.first.isOk() || result.layer < s.first.layer)) s.first = result;
        };
        if (m_options.forEach != nullptr) {
            m_options.forEach(m_options.threads, count, step, &shared);
        } else {
            for (std::uint32_t i = 0; i < count && shared.first.isOk(); ++i) step(&shared, i);
        }
        return shared.first;
    }

    /// The same format: the file's bytes, with what is to change.
    SliceResult copy() {
        job::Edits edits(m_model);
        job::ChangePlan plan;
        SliceResult result = job::planChanges(m_options.changes, edits, plan);
        if (!result.isOk()) return result;
        std::optional<std::uint32_t> key;
        if (m_format == SliceFormat::ctb) {
            const std::uint32_t fresh = m_options.hasKey ? m_options.key : m_model.key == 0 ? 0 : job::drawKey();
            if (fresh != m_model.key) {
                key = fresh;
                const job::FieldPlace* field = m_model.field("HeaderSettings.encryptionKey");
                const auto raw = storedNumber(fresh, field->spec->order);
                edits.replace(field->offset, field->bytes, {raw.begin(), raw.end()});
            }
        }
        NewFile out;
        if (!out.create(m_output)) return job::outputFailure(out);
        result = job::writeEdited(m_file, edits, key, out, m_listener);
        if (result.isOk() && !out.commit()) result = job::outputFailure(out);
        for (const SliceChanged& changed : plan.changed) {
            if (result.isOk() && m_listener.changed != nullptr &&
                m_listener.changed(m_listener.context, changed) != 0) {
                result = job::plain(SliceCode::stopped);
            }
        }
        for (const std::string& note : plan.roundings) {
            if (result.isOk()) result = job::tellNote(m_listener, note);
        }
        for (const std::string& note : plan.kept) {
            if (result.isOk()) result = job::tellNote(m_listener, note);
        }
        return result;
    }

    SliceResult write() {
        if (salvages() && m_found.whole.empty()) return job::damaged(-1, "no layer is whole");
        SliceTarget target;
        target.format = m_format;
        target.like = &m_file;
        target.hasKey = m_options.hasKey;
        target.key = m_options.key;
        SliceWriter writer;
        SliceResult result = writer.create(m_output, target);
        for (const SliceChange& change : m_options.changes) {
            if (result.isOk()) result = writer.set(change);
        }
        if (result.isOk()) result = writer.start();
        for (const std::string& note : writer.notes()) {
            if (result.isOk()) result = job::tellNote(m_listener, note);
        }
        if (result.isOk() && salvages()) result = tellHurt();
        if (!result.isOk()) return result;
        result = forEachLayer(m_model.info.layers, [&](std::uint32_t i) { return writeLayer(writer, i); });
        return result.isOk() ? writer.finish() : result;
    }

    SliceResult writeLayer(SliceWriter& writer, std::uint32_t layer) const {
        if (!salvages()) return writer.putLayer(layer, m_file, layer);
        if (const auto found = m_found.whole.find(layer); found != m_found.whole.end()) {
            return job::putPlaced(writer, layer, m_model, layer, found->second);
        }
        const auto behind = m_found.whole.upper_bound(layer);
        if (m_options.salvage == SliceSalvage::previous && behind != m_found.whole.begin()) {
            const auto& [number, place] = *std::prev(behind);
            return job::putPlaced(writer, layer, m_model, number, place);
        }
        return m_format == SliceFormat::vnline ? writer.putShapes(layer, {}, 0) : writer.putRuns(layer, nullptr, 0);
    }

    /// What becomes of the layers that are hurt.
    SliceResult tellHurt() const {
        SliceResult result;
        for (std::uint32_t layer = 0; result.isOk() && layer < m_model.info.layers; ++layer) {
            if (m_found.whole.count(layer) != 0) continue;
            const auto behind = m_found.whole.upper_bound(layer);
            const bool isBlank = m_options.salvage == SliceSalvage::blank || behind == m_found.whole.begin();
            const auto why = std::find_if(m_found.hurt.rbegin(), m_found.hurt.rend(),
                                          [layer](const SliceFinding& hurt) { return hurt.layer <= layer; });
            SliceFinding finding{SliceSeverity::error, -1, layer, "is missing"};
            if (why != m_found.hurt.rend()) finding.offset = why->offset;
            if (why != m_found.hurt.rend() && why->layer == layer) finding.text = why->text;
            finding.text += isBlank ? "; a blank layer takes its place"
                                    : "; layer " + std::to_string(std::prev(behind)->first) + " takes its place";
            result = job::tell(m_listener, finding);
        }
        return result;
    }

    const SliceFile& m_file;
    const Model& m_model;
    std::string m_output;
    const SliceConvertOptions& m_options;
    const SliceListener& m_listener;
    SliceFormat m_format = SliceFormat::none;
    bool m_isStructureSound = true;
    job::FoundLayers m_found;
};

}  // namespace

SliceResult convertSliceFile(const SliceFile& file, const std::string& output, const SliceConvertOptions& options,
                             const SliceListener& listener) {
    if (!file.isOpen()) return job::plain(SliceCode::argument);
    return job::guarded([&] { return Conversion(file, output, options, listener).run(); });
}

}  // namespace vndlp
