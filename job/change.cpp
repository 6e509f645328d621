/// Changing values of a file that stays as it is otherwise.

#include "job/layer_data.h"
#include "job/plan_changes.h"
#include "job/results.h"
#include "job/verify.h"

#include <vndlp/slice_write.h>

#include <optional>

namespace vndlp {

namespace {

using job::ChangePlan;
using job::Edits;
using job::Model;

/// The first error of the file's records, tables and offsets.
SliceResult checkLayout(const Model& model) {
    SliceResult damage;
    SliceResult result = job::verifyLayout(model, [&damage](SliceFinding&& finding) {
        damage = job::failure(SliceCode::damaged, std::move(finding.text), finding.offset, finding.layer);
        return false;
    });
    if (!damage.isOk()) return damage;
    for (std::uint32_t i = 0; result.isOk() && i < model.layers().layers.size(); ++i) {
        job::LayerPlace place;
        result = job::placeOfLayer(model, i, place);
    }
    return result;
}

SliceResult tellPlan(const SliceListener& listener, const ChangePlan& plan) {
    SliceResult result;
    for (const SliceChanged& changed : plan.changed) {
        const bool goesOn = listener.changed == nullptr || listener.changed(listener.context, changed) == 0;
        if (!goesOn) return job::plain(SliceCode::stopped);
    }
    for (const std::vector<std::string>* notes : {&plan.roundings, &plan.kept}) {
        for (const std::string& note : *notes) {
            if (result.isOk()) result = job::tellNote(listener, note);
        }
    }
    return result;
}

SliceResult check(const SliceFile& file, const std::vector<SliceChange>& changes, const SliceListener& listener) {
    if (!file.isOpen()) return job::plain(SliceCode::argument);
    Edits edits(file.state()->model);
    ChangePlan plan;
    SliceResult result = job::planChanges(changes, edits, plan);
    return result.isOk() ? tellPlan(listener, plan) : result;
}

SliceResult change(const std::string& path, const std::string& output, const std::vector<SliceChange>& changes,
                   const SliceListener& listener) {
    SliceFile file;
    SliceResult result = file.open(path);
    if (!result.isOk()) return result;
    const Model& model = file.state()->model;
    if (result = checkLayout(model); !result.isOk()) return result;
    Edits edits(model);
    ChangePlan plan;
    if (result = job::planChanges(changes, edits, plan); !result.isOk()) return result;
    const bool isInPlace = output.empty();
    if (!isInPlace || !edits.all().empty()) {
        NewFile out;
        if (!out.create(isInPlace ? path : output)) return job::outputFailure(out);
        result = job::writeEdited(file, edits, std::nullopt, out, listener);
        if (!result.isOk()) return result;
        // some systems do not replace a file that is open
        file.close();
        if (!out.commit(Flush::no)) return job::outputFailure(out);
    }
    return tellPlan(listener, plan);
}

}  // namespace

SliceResult checkSliceChanges(const SliceFile& file, const std::vector<SliceChange>& changes,
                              const SliceListener& listener) {
    return job::guarded([&] { return check(file, changes, listener); });
}

SliceResult changeSliceFile(const std::string& path, const std::string& output, const std::vector<SliceChange>& changes,
                            const SliceListener& listener) {
    return job::guarded([&] { return change(path, output, changes, listener); });
}

}  // namespace vndlp
