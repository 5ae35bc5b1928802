#include "reader.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "console.h"
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

// The frames waiting for the consumer, in a ring that grows only when a
// live backlog outgrows it, so that a frame passed through costs no
// allocation (a deque allocates as its frames move along it).
class FrameQueue {
public:
    bool empty() const { return count_ == 0; }
    size_t size() const { return count_; }
    Frame& front() { return slots_[head_]; }
    const Frame& at(size_t i) const { return slots_[(head_ + i) % slots_.size()]; }
    void pop_front()
    {
        head_ = (head_ + 1) % slots_.size();
        --count_;
    }
    void push_back(Frame&& frame)
    {
        if (count_ == slots_.size()) grow();
        slots_[(head_ + count_) % slots_.size()] = std::move(frame);
        ++count_;
    }

private:
    void grow()
    {
        std::vector<Frame> larger(slots_.size() * 2);
        for (size_t i = 0; i < count_; ++i) larger[i] = std::move(slots_[(head_ + i) % slots_.size()]);
        slots_.swap(larger);
        head_ = 0;
    }

    std::vector<Frame> slots_ = std::vector<Frame>(kQueueFrames);
    size_t head_ = 0, count_ = 0;
};

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
    FrameQueue queue;
    std::atomic<bool> stop{false};  // asked by the consumer
    bool finished = false;          // the source ended or failed
    bool done = false;              // the thread is about to return
    std::string error;
    double fps = 25.0;
    LiveCounts counts;
    StreamStatus status;
    std::string trouble;  // why the last connection attempt failed
    int connect_attempts = 0;

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
        finish_locked(why);
    }
    void finish_locked(const std::string& why)
    {
        finished = true;
        error = stopping() ? std::string() : why;
        changed.notify_all();
    }

    void push(Frame&& frame)
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (drops) {
            size_t bytes = frame.image.total() * frame.image.elemSize();
            for (size_t i = 0; i < queue.size(); ++i) bytes += queue.at(i).image.total() * queue.at(i).image.elemSize();
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
    // 30 s between attempts; --reconnect bounds the attempts after the first
    // (initial) or all of them (after an outage). An attempt succeeds only
    // when a frame arrives, kept in `first`: a source that opens and then
    // stays silent is not back. Counts the attempts made.
    bool connect(bool initial, int& attempts, cv::Mat& first, double& first_ms)
    {
        const std::string name = "'" + std::string(source->where()) + "'";
        const int allowed = options.reconnect < 0 ? -1 : options.reconnect + (initial ? 1 : 0);
        int wait = initial ? 0 : 1;
        for (attempts = 0; allowed < 0 || attempts < allowed;) {
            if (!pause(wait)) return false;
            ++attempts;
            const bool last = attempts == allowed;
            wait = std::min(std::max(2 * wait, 1), kLongestBackoffS);  // before the next attempt
            set_status({initial ? StreamState::connecting : StreamState::outage, attempts, last ? 0.0 : wait});
            say("connecting to " + name + " (attempt " + std::to_string(attempts) +
                (last ? ", the last)" : ", next in " + std::to_string(wait) + " s)"));
            const auto start = steady_clock::now();
            if (!source->connect()) {
                set_trouble("no answer, or not a stream that can be decoded", attempts);
            } else if (!source->read(first) || first.empty()) {
                set_trouble("it answered but gave no frame", attempts);
            } else {
                first_ms = 1000.0 * seconds_since(start);
                return true;
            }
        }
        return false;
    }

    void set_status(const StreamStatus& now)
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            status = now;
        }
        if (options.on_status) options.on_status(now);
    }

    void set_trouble(const std::string& why, int attempts)
    {
        std::lock_guard<std::mutex> lock(mutex);
        trouble = why;
        connect_attempts = attempts;
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
    set_status({StreamState::ended, 0, 0.0});
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
    changed.notify_all();
}

void FrameReader::Shared::read_frames()
{
    FrameSource& src = *source;
    const std::string name = "'" + std::string(src.where()) + "'";
    int attempts = 0;
    cv::Mat pending;  // the frame a (re)connection brought
    double pending_ms = 0.0;
    if (src.live()) {
        if (!connect(true, attempts, pending, pending_ms)) {
            std::lock_guard<std::mutex> lock(mutex);
            return finish_locked("cannot open " + name + ": " + trouble + " (" + std::to_string(attempts) +
                                 (attempts == 1 ? " attempt)" : " attempts)"));
        }
        std::lock_guard<std::mutex> lock(mutex);
        fps = src.fps();
    }
    set_status({StreamState::live, 0, 0.0});

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
    steady_clock::time_point last_arrival = steady_clock::now();
    // A frame that ended a long silence waits for the next read: when that
    // read fails at once, the frame was the last one a decoder flushed at
    // its read timeout (UDP), and the silence and the reopening are one
    // outage, not two.
    std::unique_ptr<Frame> held;
    steady_clock::time_point silence_began;
    // A slow camera (1 frame in 2 s) is not silent between its frames.
    const double silence_s = std::max(kSilenceS, 3.0 / src.fps());

    while (!stopping()) {
        Frame frame;
        const auto decode_start = steady_clock::now();
        bool got = true;
        if (!pending.empty()) {
            frame.image = pending;
            frame.luma.release();
            pending = cv::Mat();
            frame.decode_ms = pending_ms;
        } else {
            got = src.read_with_luma(frame.image, frame.luma) && !(frame.image.empty() && frame.luma.empty());
            frame.decode_ms = 1000.0 * seconds_since(decode_start);
        }
        if (!got) {
            if (!src.live()) return finish("");
            const auto began = held ? silence_began : last_arrival;
            if (held) push(std::move(*held)), held.reset();
            say("lost " + name + " after frame " + std::to_string(number - 1) + "; reopening");
            if (!connect(false, attempts, pending, pending_ms))
                return finish("lost " + name + " after frame " + std::to_string(number - 1) +
                              " and could not reopen it (" + std::to_string(attempts) +
                              (attempts == 1 ? " attempt)" : " attempts)"));
            outage_s = std::max(seconds_since(began), 1e-3);
            outage_attempts = attempts;
            record_outage(outage_s);
            set_status({StreamState::live, 0, 0.0});
            char text[64];
            std::snprintf(text, sizeof text, " back after %.1f s", outage_s);
            say(name + text);
            anchor_wall = NAN;
            connected_now = true;
            continue;
        }
        if (held) {  // the silence was an outage of its own
            const double silent = held->outage_s;
            record_outage(silent);
            char text[64];
            std::snprintf(text, sizeof text, " gave no frame for %.1f s", silent);
            say(name + text);
            push(std::move(*held));
            held.reset();
        }
        const bool ends_silence = src.live() && !connected_now && frame.decode_ms > 1000.0 * silence_s;
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
        frame.arrival = last_arrival = steady_clock::now();
        frame.where = src.where();
        frame.outage_s = outage_s;
        frame.outage_attempts = outage_attempts;
        outage_s = 0.0;
        outage_attempts = 0;
        if (ends_silence) {
            frame.outage_s += frame.decode_ms / 1000.0;
            silence_began = decode_start;
            held = std::make_unique<Frame>(std::move(frame));
            continue;
        }
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

StreamStatus FrameReader::status() const
{
    std::lock_guard<std::mutex> lock(shared_->mutex);
    return shared_->status;
}

std::string FrameReader::no_frame_reason() const
{
    std::lock_guard<std::mutex> lock(shared_->mutex);
    const Shared& s = *shared_;
    const std::string name = "'" + std::string(s.source->where()) + "'";
    if (s.connect_attempts == 0) return "stopped while connecting to " + name;
    return "stopped before " + name + " gave a frame (" + std::to_string(s.connect_attempts) +
           (s.connect_attempts == 1 ? " attempt" : " attempts") + ", the last: " + s.trouble + ")";
}

const char* state_name(StreamState state)
{
    switch (state) {
    case StreamState::connecting: return "connecting";
    case StreamState::live: return "live";
    case StreamState::outage: return "outage";
    case StreamState::ended: return "ended";
    }
    return "";
}

bool FrameReader::abandoned() { return abandoned_flag; }

}  // namespace nerva_blobs
