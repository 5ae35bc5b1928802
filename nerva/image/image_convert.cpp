#include <cstring>

#include "nerva/image/image.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// Where a conversion writes: the caller's dst, checked to cover the span, or
// a new image of the span's size whose origins put it at the span's corner.
image* conversion_target(image* dst, image_type kind, const pixel_span& s)
{
    if (dst) {
        const bool kind_ok = kind == GREY_IMG ? dst->type == GREY_IMG : is_color_kind(dst->type);
        return kind_ok && covers(dst, s) ? dst : nullptr;
    }
    const unsigned width = s.empty() ? 0 : static_cast<unsigned>(s.columns());
    const unsigned height = s.empty() ? 0 : static_cast<unsigned>(s.y1 - s.y0 + 1);
    image* made = make_image(kind, width, height);
    if (made && !s.empty()) {
        made->x_origin = static_cast<int32_t>(s.x0);
        made->y_origin = static_cast<int32_t>(s.y0);
    }
    return made;
}

}  // namespace

image* convert_to_grey(image* src, rectangle* rect)
{
    if (!src || !rect) return nullptr;
    if (src->type == GREY_IMG) return src;
    switch (src->type) {
    case COLOR_IMG_3BYTES:
    case COLOR_IMG_4BYTES:
    case SIGNED_COLOR_IMG:
    case FLOAT_IMG:
    case INT_IMG: break;
    default: return nullptr;
    }
    image* grey = make_image(GREY_IMG, src->width, src->height);
    if (!grey) return nullptr;
    // Same frame position as the source, so one pair of coordinates
    // addresses both.
    grey->x_origin = src->x_origin;
    grey->y_origin = src->y_origin;

    const pixel_span s = clip_span(src, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        unsigned char* out = grey->data + pixel_index(grey, s.x0, y);
        const size_t first = pixel_index(src, s.x0, y);
        if (is_color_kind(src->type)) {
            // One byte per pixel, not three: the stride hosts depend on.
            const unsigned char* p = src->data + first * 3;
            for (int64_t i = 0; i < s.columns(); ++i, ++p)
                out[i] = static_cast<unsigned char>((299 * p[2] + 587 * p[1] + 114 * p[0]) / 1000);
            continue;
        }
        const unsigned char* p = src->data + first * 4;
        for (int64_t i = 0; i < s.columns(); ++i, p += 4) {
            if (src->type == SIGNED_COLOR_IMG) {
                const uint32_t w = load<uint32_t>(p);
                const int32_t g = (299 * signed_field10(w, 0) + 587 * signed_field10(w, 10) + 114 * signed_field10(w, 20)) / 1000;
                out[i] = static_cast<unsigned char>(g & 0xFF);
            } else if (src->type == FLOAT_IMG) {
                out[i] = low_byte_of(load<float>(p));
            } else {
                out[i] = static_cast<unsigned char>(load<uint32_t>(p) & 0xFF);
            }
        }
    }
    return grey;
}

image* convert_to_4bytes(image* src, rectangle* rect, image* dst)
{
    if (!src) return nullptr;
    const pixel_span s = rect ? clip_span(src, rect) : whole_span(src);
    image* out = conversion_target(dst, COLOR_IMG_3BYTES, s);
    if (!out) return nullptr;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const unsigned char* in = src->data + pixel_index(src, s.x0, y);
        unsigned char* o = out->data + pixel_index(out, s.x0, y) * 3;
        for (int64_t i = 0; i < s.columns(); ++i, o += 3) o[0] = o[1] = o[2] = in[i] ? 255 : 0;
    }
    return out;
}

image* convert_to_1byte(image* src, rectangle* rect, image* dst)
{
    if (!src || !is_color_kind(src->type)) return nullptr;
    const pixel_span s = rect ? clip_span(src, rect) : whole_span(src);
    image* out = conversion_target(dst, GREY_IMG, s);
    if (!out) return nullptr;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const unsigned char* in = src->data + pixel_index(src, s.x0, y) * 3;
        unsigned char* o = out->data + pixel_index(out, s.x0, y);
        for (int64_t i = 0; i < s.columns(); ++i, in += 3) o[i] = in[2] ? 255 : 0;
    }
    return out;
}

}  // namespace nerva
