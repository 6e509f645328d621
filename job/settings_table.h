/// The one table of settings: for every key and format the record member that holds it, and how.

#pragma once

#include <vndlp/formats.h>
#include <vndlp/slice_file.h>

#include <cstddef>

namespace vndlp::job {

/// How a value stands in its member.
enum class Stored : unsigned char {
    number,   ///< value x `perUnit`, rounded where the member holds whole numbers
    flag,     ///< 0, else 1
    decimal,  ///< a number as text
    text,
    version,  ///< four bytes as text with points between them: 0x01090000 is "1.9.0.0"; 0 is none
};

/// Where a format holds a key.
struct Place {
    /// "RECORD.member"; `DlpHeader` stands for the header of any kind. Null: nowhere.
    const char* field = nullptr;
    double perUnit = 1;
    Stored stored = Stored::number;
    bool isFixed = false;        ///< the format's writers put a value of their own there
    const char* copy = nullptr;  ///< another member that holds the same value
};

/// A row of the table.
struct SettingRow {
    SliceKey key;
    Place vndlp;
    Place vnline;
    Place ctb;
    Place v4;
    /// Of single layers: "RECORD.member" of the record that each layer has.
    const char* ctbLayer = nullptr;
    const char* v4Layer = nullptr;

    [[nodiscard]] const Place& place(SliceFormat format) const;
    [[nodiscard]] const char* layerField(SliceFormat format) const;
};

std::size_t settingCount();
const SettingRow& settingRow(std::size_t index);
const SettingRow* findSetting(const std::string& key);

}  // namespace vndlp::job
