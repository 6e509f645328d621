// Whole files: repaired, changed, converted.

#include "capi/capi.h"

#include <vndlp/slice_write.h>

#include <vector>

using namespace vndlp;
using namespace vndlp::capi;

namespace {

struct ChangeSink {
    VndlpChangedFn take;
    void* context;

    static int call(void* sink, const SliceChanged& changed) {
        const auto* const self = static_cast<const ChangeSink*>(sink);
        return self->take(self->context, changed.key.c_str(), changed.layers.empty() ? nullptr : changed.layers.c_str(),
                          changed.was.c_str(), changed.is.c_str());
    }
};

// The caller's changes, whose structs may be longer or shorter than ours; an error is kept when they cannot be used.
bool takeChanges(const VndlpChange* given, std::size_t count, std::vector<SliceChange>& changes) {
    if (count == 0) return true;
    if (!isUsable(given)) return false;
    const auto* bytes = reinterpret_cast<const unsigned char*>(given);
    for (std::size_t i = 0; i < count; ++i, bytes += given->size) {
        const auto change = taken(reinterpret_cast<const VndlpChange*>(bytes));
        if (change.key == nullptr || change.value == nullptr) {
            failNull();
            return false;
        }
        changes.push_back({change.key, change.value, change.layers == nullptr ? "" : change.layers});
    }
    return true;
}

}  // namespace

std::int64_t vndlp_repair(const char* path, const char* output, VndlpFindingFn lost, void* context) {
    if (path == nullptr || output == nullptr) return failNull();
    return guarded([&]() -> std::int64_t {
        FindingSink sink{lost, context};
        SliceListener listener;
        listener.context = &sink;
        listener.note = sink.function();
        SliceRepaired repaired;
        const SliceResult result = repairSliceFile(path, output, repaired, listener);
        return result.isOk() ? static_cast<std::int64_t>(repaired.layersKept) : codeOf(result);
    });
}

std::int32_t vndlp_change(const char* path, const char* output, const VndlpChange* changes, std::size_t count,
                          VndlpChangedFn changed, void* context) {
    if (path == nullptr || (changes == nullptr && count != 0)) return failNull();
    return guarded([&]() -> std::int32_t {
        std::vector<SliceChange> wanted;
        if (!takeChanges(changes, count, wanted)) return VNDLP_E_ARGUMENT;
        ChangeSink sink{changed, context};
        SliceListener listener;
        listener.context = &sink;
        listener.changed = changed == nullptr ? nullptr : &ChangeSink::call;
        return codeOf(changeSliceFile(path, output == nullptr ? "" : output, wanted, listener));
    });
}

std::int32_t vndlp_convert(const VndlpFile* file, const char* output, const VndlpConvertOptions* options,
                           VndlpFindingFn note, void* context) {
    if (file == nullptr || output == nullptr) return failNull();
    if (options != nullptr && !isUsable(options)) return VNDLP_E_ARGUMENT;
    return guarded([&]() -> std::int32_t {
        if (!hasEnding(output)) return VNDLP_E_ARGUMENT;
        SliceConvertOptions wanted;
        if (options != nullptr) {
            const VndlpConvertOptions given = taken(options);
            if (given.salvage < VNDLP_SALVAGE_NO || given.salvage > VNDLP_SALVAGE_PREVIOUS) {
                return fail(VNDLP_E_ARGUMENT, "no such kind of salvage");
            }
            wanted.salvage = static_cast<SliceSalvage>(given.salvage);
            if (!takeChanges(given.changes, given.change_count, wanted.changes)) return VNDLP_E_ARGUMENT;
        }
        FindingSink sink{note, context};
        SliceListener listener;
        listener.context = &sink;
        listener.note = sink.function();
        return codeOf(convertSliceFile(file->file, output, wanted, listener));
    });
}
