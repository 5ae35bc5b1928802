#include "progress.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

#include "console.h"

namespace nerva_blobs {
namespace {

constexpr auto kRateWindow = std::chrono::seconds(5);

}  // namespace

bool progress_by_default(bool json_to_stdout)
{
    return isatty(STDERR_FILENO) && !(json_to_stdout && isatty(STDOUT_FILENO));
}

Progress::Progress(bool enabled, long total) : enabled_(enabled), total_(total) {}

void Progress::update(long done, const LiveProgress* live)
{
    done_ = done;
    has_live_ = live != nullptr;
    if (live) live_ = *live;
    if (!enabled_) return;
    const auto now = clock::now();
    if (now - last_draw_ < std::chrono::milliseconds(100)) return;
    last_draw_ = now;
    recent_.emplace_back(now, done);
    while (recent_.size() > 2 && now - recent_.front().first > kRateWindow) recent_.pop_front();
    draw();
}

void Progress::draw()
{
    const double seconds =
        recent_.size() < 2 ? 0.0 : std::chrono::duration<double>(recent_.back().first - recent_.front().first).count();
    const double fps = seconds > 0 ? (recent_.back().second - recent_.front().second) / seconds : 0.0;
    char text[160];
    if (total_ > 0) {
        constexpr int width = 30;
        // Videos may decode more frames than their header announced.
        const long shown_total = std::max(total_, done_);
        const int filled = static_cast<int>(width * done_ / shown_total);
        const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
        std::snprintf(text, sizeof text, "[%s] %ld/%ld frames  %.1f fps", bar.c_str(), done_, shown_total, fps);
    } else {
        std::snprintf(text, sizeof text, "%ld frames  %.1f fps", done_, fps);
    }
    std::string line = text;
    if (has_live_) {
        std::snprintf(text, sizeof text, "  %ld dropped  %s  %d outage%s", live_.dropped, live_.state, live_.outages,
                      live_.outages == 1 ? "" : "s");
        line += text;
    }
    draw_status_line(line);
}

void Progress::finish()
{
    if (!enabled_) return;
    draw();
    end_status_line();
    enabled_ = false;
}

}  // namespace nerva_blobs
