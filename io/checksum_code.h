/// The result codes of `CheckSum`, as its header documents them.

#pragma once

namespace vndlp {

enum ChecksumCode : int {
    kOk = 0,
    kNullPath = -1,
    kCannotOpen = -2,
    kCannotRead = -3,
    kTrailerIo = -4,
    kUnknownMagic = -4,
    kMismatch = -5,
};

}  // namespace vndlp
