#include "tools/base/terminal.h"

#include "tools/base/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vndlp::tools {

namespace {

#if defined(_WIN32)
constexpr const char* kNullDevice = "NUL";
int duplicate(int descriptor) { return _dup(descriptor); }
int redirect(int from, int to) { return _dup2(from, to); }
int openNull() { return _open(kNullDevice, _O_WRONLY); }
void closeDescriptor(int descriptor) { _close(descriptor); }
std::FILE* openStream(int descriptor) { return _fdopen(descriptor, "wb"); }
bool isTerminal(std::FILE* stream) { return _isatty(_fileno(stream)) != 0; }
#else
constexpr const char* kNullDevice = "/dev/null";
int duplicate(int descriptor) { return dup(descriptor); }
int redirect(int from, int to) { return dup2(from, to); }
int openNull() { return open(kNullDevice, O_WRONLY | O_CLOEXEC); }
void closeDescriptor(int descriptor) { close(descriptor); }
std::FILE* openStream(int descriptor) { return fdopen(descriptor, "w"); }
bool isTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }
#endif

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

std::FILE* resultStream = stdout;

}  // namespace

OutputStreams::OutputStreams() : m_results(duplicate(kStandardOutput)) {
    if (m_results < 0) return;
    std::FILE* stream = openStream(m_results);
    if (stream == nullptr) return;
    resultStream = stream;
    const int nowhere = openNull();
    if (nowhere < 0) return;
    redirect(nowhere, kStandardOutput);
    closeDescriptor(nowhere);
}

OutputStreams::~OutputStreams() {
    if (resultStream == stdout) return;
    std::fclose(resultStream);
    resultStream = stdout;
}

void OutputStreams::showLibraryMessages() { redirect(kStandardError, kStandardOutput); }

std::FILE* results() { return resultStream; }

void printResult(const std::string& text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), resultStream) == text.size();
    if (!written || std::fflush(resultStream) != 0) {
        throw Failure(std::string("standard output: cannot be written: ") + std::strerror(errno));
    }
}

void printMessage(const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", text.c_str());
}

ProgressBar::ProgressBar(std::string title, int total)
    : m_title(std::move(title)), m_total(total), m_active(total > 0 && isTerminal(stderr)) {}

ProgressBar::~ProgressBar() {
    if (m_active && m_shownPercent >= 0) std::fprintf(stderr, "\r\033[K");
}

void ProgressBar::advanceTo(int done) {
    if (!m_active) return;
    const int percent = static_cast<int>(100LL * done / m_total);
    if (percent == m_shownPercent) return;
    m_shownPercent = percent;
    constexpr int kBarWidth = 40;
    const std::string filled(static_cast<std::size_t>(percent * kBarWidth / 100), '#');
    std::fprintf(stderr, "\r%s [%-*s] %3d %%  %d/%d", m_title.c_str(), kBarWidth, filled.c_str(), percent, done,
                 m_total);
    std::fflush(stderr);
}

std::string groupedNumber(unsigned long long value) {
    std::string digits = std::to_string(value);
    for (std::size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, 1, ' ');
    return digits;
}

std::string humanBytes(unsigned long long bytes) {
    static const char* const units[] = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(units)) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

}  // namespace vndlp::tools
