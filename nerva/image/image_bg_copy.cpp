#include <cstdio>
#include <cstring>

#include "nerva/image/image_background.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

// The unclipped rectangle, kept inside both images: a bound equal to the
// width or height passes the checks but names no pixel.
pixel_span walk_span(const image* a, const image* b, const rectangle* r)
{
    const pixel_span s{r->xmin, r->xmax, r->ymin, r->ymax};
    return intersect(intersect(s, whole_span(a)), whole_span(b));
}

// Start of pixel (x, y) of img at `multiplier` bytes per pixel when `bytes`
// bytes from there lie in its buffer, else null.
unsigned char* bytes_at(image* img, int64_t x, int64_t y, size_t multiplier, size_t bytes)
{
    const size_t start = pixel_index(img, x, y) * multiplier;
    return start + bytes <= buffer_bytes(img) ? img->data + start : nullptr;
}

bool beyond(int32_t bound, uint32_t size) { return static_cast<uint32_t>(bound) > size; }

}  // namespace

int copy_to_bg(image* from_img, image* to_bg, rectangle* rect)
{
    if (!from_img || !to_bg || !rect) {
        detail::report(MESSAGES_STDOUT, "copy_to_bg ERROR : from_img or to_bg or rect is NULL.\n");
        return -1;
    }
    if (!is_color_kind(from_img->type) && to_bg->type != BG_IMG) {
        detail::report(MESSAGES_STDOUT,
                       "copy_to_bg ERROR : from_img is not a COLOR IMAGE or to_bg is not a BG IMAGE.\n");
        return -2;
    }
    if (static_cast<uint32_t>(rect->xmax) < static_cast<uint32_t>(rect->xmin) ||
        static_cast<uint32_t>(rect->ymax) < static_cast<uint32_t>(rect->ymin)) {
        detail::report(MESSAGES_STDOUT, "copy_to_bg ERROR : bbox has invalid dimensions.\n");
        return -3;
    }
    if (beyond(rect->xmax, from_img->width) || beyond(rect->xmax, to_bg->width) ||
        beyond(rect->ymax, from_img->height) || beyond(rect->ymax, to_bg->height)) {
        detail::report(MESSAGES_STDOUT, "copy_to_bg  ERROR : bbox  and images have incompatible dimensions.\n");
        return -4;
    }
    const pixel_span s = walk_span(from_img, to_bg, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        for (int64_t x = s.x0; x <= s.x1; ++x) {
            const unsigned char* colour = bytes_at(from_img, x, y, 3, 3);
            unsigned char* word_bytes = bytes_at(to_bg, x, y, 4, 4);
            if (!colour || !word_bytes) continue;
            uint32_t word;
            std::memcpy(&word, word_bytes, 4);
            word = with_field10(word, 0, colour[0]);
            word = with_field10(word, 10, colour[1]);
            word = with_field10(word, 20, colour[2]);
            std::memcpy(word_bytes, &word, 4);
        }
    }
    return 0;
}

int copy_from_bg(image* from_bg, image* to_img, rectangle* rect)
{
    if (!from_bg || !to_img || !rect) {
        detail::report(MESSAGES_STDOUT, "copy_from_bg ERROR : from_bg or to_img or rect is NULL.\n");
        return -1;
    }
    if (from_bg->type != BG_IMG && !is_color_kind(to_img->type)) {
        detail::report(MESSAGES_STDOUT,
                       "copy_from_bg ERROR : from_bg is not a BG IMAGE or to_img  is not a COLOR IMAGE.\n");
        return -2;
    }
    if (rect->xmax < rect->xmin || rect->ymax < rect->ymin) {
        detail::report(MESSAGES_STDOUT, "copy_from_bg ERROR : bbox has invalid dimensions.\n");
        return -3;
    }
    if (beyond(rect->xmax, from_bg->width) || beyond(rect->xmax, to_img->width) ||
        beyond(rect->ymax, from_bg->height) || beyond(rect->ymax, to_img->height)) {
        detail::report(MESSAGES_STDOUT, "copy_from_bg  ERROR : bbox  and images have incompatible dimensions.\n");
        return -4;
    }
    const pixel_span s = walk_span(from_bg, to_img, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        for (int64_t x = s.x0; x <= s.x1; ++x) {
            const unsigned char* word_bytes = bytes_at(from_bg, x, y, 4, 4);
            unsigned char* colour = bytes_at(to_img, x, y, 3, 3);
            if (!colour || !word_bytes) continue;
            uint32_t word;
            std::memcpy(&word, word_bytes, 4);
            colour[2] = static_cast<unsigned char>(word >> 20);
            colour[1] = static_cast<unsigned char>(word >> 10);
            colour[0] = static_cast<unsigned char>(word);
        }
    }
    return 0;
}

}  // namespace nerva
