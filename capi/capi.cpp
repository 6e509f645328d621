#include "capi/capi.h"

#include <vndlp/slice_write.h>

namespace vndlp::capi {

namespace {

struct LastError {
    std::int32_t code = 0;
    int systemCode = 0;
    std::int64_t layer = -1;
    std::int64_t offset = -1;
    std::string text;
};

// Words for failures whose code says all.
const char* wordsOf(std::int32_t code) noexcept {
    switch (code) {
        case VNDLP_E_KEY: return "no such key here";
        case VNDLP_E_VALUE: return "not a value that can be held";
        case VNDLP_E_INDEX: return "there is none of that number";
        case VNDLP_E_SIZE: return "the memory or the stride is too small";
        case VNDLP_E_MEMORY: return "no memory";
        case VNDLP_E_STOPPED: return "stopped";
        default: return "the call makes no sense here";
    }
}

thread_local LastError lastError;
thread_local std::array<std::string, kTextSlots> keptTexts;

}  // namespace

std::int32_t fail(const SliceResult& result) noexcept {
    lastError.code = static_cast<std::int32_t>(result.code);
    lastError.systemCode = result.systemCode;
    lastError.layer = result.layer;
    lastError.offset = result.offset;
    try {
        const std::string words = result.text.empty() ? wordsOf(lastError.code) : result.text;
        lastError.text = result.layer < 0 ? words : "layer " + std::to_string(result.layer) + ": " + words;
    } catch (const std::exception&) {
        lastError.text.clear();
    }
    return lastError.code;
}

std::int32_t fail(std::int32_t code, std::string_view text) noexcept {
    SliceResult result;
    result.code = static_cast<SliceCode>(code);
    try {
        result.text = text;
    } catch (const std::exception&) {
        result.text.clear();
    }
    return fail(result);
}

const char* keep(std::string text, std::size_t slot) {
    std::string& kept = keptTexts.at(slot);
    kept = std::move(text);
    return kept.c_str();
}

bool hasEnding(const char* path) {
    if (sliceFormatOfPath(path) != SliceFormat::none) return true;
    fail(VNDLP_E_ARGUMENT, "the name ends in none of .vndlp, .vnline, .ctb, .vndlpv4");
    return false;
}

VndlpFinding findingOf(const SliceFinding& found) {
    VndlpFinding finding = {};
    finding.size = sizeof finding;
    finding.severity = static_cast<std::int32_t>(found.severity);
    finding.kind = "";
    finding.text = found.text.c_str();
    finding.layer = finding.last_layer = found.layer;
    finding.offset = found.offset;
    finding.pixels = finding.voxels = -1;
    finding.area_mm2 = finding.volume_ml = kNoNumber;
    for (const int side : {0, 1}) {
        finding.x_px[side] = finding.y_px[side] = -1;
        finding.centre_px[side] = kNoNumber;
    }
    return finding;
}

int FindingSink::call(void* sink, const SliceFinding& found) {
    const auto* const self = static_cast<const FindingSink*>(sink);
    const VndlpFinding finding = findingOf(found);
    return self->take(self->context, &finding);
}

}  // namespace vndlp::capi

std::int32_t vndlp_last_error(VndlpError* out) {
    using vndlp::capi::lastError;
    // asking wrongly must not hide what is asked for
    if (out == nullptr || out->size < vndlp::capi::kSmallestStruct) return VNDLP_E_ARGUMENT;
    vndlp::capi::fill(
        out, {0, lastError.code, lastError.systemCode, lastError.layer, lastError.offset, lastError.text.c_str()});
    return VNDLP_OK;
}
