/// Records whose every member holds a number of its own.

#pragma once

#include "support/bytes.h"

#include <cstdint>
#include <type_traits>

namespace vndlp::test {

/// Numbers the members of a record, all bytes of each in use. \return the members in the order given, as a file of
/// little-endian numbers should hold them.
template <class Record, class... Member>
Bytes numbered(Record& record, Member Record::*... members) {
    Bytes bytes;
    unsigned next = 1;
    const auto number = [&](auto& member) {
        using Value = std::remove_reference_t<decltype(member)>;
        if constexpr (std::is_same_v<Value, float>) {
            member = static_cast<float>(next) + 0.1F;
            bytes.f32Le(member);
        } else {
            member = static_cast<Value>(0xFEDCBA98F6E5D400 + next);
            bytes.le(static_cast<std::uint64_t>(member), sizeof member);
        }
        ++next;
    };
    (number(record.*members), ...);
    return bytes;
}

}  // namespace vndlp::test
