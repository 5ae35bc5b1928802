#include "console.h"

#include <cstdio>
#include <mutex>

namespace nerva_blobs {
namespace {

std::mutex console_mutex;
size_t drawn = 0;  // width of the progress line on screen, 0 when none

void clear_locked()
{
    if (drawn == 0) return;
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(drawn), "");
    drawn = 0;
}

}  // namespace

void say(const std::string& text)
{
    std::lock_guard<std::mutex> lock(console_mutex);
    clear_locked();
    std::fprintf(stderr, "nerva-blobs: %s\n", text.c_str());
    std::fflush(stderr);
}

void draw_status_line(const std::string& text)
{
    std::lock_guard<std::mutex> lock(console_mutex);
    // Padding covers what a longer earlier line left.
    std::fprintf(stderr, "\r%-*s", static_cast<int>(drawn), text.c_str());
    std::fflush(stderr);
    drawn = text.size();
}

void end_status_line()
{
    std::lock_guard<std::mutex> lock(console_mutex);
    if (drawn == 0) return;
    std::fputc('\n', stderr);
    drawn = 0;
}

}  // namespace nerva_blobs
