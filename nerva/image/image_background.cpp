#include "nerva/image/image_background.h"

#include <cstdlib>
#include <cstring>

#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// C + trunc((B - C) * k) with the product in single precision.
int64_t running_average(int32_t background, int32_t current, float k)
{
    const float moved = static_cast<float>(background - current) * k;
    return int64_t{current} + truncate_to_int64(moved);
}

unsigned char averaged_byte(unsigned char background, unsigned char current, float k)
{
    return static_cast<unsigned char>(running_average(background, current, k) & 0xFF);
}

// Pixels both images hold inside the clipped rectangle.
pixel_span common_span(const image* a, const image* b, const rectangle* r)
{
    return intersect(clip_span(a, r), clip_span(b, r));
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
    const size_t pixel = static_cast<size_t>(kind_pixel_bytes(kind));
    const pixel_span s = common_span(background, current, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        unsigned char* b = background->data + pixel_index(background, s.x0, y) * pixel;
        const unsigned char* c = current->data + pixel_index(current, s.x0, y) * pixel;
        for (int64_t i = 0; i < s.columns(); ++i, b += pixel, c += pixel) {
            if (kind == GREY_IMG) {
                b[0] = averaged_byte(b[0], c[0], k);
            } else if (kind == COLOR_IMG_3BYTES) {
                for (int channel : {2, 1, 0}) b[channel] = averaged_byte(b[channel], c[channel], k);
            } else {
                uint32_t bw, cw;
                std::memcpy(&bw, b, 4);
                std::memcpy(&cw, c, 4);
                for (int shift : {0, 10, 20}) {
                    const int64_t v = running_average(signed_field10(bw, shift), signed_field10(cw, shift), k);
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
    const pixel_span s = common_span(background, current, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        unsigned char* b = background->data + pixel_index(background, s.x0, y);
        const unsigned char* c = current->data + pixel_index(current, s.x0, y);
        for (int64_t i = 0; i < s.columns(); ++i) learn_small_change(b[i], c[i], threshold, k);
    }
    return 0;
}

int color_thresholded_update(image* background, image* current, float rate, int red_threshold, int green_threshold,
                             int blue_threshold, rectangle* rect)
{
    if (!background || !current || !rect) return -1;
    if (background->type != COLOR_IMG_3BYTES || current->type != COLOR_IMG_3BYTES) return -1;
    const float k = 1.0f - rate;
    const pixel_span s = common_span(background, current, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        // One byte per step, not one pixel: the stride hosts depend on.
        unsigned char* b = background->data + pixel_index(background, s.x0, y) * 3;
        const unsigned char* c = current->data + pixel_index(current, s.x0, y) * 3;
        for (int64_t i = 0; i < s.columns(); ++i, ++b, ++c) {
            learn_small_change(b[2], c[2], red_threshold, k);
            learn_small_change(b[1], c[1], green_threshold, k);
            learn_small_change(b[0], c[0], blue_threshold, k);
        }
    }
    return 0;
}

}  // namespace nerva
