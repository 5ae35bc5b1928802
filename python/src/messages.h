#pragma once

#include <string>

// The library's messages, taken while a segmenter works for Python: a call
// that captures gets the text of its own thread's messages instead of the
// process's standard streams, so Python can count, raise or warn. Messages of
// other threads, and of calls that do not capture, are written to the C
// streams as the library would.
namespace nerva_python {

// Routes the library's messages through the capture; once, at import.
void install_message_capture();

class MessageCapture {
public:
    explicit MessageCapture(std::string& text);
    ~MessageCapture();
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

private:
    std::string* previous_;
};

}  // namespace nerva_python
