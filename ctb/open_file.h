/// Opening a file for a reader or a writer, with the messages and results all of them share.

#pragma once

#include <vndlp/checksum.h>

#include "io/report.h"

#include <string>

namespace CTB {

/// Results of the exported operations.
enum Result : int { kDone = 0, kFailed = -1, kCannotOpen = -3 };

constexpr Result resultOf(bool done) { return done ? kDone : kFailed; }

/// Verifies the checksum trailer of what is at `path` if asked to, then opens it.
/// \param file a closed `vndlp::FileRead` or `vndlp::FileWrite`.
template <class Stream>
Result openVerified(Stream& file, std::string path, bool verify) {
    if (verify) {
        const int code = vndlp::CheckSum::instance().checkFileSum(path.c_str());
        if (code != 0) {
            vndlp::report("error:open dlp file:%s, checksum failed, ret:%d\n", path.c_str(), code);
            return kFailed;
        }
    }
    if (file.open(path, 0) == 0) return kDone;
    vndlp::report("error: %s can't open\n", path.c_str());
    return kCannotOpen;
}

}  // namespace CTB
