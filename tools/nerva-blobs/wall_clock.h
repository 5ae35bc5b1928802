#pragma once

#include <chrono>
#include <string>

// Absolute times for the JSON lines and the summary, so that events can be
// matched to a recording or another camera. Taken from the steady clock
// anchored once to the system clock: monotonic within a run, whatever
// adjustments the system clock receives meanwhile.
namespace nerva_blobs {

class WallClock {
public:
    WallClock();
    // "2026-11-24T01:02:03.456Z": UTC, ISO 8601, milliseconds; written over
    // `out`, which a stream keeps, so a frame costs no allocation.
    void at(std::chrono::steady_clock::time_point t, std::string& out) const;

private:
    std::chrono::system_clock::time_point system_origin_;
    std::chrono::steady_clock::time_point steady_origin_;
};

}  // namespace nerva_blobs
