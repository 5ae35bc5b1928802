#include "summary.h"

#include <algorithm>

namespace nerva_blobs {

void Sample::add(double value)
{
    ++seen_;
    if (kept_.size() < kKept) {
        kept_.push_back(value);
        return;
    }
    const auto slot = std::uniform_int_distribution<long>(0, seen_ - 1)(random_);
    if (slot < static_cast<long>(kKept)) kept_[static_cast<size_t>(slot)] = value;
}

double Sample::quantile(double q) const
{
    if (kept_.empty()) return 0.0;
    std::vector<double> v = kept_;
    const auto at = v.begin() + static_cast<long>(q * (v.size() - 1) + 0.5);
    std::nth_element(v.begin(), at, v.end());
    return *at;
}

void Summary::add(int blobs, double decode_ms, double foreground_ms, double segment_ms)
{
    ++frames_;
    blobs_total_ += blobs;
    blobs_most_ = std::max(blobs_most_, blobs);
    decode_.add(decode_ms);
    foreground_.add(foreground_ms);
    segment_.add(segment_ms);
}

void Summary::print(std::FILE* to) const
{
    const double mean = frames_ ? static_cast<double>(blobs_total_) / frames_ : 0.0;
    std::fprintf(to, "nerva-blobs: %ld frames, blobs per frame: mean %.2f, max %d\n", frames_, mean, blobs_most_);
    // Median rather than mean: the first frames pay for warming caches and
    // allocating, and a busy machine adds outliers.
    std::fprintf(to, "nerva-blobs: median time per frame: decoding %.2f ms, foreground %.2f ms, segmentation %.2f ms\n",
                 decode_.quantile(0.5), foreground_.quantile(0.5), segment_.quantile(0.5));
    if (!first_wall_.empty())
        std::fprintf(to, "nerva-blobs: first frame at %s, last at %s\n", first_wall_.c_str(), last_wall_.c_str());
}

void Summary::print_live(std::FILE* to, const LiveCounts& c) const
{
    std::fprintf(
        to, "nerva-blobs: %ld frames dropped; from arrival to JSON line: median %.2f ms, 99th percentile %.2f ms\n",
        c.dropped, latency_.quantile(0.5), latency_.quantile(0.99));
    if (c.outages > 0)
        std::fprintf(to, "nerva-blobs: %d outage%s, %.1f s in all, longest %.1f s\n", c.outages,
                     c.outages == 1 ? "" : "s", c.outage_seconds, c.longest_outage);
}

}  // namespace nerva_blobs
