#include "io/report.h"

#include <cstdarg>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace vndlp {

namespace {

struct Receiver {
    MessageHandler handler = nullptr;
    void* context = nullptr;
};

std::mutex receiverMutex;
Receiver receiver;

}  // namespace

void setMessageHandler(MessageHandler handler, void* context) {
    const std::lock_guard lock(receiverMutex);
    receiver = {handler, context};
}

bool handleMessage(const char* text) {
    // called without the lock: a handler may use the library
    Receiver now;
    {
        const std::lock_guard lock(receiverMutex);
        now = receiver;
    }
    if (now.handler != nullptr) now.handler(now.context, text);
    return now.handler != nullptr;
}

void report(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    char line[512];
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::string text;
    if (length >= static_cast<int>(sizeof line)) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    const char* const message = text.empty() ? line : text.c_str();
    if (length > 0 && !handleMessage(message)) std::fputs(message, stdout);
}

void reportIncompleteFile(const char* path, int failureCode) {
    const std::string reason =
        failureCode == 0 ? std::string("unknown reason") : std::generic_category().message(failureCode);
    report("error: %s could not be written completely: %s\n", path, reason.c_str());
}

}  // namespace vndlp
