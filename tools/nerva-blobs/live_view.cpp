#include "live_view.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace nerva_blobs {
namespace {

// Enough lines for a page that catches up after a short stall; bytes bound
// the ring when every line holds thousands of blobs.
constexpr size_t kKeptLines = 64;
constexpr size_t kKeptLineBytes = size_t{16} << 20;
// Streaming clients (pictures and events together): each holds a thread.
constexpr int kMaxClients = 64;
// Current fps: frames that arrived over the last seconds.
constexpr auto kRateWindow = std::chrono::seconds(5);
// Weight of the newest frame in the stage times shown.
constexpr double kStageWeight = 0.1;

using clock_type = std::chrono::steady_clock;

}  // namespace

const std::vector<double>& stage_buckets()
{
    static const std::vector<double> bounds{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1.0};
    return bounds;
}

void LiveView::add_stage(Stage& stage, double ms)
{
    stage.mean_ms = stage.buckets.empty() ? ms : stage.mean_ms + kStageWeight * (ms - stage.mean_ms);
    if (stage.buckets.empty()) stage.buckets.assign(stage_buckets().size(), 0);
    const double s = ms / 1000.0;
    for (size_t i = 0; i < stage_buckets().size(); ++i)
        if (s <= stage_buckets()[i]) ++stage.buckets[i];
    stage.sum_s += s;
}

void LiveView::add_frame(const FrameStats& stats, std::string line)
{
    const auto now = clock_type::now();
    std::lock_guard<std::mutex> lock(mutex_);
    ++frames_;
    dropped_ += stats.dropped;
    blobs_ = stats.blobs;
    blobs_total_ += stats.blobs;
    add_stage(decode_, stats.decode_ms);
    add_stage(foreground_, stats.foreground_ms);
    add_stage(segment_, stats.segment_ms);
    recent_.push_back(now);
    while (!recent_.empty() && now - recent_.front() > kRateWindow) recent_.pop_front();

    line_bytes_ += line.size();
    lines_.emplace_back(++line_number_, std::make_shared<const std::string>(std::move(line)));
    while (lines_.size() > kKeptLines || (lines_.size() > 1 && line_bytes_ > kKeptLineBytes)) {
        line_bytes_ -= lines_.front().second->size();
        lines_.pop_front();
    }
    changed_.notify_all();
}

void LiveView::set_picture(std::string jpeg)
{
    auto picture = std::make_shared<const std::string>(std::move(jpeg));
    std::lock_guard<std::mutex> lock(mutex_);
    picture_ = std::move(picture);  // the previous one lives on while a client still sends it
    ++picture_number_;
    changed_.notify_all();
}

void LiveView::set_status(const StreamStatus& status)
{
    std::lock_guard<std::mutex> lock(mutex_);
    status_ = status;
    ++status_version_;
    changed_.notify_all();
}

void LiveView::set_counts_source(std::function<LiveCounts()> counts)
{
    std::lock_guard<std::mutex> lock(mutex_);
    counts_ = std::move(counts);
}

void LiveView::close()
{
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    counts_ = nullptr;  // the reader may be gone once the run ends
    changed_.notify_all();
}

bool LiveView::closed() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return closed_;
}

bool LiveView::wants_pictures() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return picture_clients_ > 0;
}

bool LiveView::enter(bool pictures)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || clients_ >= kMaxClients) return false;
    ++clients_;
    if (pictures) ++picture_clients_;
    return true;
}

void LiveView::leave(bool pictures)
{
    std::lock_guard<std::mutex> lock(mutex_);
    --clients_;
    if (pictures) --picture_clients_;
}

Text LiveView::next_picture(uint64_t& seen, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, timeout, [&] { return closed_ || (picture_ && picture_number_ != seen); }) || closed_)
        return nullptr;
    seen = picture_number_;
    return picture_;
}

std::vector<Text> LiveView::next_lines(uint64_t& seen, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    std::vector<Text> lines;
    if (!changed_.wait_for(lock, timeout, [&] { return closed_ || line_number_ != seen; }) || closed_) return lines;
    for (const auto& [number, text] : lines_)
        if (number > seen) lines.push_back(text);
    seen = line_number_;
    return lines;
}

LiveCounts LiveView::counts() const
{
    std::function<LiveCounts()> source;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        source = counts_;
    }
    return source ? source() : LiveCounts{};
}

double LiveView::recent_fps_locked() const
{
    if (recent_.size() < 2) return 0.0;
    const double span = std::chrono::duration<double>(recent_.back() - recent_.front()).count();
    // A source that stopped has no current rate, whatever came before.
    const double since = std::chrono::duration<double>(clock_type::now() - recent_.back()).count();
    return span > 0 && since < 2.0 ? (recent_.size() - 1) / span : 0.0;
}

std::string LiveView::status_json(uint64_t* version) const
{
    const LiveCounts c = counts();
    std::lock_guard<std::mutex> lock(mutex_);
    if (version) *version = status_version_;
    nlohmann::ordered_json j = {
        {"source", source_},
        {"state", state_name(status_.state)},
        {"attempt", status_.attempt},
        {"next_in", status_.next_in_s},
        {"frames", frames_},
        {"fps", recent_fps_locked()},
        {"dropped", dropped_},
        {"outages", c.outages},
        {"blobs", blobs_},
        {"stages_ms",
         {{"decode", decode_.mean_ms}, {"foreground", foreground_.mean_ms}, {"segment", segment_.mean_ms}}},
        {"clients", clients_}};
    return j.dump();
}

bool LiveView::healthy() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return !closed_ && status_.state == StreamState::live;
}

}  // namespace nerva_blobs
