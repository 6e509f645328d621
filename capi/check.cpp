// Files verified, and checked for printability.

#include "capi/capi.h"

#include <vndlp/check_file.h>

#include <cmath>
#include <vector>

using namespace vndlp;
using namespace vndlp::capi;

namespace {

// What the caller leaves below 0, or does not know of, stays the default.
std::int32_t takeOptions(const VndlpCheckOptions* given, CheckOptions& options) {
    if (given == nullptr) return VNDLP_OK;
    if (!isUsable(given)) return VNDLP_E_ARGUMENT;
    VndlpCheckOptions wanted = {sizeof wanted, -1, -1, -1, -1, -1};
    std::memcpy(&wanted, given, std::min<std::size_t>(given->size, sizeof wanted));
    if (wanted.threshold > 254 || std::isnan(wanted.overhang_um) || std::isnan(wanted.jump_factor) ||
        std::isnan(wanted.jump_cm2)) {
        return fail(VNDLP_E_VALUE, "an option of the check that is no number, or a threshold above 254");
    }
    if (wanted.threshold >= 0) options.threshold = wanted.threshold;
    if (wanted.margin_px >= 0) options.marginPx = wanted.margin_px;
    if (wanted.overhang_um >= 0) options.overhangUm = wanted.overhang_um;
    if (wanted.jump_factor >= 0) options.jumpFactor = wanted.jump_factor;
    if (wanted.jump_cm2 >= 0) options.jumpCm2 = wanted.jump_cm2;
    return VNDLP_OK;
}

VndlpFinding findingOf(const CheckFinding& found, const std::string& text) {
    return {sizeof(VndlpFinding),
            static_cast<std::int32_t>(found.severity) + VNDLP_ERROR,
            nameOf(found.kind),
            text.c_str(),
            found.layer,
            found.lastLayer,
            -1,
            found.pixels,
            found.voxels,
            found.areaMm2,
            found.volumeMl,
            {found.xPx[0], found.xPx[1]},
            {found.yPx[0], found.yPx[1]},
            {found.centrePx[0], found.centrePx[1]}};
}

}  // namespace

std::int64_t vndlp_verify(const VndlpFile* file, VndlpFindingFn finding, void* context) {
    if (file == nullptr) return failNull();
    return guarded([&]() -> std::int64_t {
        FindingSink sink{finding, context};
        std::uint64_t errors = 0;
        const SliceResult result = file->file.verify(sink.function(), &sink, errors);
        return result.isOk() ? static_cast<std::int64_t>(errors) : codeOf(result);
    });
}

std::int64_t vndlp_verify_structure(const VndlpFile* file, VndlpFindingFn finding, void* context) {
    if (file == nullptr) return failNull();
    return guarded([&]() -> std::int64_t {
        FindingSink sink{finding, context};
        std::uint64_t errors = 0;
        const SliceResult result = file->file.verifyStructure(sink.function(), &sink, errors);
        return result.isOk() ? static_cast<std::int64_t>(errors) : codeOf(result);
    });
}

std::int64_t vndlp_check(const VndlpFile* file, const VndlpCheckOptions* options, VndlpFindingFn finding,
                         void* context) {
    if (file == nullptr) return failNull();
    return guarded([&]() -> std::int64_t {
        CheckOptions wanted;
        if (const std::int32_t code = takeOptions(options, wanted); code != VNDLP_OK) return code;
        const SliceInfo& info = file->file.info();
        if (info.width == 0 || info.height == 0) return fail(VNDLP_E_DAMAGED, "the file names no screen");
        std::vector<CheckFinding> findings;
        const SliceResult result = checkSliceFile(file->file, wanted, findings);
        if (!result.isOk()) return codeOf(result);
        const JobCheck words(checkJobOf(file->file), wanted);
        for (const CheckFinding& found : findings) {
            const std::string text = words.describe(found);
            const VndlpFinding told = findingOf(found, text);
            if (finding != nullptr && finding(context, &told) != 0) return fail(VNDLP_E_STOPPED, "stopped");
        }
        return static_cast<std::int64_t>(findings.size());
    });
}
