#pragma once

#include <cstddef>

// Where the library's messages go. Every line the library prints (refusals,
// warnings, the pool-full notice, the messages before a fatal exit) passes
// through one sink. By default the sink writes the bytes to the C stream
// `stdout` or `stderr` as it is at that moment; a host or a test harness can
// take the messages instead, without reassigning those streams.
namespace nerva {

enum message_stream_t {
    MESSAGES_STDOUT = 1,
    MESSAGES_STDERR = 2,
};

// Receives `length` bytes of text (not zero-terminated; line ends included
// where the library writes them) meant for `stream`.
using message_sink = void (*)(message_stream_t stream, const char* text, size_t length, void* context);

// Sends every later message to sink(stream, text, length, context); a null
// sink restores the default. Process-wide: set it before segmenters work in
// other threads, and keep `context` alive while the sink is in place.
void set_message_sink(message_sink sink, void* context = nullptr);

}  // namespace nerva
