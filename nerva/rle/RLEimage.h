#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "nerva/rle/segment.h"

// A binary image stored row by row as runs. The image owns its lines; a line
// does not own its runs: `segs` points at a slice of consecutive entries of
// the segmenter's segment pool (nerva/segmentation/), overwritten by the next
// frame. The segmenter empties every row (`nb_segs` 0, `segs` null) before
// that pool is re-initialised or released, so a kept image never points into
// released runs.
namespace nerva {

struct RLEline {
    int32_t nb_segs;                 // runs on the row
    int32_t seg_offset;              // number of the row's first run when runs are numbered; always 0
    std::shared_ptr<segment>* segs;  // first of nb_segs consecutive pool entries, left to right
};

struct RLEimage {
    int32_t width;
    int32_t height;
    std::vector<std::shared_ptr<RLEline>> lines;  // index = absolute row
};

// Empty image (0 x 0, no lines); null with a message on standard error when
// no record can be made.
std::shared_ptr<RLEimage> RLEimage_new();
// Creates img when null, stores the size and replaces every line with a
// fresh empty one (height lines). Returns the image.
std::shared_ptr<RLEimage> RLEimage_initialize(std::shared_ptr<RLEimage> img, int width, int height);
// lines[y] (a new reference), or null for a null image. The row index is not
// checked: 0 <= y < height is the caller's responsibility.
std::shared_ptr<RLEline> RLEimage_get_line(std::shared_ptr<RLEimage> img, int y);
// Releases every line (width and height stay) and returns null, to be
// assigned to the caller's own reference.
std::shared_ptr<RLEimage> RLEimage_free(std::shared_ptr<RLEimage> img);

}  // namespace nerva
