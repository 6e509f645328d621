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

#include <vndlp/image.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
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

/// A list of numbers, as "1 2 3".
inline std::vector<double> numbersOf(const std::string& text) {
    std::vector<double> numbers;
    std::istringstream words(text);
    for (double number = 0; words >> number;) numbers.push_back(number);
    return numbers;
}

}  // namespace vndlp::test
