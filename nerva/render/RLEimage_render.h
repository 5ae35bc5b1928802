#pragma once

#include <memory>

#include "nerva/blob/RLEblob.h"
#include "nerva/image/image.h"
#include "nerva/rle/RLEimage.h"

// Rendering of run-length images into raster images, raw buffers and files.
namespace nerva {

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
