// The running-average change detection handed to the segmenter row by row:
// each row the segmenter reads is differenced, thresholded and learned in
// one pass into a row buffer, and the mask is never written whole.
#include <algorithm>
#include <climits>
#include <cstring>

#include "nerva/image/internal/change_kernels.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

using detail::pixel_span;

// The images detect_changes accepts, placed at the origin with buffers of
// their whole size that are the same or apart: then row y of either is the
// bytes from y * width, as a mask row of the segmenter is.
bool suits(const image* background, const image* current, const rectangle* rect)
{
    if (!background || !current || !rect) return false;
    if (background->type != GREY_IMG || current->type != GREY_IMG) return false;
    if (background->width != current->width || background->height != current->height) return false;
    if (background->width > INT_MAX || background->height > INT_MAX) return false;
    if (background->capacity == 0 || current->capacity == 0) return false;
    for (const image* img : {background, current}) {
        if (img->x_origin != 0 || img->y_origin != 0 || !img->data) return false;
        if (detail::buffer_bytes(img) < size_t{img->width} * img->height) return false;
    }
    return detail::same_or_apart(background->data, current->data, int64_t{background->width} * background->height);
}

// The mask rows of a change detection, detected and learned in one pass
// down the span, as far as the row the segmenter asks for, so that the
// background and the frame are read once, in order, as detect_changes reads
// them. The segmenter never asks for a row step_y or more rows above the
// lowest row it has asked for (the back-fill of a sparse reading stops short
// of them), so the last step_y mask rows, kept in a ring, hold every row it
// may still ask for. What is left below is learned when the frame is over
// (the destructor, so that an observer that throws leaves the background
// learned as well).
class ChangeRows : public MaskRows {
public:
    ChangeRows(image* background, const image* current, float rate, unsigned threshold, const pixel_span& span,
               const int32_t* step_y, detail::ChangeRowBuffers& buffers)
        : b_(background->data), c_(current->data), width_(background->width), k_(1.0f - rate), threshold_(threshold),
          span_(span), step_y_(step_y), kernel_(detail::change_kernel()), buffers_(buffers), next_(span.y0)
    {
        // Columns outside the span must read 0: the rows are cleared when
        // the span's columns are not those written before.
        if (buffers_.empty.size() != static_cast<size_t>(width_) || buffers_.first != span_.x0 ||
            buffers_.last != span_.x1) {
            buffers_.empty.assign(static_cast<size_t>(width_), 0);
            buffers_.rows.clear();
            buffers_.first = span_.x0;
            buffers_.last = span_.x1;
        }
    }

    ~ChangeRows() override
    {
        for (; !span_.empty() && next_ <= span_.y1; ++next_) kernel_.average(b_at(next_), c_at(next_), columns(), k_);
    }

    ChangeRows(const ChangeRows&) = delete;
    ChangeRows& operator=(const ChangeRows&) = delete;

    const uint8_t* row(int y) override
    {
        if (!inside(y)) return buffers_.empty.data();
        if (ring_ == 0) make_ring();
        for (; next_ <= y; ++next_) kernel_.detect(b_at(next_), c_at(next_), mask_at(next_), columns(), k_, threshold_);
        return mask_at(y) - span_.x0;
    }

    const uint8_t* preview(int y) override
    {
        if (!inside(y)) return buffers_.empty.data();
        if (ring_ == 0) make_ring();
        uint8_t* out = mask_at(y);  // the ring is filled from the first row asked for on
        kernel_.abs_diff(c_at(y), b_at(y), out, columns());
        kernel_.at_least(out, out, columns(), threshold_);
        return out - span_.x0;
    }

private:
    // Sized at the first row: an observer may change the steps before it.
    void make_ring()
    {
        const int64_t step = step_y_ && *step_y_ > 1 ? *step_y_ : 1;
        ring_ = std::min(step, span_.y1 - span_.y0 + 1);
        const size_t bytes = static_cast<size_t>(ring_ * width_);
        if (buffers_.rows.size() < bytes) buffers_.rows.resize(bytes, 0);
    }

    bool inside(int y) const { return !span_.empty() && y >= span_.y0 && y <= span_.y1; }
    int64_t columns() const { return span_.columns(); }
    uint8_t* b_at(int64_t y) const { return b_ + y * width_ + span_.x0; }
    const uint8_t* c_at(int64_t y) const { return c_ + y * width_ + span_.x0; }
    uint8_t* mask_at(int64_t y) const { return buffers_.rows.data() + (y % ring_) * width_ + span_.x0; }

    uint8_t* b_;
    const uint8_t* c_;
    int64_t width_;
    float k_;
    unsigned threshold_;
    pixel_span span_;
    const int32_t* step_y_;  // the segmenter's, null without one
    const detail::ChangeKernels& kernel_;
    detail::ChangeRowBuffers& buffers_;
    int64_t next_;      // the first row of the span not yet detected or learned
    int64_t ring_ = 0;  // mask rows kept
};

}  // namespace

int RLEsegm_segment_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect,
                            segm_ptr s, std::shared_ptr<RLEblob>* head)
{
    static const char who[] = "RLEsegm_segment_changes()";
    if (head) head->reset();
    if (!suits(background, current, rect)) return -1;
    const pixel_span span = detail::clip_span(background, rect);
    const int width = static_cast<int>(background->width), height = static_cast<int>(background->height);
    // A null segmenter is refused as RLEsegm_segmentKAP refuses it, the
    // frame learned all the same.
    detail::ChangeRowBuffers unused;
    std::shared_ptr<RLEblob> blobs;
    {
        ChangeRows rows(background, current, rate, threshold, span, s ? &s->step_y : nullptr,
                        s ? s->work->change_rows : unused);
        blobs = detail::segment_frame(s, detail::MaskShape{width, height, true, CV_8UC1, 2}, rows, who);
    }
    if (head) *head = std::move(blobs);
    return 0;
}

}  // namespace nerva
