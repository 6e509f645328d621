/// Golden files: the bytes of a file in the form of the format pages, one field a line,
///
///     OFFSET  bytes  meaning
///
/// as in `00001C  00 02 AD 8C  machine height 175.5 mm`. `00 x 26912` stands for so many times those bytes; a line
/// without meaning goes on with the field before. A line that begins with `;` names the section that follows; what is
/// no line of either kind is prose. A meaning `name = value` says what a record's member of this name holds; `= bytes`
/// stands for the bytes themselves. `, given V` follows where the record held V before it was written, `, read V` where
/// reading makes V of the bytes.

#pragma once

#include "support/files.h"
#include "support/records.h"

#include <vndlp/image.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace vndlp::test {

struct GoldenField {
    std::size_t offset = 0;
    Bytes bytes;
    std::string name;  ///< of the member; the whole meaning where it gives no value
    std::string value, given, read;
};

struct GoldenSection {
    std::string name;
    std::vector<GoldenField> fields;

    Bytes bytes() const {
        Bytes all;
        for (const GoldenField& field : fields) all.raw(field.bytes);
        return all;
    }
    std::size_t offset() const { return fields.at(0).offset; }
};

/// \return "name", "value", "given" and "read" of a meaning.
inline GoldenField parseMeaning(const std::string& meaning) {
    GoldenField field;
    const std::size_t equals = meaning.find(" =");
    field.name = meaning.substr(0, equals);
    if (equals == std::string::npos) return field;
    std::string value = meaning.substr(std::min(equals + 3, meaning.size()));
    for (auto [mark, to] : {std::pair(", given ", &field.given), {", read ", &field.read}}) {
        const std::size_t at = value.find(mark);
        if (at == std::string::npos) continue;
        *to = value.substr(at + std::string(mark).size());
        value.resize(at);
    }
    field.value = value;
    if (field.given.empty()) field.given = value;
    if (field.read.empty()) field.read = value;
    return field;
}

class Golden {
public:
    /// Reads `path`; a line whose offset is not where it stands is a failure of the test.
    explicit Golden(const std::string& path) {
        std::ifstream file(path);
        EXPECT_TRUE(file) << path;
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("; ", 0) == 0) sections.push_back({line.substr(2), {}});
            if (line.size() < 10 || line.find_first_not_of("0123456789ABCDEF") != 6 || line[7] != ' ') continue;
            const std::size_t end = line.find("  ", 8);
            const std::size_t meaning = line.find_first_not_of(' ', end);
            if (sections.empty()) sections.emplace_back();
            std::vector<GoldenField>& fields = sections.back().fields;
            EXPECT_EQ(std::stoul(line.substr(0, 6), nullptr, 16), bytes.size()) << path << ": " << line;
            if (meaning != std::string::npos) {
                fields.push_back(parseMeaning(line.substr(meaning)));
                fields.back().offset = bytes.size();
            }
            const Bytes held = repeated(line.substr(8, end - 8));
            fields.at(fields.size() - 1).bytes.raw(held);
            bytes.raw(held);
        }
        EXPECT_FALSE(bytes.empty()) << path;
    }

    /// The n-th section of this name; of another name there is none, which fails the test.
    const GoldenSection& section(const std::string& name, int n = 0) const {
        for (const GoldenSection& each : sections) {
            if (each.name == name && n-- == 0) return each;
        }
        ADD_FAILURE() << "no section " << name;
        static const GoldenSection none;
        return none;
    }
    bool has(const std::string& name) const {
        return std::any_of(sections.begin(), sections.end(), [&](const auto& each) { return each.name == name; });
    }

    std::vector<GoldenSection> sections;
    Bytes bytes;

private:
    static Bytes repeated(const std::string& text) {
        const std::size_t times = text.find(" x ");
        const Bytes once = hex(text.substr(0, times));
        Bytes all = once;
        if (times == std::string::npos) return all;
        for (unsigned long n = std::stoul(text.substr(times + 3)); n > 1; --n) all.raw(once);
        return all;
    }
};

/// The golden file of this name.
inline Golden golden(const std::string& name) { return Golden(VNDLP_GOLDEN_DIR "/" + name + ".hex"); }

// ---- values

/// A list of numbers, as "1 2 3".
inline std::vector<double> numbersOf(const std::string& text) {
    std::vector<double> numbers;
    std::istringstream words(text);
    for (double number = 0; words >> number;) numbers.push_back(number);
    return numbers;
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
    visitRecord(record, [&](const std::string& name, auto& member) {
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
