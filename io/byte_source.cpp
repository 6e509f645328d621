#include "io/byte_source.h"

#include "io/platform.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vndlp {

namespace {

class FileSource final : public ByteSource {
public:
    explicit FileSource(platform::File stream) : m_stream(std::move(stream)) {
        m_isPipe = platform::seek(m_stream.get(), 0, SEEK_END) != 0;
        m_size = m_isPipe ? 0 : std::max(platform::tell(m_stream.get()), 0LL);
    }
    long long size() const override { return m_size; }
    std::size_t readAt(long long offset, void* to, std::size_t n) const override {
        return m_isPipe ? std::fread(to, 1, n, m_stream.get()) : platform::readAt(m_stream.get(), offset, to, n);
    }
    bool isSequential() const override { return m_isPipe; }

private:
    platform::File m_stream;
    long long m_size;
    bool m_isPipe;
};

class MemorySource final : public ByteSource {
public:
    MemorySource(const void* data, std::size_t size) : m_data(static_cast<const unsigned char*>(data)), m_size(size) {}
    long long size() const override { return static_cast<long long>(m_size); }
    std::size_t readAt(long long offset, void* to, std::size_t n) const override {
        if (offset < 0 || offset >= size()) return 0;
        const auto at = static_cast<std::size_t>(offset);
        n = std::min(n, m_size - at);
        std::memcpy(to, m_data + at, n);
        return n;
    }
    const unsigned char* data() const override { return m_data; }

private:
    const unsigned char* m_data;
    std::size_t m_size;
};

class CallbackSource final : public ByteSource {
public:
    CallbackSource(ReadCallback read, void* context, std::int64_t size)
        : m_read(read), m_context(context), m_size(std::max<std::int64_t>(size, 0)) {}
    long long size() const override { return m_size; }
    std::size_t readAt(long long offset, void* to, std::size_t n) const override {
        if (offset < 0 || offset >= m_size) return 0;
        n = static_cast<std::size_t>(std::min<std::uint64_t>(n, static_cast<std::uint64_t>(m_size - offset)));
        std::size_t done = 0;
        while (done < n) {
            const std::int64_t now = m_read(m_context, offset + static_cast<std::int64_t>(done),
                                            static_cast<unsigned char*>(to) + done, n - done);
            // more than was asked for is no number of bytes read
            if (now <= 0 || static_cast<std::uint64_t>(now) > n - done) break;
            done += static_cast<std::size_t>(now);
        }
        return done;
    }

private:
    ReadCallback m_read;
    void* m_context;
    std::int64_t m_size;
};

}  // namespace

ByteSource::~ByteSource() = default;

SharedSource openFileSource(const char* path) {
    platform::File stream(platform::openFile(path, "rb"));
    return stream == nullptr ? nullptr : std::make_shared<FileSource>(std::move(stream));
}

SharedSource memorySource(const void* data, std::size_t size) { return std::make_shared<MemorySource>(data, size); }

SharedSource callbackSource(ReadCallback read, void* context, std::int64_t size) {
    return std::make_shared<CallbackSource>(read, context, size);
}

}  // namespace vndlp
