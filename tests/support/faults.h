/// A failing disk: of the calls that a program makes on the streams and files it writes, the Nth fails, once or from
/// then on. `faults.cpp` stands in front of the C library, either linked into a test or preloaded, when VNDLP_FAULT
/// says the same as `describe`; the number of calls goes to the file VNDLP_FAULT_CALLS.

#pragma once

#include <string>

namespace vndlp::faults {

enum class Kind {
    diskFull,    ///< nothing is written, ENOSPC
    ioError,     ///< nothing is written, EIO
    shortWrite,  ///< half is written, then ENOSPC
    killed       ///< the call does not return
};

struct Plan {
    int call = 0;  ///< the call that fails, from 1; 0 for none
    bool forEver = false;
    Kind kind = Kind::diskFull;

    /// As VNDLP_FAULT wants it.
    std::string describe() const {
        return std::to_string(call) + (forEver ? " ever " : " once ") + std::to_string(static_cast<int>(kind));
    }
};

/// Starts to count anew.
void arm(const Plan& plan);
/// Lets everything succeed again. \return calls since `arm`.
int disarm();

}  // namespace vndlp::faults
