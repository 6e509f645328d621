#include "tools/base/signals.h"

#include <csignal>
#include <cstring>
#include <iterator>

#if defined(_WIN32)
#include <direct.h>
#include <io.h>
#else
#include <unistd.h>
#endif
#if defined(__linux__)
#include <fcntl.h>
#include <sys/syscall.h>
#endif

namespace vndlp::tools {

namespace {

// what the handler reads: plain memory, since it may be called in the middle of anything
constexpr std::size_t kMostPathBytes = 4096;
struct Slot {
    volatile std::sig_atomic_t isUsed = 0;
    int descriptor = -1;
    char path[kMostPathBytes] = {};
};
Slot slots[8];
constexpr std::size_t kNoSlot = std::size(slots);
volatile std::sig_atomic_t isBarShown = 0;

#if defined(_WIN32)
constexpr int kStopping[] = {SIGINT, SIGTERM};
int removeNow(const char* path) { return _rmdir(path); }
void writeNow(const char* text) { static_cast<void>(_write(2, text, static_cast<unsigned>(std::strlen(text)))); }
#else
constexpr int kStopping[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
int removeNow(const char* path) { return rmdir(path); }
void writeNow(const char* text) {
    // nothing can be done where standard error takes no more
    if (write(2, text, std::strlen(text)) < 0) return;
}

sigset_t stoppingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kStopping) sigaddset(&set, signal);
    return set;
}
#endif

/// Removes the files in a folder, by system calls that may be made at any moment.
void emptyNow([[maybe_unused]] int folder) {
#if defined(__linux__)
    // of `linux_dirent64`: inode, offset, length of the record, type, name
    constexpr std::size_t kLengthAt = 16;
    constexpr std::size_t kNameAt = 19;
    alignas(8) static char records[4096];
    lseek(folder, 0, SEEK_SET);
    for (long got = 0; (got = syscall(SYS_getdents64, folder, records, sizeof records)) > 0;) {
        for (long at = 0; at < got;) {
            unsigned short length = 0;
            std::memcpy(&length, records + at + kLengthAt, sizeof length);
            unlinkat(folder, records + at + kNameAt, 0);
            at += length;
        }
    }
#endif
}

bool isQuiet([[maybe_unused]] int signal) {
#if defined(_WIN32)
    return false;
#else
    return signal == SIGPIPE;
#endif
}

extern "C" void stopNow(int signal) {
    if (isBarShown != 0) writeNow("\r\033[K");
    bool removed = false;
    for (const Slot& slot : slots) {
        if (slot.isUsed == 0) continue;
        emptyNow(slot.descriptor);
        if (removeNow(slot.path) == 0) removed = true;
    }
    if (!isQuiet(signal)) {
        writeNow(removed ? "vndlp: interrupted; the unfinished output was removed\n" : "vndlp: interrupted\n");
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void installSignalHandlers() {
    for (const int signal : kStopping) {
#if defined(_WIN32)
        if (std::signal(signal, stopNow) == SIG_IGN) std::signal(signal, SIG_IGN);
#else
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) continue;
        struct sigaction action = {};
        action.sa_handler = stopNow;
        action.sa_mask = stoppingSignals();
        sigdelset(&action.sa_mask, signal);
        action.sa_flags = SA_NODEFER;  // raising it in the handler ends the program there
        sigaction(signal, &action, nullptr);
#endif
    }
#if defined(SIGXFSZ)
    std::signal(SIGXFSZ, SIG_IGN);
#endif
}

#if defined(_WIN32)
SignalHold::SignalHold() = default;
SignalHold::~SignalHold() = default;
#else
SignalHold::SignalHold() : m_before() {
    sigset_t held = stoppingSignals();
    sigdelset(&held, SIGPIPE);  // comes to the thread that writes, in the middle of its call
    pthread_sigmask(SIG_BLOCK, &held, &m_before);
}
SignalHold::~SignalHold() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
#endif

UnfinishedFolder::UnfinishedFolder(const std::string& path, int descriptor) : m_slot(kNoSlot) {
    if (path.size() >= kMostPathBytes) return;
    for (std::size_t i = 0; i < std::size(slots); ++i) {
        if (slots[i].isUsed != 0) continue;
        std::memcpy(slots[i].path, path.c_str(), path.size() + 1);
        slots[i].descriptor = descriptor;
        slots[i].isUsed = 1;
        m_slot = i;
        return;
    }
}

UnfinishedFolder::~UnfinishedFolder() {
    if (m_slot != kNoSlot) slots[m_slot].isUsed = 0;
}

void setBarShown(bool shown) { isBarShown = shown ? 1 : 0; }

}  // namespace vndlp::tools
