#include "tools/jobs/zip_output.h"

#include "tools/base/failure.h"

#include <libdeflate.h>
#include <cerrno>

namespace vndlp::tools {

namespace {

class Record {
public:
    Record& u16(unsigned value) { return number(value, 2); }
    Record& u32(std::uint32_t value) { return number(value, 4); }
    Record& text(const std::string& text) {
        m_bytes.insert(m_bytes.end(), text.begin(), text.end());
        return *this;
    }
    const std::vector<unsigned char>& bytes() const { return m_bytes; }

private:
    Record& number(std::uint32_t value, int count) {
        for (int i = 0; i < count; ++i) m_bytes.push_back(static_cast<unsigned char>(value >> 8 * i));
        return *this;
    }
    std::vector<unsigned char> m_bytes;
};

constexpr unsigned kVersion = 20;
constexpr unsigned kNamesAreUtf8 = 0x800;
constexpr unsigned kStored = 0;
constexpr unsigned kMidnight = 0;
constexpr unsigned kFirstDay = 1 << 5 | 1;  // of January 1980: no date, so that the bytes are the same every time
constexpr std::uint64_t kMostBytes = 0xFFFFFFFF;
constexpr std::size_t kMostEntries = 0xFFFF;

}  // namespace

ZipOutput::ZipOutput(std::string name, const std::string& path)
    : m_name(std::move(name)), m_file(std::fopen(path.c_str(), "wb")) {
    if (m_file == nullptr) throw Failure(m_name + ": cannot be created: " + reasonOf(errno));
}

ZipOutput::~ZipOutput() {
    if (m_file != nullptr) std::fclose(m_file);
}

void ZipOutput::write(const std::vector<unsigned char>& bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size()) {
        throw Failure(m_name + ": could not be written completely: " + reasonOf(errno));
    }
    m_written += bytes.size();
}

void ZipOutput::add(const std::string& entry, std::span<const unsigned char> bytes) {
    constexpr std::uint64_t kRoom = 1 << 20;  // for the names and the directory
    if (m_written + bytes.size() > kMostBytes - kRoom || m_entries.size() == kMostEntries) {
        throw Failure(m_name + ": an archive of more than 4 GiB or 65535 files is not written");
    }
    const std::uint32_t crc = libdeflate_crc32(0, bytes.data(), bytes.size());
    const auto size = static_cast<std::uint32_t>(bytes.size());
    m_entries.push_back({entry, crc, size, static_cast<std::uint32_t>(m_written)});
    Record head;
    head.u32(0x04034B50).u16(kVersion).u16(kNamesAreUtf8).u16(kStored).u16(kMidnight).u16(kFirstDay);
    head.u32(crc).u32(size).u32(size).u16(static_cast<unsigned>(entry.size())).u16(0).text(entry);
    write(head.bytes());
    write({bytes.begin(), bytes.end()});
}

void ZipOutput::add(const std::string& entry, const std::string& text) {
    add(entry, {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

void ZipOutput::finish() {
    const std::uint64_t begin = m_written;
    for (const Entry& entry : m_entries) {
        Record record;
        record.u32(0x02014B50).u16(kVersion).u16(kVersion).u16(kNamesAreUtf8).u16(kStored).u16(kMidnight);
        record.u16(kFirstDay).u32(entry.crc).u32(entry.size).u32(entry.size);
        record.u16(static_cast<unsigned>(entry.name.size())).u16(0).u16(0).u16(0).u16(0).u32(0).u32(entry.offset);
        write(record.text(entry.name).bytes());
    }
    const auto count = static_cast<unsigned>(m_entries.size());
    Record end;
    end.u32(0x06054B50).u16(0).u16(0).u16(count).u16(count);
    end.u32(static_cast<std::uint32_t>(m_written - begin)).u32(static_cast<std::uint32_t>(begin)).u16(0);
    write(end.bytes());
    const bool isClosed = std::fclose(m_file) == 0;
    m_file = nullptr;
    if (!isClosed) throw Failure(m_name + ": could not be written completely: " + reasonOf(errno));
}

}  // namespace vndlp::tools
