#pragma once

#include <string>

// Standard error, shared by the progress line and the messages of any
// thread: a message first clears the progress line, so the two are never
// glued together, and the line is drawn again on its next update.
namespace nerva_blobs {

// Prints "nerva-blobs: <text>" on a line of its own.
void say(const std::string& text);

// Draws `text` in place of the previous progress line.
void draw_status_line(const std::string& text);

// Leaves the progress line as it stands and moves below it.
void end_status_line();

}  // namespace nerva_blobs
