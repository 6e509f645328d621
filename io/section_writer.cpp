#include "io/section_writer.h"

#include "io/report.h"

namespace vndlp {

namespace {

constexpr unsigned long long kMaxOffset = 0xFFFFFFFF;

}  // namespace

bool SectionWriter::isReady(const char* what) {
    if (m_file.isOpenFile()) return true;
    report("error: no file is open to write %s to\n", what);
    return false;
}

bool SectionWriter::isThere(std::size_t index, const char* record, const char* lack) {
    report("error: %s: %s %zu %s\n", m_file.fileName().c_str(), record, index, lack);
    return false;
}

bool SectionWriter::isReached(unsigned long long end) {
    if (end <= kMaxOffset) return true;
    report("error: %s: the layers would reach to byte %llu, their offsets reach %llu\n", m_file.fileName().c_str(), end,
           kMaxOffset);
    return false;
}

void SectionWriter::warn(std::size_t preViews, unsigned int layerCount, std::size_t layers) {
    if (preViews > kMaxLocatedPreviews) {
        report("warning: %s: %zu previews are written, the offsets account for two\n", m_file.fileName().c_str(),
               preViews);
    }
    if (layerCount != layers) {
        report("warning: %s: the header counts %u layers, %zu are written\n", m_file.fileName().c_str(), layerCount,
               layers);
    }
}

bool SectionWriter::isComplete() {
    if (!m_file.failed()) return true;
    if (!m_isReported) reportIncompleteFile(m_file.fileName().c_str(), m_file.failureCode());
    m_isReported = true;
    return false;
}

bool SectionWriter::close() {
    if (!m_file.isOpenFile()) return true;
    m_file.close();
    return isComplete();
}

}  // namespace vndlp
