#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "reader.h"
#include "summary.h"

// What the live page, the MJPEG stream, the event stream and the metrics
// show: the latest annotated picture, the latest JSON lines, the stream's
// state and running counts. The pipeline and the reader's thread write, the
// HTTP server's threads read. Writers never wait for a reader: each client
// takes the newest picture or line when it is ready for one and skips the
// others, so a slow client costs frames only to itself, and memory is one
// picture and a bounded ring of lines whatever the clients do.
namespace nerva_blobs {

using Text = std::shared_ptr<const std::string>;

struct FrameStats {
    int blobs = 0;
    long dropped = 0;  // since the previous frame
    double decode_ms = 0.0, foreground_ms = 0.0, segment_ms = 0.0;
};

class LiveView {
public:
    explicit LiveView(std::string source) : source_(std::move(source)) {}

    // After each frame, with its JSON line.
    void add_frame(const FrameStats& stats, std::string line);
    void set_picture(std::string jpeg);
    void set_status(const StreamStatus& status);
    // Outages as the reader counts them; called without the view's lock.
    void set_counts_source(std::function<LiveCounts()> counts);
    // Ends every client's wait; later waits return at once.
    void close();
    bool closed() const;

    // Whether anyone watches the pictures: encoding them costs the pipeline.
    bool wants_pictures() const;
    // A place for a streaming client, false when all are taken; each
    // successful enter() is matched by a leave().
    bool enter(bool pictures);
    void leave(bool pictures);

    // The newest picture after the one numbered `seen`, waiting up to
    // `timeout`; null when none came or the view closed.
    Text next_picture(uint64_t& seen, std::chrono::milliseconds timeout);
    // The lines after `seen` still kept, waiting up to `timeout` for one.
    std::vector<Text> next_lines(uint64_t& seen, std::chrono::milliseconds timeout);
    // The state, counts and recent rates as one JSON object; `version`
    // changes whenever the state does.
    std::string status_json(uint64_t* version = nullptr) const;
    // Prometheus text exposition (metrics.cpp).
    std::string metrics() const;
    // Frames arrive: the source is live and the run goes on.
    bool healthy() const;

private:
    struct Stage {
        double mean_ms = 0.0;  // moving average over the last frames
        std::vector<long> buckets;
        double sum_s = 0.0;
    };
    LiveCounts counts() const;
    double recent_fps_locked() const;
    void add_stage(Stage& stage, double ms);

    const std::string source_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    std::function<LiveCounts()> counts_;

    Text picture_;
    uint64_t picture_number_ = 0;
    std::deque<std::pair<uint64_t, Text>> lines_;
    size_t line_bytes_ = 0;
    uint64_t line_number_ = 0;

    StreamStatus status_;
    uint64_t status_version_ = 0;
    long frames_ = 0, dropped_ = 0, blobs_total_ = 0;
    int blobs_ = 0;
    Stage decode_, foreground_, segment_;
    std::deque<std::chrono::steady_clock::time_point> recent_;  // arrivals of the last seconds
    int clients_ = 0, picture_clients_ = 0;
};

// Upper bounds of the stage-time histogram, seconds.
const std::vector<double>& stage_buckets();

}  // namespace nerva_blobs
