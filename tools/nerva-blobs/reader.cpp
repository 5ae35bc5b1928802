#include "reader.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include "errors.h"
#include "stop.h"

namespace nerva_blobs {
namespace {

// Files: a few frames decoded ahead. Live sources: frames are dropped, oldest
// first, once the oldest queued frame is half a second old or the queue
// holds 64 MB, so that what is processed stays close to what the camera
// sees now and memory stays bounded; the backlog a stream delivers in one
// burst right after connecting (a second of frames within a few
// milliseconds) is kept.
constexpr size_t kQueueFrames = 4;
constexpr double kOldestQueuedS = 0.5;
constexpr size_t kQueuedBytes = size_t{64} << 20;
// How often waits look at the stop flag a signal handler may have raised.
constexpr auto kPoll = std::chrono::milliseconds(50);
constexpr int kLongestBackoffS = 30;
// A live source silent for longer than this had an outage even if it never
// failed: FFmpeg may reconnect an HTTP stream by itself (a seek is a new
// request), and a camera may stall.
constexpr double kSilenceS = 1.0;

std::atomic<bool> abandoned_flag{false};

double seconds_since(steady_clock::time_point t)
{
    return std::chrono::duration<double>(steady_clock::now() - t).count();
}

}  // namespace

struct FrameReader::Shared {
    std::unique_ptr<FrameSource> source;
    ReaderOptions options;
    bool drops = false;
    steady_clock::time_point start = steady_clock::now();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Frame> queue;
    std::atomic<bool> stop{false};  // asked by the consumer
    bool finished = false;          // the source ended or failed
    bool done = false;              // the thread is about to return
    std::string error;
    double fps = 25.0;
    LiveCounts counts;

    bool stopping() const { return stop || stop_requested(); }

    // Waits for `seconds` unless a stop comes first; false on a stop.
    bool pause(double seconds)
    {
        const auto until = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                                     std::chrono::duration<double>(std::max(seconds, 0.0)));
        std::unique_lock<std::mutex> lock(mutex);
        while (!stopping()) {
            const auto now = steady_clock::now();
            if (now >= until) return true;
            changed.wait_until(lock, std::min(until, now + kPoll));
        }
        return false;
    }

    void finish(const std::string& why)
    {
        std::lock_guard<std::mutex> lock(mutex);
        finished = true;
        error = stopping() ? std::string() : why;
        changed.notify_all();
    }

    void push(Frame&& frame)
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (drops) {
            size_t bytes = frame.image.total() * frame.image.elemSize();
            for (const Frame& f : queue) bytes += f.image.total() * f.image.elemSize();
            while (!queue.empty() &&
                   (std::chrono::duration<double>(frame.arrival - queue.front().arrival).count() > kOldestQueuedS ||
                    bytes > kQueuedBytes)) {
                bytes -= queue.front().image.total() * queue.front().image.elemSize();
                // The oldest goes; the frame that now follows the last one
                // handed out inherits its count and its outage.
                Frame oldest = std::move(queue.front());
                queue.pop_front();
                ++counts.dropped;
                Frame& heir = queue.empty() ? frame : queue.front();
                heir.dropped += oldest.dropped + 1;
                heir.outage_s += oldest.outage_s;
                heir.outage_attempts += oldest.outage_attempts;
            }
        } else {
            while (queue.size() >= kQueueFrames && !stopping()) changed.wait_for(lock, kPoll);
            if (stopping()) return;
        }
        queue.push_back(std::move(frame));
        changed.notify_all();
    }

    // Opens a live source, or reopens it after an outage, waiting 1, 2, 4 ...
    // 30 s between attempts; `retries` bounds the attempts after the first
    // (initial) or all of them (after an outage). Counts the attempts made.
    bool connect(bool initial, int& attempts)
    {
        attempts = 0;
        int delay = 1;
        if (initial) {
            ++attempts;
            if (source->connect()) return true;
        }
        for (int retries = 0; options.reconnect < 0 || retries < options.reconnect; ++retries) {
            if (!pause(delay)) return false;
            delay = std::min(2 * delay, kLongestBackoffS);
            ++attempts;
            if (source->connect()) return true;
        }
        return false;
    }

    void record_outage(double seconds)
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++counts.outages;
        counts.outage_seconds += seconds;
        counts.longest_outage = std::max(counts.longest_outage, seconds);
        fps = source->fps();
    }

    void run();
    void read_frames();
};

void FrameReader::Shared::run()
{
    try {
        read_frames();
    } catch (const std::exception& e) {
        finish(e.what());
    }
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
    changed.notify_all();
}

void FrameReader::Shared::read_frames()
{
    FrameSource& src = *source;
    const std::string name = "'" + src.where() + "'";
    int attempts = 0;
    if (src.live()) {
        if (!connect(true, attempts))
            return finish("cannot open " + name + ": no answer, or not a stream that can be decoded (" +
                          std::to_string(attempts) + (attempts == 1 ? " attempt)" : " attempts)"));
        std::lock_guard<std::mutex> lock(mutex);
        fps = src.fps();
    }

    long number = 0;
    bool connected_now = true;  // the next frame is the first of a connection
    double outage_s = 0.0;
    int outage_attempts = 0;
    // Live time is the stream's clock anchored, at each (re)connection, to
    // the wall clock since the start: monotonic across outages.
    double anchor_wall = NAN, anchor_stream = NAN;
    // --realtime: the first frame's time and when it was handed on.
    double pace_time = NAN;
    steady_clock::time_point pace_start;

    while (!stopping()) {
        Frame frame;
        const auto decode_start = steady_clock::now();
        if (!src.read_with_luma(frame.image, frame.luma)) {
            if (!src.live()) return finish("");
            const auto lost = steady_clock::now();
            std::fprintf(stderr, "nerva-blobs: lost %s after frame %ld; reopening\n", name.c_str(), number - 1);
            if (!connect(false, attempts))
                return finish("lost " + name + " after frame " + std::to_string(number - 1) +
                              " and could not reopen it (" + std::to_string(attempts) +
                              (attempts == 1 ? " attempt)" : " attempts)"));
            outage_s = std::max(seconds_since(lost), 1e-3);
            outage_attempts = attempts;
            record_outage(outage_s);
            std::fprintf(stderr, "nerva-blobs: %s back after %.1f s\n", name.c_str(), outage_s);
            anchor_wall = NAN;
            connected_now = true;
            continue;
        }
        frame.decode_ms = 1000.0 * seconds_since(decode_start);
        if (src.live() && !connected_now && frame.decode_ms > 1000.0 * kSilenceS) {
            outage_s += frame.decode_ms / 1000.0;
            record_outage(frame.decode_ms / 1000.0);
            std::fprintf(stderr, "nerva-blobs: %s gave no frame for %.1f s\n", name.c_str(), frame.decode_ms / 1000.0);
        }
        connected_now = false;
        const double ms = src.stream_ms();
        const bool stamped = std::isfinite(ms) && ms >= 0;
        const double wall = seconds_since(start);
        if (src.live()) {
            if (std::isnan(anchor_wall)) {
                anchor_wall = wall;
                anchor_stream = stamped ? ms : NAN;
            }
            frame.time = stamped && !std::isnan(anchor_stream) ? anchor_wall + (ms - anchor_stream) / 1000.0 : wall;
        } else {
            frame.time = stamped ? ms / 1000.0 : wall;
        }
        if (options.realtime) {
            const double t = stamped ? frame.time : number / src.fps();
            if (std::isnan(pace_time)) {
                pace_time = t;
                pace_start = steady_clock::now();
            } else if (!pause(t - pace_time - seconds_since(pace_start))) {
                break;
            }
        }
        frame.number = number++;
        frame.arrival = steady_clock::now();
        frame.where = src.where();
        frame.outage_s = outage_s;
        frame.outage_attempts = outage_attempts;
        outage_s = 0.0;
        outage_attempts = 0;
        push(std::move(frame));
    }
    finish("");
}

FrameReader::FrameReader(std::unique_ptr<FrameSource> source, const ReaderOptions& options)
    : shared_(std::make_shared<Shared>())
{
    live_ = source->live();
    drops_ = live_ || options.realtime;
    total_ = source->total();
    shared_->fps = source->fps();
    shared_->source = std::move(source);
    shared_->options = options;
    shared_->drops = drops_;
    thread_ = std::thread([shared = shared_] { shared->run(); });
}

FrameReader::~FrameReader()
{
    Shared& s = *shared_;
    std::unique_lock<std::mutex> lock(s.mutex);
    s.stop = true;
    s.changed.notify_all();
    // A read blocked in the network returns only at its timeout: rather than
    // hold the clean stop that long, the thread is left to the process's end.
    if (s.changed.wait_for(lock, std::chrono::milliseconds(500), [&] { return s.done; })) {
        lock.unlock();
        thread_.join();
    } else {
        lock.unlock();
        thread_.detach();
        abandoned_flag = true;
    }
}

bool FrameReader::next(Frame& frame)
{
    Shared& s = *shared_;
    std::unique_lock<std::mutex> lock(s.mutex);
    while (s.queue.empty() && !s.finished && !stop_requested()) s.changed.wait_for(lock, kPoll);
    if (stop_requested()) return false;
    if (!s.queue.empty()) {
        frame = std::move(s.queue.front());
        s.queue.pop_front();
        s.changed.notify_all();
        return true;
    }
    if (!s.error.empty()) throw RuntimeError(s.error);
    return false;
}

double FrameReader::fps() const
{
    std::lock_guard<std::mutex> lock(shared_->mutex);
    return shared_->fps;
}

LiveCounts FrameReader::counts() const
{
    std::lock_guard<std::mutex> lock(shared_->mutex);
    return shared_->counts;
}

bool FrameReader::abandoned() { return abandoned_flag; }

}  // namespace nerva_blobs
