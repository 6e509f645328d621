/// Values between their texts, their units and their bytes in a file.

#pragma once

#include "job/edits.h"
#include "job/settings_table.h"

#include <string>

namespace vndlp::job {

/// A number from text that is nothing but one, in decimal; finite.
bool parseNumber(const std::string& text, double& value);

/// A value as it goes into a file.
struct StoredValue {
    ByteList bytes;    ///< of texts the characters
    std::string text;  ///< as it is read back
    bool isRounded = false;
};

/// What a value is held against besides the field it is stored in.
enum class Range { ofKey, ofField };

/// A setting's value from its text, as a field of a format holds it.
/// \param perUnit 1 for fields of layers.
/// \return `value`, with a text that names key, value and format.
[[nodiscard]] SliceResult storeSetting(const SettingRow& row, const Place& where, const FieldSpec& field,
                                       SliceFormat format, const std::string& text, Range range, StoredValue& stored);
/// The text of a setting's bytes.
std::string settingText(const SettingRow& row, const Place& where, const FieldSpec& field, const ByteList& bytes);

/// A field's value from its text: bytes as two hexadecimal digits each.
[[nodiscard]] SliceResult storeRaw(const std::string& name, const FieldSpec& field, std::int64_t fieldBytes,
                                   const std::string& text, StoredValue& stored);
std::string rawText(const FieldSpec& field, const ByteList& bytes);

/// "0 to 3, 6, 8 to 9" from numbers in order.
std::string layerListText(const std::vector<std::uint32_t>& layers);

/// "vndlp", "ctb" ...
std::string formatName(SliceFormat format);

}  // namespace vndlp::job
