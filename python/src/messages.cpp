#include "messages.h"

#include <cstdio>

#include "nerva/messages.h"

namespace nerva_python {
namespace {

thread_local std::string* captured = nullptr;

void sink(nerva::message_stream_t stream, const char* text, size_t length, void*)
{
    if (captured) captured->append(text, length);
    else std::fwrite(text, 1, length, stream == nerva::MESSAGES_STDOUT ? stdout : stderr);
}

}  // namespace

void install_message_capture() { nerva::set_message_sink(sink); }

MessageCapture::MessageCapture(std::string& text) : previous_(captured) { captured = &text; }

MessageCapture::~MessageCapture() { captured = previous_; }

}  // namespace nerva_python
