// Measures of one labelled region restricted to a rectangle of the frame,
// read from the run-length image. Only runs whose owner is that very region
// count, so `ident` must name a surviving region.
#include <cstdint>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

// Rows y1..y2 clipped to the run-length image, so that a rectangle reaching
// outside the frame reads only real lines.
bool clip_rows(const MV_RLEsegm& segmenter, int& y1, int& y2)
{
    if (!segmenter.rle_img) return false;
    const int last = static_cast<int>(segmenter.rle_img->lines.size()) - 1;
    if (y1 < 0) y1 = 0;
    if (y2 > last) y2 = last;
    return y1 <= y2;
}

template <class Visit>
void for_each_run_of(const MV_RLEsegm& segmenter, const region* reg, int y, Visit visit)
{
    const RLEline& line = *segmenter.rle_img->lines[static_cast<size_t>(y)];
    if (!line.segs) return;
    for (int32_t k = 0; k < line.nb_segs; ++k) {
        const segment& run = *line.segs[k];
        if (run.owner.get() == reg) visit(run);
    }
}

// Pixel count and coordinate sums of the region inside the rectangle.
int32_t clipped_sums(int x1, int y1, int x2, int y2, double& sumx, double& sumy, const MV_RLEsegm& segmenter,
                     const region* reg)
{
    sumx = 0;
    sumy = 0;
    int32_t count = 0;
    if (y1 > y2 || !reg || !clip_rows(segmenter, y1, y2)) return 0;
    for (int y = y1; y <= y2; ++y) {
        for_each_run_of(segmenter, reg, y, [&](const segment& run) {
            const int first = run.x_start > x1 ? run.x_start : x1;
            const int last = run.x_end < x2 ? run.x_end : x2;
            if (last < first) return;
            const int32_t count_in_run = wrap_add(wrap_sub(last, first), 1);
            count = wrap_add(count, count_in_run);
            sumx += wrap_range_sum(first, last);
            sumy += wrap_mul(count_in_run, y);
        });
    }
    return count;
}

}  // namespace

int subregion_get_sumxsumy(int ident, int x1, int y1, int x2, int y2, double* sumx, double* sumy, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "subregion_get_sumxsumy()")) return *sumx = *sumy = 0, 0;
    const std::shared_ptr<region> reg = RLEsegm_get_region(ident, segm);
    return clipped_sums(x1, y1, x2, y2, *sumx, *sumy, *segm, reg.get());
}

double subregion_get_sumx(int ident, int x1, int y1, int x2, int y2, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "subregion_get_sumx()")) return 0;
    double sx, sy;
    const std::shared_ptr<region> reg = RLEsegm_get_region(ident, segm);
    clipped_sums(x1, y1, x2, y2, sx, sy, *segm, reg.get());
    return sx;
}

double subregion_get_sumy(int ident, int x1, int y1, int x2, int y2, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "subregion_get_sumy()")) return 0;
    double sx, sy;
    const std::shared_ptr<region> reg = RLEsegm_get_region(ident, segm);
    clipped_sums(x1, y1, x2, y2, sx, sy, *segm, reg.get());
    return sy;
}

int subregion_get_xlimit(int ident, int x1, int y1, int x2, int y2, int* xmin, int* xmax, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "subregion_get_xlimit()")) return -1;
    *xmin = x2;  // inverted pair: what the caller gets when nothing qualifies
    *xmax = x1;
    const std::shared_ptr<region> reg = RLEsegm_get_region(ident, segm);
    if (!reg || !clip_rows(*segm, y1, y2)) return -1;
    bool left = false, right = false;
    for (int y = y1; y <= y2; ++y) {
        const RLEline& line = *segm->rle_img->lines[static_cast<size_t>(y)];
        if (!line.segs) continue;
        for (int32_t k = 0; k < line.nb_segs; ++k) {
            const segment& run = *line.segs[k];
            // Strict: a run touching x1 only with its last pixel, or x2 only
            // with its first, does not count here.
            if (run.owner != reg || !(x1 < run.x_end && run.x_start < x2)) continue;
            if (!left && run.x_start < *xmin) *xmin = run.x_start;
            if (!right && run.x_end > *xmax) *xmax = run.x_end;
            if (*xmin <= x1) {
                *xmin = x1;
                left = true;
            }
            if (*xmax >= x2) {
                *xmax = x2;
                right = true;
            }
            if (left && right) return 1;
        }
    }
    return -1;
}

int subregion_get_ylimit(int ident, int x1, int y1, int x2, int y2, int* ymin, int* ymax, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "subregion_get_ylimit()")) return -1;
    if (y2 < y1) return -1;
    const std::shared_ptr<region> reg = RLEsegm_get_region(ident, segm);
    if (!reg || !segm->rle_img) return -1;
    auto row_touches = [&](int y) {
        bool found = false;
        for_each_run_of(*segm, reg.get(), y, [&](const segment& run) {
            if (run.x_end >= x1 && run.x_start <= x2) found = true;
        });
        return found;
    };
    // The top is the first touching row going down from y1, the bottom the
    // first going up from y2. Rows outside the image never touch, so only the
    // image's rows are scanned: a rectangle spanning the whole 32-bit range
    // costs no more than the image's height.
    int first = y1, last = y2;
    if (!clip_rows(*segm, first, last)) return -1;
    bool top = false, bottom = false;
    for (int y = first; y <= last && !top; ++y)
        if (row_touches(y)) {
            *ymin = y;
            top = true;
        }
    for (int y = last; y >= first && !bottom; --y)
        if (row_touches(y)) {
            *ymax = y;
            bottom = true;
        }
    return top && bottom ? 1 : -1;
}

}  // namespace nerva
