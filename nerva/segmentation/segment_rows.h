#pragma once

#include <cstdint>
#include <memory>

#include "nerva/blob/RLEblob.h"
#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"
#include "nerva/segmentation/segmentationRLE.h"

// Segmentation of a mask that is never written whole.
//
// The segmenter asks its host for the mask one row at a time and reads each
// row at once, so a mask computed row by row (a change detection, a
// threshold) can stay in a row buffer that is still in cache instead of
// being written to memory and read back. Everything else is
// RLEsegm_segmentKAP's: the same blobs, statistics, observers, steps, region
// of interest and refusals.
//
// RLEsegm_segment_changes is the running-average change detection of
// detect_changes and the segmentation of its mask in one pass: a host that
// has no other use for the mask calls it instead of the two.
namespace nerva {

class MaskRows {
public:
    virtual ~MaskRows() = default;
    // Row y of the frame's mask: column x at [x], non-zero = foreground; the
    // columns of the region of interest at least must be readable. The
    // bytes stay valid until the next call. Each row is asked for at most
    // once per frame, rows of the region of interest only, downwards; with
    // a row step above 1 the rows above a row found with runs are then
    // asked for upwards (the back-fill of the sparse reading), never a row
    // step_y or more rows above the lowest row asked for so far, so a
    // producer that keeps its last step_y rows can answer every call.
    virtual const uint8_t* row(int y) = 0;
    // The bytes row(y) will give, without side effects, or null when the
    // producer cannot tell them ahead (the default). Only asked for when a
    // memory ceiling (RLEsegm_set_memory_ceiling) is below the frame's worst
    // case, to count its runs before any is extracted; without a preview
    // such a frame is refused on its worst case.
    virtual const uint8_t* preview(int y)
    {
        (void)y;
        return nullptr;
    }
};

// RLEsegm_segmentKAP for a width x height mask given row by row; a size
// below 1x1 is refused as an empty mask is.
std::shared_ptr<RLEblob> RLEsegm_segment_rows(MaskRows& rows, int width, int height, segm_ptr s);

// detect_changes(background, current, rate, threshold, rect, mask) then
// RLEsegm_segmentKAP(mask, s), where mask is a fresh (zero) GREY_IMG of the
// background's size, without the mask: the rows are differenced,
// thresholded and learned in one pass down the frame, as far as the row the
// segmenter asks for, into as many mask rows as the row step, kept by the
// segmenter; the rows below the last one it reads are learned after the
// frame. The background ends as detect_changes leaves it, and *head (when
// head is not null) is the blob list RLEsegm_segmentKAP returns; a refusal
// of the segmenter is RLEsegm_segmentKAP's, and the frame is still learned.
//
// -1, with nothing learned or segmented, when detect_changes would refuse
// the images, and when their origins are not 0, a buffer holds fewer than
// width x height bytes, the two buffers overlap without being the same, or
// the size does not fit an int; else 0. The mask rows are made at the first
// frame: a stream of one size and steps allocates nothing after that.
int RLEsegm_segment_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect,
                            segm_ptr s, std::shared_ptr<RLEblob>* head);

}  // namespace nerva
