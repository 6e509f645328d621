/// What the library's writing calls tell, as the program prints it.

#pragma once

#include "tools/base/terminal.h"

#include <vndlp/slice_write.h>

#include <string>
#include <vector>

namespace vndlp::tools {

/// Collects what a call tells. The object must stay where it is while the call runs.
struct Heard {
    std::vector<SliceChanged> changes;
    std::vector<SliceFinding> notes;
    ProgressBar* bar = nullptr;  ///< of 1000 parts

    SliceListener listener() {
        SliceListener made;
        made.context = this;
        made.changed = [](void* self, const SliceChanged& changed) {
            static_cast<Heard*>(self)->changes.push_back(changed);
            return 0;
        };
        made.note = [](void* self, const SliceFinding& finding) {
            static_cast<Heard*>(self)->notes.push_back(finding);
            return 0;
        };
        made.progress = [](void* self, std::uint64_t done, std::uint64_t all) {
            ProgressBar* const shown = static_cast<Heard*>(self)->bar;
            if (shown == nullptr || all == 0) return 0;
            shown->advanceTo(static_cast<int>(1000 * static_cast<double>(done) / static_cast<double>(all)));
            return 0;
        };
        return made;
    }
};

}  // namespace vndlp::tools
