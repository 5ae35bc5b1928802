#include "nerva/messages.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nerva/internal/report.h"

namespace nerva {

namespace {

void write_to_stdio(message_stream_t stream, const char* text, size_t length, void*)
{
    std::fwrite(text, 1, length, stream == MESSAGES_STDOUT ? stdout : stderr);
}

// The sink and its context are read together by every message; a host sets
// them before the threads that print start, so two atomics suffice.
std::atomic<message_sink> current_sink{write_to_stdio};
std::atomic<void*> current_context{nullptr};

}  // namespace

void set_message_sink(message_sink sink, void* context)
{
    current_context.store(context, std::memory_order_relaxed);
    current_sink.store(sink ? sink : write_to_stdio, std::memory_order_release);
}

namespace detail {

void report_bytes(message_stream_t stream, const char* text, size_t length)
{
    const message_sink sink = current_sink.load(std::memory_order_acquire);
    sink(stream, text, length, current_context.load(std::memory_order_relaxed));
}

void report(message_stream_t stream, const char* format, ...)
{
    char text[512];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length < 0) {
        va_end(again);
        return;
    }
    if (static_cast<size_t>(length) < sizeof text) {
        va_end(again);
        report_bytes(stream, text, static_cast<size_t>(length));
        return;
    }
    // A long path in the message: format it again into a buffer that fits.
    std::vector<char> long_text(static_cast<size_t>(length) + 1);
    std::vsnprintf(long_text.data(), long_text.size(), format, again);
    va_end(again);
    report_bytes(stream, long_text.data(), static_cast<size_t>(length));
}

void report_errno(const char* prefix)
{
    const char* description = std::strerror(errno);
    if (prefix && *prefix) report(MESSAGES_STDERR, "%s: %s\n", prefix, description);
    else report(MESSAGES_STDERR, "%s\n", description);
}

void fatal_exit(int status) { std::exit(status); }

}  // namespace detail
}  // namespace nerva
