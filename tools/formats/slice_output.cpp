#include "tools/formats/slice_output.h"

#include "tools/formats/front_end_output.h"
#include "tools/formats/line_output.h"
#include "tools/formats/vendor_output.h"

#include <string_view>

namespace vndlp::tools {

namespace {

struct Format {
    std::string_view ending;
    std::unique_ptr<SliceOutput> (*create)(const std::string& path, const std::string& temporary);
};

constexpr Format kFormats[] = {
    {".vndlp", createVendorOutput},
    {".vnline", createLineOutput},
    {".ctb", createFrontEndOutput},
    {".vndlpv4", createFrontEndOutput},
};

}  // namespace

std::string writableEndings() {
    std::string list;
    for (const Format& format : kFormats) {
        if (!list.empty()) list += ", ";
        list += format.ending;
    }
    return list;
}

std::unique_ptr<SliceOutput> createSliceOutput(const std::string& path, const std::string& temporary) {
    for (const Format& format : kFormats) {
        if (std::string_view(path).ends_with(format.ending)) return format.create(path, temporary);
    }
    return nullptr;
}

}  // namespace vndlp::tools
