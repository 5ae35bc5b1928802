#include "nerva/image/image_threshold.h"

#include <cstring>

#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// Initialises dst; span gets the rectangle clipped to the source.
bool prepare_destination(image* src, rectangle* rect, image* dst, image_type kind, pixel_span& span)
{
    if (initialize_image(dst, kind, src->width, src->height) < 0) return false;
    span = clip_span(src, rect);
    return true;
}

// Keep-or-zero over four-byte pixels read as T, whatever the source's kind:
// pixel i is bytes 4i .. 4i + 3 of each buffer. On a kind of fewer bytes per
// pixel the walk reaches past the buffer sooner; those pixels are skipped,
// as every walk skips what lies outside its buffer.
template <typename T, typename Passes>
int keep_or_zero(image* src, rectangle* rect, image* dst, Passes passes)
{
    if (!src || !rect || !dst) return -1;
    pixel_span s;
    if (!prepare_destination(src, rect, dst, src->type, s)) return -1;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk in = walk_from(src, s.x0, y, 4, 4, 4), out = walk_from(dst, s.x0, y, 4, 4, 4);
        const step_range r = steps_inside(s.columns(), in, out);
        for (int64_t i = r.first; i <= r.last; ++i) {
            const T v = load<T>(in.at(i));
            store<T>(out.at(i), passes(v) ? v : T{0});
        }
    }
    return 0;
}

}  // namespace

int grey_thresholding(image* src, unsigned threshold, rectangle* rect, image* dst)
{
    if (!src || !rect || !dst || src->type != GREY_IMG) return -1;
    pixel_span s;
    if (!prepare_destination(src, rect, dst, GREY_IMG, s)) return -1;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk in = walk_from(src, s.x0, y, 1, 1, 1), out = walk_from(dst, s.x0, y, 1, 1, 1);
        const step_range r = steps_inside(s.columns(), in, out);
        if (r.first > r.last) continue;
        const int64_t n = r.last - r.first + 1;
        if (same_or_apart(in.at(r.first), out.at(r.first), n)) {
            change_kernel().at_least(in.at(r.first), out.at(r.first), n, threshold);
            continue;
        }
        for (int64_t i = r.first; i <= r.last; ++i) *out.at(i) = *in.at(i) >= threshold ? 255 : 0;
    }
    return 0;
}

int float_thresholding(image* src, float threshold, rectangle* rect, image* dst)
{
    return keep_or_zero<float>(src, rect, dst, [threshold](float v) { return threshold <= v; });
}

int int_thresholding(image* src, unsigned threshold, rectangle* rect, image* dst)
{
    const int32_t signed_threshold = static_cast<int32_t>(threshold);
    return keep_or_zero<int32_t>(src, rect, dst, [signed_threshold](int32_t v) { return v >= signed_threshold; });
}

int color_thresholding(image* src, unsigned red_threshold, unsigned green_threshold, unsigned blue_threshold,
                       rectangle* rect, band_t bands, int mode, image* dst)
{
    if (mode < 0 || mode > 2) return -2;
    if (!src || !rect || !dst || !is_color_kind(src->type)) return -1;
    pixel_span s;
    if (!prepare_destination(src, rect, dst, mode == 0 ? src->type : GREY_IMG, s)) return -1;

    const bool red = bands & BAND_RED, green = bands & BAND_GREEN, blue = bands & BAND_BLUE;
    const int64_t out_pixel = mode == 0 ? 3 : 1;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        // One byte per step, not one pixel: the stride hosts depend on.
        const row_walk from = walk_from(src, s.x0, y, 3, 1, 3);
        const row_walk to = walk_from(dst, s.x0, y, out_pixel, 1, out_pixel);
        const step_range r = steps_inside(s.columns(), from, to);
        for (int64_t i = r.first; i <= r.last; ++i) {
            const unsigned char* in = from.at(i);
            unsigned char* out = to.at(i);
            const bool red_ok = red && in[2] >= red_threshold;
            const bool green_ok = green && in[1] >= green_threshold;
            const bool blue_ok = blue && in[0] >= blue_threshold;
            if (mode == 0) {
                out[2] = red_ok ? in[2] : 0;
                out[1] = green_ok ? in[1] : 0;
                out[0] = blue_ok ? in[0] : 0;
            } else if (mode == 1) {
                out[0] = red_ok ? in[2] : green_ok ? in[1] : blue_ok ? in[0] : 0;
            } else {
                // Blue if selected, else green, else red: with no band selected
                // every selected band passes and the red byte is written.
                const bool all_pass = (red_ok || !red) && (green_ok || !green) && (blue_ok || !blue);
                out[0] = !all_pass ? 0 : blue ? in[0] : green ? in[1] : in[2];
            }
        }
    }
    return 0;
}

}  // namespace nerva
