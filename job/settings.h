/// Settings and raw fields of an open file.

#pragma once

#include "job/model.h"
#include "job/settings_table.h"

namespace vndlp::job {

/// Where a file holds a setting (`layer` -1) or a layer's own value of it.
/// \return `key` where the format has no place for it or fixes it, `absent` where this file lacks it, `index`.
[[nodiscard]] SliceResult placeOfSetting(const Model& model, const SettingRow& row, std::int64_t layer,
                                         FieldPlace& place);
/// \return as `placeOfSetting`; `absent` also for a value that is no number.
[[nodiscard]] SliceResult readNumber(const Model& model, const SettingRow& row, std::int64_t layer, double& value);
[[nodiscard]] SliceResult readText(const Model& model, const SettingRow& row, std::string& value);

/// "DlpHeader.x" with the name this file's header has.
std::string memberName(const Model& model, const char* field);

/// Every field of every record, by number and by name.
[[nodiscard]] SliceResult placeOfRaw(const Model& model, std::uint64_t index, std::string& name, FieldPlace& place);
[[nodiscard]] SliceResult placeOfRaw(const Model& model, const std::string& name, FieldPlace& place);

/// Where a record of a layer stands; -1: nowhere.
std::int64_t layerRecordAt(const Model& model, const LayerRecords& records, std::uint32_t layer);

/// The magic behind the layers of vendor files. \return false where none stands.
bool placeTail(const Model& model, FieldPlace& place);

}  // namespace vndlp::job
