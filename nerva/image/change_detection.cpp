#include "nerva/image/change_detection.h"

#include <algorithm>
#include <climits>

#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// What detect_changes and ChangeRows both ask of the background and the
// frame: grey images of one size and origin, both with pixels.
bool detectable(const image* background, const image* current, const rectangle* rect)
{
    if (!background || !current || !rect) return false;
    if (background->type != GREY_IMG || current->type != GREY_IMG) return false;
    if (background->width != current->width || background->height != current->height) return false;
    if (background->x_origin != current->x_origin || background->y_origin != current->y_origin) return false;
    return background->capacity != 0 && current->capacity != 0;
}

}  // namespace

int detect_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect, image* mask)
{
    if (!mask || !detectable(background, current, rect)) return -1;
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

namespace {

// The images detect_changes accepts, placed at the origin with buffers of
// their whole size that are the same or apart: then row y of either is the
// bytes from y * width, as a mask row is.
bool suits_rows(const image* background, const image* current, const rectangle* rect)
{
    if (!detectable(background, current, rect)) return false;
    if (background->width > INT_MAX || background->height > INT_MAX) return false;
    for (const image* img : {background, current}) {
        if (img->x_origin != 0 || img->y_origin != 0 || !img->data) return false;
        if (buffer_bytes(img) < size_t{img->width} * img->height) return false;
    }
    return same_or_apart(background->data, current->data, int64_t{background->width} * background->height);
}

}  // namespace

// The background and the frame are read once, in order, as detect_changes
// reads them: a row is detected with every row above it. The reader never
// asks for a row step_y or more rows above the lowest row it has asked for,
// so the last step_y mask rows, kept in a ring, hold every row it may still
// ask for.
int ChangeRows::begin(image* background, image* current, float rate, unsigned threshold, rectangle* rect)
{
    finish();
    if (!suits_rows(background, current, rect)) return -1;
    const pixel_span s = clip_span(background, rect);
    background_ = background->data;
    current_ = current->data;
    width_ = background->width;
    k_ = 1.0f - rate;
    threshold_ = threshold;
    x0_ = s.x0, x1_ = s.x1, y0_ = s.y0, y1_ = s.empty() ? s.y0 - 1 : s.y1;
    next_ = y0_;
    // Columns outside the rectangle must read 0: the rows are cleared when
    // its columns are not those written before.
    if (empty_.size() != static_cast<size_t>(width_) || written_x0_ != x0_ || written_x1_ != x1_) {
        empty_.assign(static_cast<size_t>(width_), 0);
        rows_.clear();
        written_x0_ = x0_;
        written_x1_ = x1_;
    }
    start(1);
    return 0;
}

void ChangeRows::finish()
{
    const ChangeKernels& kernel = change_kernel();
    for (; next_ <= y1_; ++next_)
        kernel.average(background_ + next_ * width_ + x0_, current_ + next_ * width_ + x0_, x1_ - x0_ + 1, k_);
    y1_ = y0_ - 1;  // nothing left to read or learn
}

void ChangeRows::start(int step_y)
{
    if (y1_ < y0_) return;
    ring_ = std::min<int64_t>(std::max(step_y, 1), y1_ - y0_ + 1);
    const size_t bytes = static_cast<size_t>(ring_ * width_);
    if (rows_.size() < bytes) rows_.resize(bytes, 0);
}

uint8_t* ChangeRows::mask_at(int64_t y) { return rows_.data() + (y % ring_) * width_; }

const uint8_t* ChangeRows::row(int y)
{
    if (y < y0_ || y > y1_) return empty_.data();
    const ChangeKernels& kernel = change_kernel();
    const int64_t n = x1_ - x0_ + 1;
    for (; next_ <= y; ++next_) {
        const int64_t at = next_ * width_ + x0_;
        kernel.detect(background_ + at, current_ + at, mask_at(next_) + x0_, n, k_, threshold_);
    }
    return mask_at(y);
}

const uint8_t* ChangeRows::preview(int y)
{
    if (y < y0_ || y > y1_) return empty_.data();
    const ChangeKernels& kernel = change_kernel();
    const int64_t n = x1_ - x0_ + 1, at = int64_t{y} * width_ + x0_;
    uint8_t* out = mask_at(y) + x0_;  // the ring is filled from the first row read on
    kernel.abs_diff(current_ + at, background_ + at, out, n);
    kernel.at_least(out, out, n, threshold_);
    return mask_at(y);
}

}  // namespace nerva
