#include "tools/base/layer_choice.h"

#include "tools/base/failure.h"

#include <vndlp/slice_write.h>

#include <cstdint>

namespace vndlp::tools {

std::vector<int> chooseLayers(const std::string& text, int layerCount, const std::string& option) {
    std::vector<std::uint32_t> numbers;
    const SliceResult result = sliceLayers(text, static_cast<std::uint32_t>(layerCount), numbers);
    if (!result.isOk()) throw UsageFailure(option + " " + text + ": " + result.text);
    return {numbers.begin(), numbers.end()};
}

}  // namespace vndlp::tools
