/// \file messages.h
/// Where the library's messages go.

#ifndef VNDLP_MESSAGES_H
#define VNDLP_MESSAGES_H

#include <vndlp/export.h>

namespace vndlp {

/// Receives the library's messages.
/// \param context as given to `setMessageHandler`.
/// \param text    one whole message as it would be printed, its line ends included; valid during the call only.
///
/// Called by the thread in which the message arises, so by several at once where several use the library. It must not
/// throw.
using MessageHandler = void (*)(void* context, const char* text);

/// Hands every message of the library, the logs of the print-time estimates among them, to a function in place of
/// standard output. Holds for the whole process: set it before the library is used, and keep `context` alive as long as
/// it is.
/// \param handler null: standard output, as at the start. There a message is one write, so that those of two threads
///                do not mix.
VNDLP_API void setMessageHandler(MessageHandler handler, void* context = nullptr);

}  // namespace vndlp

#endif
