#include <vndlp/image.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vndlp {

DlpImage::DlpImage() : DlpImage(0, 0) {}

DlpImage::DlpImage(int w, int h) : DlpImage(w, h, PIXEL_GRAY8) {}

DlpImage::DlpImage(int w, int h, PIXEL_TYPE t) : m_data(nullptr), m_width(w), m_height(h), m_pixelWidth(t) {}

DlpImage::DlpImage(const DlpImage& other) : DlpImage(other.m_width, other.m_height, other.m_pixelWidth) {
    *this = other;
}

DlpImage::DlpImage(DlpImage&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)),
      m_width(other.m_width),
      m_height(other.m_height),
      m_pixelWidth(other.m_pixelWidth) {}

DlpImage& DlpImage::operator=(const DlpImage& other) {
    if (this == &other) return *this;
    m_width = other.m_width;
    m_height = other.m_height;
    m_pixelWidth = other.m_pixelWidth;
    if (!other.haveDatas()) {
        release();
        return *this;
    }
    const auto bytes = static_cast<std::size_t>(other.size());
    // realloc(p, 0) may free the buffer and return null: keep at least one byte
    void* resized = std::realloc(m_data, bytes == 0 ? 1 : bytes);
    if (resized == nullptr) {
        release();
        return *this;
    }
    m_data = static_cast<char*>(resized);
    std::memcpy(m_data, other.m_data, bytes);
    return *this;
}

DlpImage& DlpImage::operator=(DlpImage&& other) noexcept {
    std::swap(m_data, other.m_data);
    m_width = other.m_width;
    m_height = other.m_height;
    m_pixelWidth = other.m_pixelWidth;
    if (this != &other) other.release();
    return *this;
}

DlpImage::~DlpImage() { release(); }

void DlpImage::needData() {
    const int bytes = size();
    if (m_data == nullptr && bytes > 0) m_data = static_cast<char*>(std::calloc(static_cast<std::size_t>(bytes), 1));
}

char* DlpImage::bits() { return m_data; }

const char* DlpImage::bits() const { return m_data; }

bool DlpImage::haveDatas() const { return m_data != nullptr; }

char* DlpImage::detachData() { return std::exchange(m_data, nullptr); }

void DlpImage::release() { std::free(std::exchange(m_data, nullptr)); }

int DlpImage::width() const { return m_width; }

int DlpImage::height() const { return m_height; }

int DlpImage::pixelWidth() const { return m_pixelWidth; }

DlpImage::PIXEL_TYPE DlpImage::pixelType() { return m_pixelWidth; }

int DlpImage::widthBytes() const {
    const long long bytes = static_cast<long long>(m_pixelWidth) * m_width;
    return bytes > INT_MAX || bytes < INT_MIN ? 0 : static_cast<int>(bytes);
}

int DlpImage::size() const {
    if (m_width < 0 || m_height < 0 || m_pixelWidth < 1) return 0;
    const long long pixels = static_cast<long long>(m_width) * m_height;
    return pixels > INT_MAX / m_pixelWidth ? 0 : static_cast<int>(pixels * m_pixelWidth);
}

}  // namespace vndlp
