/// What the calls of the C interface share: the last error of each thread, structs of other lengths, handles.

#pragma once

#include <vndlp/slice_file.h>
#include <vndlp/vndlp_c.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>

struct VndlpFile {
    vndlp::SliceFile file;
};

namespace vndlp::capi {

/// Keeps the error for the thread. \return its code.
std::int32_t fail(const SliceResult& result) noexcept;
std::int32_t fail(std::int32_t code, std::string_view text) noexcept;
inline std::int32_t failNull() noexcept { return fail(VNDLP_E_ARGUMENT, "a null pointer where one is needed"); }

/// The call's number for a result; failures are kept for the thread.
inline std::int32_t codeOf(const SliceResult& result) noexcept {
    const auto code = static_cast<std::int32_t>(result.code);
    return code < 0 ? fail(result) : code;
}

/// Runs a call: no exception leaves the library.
template <class Call>
auto guarded(Call&& call) noexcept -> decltype(call()) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return fail(VNDLP_E_MEMORY, "no memory");
    } catch (const std::exception& exception) {
        return fail(VNDLP_E_MEMORY, exception.what());
    }
}

/// A text handed out; lasts until the thread's next call that hands out the same slot.
const char* keep(std::string text, std::size_t slot = 0);
constexpr std::size_t kTextSlots = 3;

/// Whether a path ends as a format's files do; an error is kept if not.
bool hasEnding(const char* path);

/// Smallest `size` a struct may have: itself and one member.
constexpr std::uint32_t kSmallestStruct = 8;

/// Whether the caller's struct can be used; an error is kept if not.
template <class Struct>
bool isUsable(const Struct* given) noexcept {
    if (given == nullptr) {
        failNull();
        return false;
    }
    if (given->size >= kSmallestStruct) return true;
    fail(VNDLP_E_ARGUMENT, "a struct's size is below 8: set it to sizeof");
    return false;
}

/// Fills the part of the caller's struct that both sides know.
template <class Struct>
void fill(Struct* out, Struct value) noexcept {
    static_assert(std::is_trivially_copyable_v<Struct>);
    value.size = out->size;
    std::memcpy(out, &value, std::min<std::size_t>(out->size, sizeof value));
}

/// The part of the caller's struct that both sides know; the rest is zero.
template <class Struct>
Struct taken(const Struct* given) noexcept {
    static_assert(std::is_trivially_copyable_v<Struct>);
    Struct value = {};
    std::memcpy(&value, given, std::min<std::size_t>(given->size, sizeof value));
    value.size = sizeof value;
    return value;
}

constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

/// A finding without a kind, as the C interface has it.
VndlpFinding findingOf(const SliceFinding& found);

/// Hands the model's findings to a C function.
struct FindingSink {
    VndlpFindingFn take;
    void* context;

    static int call(void* sink, const SliceFinding& found);
    SliceFindingFn function() const { return take == nullptr ? nullptr : &call; }
};

}  // namespace vndlp::capi
