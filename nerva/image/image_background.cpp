#include "nerva/image/image_background.h"

#include <cstdlib>
#include <cstring>

#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// C + trunc((B - C) * k) with the product in single precision, as the low
// bits the caller keeps: any rate, infinite, NaN or huge ones included, gives
// a defined value (the exact low bits of the sum; 0 added for a product that
// is not a number).
uint64_t running_average(int32_t background, int32_t current, float k)
{
    const float moved = static_cast<float>(background - current) * k;
    return static_cast<uint64_t>(int64_t{current}) + truncate_wrapped(moved);
}

// Averages byte of the background only when it is within threshold of the
// current byte.
void learn_small_change(unsigned char& background, unsigned char current, int threshold, float k)
{
    const int d = background - current;
    if (std::abs(d) < threshold) background = averaged_byte(background, current, k);
}

// The bytes of steps r of two walks of one byte per step, or three per step
// for a colour walk of one pixel per step, as one stretch for the row
// kernels; false when the stretches of b and c partly overlap, where only
// the step-by-step walk gives the defined result.
bool one_stretch(const row_walk& bw, const row_walk& cw, const step_range& r, int64_t bytes_per_step, unsigned char*& b,
                 const unsigned char*& c, int64_t& n)
{
    b = bw.at(r.first);
    c = cw.at(r.first);
    n = (r.last - r.first + 1) * bytes_per_step;
    return same_or_apart(b, c, n);
}

}  // namespace

int update(image* background, image* current, float rate, rectangle* rect)
{
    if (!background || !current || !rect || background->type != current->type) return -1;
    if (background->capacity == 0 || current->capacity == 0) return -1;
    const image_type kind = background->type;
    if (kind != GREY_IMG && kind != SIGNED_COLOR_IMG && kind != COLOR_IMG_3BYTES) return -1;

    const float k = 1.0f - rate;
    const int64_t pixel = kind_pixel_bytes(kind);
    const pixel_span s = clip_span(background, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk bw = walk_from(background, s.x0, y, pixel, pixel, pixel);
        const row_walk cw = walk_from(current, s.x0, y, pixel, pixel, pixel);
        const step_range r = steps_inside(s.columns(), bw, cw);
        if (r.first > r.last) continue;
        unsigned char* run_b;
        const unsigned char* run_c;
        int64_t n;
        if (kind != SIGNED_COLOR_IMG && one_stretch(bw, cw, r, pixel, run_b, run_c, n)) {
            change_kernel().average(run_b, run_c, n, k);
            continue;
        }
        for (int64_t i = r.first; i <= r.last; ++i) {
            unsigned char* b = bw.at(i);
            const unsigned char* c = cw.at(i);
            if (kind == GREY_IMG) {
                b[0] = averaged_byte(b[0], c[0], k);
            } else if (kind == COLOR_IMG_3BYTES) {
                for (int channel : {2, 1, 0}) b[channel] = averaged_byte(b[channel], c[channel], k);
            } else {
                uint32_t bw, cw;
                std::memcpy(&bw, b, 4);
                std::memcpy(&cw, c, 4);
                for (int shift : {0, 10, 20}) {
                    const uint64_t v = running_average(signed_field10(bw, shift), signed_field10(cw, shift), k);
                    bw = with_field10(bw, shift, static_cast<int32_t>(v & 0x3FF));
                }
                std::memcpy(b, &bw, 4);
            }
        }
    }
    return 0;
}

int grey_thresholded_update(image* background, image* current, float rate, int threshold, rectangle* rect)
{
    if (!background || !current || !rect) return -1;
    if (background->type != GREY_IMG && current->type != GREY_IMG) return -1;
    const float k = 1.0f - rate;
    const pixel_span s = clip_span(background, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk bw = walk_from(background, s.x0, y, 1, 1, 1);
        const row_walk cw = walk_from(current, s.x0, y, 1, 1, 1);
        const step_range r = steps_inside(s.columns(), bw, cw);
        if (r.first > r.last) continue;
        unsigned char* b;
        const unsigned char* c;
        int64_t n;
        if (one_stretch(bw, cw, r, 1, b, c, n)) {
            change_kernel().average_close(b, c, n, k, threshold);
            continue;
        }
        for (int64_t i = r.first; i <= r.last; ++i) learn_small_change(*bw.at(i), *cw.at(i), threshold, k);
    }
    return 0;
}

int color_thresholded_update(image* background, image* current, float rate, int red_threshold, int green_threshold,
                             int blue_threshold, rectangle* rect)
{
    if (!background || !current || !rect) return -1;
    if (background->type != COLOR_IMG_3BYTES || current->type != COLOR_IMG_3BYTES) return -1;
    const float k = 1.0f - rate;
    const pixel_span s = clip_span(background, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        // One byte per step, not one pixel: the stride hosts depend on.
        const row_walk bw = walk_from(background, s.x0, y, 3, 1, 3);
        const row_walk cw = walk_from(current, s.x0, y, 3, 1, 3);
        const step_range r = steps_inside(s.columns(), bw, cw);
        if (r.first > r.last) continue;
        unsigned char* run_b;
        const unsigned char* run_c;
        int64_t n;
        if (one_stretch(bw, cw, r, 1, run_b, run_c, n) && same_or_apart(run_b, run_c, n + 2)) {
            // Byte j is learned as byte 2 of step j - 2, then byte 1 of step
            // j - 1, then byte 0 of step j, each against its own current
            // byte: three passes over the row in that order.
            const ChangeKernels& kernel = change_kernel();
            kernel.average_close(run_b + 2, run_c + 2, n, k, red_threshold);
            kernel.average_close(run_b + 1, run_c + 1, n, k, green_threshold);
            kernel.average_close(run_b, run_c, n, k, blue_threshold);
            continue;
        }
        for (int64_t i = r.first; i <= r.last; ++i) {
            unsigned char* b = bw.at(i);
            const unsigned char* c = cw.at(i);
            learn_small_change(b[2], c[2], red_threshold, k);
            learn_small_change(b[1], c[1], green_threshold, k);
            learn_small_change(b[0], c[0], blue_threshold, k);
        }
    }
    return 0;
}

}  // namespace nerva
