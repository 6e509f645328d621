/// The records of a golden file: their members by the names that stand in it.

#pragma once

#include "ctb/record_fields.h"
#include "support/golden.h"
#include "v4/record_fields.h"
#include "vndlp/record_fields.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <type_traits>

namespace vndlp::test {

/// As the compiler spells it.
template <auto member>
constexpr const char* spelled() {
    return __PRETTY_FUNCTION__;
}

/// "... &Record::name]".
constexpr bool endsInName(std::string_view spelling, std::string_view name) {
    spelling.remove_suffix(1);
    return spelling.ends_with(name) && spelling[spelling.size() - name.size() - 1] == ':';
}

/// Calls `visit(name, member)` for every member of a record. The name is that of the record's list of fields; that it
/// is the member's own is checked here, for one list reads, writes and names what it holds.
template <class Record, class Visit>
void visitRecord(Record& record, Visit&& visit) {
    const auto visitItem = [&]<std::size_t i>(std::integral_constant<std::size_t, i> /*place*/) {
        constexpr auto item = std::get<i>(Layout<Record>::fields);
        if constexpr (IsField<decltype(item)>) {
            static_assert(endsInName(spelled<item.member>(), item.name));
            auto& member = record.*item.member;
            if constexpr (HasLayout<std::decay_t<decltype(member)>>) {
                visitRecord(member, visit);
            } else {
                visit(item.name, member);
            }
        }
    };
    [&]<std::size_t... i>(std::index_sequence<i...> /*places*/) {
        (visitItem(std::integral_constant<std::size_t, i>()), ...);
    }
    (std::make_index_sequence<std::tuple_size_v<std::decay_t<decltype(Layout<Record>::fields)>>>());
    // what stands elsewhere in the file
    if constexpr (requires { record.imageData; }) visit("imageData", record.imageData);
    if constexpr (std::is_same_v<Record, CTB::SlicerInfo>) visit("machineName", record.machineName);
}

template <class T>
void assign(T& member, const std::string& value, const Bytes& bytes) {
    if constexpr (std::is_same_v<T, std::string>) {
        member = value.substr(1, value.size() - 2);
    } else if constexpr (std::is_same_v<T, std::vector<unsigned char>>) {
        member = bytes;
    } else if constexpr (std::is_array_v<T>) {
        std::copy_n(bytes.begin(), sizeof member, member);
    } else if constexpr (std::is_same_v<T, DlpImage>) {
        member.needData();
        std::copy(bytes.begin(), bytes.end(), member.bits());
    } else {
        using Wide = std::conditional_t<std::is_floating_point_v<T>, T, long long>;
        Wide wide{};
        const char* end = value.data() + value.size();
        EXPECT_EQ(std::from_chars(value.data(), end, wide).ptr, end) << value;
        member = static_cast<T>(wide);
    }
}

template <class T>
bool holds(const T& member, const std::string& value, const Bytes& bytes) {
    if constexpr (std::is_same_v<T, std::vector<unsigned char>>) {
        return member == bytes;
    } else if constexpr (std::is_array_v<T>) {
        return std::equal(bytes.begin(), bytes.end(), std::begin(member), std::end(member));
    } else if constexpr (std::is_same_v<T, DlpImage>) {
        return Bytes(member.bits(), member.bits() + member.size()) == bytes;
    } else {
        T expected{};
        assign(expected, value, bytes);
        return member == expected;
    }
}

/// Calls `action(member, field)` for the members of a record that the section gives a value. \return how many.
template <class Record, class Action>
int visitFields(Record& record, const GoldenSection& section, Action&& action) {
    int found = 0;
    visitRecord(record, [&](const char* name, auto& member) {
        for (const GoldenField& field : section.fields) {
            if (field.name != name || field.value.empty()) continue;
            action(member, field);
            ++found;
        }
    });
    return found;
}

/// The record holds what it held before it was written. \return it.
template <class Record>
Record& fill(Record& record, const GoldenSection& section) {
    visitFields(record, section, [](auto& member, const GoldenField& f) { assign(member, f.given, f.bytes); });
    return record;
}

/// The record holds what reading makes of the bytes, or the values `which`. \param others values of the section that
/// no member has.
template <class Record>
void expectHolds(Record& record, const GoldenSection& section, std::string GoldenField::*which = &GoldenField::read,
                 int others = 0) {
    const int found = visitFields(record, section, [&](auto& member, const GoldenField& field) {
        EXPECT_TRUE(holds(member, field.*which, field.bytes)) << section.name << ": " << field.name;
    });
    const auto valued = std::count_if(section.fields.begin(), section.fields.end(),
                                      [](const GoldenField& field) { return !field.value.empty(); });
    EXPECT_EQ(found + others, valued) << section.name << ": values without a member";
}

/// Where reading does not give back what was written, the record holds that again. \return it.
template <class Record>
Record& restore(Record& record, const GoldenSection& section) {
    visitFields(record, section, [](auto& member, const GoldenField& field) {
        if (field.read != field.value) assign(member, field.value, field.bytes);
    });
    return record;
}

}  // namespace vndlp::test
