/// Where the program's words go: results, messages, progress, and what the library prints.

#pragma once

#include <cstdio>
#include <string>

namespace vndlp::tools {

/// Keeps what the library prints on standard output apart from the program's results. Made once, first thing in main:
/// from then on descriptor 1 leads to standard error (`verbose`) or nowhere, and results go to `results()`.
class OutputStreams {
public:
    OutputStreams();
    OutputStreams(const OutputStreams&) = delete;
    OutputStreams& operator=(const OutputStreams&) = delete;
    ~OutputStreams();

    /// Lets the library's messages through to standard error.
    void showLibraryMessages();

private:
    int m_results;
};

/// The stream for results: the standard output the program was started with.
std::FILE* results();

/// Writes text to the results. Throws Failure when it cannot be written (a full disk, a closed pipe).
void printResult(const std::string& text);

/// Writes one line to standard error.
void printMessage(const std::string& text);

/// A bar on standard error while it is a terminal; nothing otherwise.
class ProgressBar {
public:
    ProgressBar(std::string title, int total);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar();

    void advanceTo(int done);

private:
    std::string m_title;
    int m_total;
    int m_shownPercent = -1;
    bool m_active;
};

/// "1 234 567" with thin grouping, "12.3 MB".
std::string groupedNumber(unsigned long long value);
std::string humanBytes(unsigned long long bytes);

}  // namespace vndlp::tools
