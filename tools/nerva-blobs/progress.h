#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <utility>

// A one-line progress bar on standard error, redrawn in place a few times a
// second: frames done / total and the current frames per second (over the
// last seconds, so that a connection's first burst or an outage does not
// linger in it); for a live source also drops, state and outages.
namespace nerva_blobs {

struct LiveProgress {
    long dropped = 0;
    int outages = 0;
    const char* state = "";
};

class Progress {
public:
    // total < 0: unknown length, no bar, just the counts.
    Progress(bool enabled, long total);
    ~Progress() { finish(); }
    void update(long done, const LiveProgress* live = nullptr);
    // Ends the line; later calls do nothing.
    void finish();

private:
    void draw();

    using clock = std::chrono::steady_clock;
    bool enabled_;
    long total_;
    long done_ = 0;
    bool has_live_ = false;
    LiveProgress live_;
    std::deque<std::pair<clock::time_point, long>> recent_;  // (when, done) over the last seconds
    clock::time_point last_draw_{};
};

// Whether to show progress without --progress: only when standard error is a
// terminal that the JSON lines are not being printed to as well.
bool progress_by_default(bool json_to_stdout);

}  // namespace nerva_blobs
