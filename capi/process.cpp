// What belongs to the whole process or to no file: version, messages, constants, formats, keys.

#include "capi/capi.h"

#include <vndlp/ctb.h>
#include <vndlp/formats.h>
#include <vndlp/messages.h>

using namespace vndlp;
using namespace vndlp::capi;

std::uint32_t vndlp_version() { return VNDLP_VERSION_MAJOR << 16 | VNDLP_VERSION_MINOR << 8 | VNDLP_VERSION_PATCH; }

void vndlp_set_message_handler(VndlpMessageFn handler, void* context) { setMessageHandler(handler, context); }

void vndlp_ignore_message(void* /*context*/, const char* /*text*/) {}

std::int32_t vndlp_set_scrambling(const VndlpScrambling* constants) {
    if (!isUsable(constants)) return VNDLP_E_ARGUMENT;
    if (constants->size < sizeof *constants) {
        return fail(VNDLP_E_ARGUMENT, "a struct's size: all four constants are needed");
    }
    CTB::setScramblingConstants({constants->km, constants->ks, constants->lm, constants->ls});
    return VNDLP_OK;
}

std::int32_t vndlp_scrambling(VndlpScrambling* out) {
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    const CTB::ScramblingConstants constants = CTB::scramblingConstants();
    fill(out, {0, CTB::areScramblingConstantsIllustrative() ? 1 : 0, constants.km, constants.ks, constants.lm,
               constants.ls});
    return VNDLP_OK;
}

std::int32_t vndlp_sniff(const void* head, std::size_t bytes) {
    if (head == nullptr && bytes != 0) return failNull();
    const SliceFormat format = sniffHead(head, bytes).format;
    return format == SliceFormat::none ? fail(VNDLP_E_FORMAT, "no slice file") : static_cast<std::int32_t>(format);
}

std::int32_t vndlp_key(std::uint32_t index, VndlpKey* out) {
    if (!isUsable(out)) return VNDLP_E_ARGUMENT;
    const SliceKey* const key = sliceKey(index);
    if (key == nullptr) return fail(VNDLP_E_INDEX, "no such key");
    fill(out, {0, static_cast<std::int32_t>(key->type), key->name, key->unit, key->formats, key->layerFormats,
               key->fixedFormats, key->least, key->most});
    return VNDLP_OK;
}
