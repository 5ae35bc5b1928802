#include "nerva/image/change_detection.h"

#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

int detect_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect, image* mask)
{
    if (!background || !current || !rect || !mask) return -1;
    if (background->type != GREY_IMG || current->type != GREY_IMG) return -1;
    if (background->width != current->width || background->height != current->height) return -1;
    if (background->x_origin != current->x_origin || background->y_origin != current->y_origin) return -1;
    if (background->capacity == 0 || current->capacity == 0) return -1;
    if (initialize_image(mask, GREY_IMG, background->width, background->height) < 0) return -1;
    if (mask->x_origin != background->x_origin || mask->y_origin != background->y_origin) return -1;

    const float k = 1.0f - rate;
    const ChangeKernels& kernel = change_kernel();
    const pixel_span s = clip_span(background, rect);
    for (int64_t y = s.y0; !s.empty() && y <= s.y1; ++y) {
        const row_walk bw = walk_from(background, s.x0, y, 1, 1, 1);
        const row_walk cw = walk_from(current, s.x0, y, 1, 1, 1);
        const row_walk mw = walk_from(mask, s.x0, y, 1, 1, 1);
        const step_range r = steps_inside(s.columns(), bw, cw, mw);
        if (r.first > r.last) continue;
        unsigned char *b = bw.at(r.first), *m = mw.at(r.first);
        const unsigned char* c = cw.at(r.first);
        const int64_t n = r.last - r.first + 1;
        if (apart(m, b, n) && apart(m, c, n) && same_or_apart(b, c, n)) {
            kernel.detect(b, c, m, n, k, threshold);
        } else {
            // Shared buffers: the three steps one after the other, as the
            // separate calls would take them.
            kernel.abs_diff(c, b, m, n);
            kernel.at_least(m, m, n, threshold);
            for (int64_t i = 0; i < n; ++i) b[i] = averaged_byte(b[i], c[i], k);
        }
    }
    return 0;
}

}  // namespace nerva
