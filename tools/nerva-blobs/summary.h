#pragma once

#include <cstdio>
#include <random>
#include <string>
#include <vector>

// What a run did, for the closing lines on standard error. Memory stays
// bounded however long a camera runs: times are kept as a uniform sample of
// at most 65536 frames (every frame of shorter runs, so their medians are
// exact).
namespace nerva_blobs {

// Uniform sample of a stream of values (reservoir sampling).
class Sample {
public:
    void add(double value);
    // The q-quantile (0.5: the median) of the values kept; 0 when empty.
    double quantile(double q) const;

private:
    static constexpr size_t kKept = 65536;
    std::vector<double> kept_;
    long seen_ = 0;
    std::minstd_rand random_{12345};
};

// Outages and drops of a live (or paced) source.
struct LiveCounts {
    long dropped = 0;
    int outages = 0;
    double outage_seconds = 0.0, longest_outage = 0.0;
};

class Summary {
public:
    // Times in milliseconds for one frame.
    void add(int blobs, double decode_ms, double foreground_ms, double segment_ms);
    // From a frame's arrival to its JSON line.
    void add_latency(double ms) { latency_.add(ms); }
    // A frame's wall-clock time (wall_clock.h); the first and last are shown.
    void add_wall(const std::string& when)
    {
        if (first_wall_.empty()) first_wall_ = when;
        last_wall_ = when;
    }
    void print(std::FILE* to) const;
    // The lines a live or paced run adds.
    void print_live(std::FILE* to, const LiveCounts& counts) const;
    long frames() const { return frames_; }

private:
    long frames_ = 0;
    long blobs_total_ = 0;
    int blobs_most_ = 0;
    Sample decode_, foreground_, segment_, latency_;
    std::string first_wall_, last_wall_;
};

}  // namespace nerva_blobs
