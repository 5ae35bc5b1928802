#include <cstring>

#include "nerva/image/image.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// Where a conversion writes: the caller's dst when it has the right kind, or
// a new image of the span's size whose origins put it at the span's corner.
image* conversion_target(image* dst, image_type kind, const pixel_span& s)
{
    if (dst) {
        const bool kind_ok = kind == GREY_IMG ? dst->type == GREY_IMG : is_color_kind(dst->type);
        return kind_ok ? dst : nullptr;
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

    // The grey image has origins 0: the source's frame coordinates address
    // it, so a source with other origins lands shifted in it.
    const pixel_span s = clip_span(src, rect);
    const bool colour = is_color_kind(src->type);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        // Colour: one byte per pixel, not three: the stride hosts depend on.
        const row_walk in = colour ? walk_from(src, s.x0, y, 3, 1, 3) : walk_from(src, s.x0, y, 4, 4, 4);
        const row_walk out = walk_from(grey, s.x0, y, 1, 1, 1);
        const step_range r = steps_inside(s.columns(), in, out);
        for (int64_t i = r.first; i <= r.last; ++i) {
            const unsigned char* p = in.at(i);
            unsigned char& o = *out.at(i);
            if (colour) {
                o = static_cast<unsigned char>((299 * p[2] + 587 * p[1] + 114 * p[0]) / 1000);
            } else if (src->type == SIGNED_COLOR_IMG) {
                const uint32_t w = load<uint32_t>(p);
                const int32_t g =
                    (299 * signed_field10(w, 0) + 587 * signed_field10(w, 10) + 114 * signed_field10(w, 20)) / 1000;
                o = static_cast<unsigned char>(g & 0xFF);
            } else if (src->type == FLOAT_IMG) {
                o = low_byte_of(load<float>(p));
            } else {
                o = static_cast<unsigned char>(load<uint32_t>(p) & 0xFF);
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
        const row_walk in = walk_from(src, s.x0, y, 1, 1, 1), o = walk_from(out, s.x0, y, 3, 3, 3);
        const step_range r = steps_inside(s.columns(), in, o);
        for (int64_t i = r.first; i <= r.last; ++i) std::memset(o.at(i), *in.at(i) ? 255 : 0, 3);
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
        const row_walk in = walk_from(src, s.x0, y, 3, 3, 3), o = walk_from(out, s.x0, y, 1, 1, 1);
        const step_range r = steps_inside(s.columns(), in, o);
        for (int64_t i = r.first; i <= r.last; ++i) *o.at(i) = in.at(i)[2] ? 255 : 0;
    }
    return out;
}

}  // namespace nerva
