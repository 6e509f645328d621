/// Where the program's words go: results, messages, progress, and what the library prints.

#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace vndlp::tools {

/// Keeps what the library prints on standard output apart from the program's results. Made once, first thing in main:
/// from then on descriptor 1 leads to standard error (`showLibraryMessages`) or nowhere, and results go to `results()`.
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

/// How much the program says beside its results.
enum class Verbosity { quiet, normal, detailed, debug };

/// Chosen once, when the command line is read.
void setVerbosity(Verbosity verbosity);
Verbosity verbosity();

/// The stream for results: the standard output the program was started with.
std::FILE* results();

/// Writes text to the results. Throws Failure when it cannot be written (a full disk); its text is empty, for nothing is
/// said then, when the reader at the other end of a pipe is gone.
void printResult(const std::string& text);
/// The same unless the user wants quiet: "FILE: ok" and the like.
void printRemark(const std::string& text);

/// Writes "vndlp: TEXT" as one line to standard error, what is hostile in it escaped.
void printError(const std::string& text);

/// Writes "vndlp: note: TEXT" to standard error unless the user wants quiet.
void printNote(const std::string& text);

/// A bar on standard error while it is a terminal and the work takes longer than half a second; nothing otherwise.
/// Errors, notes and results erase it before they are printed.
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
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace vndlp::tools
