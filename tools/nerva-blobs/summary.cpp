#include "summary.h"

#include <algorithm>

namespace nerva_blobs {
namespace {

// Median rather than mean: the first frames pay for warming caches and
// allocating, and a busy machine adds outliers.
double median(std::vector<double> v)
{
    if (v.empty()) return 0.0;
    const auto mid = v.begin() + v.size() / 2;
    std::nth_element(v.begin(), mid, v.end());
    return *mid;
}

}  // namespace

void Summary::add(int blobs, double decode_ms, double foreground_ms, double segment_ms)
{
    blobs_.push_back(blobs);
    decode_.push_back(decode_ms);
    foreground_.push_back(foreground_ms);
    segment_.push_back(segment_ms);
}

void Summary::print(std::FILE* to) const
{
    long total = 0;
    int most = 0;
    for (int b : blobs_) {
        total += b;
        most = std::max(most, b);
    }
    const double mean = blobs_.empty() ? 0.0 : static_cast<double>(total) / blobs_.size();
    std::fprintf(to, "nerva-blobs: %ld frames, blobs per frame: mean %.2f, max %d\n", frames(), mean, most);
    std::fprintf(to, "nerva-blobs: median time per frame: decoding %.2f ms, foreground %.2f ms, segmentation %.2f ms\n",
                 median(decode_), median(foreground_), median(segment_));
}

}  // namespace nerva_blobs
