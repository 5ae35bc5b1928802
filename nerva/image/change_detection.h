#pragma once

#include <cstdint>
#include <vector>

#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"
#include "nerva/mask_rows.h"

namespace nerva {

// Change detection of one grey frame against a running-average background,
// in one pass over the bytes: mask becomes 255 where |current - background|
// >= threshold and 0 elsewhere, then the background learns the frame at
// `rate`. The mask and the background are those of
//     abs_difference(current, background, rect, difference);
//     grey_thresholding(difference, threshold, rect, mask);
//     update(background, current, rate, rect);
// with no difference image and each byte read once. The mask is
// initialised as a GREY_IMG of the background's size; pixels outside the
// clipped rectangle keep what they held. -1 when an image is null or not a
// GREY_IMG, the sizes or origins differ, a capacity is 0 or the mask cannot
// be initialised; else 0.
int detect_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect, image* mask);

// detect_changes without the mask, for a reader that takes the mask row by
// row (RLEsegm_segment_rows): the rows are differenced, thresholded and
// learned in one pass down the frame, as far as the row asked for, into as
// many mask rows as the row step; the mask's bytes outside the clipped
// rectangle are 0, those of a fresh mask. Between begin and finish the
// background learns every row of the rectangle once, and ends as
// detect_changes leaves it. One object per stream: its rows are made at the
// first frame, and a stream of one size and step allocates nothing after.
class ChangeRows : public MaskRows {
public:
    ChangeRows() = default;
    ~ChangeRows() override { finish(); }
    ChangeRows(const ChangeRows&) = delete;
    ChangeRows& operator=(const ChangeRows&) = delete;

    // Readies one frame (finishing the one before): -1, with nothing
    // readied, for images detect_changes refuses and for images away from
    // the origin, buffers smaller than width x height bytes, buffers that
    // partly overlap or a size beyond an int (the rows must then not be
    // read); else 0. The images must outlive finish.
    int begin(image* background, image* current, float rate, unsigned threshold, rectangle* rect);
    // Learns the rows not read yet; the frame is then over.
    void finish();

    void start(int step_y) override;
    const uint8_t* row(int y) override;
    const uint8_t* preview(int y) override;

private:
    uint8_t* mask_at(int64_t y);

    uint8_t* background_ = nullptr;
    const uint8_t* current_ = nullptr;
    int64_t width_ = 0;
    float k_ = 1.0f;
    unsigned threshold_ = 0;
    int64_t x0_ = 0, x1_ = -1, y0_ = 0, y1_ = -1;  // the clipped rectangle; empty between frames
    int64_t next_ = 0;                             // its first row not yet detected or learned
    int64_t ring_ = 1;                             // mask rows kept
    // The last mask rows, and a row of background for rows outside the
    // rectangle. Outside the columns written (written_x0..written_x1) every
    // byte is 0.
    std::vector<uint8_t> rows_, empty_;
    int64_t written_x0_ = 0, written_x1_ = -1;
};

}  // namespace nerva
