// Prometheus text exposition of a live run: counters end in _total, times
// are in seconds, as monitoring systems expect.
#include <cstdio>
#include <string>

#include "live_view.h"

namespace nerva_blobs {
namespace {

void family(std::string& out, const char* name, const char* type, const char* help)
{
    out += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

void sample(std::string& out, const std::string& name, double value)
{
    char number[64];
    std::snprintf(number, sizeof number, " %.17g\n", value);
    out += name + number;
}

}  // namespace

std::string LiveView::metrics() const
{
    const LiveCounts c = counts();
    std::lock_guard<std::mutex> lock(mutex_);
    std::string out;
    family(out, "nerva_frames_total", "counter", "Frames segmented.");
    sample(out, "nerva_frames_total", frames_);
    family(out, "nerva_frames_dropped_total", "counter", "Frames the source delivered that were dropped unread.");
    sample(out, "nerva_frames_dropped_total", dropped_);
    family(out, "nerva_blobs_total", "counter", "Blobs found, all frames together.");
    sample(out, "nerva_blobs_total", blobs_total_);
    family(out, "nerva_blobs", "gauge", "Blobs in the latest frame.");
    sample(out, "nerva_blobs", blobs_);
    family(out, "nerva_outages_total", "counter", "Times the live source was lost or went silent.");
    sample(out, "nerva_outages_total", c.outages);
    family(out, "nerva_outage_seconds_total", "counter", "Time without frames from the live source.");
    sample(out, "nerva_outage_seconds_total", c.outage_seconds);
    family(out, "nerva_frames_per_second", "gauge", "Frames segmented per second over the last seconds.");
    sample(out, "nerva_frames_per_second", recent_fps_locked());
    family(out, "nerva_source_up", "gauge", "1 while the source delivers frames, else 0.");
    sample(out, "nerva_source_up", !closed_ && status_.state == StreamState::live ? 1 : 0);
    family(out, "nerva_http_stream_clients", "gauge", "Clients of the picture and event streams.");
    sample(out, "nerva_http_stream_clients", clients_);

    family(out, "nerva_stage_seconds", "histogram", "Time per frame in each stage of the pipeline.");
    const std::pair<const char*, const Stage*> stages[] = {
        {"decode", &decode_}, {"foreground", &foreground_}, {"segment", &segment_}};
    for (const auto& [name, stage] : stages) {
        const std::string labels = std::string("stage=\"") + name + "\"";
        for (size_t i = 0; i < stage_buckets().size(); ++i) {
            char bound[32];
            std::snprintf(bound, sizeof bound, "%g", stage_buckets()[i]);
            sample(out, "nerva_stage_seconds_bucket{" + labels + ",le=\"" + bound + "\"}",
                   stage->buckets.empty() ? 0 : stage->buckets[i]);
        }
        sample(out, "nerva_stage_seconds_bucket{" + labels + ",le=\"+Inf\"}", frames_);
        sample(out, "nerva_stage_seconds_sum{" + labels + "}", stage->sum_s);
        sample(out, "nerva_stage_seconds_count{" + labels + "}", frames_);
    }
    return out;
}

}  // namespace nerva_blobs
