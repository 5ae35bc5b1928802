#include <cmath>
#include <cstring>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/image/image_background.h"
#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

bool difference_kind(image_type t) { return is_color_kind(t) || t == GREY_IMG || t == INT_IMG || t == FLOAT_IMG; }

// The checks both differences share, in this order: arguments, kinds and
// sizes, capacities, then out is initialised to out_kind, and only then is a
// kind without a difference refused (out stays initialised). On success s
// holds the rectangle clipped to a.
bool prepare_difference(image* a, image* b, rectangle* rect, image* out, image_type out_kind, pixel_span& s)
{
    if (!a || !b || !rect || !out) return false;
    if (a->type != b->type || a->width != b->width || a->height != b->height) return false;
    if (a->capacity == 0 || b->capacity == 0) return false;
    if (initialize_image(out, out_kind, a->width, a->height) < 0) return false;
    if (!difference_kind(a->type)) return false;
    s = clip_span(a, rect);
    return true;
}

// The byte differences of `steps` steps at once: grey steps are one byte,
// colour steps of one byte touch three, so every byte from the first to two
// past the last step gets |a - b| of its own two bytes. False, with nothing
// written, when out partly overlaps a source (or for colour, overlaps it at
// all: a step would then read a byte an earlier step wrote).
bool bytes_at_once(const unsigned char* a, const unsigned char* b, unsigned char* out, int64_t steps, bool colour)
{
    const int64_t n = colour ? steps + 2 : steps;
    const bool safe =
        colour ? apart(out, a, n) && apart(out, b, n) : same_or_apart(out, a, n) && same_or_apart(out, b, n);
    if (safe) change_kernel().abs_diff(a, b, out, n);
    return safe;
}

}  // namespace

int abs_difference(image* a, image* b, rectangle* rect, image* out)
{
    pixel_span s;
    if (!prepare_difference(a, b, rect, out, a ? a->type : GREY_IMG, s)) return -1;
    const bool colour = is_color_kind(a->type);
    // Colour kinds step one byte per pixel, not one pixel, as in
    // color_thresholded_update.
    const int64_t pixel = colour ? 3 : kind_pixel_bytes(a->type), stride = colour ? 1 : pixel;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk wa = walk_from(a, s.x0, y, pixel, stride, pixel);
        const row_walk wb = walk_from(b, s.x0, y, pixel, stride, pixel);
        const row_walk wo = walk_from(out, s.x0, y, pixel, stride, pixel);
        const step_range r = steps_inside(s.columns(), wa, wb, wo);
        if (r.first > r.last) continue;
        if ((colour || a->type == GREY_IMG) &&
            bytes_at_once(wa.at(r.first), wb.at(r.first), wo.at(r.first), r.last - r.first + 1, colour))
            continue;
        for (int64_t i = r.first; i <= r.last; ++i) {
            const unsigned char *pa = wa.at(i), *pb = wb.at(i);
            unsigned char* po = wo.at(i);
            if (colour) {
                for (int channel : {2, 1, 0})
                    po[channel] = static_cast<unsigned char>(std::abs(pa[channel] - pb[channel]));
            } else if (a->type == GREY_IMG) {
                po[0] = static_cast<unsigned char>(std::abs(pa[0] - pb[0]));
            } else if (a->type == INT_IMG) {
                const int64_t d = int64_t{load<int32_t>(pa)} - load<int32_t>(pb);
                store<uint32_t>(po, static_cast<uint32_t>(d < 0 ? -d : d));
            } else {
                store<float>(po, std::fabs(load<float>(pa) - load<float>(pb)));
            }
        }
    }
    return 0;
}

int sign_difference(image* a, image* b, rectangle* rect, image* out)
{
    pixel_span s;
    if (!prepare_difference(a, b, rect, out, INT_IMG, s)) return -1;
    const int64_t pixel = is_color_kind(a->type) ? 3 : kind_pixel_bytes(a->type);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk wa = walk_from(a, s.x0, y, pixel, pixel, pixel);
        const row_walk wb = walk_from(b, s.x0, y, pixel, pixel, pixel);
        const row_walk wo = walk_from(out, s.x0, y, 4, 4, 4);
        const step_range r = steps_inside(s.columns(), wa, wb, wo);
        for (int64_t i = r.first; i <= r.last; ++i) {
            const unsigned char *pa = wa.at(i), *pb = wb.at(i);
            int32_t d;
            if (is_color_kind(a->type)) {
                uint32_t word = 0;
                word = with_field10(word, 0, pa[0] - pb[0]);
                word = with_field10(word, 10, pa[1] - pb[1]);
                word = with_field10(word, 20, pa[2] - pb[2]);
                d = static_cast<int32_t>(word);
            } else if (a->type == GREY_IMG) {
                d = pa[0] - pb[0];
            } else if (a->type == INT_IMG) {
                d = wrap_sub(load<int32_t>(pa), load<int32_t>(pb));
            } else {
                const int64_t t = truncate_to_int64(double{load<float>(pa)} - double{load<float>(pb)});
                d = static_cast<int32_t>(t > INT32_MAX ? INT32_MAX : t < INT32_MIN ? INT32_MIN : t);
            }
            store<int32_t>(wo.at(i), d);
        }
    }
    return 0;
}

int abs_image(image* img, rectangle* rect, image* out)
{
    if (!img || !rect) return 0;
    return out ? -1 : 0;
}

int show_chgmt(image* mask, image* img, rectangle* rect)
{
    if (!mask || !img || mask->width != img->width || mask->height != img->height) return -1;
    if (initialize_image(img, mask->type, mask->width, mask->height) < 0) return -1;
    if (!is_color_kind(img->type)) return -1;
    return _color_show_chgmt(mask, img, rect, 1, 1);
}

int _color_show_chgmt(image* mask, image* img, rectangle* rect, int column_step, int row_step)
{
    if (!mask || !img || !rect || !is_color_kind(img->type) || column_step < 1 || row_step < 1) return -1;
    const pixel_span s = clip_span(img, rect);
    const int64_t steps = s.empty() ? 0 : (s.x1 - s.x0) / column_step + 1;
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; y += row_step) {
        const row_walk m = walk_from(mask, s.x0, y, 1, column_step, 1);
        const row_walk w = walk_from(img, s.x0, y, 3, int64_t{3} * column_step, 3);
        const step_range r = steps_inside(steps, m, w);
        for (int64_t i = r.first; i <= r.last; ++i)
            if (*m.at(i)) std::memset(w.at(i), 0, 3);
    }
    return 0;
}

}  // namespace nerva
