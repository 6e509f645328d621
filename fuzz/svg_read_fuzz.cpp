// SVG drawings as layers.

#include "fuzz/harness.h"
#include "tools/base/failure.h"
#include "tools/drawings/svg.h"

namespace vndlp::fuzz {

void run(const Bytes& input) {
    // a tree of records for every element and attribute
    allowBytes(256 * static_cast<long long>(input.size()));
    try {
        tools::readSvg(input, "input");
    } catch (const tools::Failure&) {
    }
}

}  // namespace vndlp::fuzz
