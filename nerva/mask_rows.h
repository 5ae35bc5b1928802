#pragma once

#include <cstdint>

// A mask handed over one row at a time, so that a mask computed row by row
// (a change detection, a threshold) can stay in a few row buffers that are
// still in cache instead of being written to memory whole and read back.
// The segmenter reads it through RLEsegm_segment_rows
// (nerva/segmentation/segment_rows.h); the running average's change
// detection produces it (ChangeRows, nerva/image/change_detection.h).
namespace nerva {

class MaskRows {
public:
    virtual ~MaskRows() = default;
    // Once a frame, before any row or preview is asked for, with the row
    // step the frame is read with (1 when every row is read).
    virtual void start(int step_y) { (void)step_y; }
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

}  // namespace nerva
