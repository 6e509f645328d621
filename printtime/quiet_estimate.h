/// The models of `CPrinterTime` without their messages and without the window that the process shares, so that any
/// thread may ask.

#pragma once

#include <vndlp/print_time.h>

namespace vndlp {

struct QuietEstimate {
    const char* model = nullptr;  ///< "general", "M31", "M32", "M33"; null: no model is made for this machine
    double seconds = 0;
};

/// Estimates a job by the model of its machine: M31 to M33 by their own, machines of the table by the general one.
/// \param job complete; areas in the unit of the machine's model, for M33 at least one a layer.
QuietEstimate estimateQuietly(CPrinterTime job);

}  // namespace vndlp
