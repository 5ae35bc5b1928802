#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "nerva/segmentation/RLEregion.h"

// A binary image stored row by row as runs. The image owns its lines; a line
// does not own its runs: `segs` points at a slice of consecutive entries of
// the segmenter's segment pool, valid until that pool is re-initialised and
// overwritten by the next frame.
namespace nerva {

struct image;
struct RLEblob;

struct RLEline {
    int32_t nb_segs;     // runs on the row
    int32_t seg_offset;  // number of the row's first run when runs are numbered; always 0
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

// ---- rendering ----
// Foreground pixels are 255 in every byte, background 0. Each run paints
// (last - first + 1) * bytes_per_pixel bytes from the byte of pixel
// (first, y) taken with three bytes per pixel, which is exact for the
// COLOR_IMG_3BYTES images these are meant for. Runs and rows outside the
// image, and bytes past its buffer, are skipped.

// Clears img (or makes a COLOR_IMG_3BYTES image of rle's size when null) and
// paints the runs. Null for a null rle or a failed allocation.
image* RLEimage_to_binaire(std::shared_ptr<RLEimage> rle, image* img);
// Sets to 255 the bytes of the runs in a caller's zeroed buffer of
// width * height bytes, rows of exactly width bytes; nothing else is touched.
// A null buffer is a fatal misuse: message on stderr, exit status 1.
void RLEimage_to_binary_raw_gray(std::shared_ptr<RLEimage> rle, unsigned char* raw);
// Renders the runs, outlines every blob box of the list in blue (the blue byte
// of each outline pixel set to 255) and saves a binary PPM (P6) at path.
// 0, or -1 with a message on stderr when a box cannot be drawn (xmax or ymax
// outside the image) or the file cannot be written; -1 silently for a null rle.
int RLEimage_save_binaire(std::shared_ptr<RLEimage> rle, const char* path, std::shared_ptr<RLEblob> blobs);
// Sets the runs' bytes of img back to 0, addressed as in RLEimage_to_binaire.
void RLEimage_clear_binaire(std::shared_ptr<RLEimage> rle, image* img);

}  // namespace nerva
