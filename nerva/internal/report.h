#pragma once

// The library's one way to print: every message goes through the sink of
// nerva/messages.h. Internal header.
#include <cstddef>

#include "nerva/messages.h"

namespace nerva {
namespace detail {

// Formats like printf and hands the text to the sink.
void report(message_stream_t stream, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Hands `length` bytes to the sink as they are.
void report_bytes(message_stream_t stream, const char* text, size_t length);
// What perror(prefix) writes: "prefix: <description of errno>\n" on standard error.
void report_errno(const char* prefix);
// Ends the process after a fatal misuse, once its message is reported.
[[noreturn]] void fatal_exit(int status);

}  // namespace detail
}  // namespace nerva
