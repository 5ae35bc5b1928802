#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace nerva_blobs {

bool progress_by_default(bool json_to_stdout)
{
    return isatty(STDERR_FILENO) && !(json_to_stdout && isatty(STDOUT_FILENO));
}

Progress::Progress(bool enabled, long total) : enabled_(enabled), total_(total) {}

void Progress::update(long done)
{
    done_ = done;
    if (!enabled_) return;
    const auto now = clock::now();
    if (now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    draw(done);
}

void Progress::draw(long done)
{
    const double seconds = std::chrono::duration<double>(clock::now() - start_).count();
    const double fps = seconds > 0 ? done / seconds : 0.0;
    constexpr int width = 30;
    if (total_ > 0) {
        // Videos may decode more frames than their header announced.
        const long shown_total = std::max(total_, done);
        const int filled = static_cast<int>(width * done / shown_total);
        const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
        std::fprintf(stderr, "\r[%s] %ld/%ld frames  %.1f fps ", bar.c_str(), done, shown_total, fps);
    } else {
        std::fprintf(stderr, "\r%ld frames  %.1f fps ", done, fps);
    }
    std::fflush(stderr);
}

void Progress::finish()
{
    if (!enabled_) return;
    draw(done_);
    std::fputc('\n', stderr);
    enabled_ = false;
}

}  // namespace nerva_blobs
