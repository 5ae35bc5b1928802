#include "nerva/image/image_background.h"

#include <cstdlib>
#include <cstring>

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

unsigned char averaged_byte(unsigned char background, unsigned char current, float k)
{
    return static_cast<unsigned char>(running_average(background, current, k) & 0xFF);
}

// Averages byte of the background only when it is within threshold of the
// current byte.
void learn_small_change(unsigned char& background, unsigned char current, int threshold, float k)
{
    const int d = background - current;
    if (std::abs(d) < threshold) background = averaged_byte(background, current, k);
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
