#include "nerva/image/image_draw.h"

#include <cmath>
#include <cstring>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

// Writes one kind-dependent value per pixel, skipping pixels outside the image.
struct pen {
    image* img;
    unsigned char bgr[3];
    bool blue_only;  // draw_rectangle marks colour outlines in byte 0 alone

    void plot(int64_t x, int64_t y) const
    {
        if (!contains(img, x, y)) return;
        const size_t i = pixel_index(img, x, y);
        switch (img->type) {
        case GREY_IMG: img->data[i] = 155; break;
        case FLOAT_IMG: {
            const float v = 255.0f;
            std::memcpy(img->data + i * 4, &v, sizeof v);
            break;
        }
        default: {
            unsigned char* p = img->data + i * 3;
            p[0] = bgr[0];
            if (!blue_only) {
                p[1] = bgr[1];
                p[2] = bgr[2];
            }
        }
        }
    }
    void row(int64_t y, int64_t x0, int64_t x1) const
    {
        for (int64_t x = max64(x0, img->x_origin); x <= min64(x1, last_column(img)); ++x) plot(x, y);
    }
    void column(int64_t x, int64_t y0, int64_t y1) const
    {
        for (int64_t y = max64(y0, img->y_origin); y <= min64(y1, last_row(img)); ++y) plot(x, y);
    }
};

pen color_pen(image* img, int red, int green, int blue)
{
    return pen{img,
               {static_cast<unsigned char>(blue), static_cast<unsigned char>(green), static_cast<unsigned char>(red)},
               false};
}

int outline(rectangle* r, image* img, const pen& p)
{
    if (!r || !img || img->capacity == 0) return -1;
    // The bounds are the sizes alone, whatever the origins: a box drawn on a
    // moved image is refused or drawn as on the same image unmoved, and only
    // its pixels outside the moved image are skipped.
    if (r->xmax >= int64_t{img->width} || r->ymax >= int64_t{img->height}) return -1;
    if (img->type != GREY_IMG && img->type != FLOAT_IMG && !is_color_kind(img->type)) return -1;
    p.row(r->ymin, r->xmin, r->xmax);
    p.column(r->xmax, r->ymin, r->ymax);
    p.row(r->ymax, r->xmin, r->xmax);
    p.column(r->xmin, r->ymin, r->ymax);
    return 0;
}

bool line_target_ok(const image* img) { return img && img->capacity != 0 && is_color_kind(img->type); }

// Float truncated toward zero, or false when it names no int column or row.
bool truncate_to_int(float v, int64_t& out)
{
    if (!(v > -2147483649.0f && v < 2147483648.0f)) return false;
    out = static_cast<int64_t>(v);
    return true;
}

}  // namespace

int draw_rectangle(rectangle* rect, image* img) { return outline(rect, img, pen{img, {255, 0, 0}, true}); }

int draw_color_rectangle(rectangle* rect, image* img, int red, int green, int blue)
{
    return outline(rect, img, color_pen(img, red, green, blue));
}

int bb_draw_color_line(int from, int to, int at, line_type direction, image* img, int red, int green, int blue)
{
    if (!line_target_ok(img)) return -1;
    const pen p = color_pen(img, red, green, blue);
    if (direction != HORIZONTAL_LINE) p.column(at, from, to);
    else p.row(at, from, to);
    return 0;
}

int bb_draw_color_line_diag(int x0, int y0, int x1, int y1, image* img, int red, int green, int blue)
{
    if (!line_target_ok(img)) return -1;
    const pen p = color_pen(img, red, green, blue);
    const float dx = static_cast<float>(wrap_sub(x1, x0));
    const float dy = static_cast<float>(wrap_sub(y1, y0));
    for (int i = 0; i <= 200; ++i) {
        // t is i * 0.005 held in single precision: the product is taken in
        // double and rounded once, not formed from a rounded 0.005f.
        const float t = static_cast<float>(i * 0.005);
        const float fx = t * dx + static_cast<float>(x0);
        const float fy = t * dy + static_cast<float>(y0);
        int64_t x, y;
        if (truncate_to_int(fx, x) && truncate_to_int(fy, y)) p.plot(x, y);
    }
    return 0;
}

int clear_image_area(image* img, rectangle* rect)
{
    if (!img || !rect) return -1;
    const pixel_span s = clip_span(img, rect);
    if (s.empty()) return 0;
    int64_t pixel, step;
    switch (img->type) {
    case COLOR_IMG_3BYTES: pixel = step = 3; break;
    case GREY_IMG: pixel = step = 1; break;
    case FLOAT_IMG:
    case INT_IMG:
    case SIGNED_COLOR_IMG: pixel = step = 4; break;
    case COLOR_IMG_4BYTES:
        pixel = 3;  // addressed as three-byte pixels, cleared three bytes at a time...
        step = 4;   // ...but stepped four bytes: kept, hosts rely on it
        break;
    default: return -1;
    }
    for (int64_t y = s.y0; y <= s.y1; ++y) {
        const row_walk w = walk_from(img, s.x0, y, pixel, step, pixel);
        const step_range r = steps_inside(s.columns(), w);
        if (r.first > r.last) continue;
        if (pixel == step) {
            std::memset(w.at(r.first), 0, static_cast<size_t>((r.last - r.first + 1) * pixel));
            continue;
        }
        for (int64_t i = r.first; i <= r.last; ++i) std::memset(w.at(i), 0, static_cast<size_t>(pixel));
    }
    return 0;
}

void check_RGB_channels_extension(image* img, int* maximum, int* minimum, int channel)
{
    if (!maximum || !minimum) return;
    *maximum = *minimum = -1;
    if (!img || img->capacity == 0) return;
    if (!is_color_kind(img->type)) {
        detail::report(MESSAGES_STDOUT,
                       "image : RGB_channels_extension ERROR : this function handles color image only! Sorry...");
        return;
    }
    const int byte = channel == 0 ? 2 : channel == 1 ? 1 : 0;
    const int64_t width = img->width, height = img->height;
    const int64_t margin = min64(width, height) / 20;
    int hi = 0, lo = 255;
    for (int64_t x = margin; x <= width - margin - 1; ++x) {
        for (int64_t y = margin; y <= height - margin - 1; ++y) {
            const int v = img->data[pixel_index(img, x + img->x_origin, y + img->y_origin) * 3 + byte];
            if (v > hi) hi = v;
            if (v < lo) lo = v;
        }
    }
    *maximum = hi;
    *minimum = lo;
}

}  // namespace nerva
