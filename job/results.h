/// Results inside the model, and the guard at the library's edge.

#pragma once

#include <vndlp/slice_file.h>

#include <exception>
#include <new>
#include <string>
#include <utility>

namespace vndlp::job {

inline SliceResult done() { return {}; }

inline SliceResult failure(SliceCode code, std::string text, std::int64_t offset = -1, std::int64_t layer = -1) {
    return {code, 0, layer, offset, std::move(text)};
}

inline SliceResult damaged(std::int64_t offset, std::string text, std::int64_t layer = -1) {
    return failure(SliceCode::damaged, std::move(text), offset, layer);
}

/// A bare code, of calls whose meaning says all.
inline SliceResult plain(SliceCode code) { return {code, 0, -1, -1, {}}; }

/// Runs what is behind an exported call: no exception leaves the library.
template <class Call>
SliceResult guarded(Call&& call) noexcept {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return plain(SliceCode::memory);
    } catch (const std::exception&) {
        return plain(SliceCode::argument);
    }
}

}  // namespace vndlp::job
