/// Stopping at once, with nothing half done left behind.

#pragma once

#include <cstddef>
#include <string>

#if !defined(_WIN32)
#include <csignal>
#endif

namespace vndlp::tools {

/// From here on SIGINT, SIGTERM and SIGHUP remove what every `UnfinishedFolder` names, say so in one line on standard error
/// and end the program by the signal itself; SIGPIPE does the same without a word. A signal that was ignored stays so.
/// Writing beyond a file-size limit becomes an error instead of the end of the program.
void installSignalHandlers();

/// While it lives, signals that stop the program wait for the calling thread and for threads that it starts meanwhile.
/// Files are made and named under it, and working threads started: so they never take the signal, and nothing changes
/// while the handler looks what to remove.
class SignalHold {
public:
    SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    ~SignalHold();

private:
#if !defined(_WIN32)
    sigset_t m_before;
#endif
};

/// A folder of unfinished files that is removed, with the files in it, when a signal stops the program. Made and
/// destroyed under a SignalHold, by the thread that takes the signals.
class UnfinishedFolder {
public:
    /// \param descriptor of the open folder; stays the caller's and open as long as this object lives.
    UnfinishedFolder(const std::string& path, int descriptor);
    UnfinishedFolder(const UnfinishedFolder&) = delete;
    UnfinishedFolder& operator=(const UnfinishedFolder&) = delete;
    ~UnfinishedFolder();

private:
    std::size_t m_slot;
};

/// Tells the handler that a bar stands on standard error, to be erased first.
void setBarShown(bool shown);

}  // namespace vndlp::tools
