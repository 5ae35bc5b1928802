#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <opencv2/core.hpp>

#include "input.h"
#include "summary.h"

// Decoding on its own thread, into a small bounded queue, so that a camera is
// never kept waiting by the processing. For a live source (or a file paced
// with --realtime) the queue drops its oldest frames, and counts them, once
// they are stale or too many bytes are queued; a file read as fast as
// possible waits instead and keeps every frame. A live source
// that stops is reopened with backoff (1, 2, 4 ... 30 s).
namespace nerva_blobs {

using steady_clock = std::chrono::steady_clock;

struct Frame {
    cv::Mat image;
    cv::Mat luma;           // the decoder's own grey when the source has one, else empty
    long number = 0;        // position in the input, dropped frames included
    double time = 0.0;      // seconds: stream time where the source has one, else since the start
    long dropped = 0;       // frames dropped between the previous frame handed out and this one
    double outage_s = 0.0;  // > 0 on the first frame after the source came back
    int outage_attempts = 0;
    steady_clock::time_point arrival;  // when it was decoded
    double decode_ms = 0.0;
    // The file it came from, for messages: a name its source keeps, valid
    // while the reader that handed the frame out lives.
    std::string_view where;
};

// Where a live source stands, for the progress line and the live page.
enum class StreamState { connecting, live, outage, ended };
struct StreamStatus {
    StreamState state = StreamState::connecting;
    int attempt = 0;         // connecting, or in an outage: the attempt under way
    double next_in_s = 0.0;  // wait before the attempt after it; 0: none
};
const char* state_name(StreamState state);

struct ReaderOptions {
    bool realtime = false;  // pace a file at its frame rate
    int reconnect = -1;     // reopening attempts per outage of a live source; -1: unbounded
    // Called on the reader's thread at every change of a live source's state.
    std::function<void(const StreamStatus&)> on_status;
};

class FrameReader {
public:
    // Starts reading at once. Files are already open; a live source is opened
    // on the reader's thread, with the same retries as after an outage.
    FrameReader(std::unique_ptr<FrameSource> source, const ReaderOptions& options);
    // Stops the thread; one still blocked in a read after half a second is
    // left to the end of the process (see abandoned()).
    ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // The next frame; false at the end of a file or once a stop was asked.
    // RuntimeError when the source failed (a file that cannot be decoded, a
    // live source not reopened within its attempts).
    bool next(Frame& frame);

    bool drops_frames() const { return drops_; }  // live or paced
    bool live() const { return live_; }
    long total() const { return total_; }
    double fps() const;
    LiveCounts counts() const;  // drops and outages so far
    StreamStatus status() const;
    // Why a live source has given no frame yet, after a stop: its attempts
    // and the last failure.
    std::string no_frame_reason() const;

    // True once a reader thread had to be left running: the process must
    // then end with _Exit, since the thread may still use OpenCV.
    static bool abandoned();

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
    std::thread thread_;
    bool drops_ = false;
    bool live_ = false;
    long total_ = -1;
};

}  // namespace nerva_blobs
