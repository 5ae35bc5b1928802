#pragma once

#include <chrono>

// A one-line progress bar on standard error, redrawn in place a few times a
// second: frames done / total and frames per second.
namespace nerva_blobs {

class Progress {
public:
    // total < 0: unknown length, no bar, just the counts.
    Progress(bool enabled, long total);
    ~Progress() { finish(); }
    void update(long done);
    // Ends the line; later calls do nothing.
    void finish();

private:
    void draw(long done);

    using clock = std::chrono::steady_clock;
    bool enabled_;
    long total_;
    long done_ = 0;
    clock::time_point start_ = clock::now();
    clock::time_point last_draw_{};
};

// Whether to show progress without --progress: only when standard error is a
// terminal that the JSON lines are not being printed to as well.
bool progress_by_default(bool json_to_stdout);

}  // namespace nerva_blobs
