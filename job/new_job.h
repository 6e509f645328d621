/// The settings of a new file: those of the file it is made after, and what nobody gives.

#pragma once

#include "job/edits.h"
#include "job/settings_table.h"

#include <string>
#include <vector>

namespace vndlp::job {

struct NewSetting {
    std::string key;  ///< also "raw.RECORD.member"
    std::string value;
    bool isAssumed = false;
};

/// \param like of another format; null: none.
std::vector<NewSetting> settingsOfNewJob(SliceFormat format, std::uint32_t width, std::uint32_t height,
                                         const Model* like);

/// V4 files hold the wait of normal layers twice, and one of bottom layers: what is not given follows the first.
/// \param given keys that were set.
[[nodiscard]] SliceResult completeV4Waits(const std::vector<std::string>& given, bool hasCodedLike, Edits& edits);

/// A number with every digit it needs.
std::string exactText(double value);

/// Whether a format has a place for a text, as versions have only for some.
bool canHoldText(const SettingRow& row, SliceFormat format, const std::string& text);

/// Members of CTB and V4 files that are no settings and mean the same.
struct AlikeMembers {
    const char* ctb;
    const char* v4;
};
extern const AlikeMembers kAlikeMembers[3];

}  // namespace vndlp::job
