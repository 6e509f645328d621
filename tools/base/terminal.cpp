#include "tools/base/terminal.h"

#include "tools/base/failure.h"
#include "tools/base/signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#else
#include <fcntl.h>
#include <sys/ioctl.h>
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

constexpr int kUsualColumns = 80;
constexpr int kFewestColumns = 20;

std::FILE* resultStream = stdout;
Verbosity chosenVerbosity = Verbosity::normal;
bool barStands = false;

int terminalColumns() {
#if !defined(_WIN32)
    winsize size = {};
    if (ioctl(kStandardError, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
#endif
    return kUsualColumns;
}

bool canShowBar() {
    const char* const kind = std::getenv("TERM");
    return isTerminal(stderr) && (kind == nullptr || std::strcmp(kind, "dumb") != 0) &&
           chosenVerbosity != Verbosity::quiet;
}

void eraseBar() {
    if (!barStands) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    barStands = false;
    setBarShown(false);
}

/// One line, without its end, shorter than the terminal, so that the cursor stays in it.
std::string barLine(const std::string& title, int percent, int done, int total, int columns) {
    const std::string share = std::to_string(percent) + " %";
    const std::string counts = "  " + std::to_string(done) + "/" + std::to_string(total);
    const auto room = static_cast<std::size_t>(columns - 1);
    constexpr std::size_t kPercentColumns = 5;
    constexpr std::size_t kWidestBar = 40;
    constexpr std::size_t kNarrowestBar = 10;
    std::string line = std::string(kPercentColumns - share.size(), ' ') + share;
    if (line.size() + counts.size() <= room) line += counts;
    if (line.size() + title.size() + 1 > room) return line;
    const std::size_t left = room - line.size() - title.size() - 1;
    if (left < kNarrowestBar + 3) return title + " " + line;
    const std::size_t width = std::min(left - 3, kWidestBar);
    const std::size_t filled = width * static_cast<std::size_t>(percent) / 100;
    return title + " [" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " + line;
}

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

void setVerbosity(Verbosity verbosity) { chosenVerbosity = verbosity; }

Verbosity verbosity() { return chosenVerbosity; }

std::FILE* results() { return resultStream; }

void printResult(const std::string& text) {
    eraseBar();
    const bool written = std::fwrite(text.data(), 1, text.size(), resultStream) == text.size();
    if (written && std::fflush(resultStream) == 0) return;
    throw Failure(errno == EPIPE ? "" : "standard output: cannot be written: " + reasonOf(errno));
}

void printRemark(const std::string& text) {
    if (chosenVerbosity != Verbosity::quiet) printResult(text);
}

void printError(const std::string& text) {
    std::fflush(stdout);
    eraseBar();
    std::fprintf(stderr, "vndlp: %s\n", printable(text).c_str());
}

void printNote(const std::string& text) {
    if (chosenVerbosity != Verbosity::quiet) printError("note: " + text);
}

ProgressBar::ProgressBar(std::string title, int total)
    : m_title(std::move(title)), m_total(total), m_active(total > 0 && canShowBar()) {}

ProgressBar::~ProgressBar() {
    if (m_active) eraseBar();
}

void ProgressBar::advanceTo(int done) {
    if (!m_active) return;
    constexpr std::chrono::milliseconds kPatience(500);
    if (std::chrono::steady_clock::now() - m_begin < kPatience) return;
    const int percent = static_cast<int>(100LL * done / m_total);
    const int columns = terminalColumns();
    if ((percent == m_shownPercent && barStands) || columns < kFewestColumns) return;
    m_shownPercent = percent;
    setBarShown(true);
    barStands = true;
    std::fprintf(stderr, "\r%s\033[K", barLine(m_title, percent, done, m_total, columns).c_str());
    std::fflush(stderr);
}

}  // namespace vndlp::tools
