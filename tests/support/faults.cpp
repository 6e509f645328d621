// both fopen and fopen64 are defined here, which are one name else
#undef _FILE_OFFSET_BITS

#include "support/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vndlp::faults {

namespace {

/// Small, so that many writes reach the disk.
constexpr std::size_t kBufferBytes = 512;

bool armed = false;
int calls = 0;
Plan plan;

/// Counts a call. \return true, with the error set, when it is to fail.
bool fails() {
    if (!armed) return false;
    ++calls;
    const bool now = plan.forEver ? calls >= plan.call : calls == plan.call;
    if (plan.call == 0 || !now) return false;
    if (plan.kind == Kind::killed) std::raise(SIGKILL);
    errno = plan.kind == Kind::ioError ? EIO : ENOSPC;
    return true;
}

int descriptorOf(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t readFrom(void* cookie, char* out, std::size_t size) { return ::read(descriptorOf(cookie), out, size); }

ssize_t writeTo(void* cookie, const char* bytes, std::size_t size) {
    const bool failing = fails();
    const int error = errno;
    if (failing && plan.kind != Kind::shortWrite) return 0;
    std::size_t done = 0;
    for (const std::size_t wanted = failing ? size / 2 : size; done < wanted;) {
        const ssize_t now = ::write(descriptorOf(cookie), bytes + done, wanted - done);
        if (now < 0) return 0;
        done += static_cast<std::size_t>(now);
    }
    if (failing) errno = error;
    return static_cast<ssize_t>(done);
}

int seekIn(void* cookie, off64_t* offset, int origin) {
    if (fails()) return -1;
    const off64_t at = ::lseek64(descriptorOf(cookie), *offset, origin);
    if (at < 0) return -1;
    *offset = at;
    return 0;
}

/// The streams opened here, which have a descriptor only for those who ask this file.
struct OpenStream {
    std::FILE* stream = nullptr;
    int descriptor = -1;
};
OpenStream openStreams[64];

OpenStream* openStreamOf(const std::FILE* stream, int descriptor) {
    for (OpenStream& open : openStreams) {
        if (open.stream == stream && (stream != nullptr || descriptor < 0)) return &open;
        if (descriptor >= 0 && open.descriptor == descriptor) return &open;
    }
    return nullptr;
}

int closeOf(void* cookie) {
    if (OpenStream* const open = openStreamOf(nullptr, descriptorOf(cookie))) *open = {};
    const bool failing = fails();
    const int error = errno;
    const int result = ::close(descriptorOf(cookie));
    if (failing) errno = error;
    return failing ? -1 : result;
}

/// The function this file stands in front of.
template <class Function>
Function* next(const char* name) {
    Function* function = nullptr;
    void* const symbol = dlsym(RTLD_NEXT, name);
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

std::FILE* openStream(const char* path, const char* mode) {
    static auto* const plainOpen = next<std::FILE*(const char*, const char*)>("fopen64");
    const bool updates = std::strchr(mode, '+') != nullptr;
    const bool creates = mode[0] == 'w';
    // sources of randomness and the like are none of the files written
    if (!armed || (!updates && !creates) || std::strncmp(path, "/dev/", 5) == 0) return plainOpen(path, mode);
    if (fails()) return nullptr;
    const int descriptor =
        ::open(path, O_CLOEXEC | (updates ? O_RDWR : O_WRONLY) | (creates ? O_CREAT | O_TRUNC : 0), 0666);
    if (descriptor < 0) return nullptr;
    std::FILE* const stream = fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor)), mode,
                                          {readFrom, writeTo, seekIn, closeOf});
    if (stream == nullptr) return nullptr;
    std::setvbuf(stream, nullptr, _IOFBF, kBufferBytes);
    if (OpenStream* const open = openStreamOf(nullptr, -1)) *open = {stream, descriptor};
    return stream;
}

/// In a program this is preloaded into.
struct ArmedByEnvironment {
    ArmedByEnvironment() {
        const char* const text = std::getenv("VNDLP_FAULT");
        if (text == nullptr) return;
        char times[8] = "";
        int kind = 0;
        Plan wanted;
        if (std::sscanf(text, "%d %7s %d", &wanted.call, times, &kind) != 3) std::abort();
        wanted.forEver = std::strcmp(times, "ever") == 0;
        wanted.kind = static_cast<Kind>(kind);
        arm(wanted);
    }
    ArmedByEnvironment(const ArmedByEnvironment&) = delete;
    ArmedByEnvironment& operator=(const ArmedByEnvironment&) = delete;
    ~ArmedByEnvironment() {
        const char* const path = std::getenv("VNDLP_FAULT_CALLS");
        const int made = disarm();
        std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "w");
        if (file == nullptr) return;
        std::fprintf(file, "%d", made);
        std::fclose(file);
    }
} armedByEnvironment;

}  // namespace

void arm(const Plan& wanted) {
    plan = wanted;
    calls = 0;
    armed = true;
}

int disarm() {
    armed = false;
    return calls;
}

}  // namespace vndlp::faults

#pragma GCC visibility push(default)
extern "C" {

std::FILE* fopen(const char* path, const char* mode) { return vndlp::faults::openStream(path, mode); }
std::FILE* fopen64(const char* path, const char* mode) { return vndlp::faults::openStream(path, mode); }

int fileno(std::FILE* stream) noexcept {
    static auto* const plainFileno = vndlp::faults::next<int(std::FILE*)>("fileno");
    const auto* const open = vndlp::faults::openStreamOf(stream, -1);
    return open != nullptr ? open->descriptor : plainFileno(stream);
}

/// Refused, so that every byte goes through a stream and is counted.
ssize_t copy_file_range(int /*in*/, off64_t* /*at*/, int /*out*/, off64_t* /*to*/, std::size_t /*size*/,
                        unsigned int /*flags*/) {
    errno = EXDEV;
    return -1;
}

int fsync(int descriptor) {
    static auto* const plainSync = vndlp::faults::next<int(int)>("fsync");
    return vndlp::faults::fails() ? -1 : plainSync(descriptor);
}

int rename(const char* from, const char* to) noexcept {
    static auto* const plainRename = vndlp::faults::next<int(const char*, const char*)>("rename");
    return vndlp::faults::fails() ? -1 : plainRename(from, to);
}
}
#pragma GCC visibility pop
