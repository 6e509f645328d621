/// What the CTB suites share.

#pragma once

#include "support/bytes.h"
#include "support/files.h"

#include <vndlp/ctb.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vndlp::test {

inline std::uint32_t u32At(const std::vector<unsigned char>& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (const std::size_t i : {3u, 2u, 1u, 0u}) value = value << 8 | bytes.at(offset + i);
    return value;
}

inline void setU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) bytes.at(offset + i) = static_cast<unsigned char>(value >> 8 * i);
}

inline Bytes slice(const std::vector<unsigned char>& bytes, std::size_t offset, std::size_t size) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
}

/// What `action` prints.
template <class Action>
std::string printedBy(Action&& action) {
    Printed printed;
    action();
    return printed.take();
}

/// True for exactly one line, beginning "error: " and naming what it should.
inline ::testing::AssertionResult isOneErrorLine(const std::string& printed, const std::string& naming = "") {
    const bool one = printed.rfind("error: ", 0) == 0 && printed.find('\n') == printed.size() - 1;
    if (one && printed.find(naming) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "printed: \"" << printed << "\", expected one error line with " << naming;
}

/// True when `action` prints such a line and nothing else.
template <class Action>
::testing::AssertionResult tellsOf(const std::string& naming, Action&& action) {
    return isOneErrorLine(printedBy(action), naming);
}

class CtbTest : public FileTest {
protected:
    /// What a record writes.
    template <class Record>
    Bytes serialized(Record& record) {
        FileWrite out(path("record"), 0);
        out.setFileByteOrder(LittleEndian);
        record.setFileWrite(out);
        record.Serialization();
        EXPECT_EQ(out.close(), 0);
        return readFile(path("record"));
    }

    /// A file of these bytes, open until the next call.
    FileRead& input(const std::vector<unsigned char>& bytes) {
        m_input.open(writeFile(path("input"), bytes), 0);
        m_input.setFileByteOrder(LittleEndian);
        return m_input;
    }

private:
    FileRead m_input;
};

/// Owns what a query of `CTB::CTBRead` returned.
template <class Record>
class Owned {
public:
    explicit Owned(std::vector<Record*> records) : m_records(std::move(records)) {}
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        for (Record* record : m_records) delete record;
    }
    std::size_t size() const { return m_records.size(); }
    Record* operator[](std::size_t i) const { return m_records.at(i); }
    const std::vector<Record*>& list() const { return m_records; }

private:
    std::vector<Record*> m_records;
};

}  // namespace vndlp::test
