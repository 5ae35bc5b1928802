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

// The mask rows of a change detection: row y of the span is detected and
// learned when the segmenter asks for it; the rows it never asks for are
// learned when the frame is over (the destructor, so that an observer that
// throws leaves the background learned as well).
class ChangeRows : public MaskRows {
public:
    ChangeRows(image* background, const image* current, float rate, unsigned threshold, const pixel_span& span,
               detail::ChangeRowBuffers& buffers)
        : b_(background->data), c_(current->data), width_(background->width), k_(1.0f - rate), threshold_(threshold),
          span_(span), kernel_(detail::change_kernel()), buffers_(buffers)
    {
        const size_t width = static_cast<size_t>(width_);
        // Columns outside the span stay 0 in both rows, frame after frame.
        if (buffers_.row.size() != width) buffers_.row.assign(width, 0);
        if (buffers_.empty.size() != width) buffers_.empty.assign(width, 0);
        const size_t rows = span_.empty() ? 0 : static_cast<size_t>(span_.y1 - span_.y0 + 1);
        if (buffers_.detected.size() < rows) buffers_.detected.resize(rows);
        std::fill_n(buffers_.detected.begin(), rows, uint8_t{0});
    }

    ~ChangeRows() override
    {
        for (int64_t y = span_.y0; !span_.empty() && y <= span_.y1; ++y)
            if (!buffers_.detected[static_cast<size_t>(y - span_.y0)])
                kernel_.average(b_at(y), c_at(y), span_.columns(), k_);
    }

    ChangeRows(const ChangeRows&) = delete;
    ChangeRows& operator=(const ChangeRows&) = delete;

    const uint8_t* row(int y) override
    {
        if (!inside(y)) return buffers_.empty.data();
        buffers_.detected[static_cast<size_t>(y - span_.y0)] = 1;
        kernel_.detect(b_at(y), c_at(y), buffers_.row.data() + span_.x0, span_.columns(), k_, threshold_);
        return buffers_.row.data();
    }

    const uint8_t* preview(int y) override
    {
        if (!inside(y)) return buffers_.empty.data();
        uint8_t* out = buffers_.row.data() + span_.x0;
        kernel_.abs_diff(c_at(y), b_at(y), out, span_.columns());
        kernel_.at_least(out, out, span_.columns(), threshold_);
        return buffers_.row.data();
    }

private:
    bool inside(int y) const { return !span_.empty() && y >= span_.y0 && y <= span_.y1; }
    uint8_t* b_at(int64_t y) const { return b_ + y * width_ + span_.x0; }
    const uint8_t* c_at(int64_t y) const { return c_ + y * width_ + span_.x0; }

    uint8_t* b_;
    const uint8_t* c_;
    int64_t width_;
    float k_;
    unsigned threshold_;
    pixel_span span_;
    const detail::ChangeKernels& kernel_;
    detail::ChangeRowBuffers& buffers_;
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
        ChangeRows rows(background, current, rate, threshold, span, s ? s->work->change_rows : unused);
        blobs = detail::segment_frame(s, detail::MaskShape{width, height, true, CV_8UC1, 2}, rows, who);
    }
    if (head) *head = std::move(blobs);
    return 0;
}

}  // namespace nerva
