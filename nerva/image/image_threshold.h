#pragma once

#include <cstdint>

#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"

// Thresholding inside a rectangle. Each operation (re)initialises its
// destination with initialize_image (so a destination of the right kind and
// room keeps its size and contents), writes only the pixels of the rectangle
// clipped to the source, and leaves the others as they were. A value passes
// when it is greater than or equal to its threshold.
//
// Results: 0 (also for an empty clipped rectangle), -1 for a null argument,
// a refused source kind or a destination that cannot be initialised; -2 for
// an unknown mode of color_thresholding. A destination that keeps another
// shape is written at its own addresses, pixels past its buffer skipped.
namespace nerva {

// Colour bands of a three-byte pixel (bytes blue, green, red).
enum band_t : int32_t {
    BAND_RED = 1,    // byte 2, first threshold
    BAND_GREEN = 2,  // byte 1, second threshold
    BAND_BLUE = 4,   // byte 0, third threshold
};

constexpr band_t operator|(band_t a, band_t b) { return static_cast<band_t>(int32_t{a} | int32_t{b}); }

// Colour source (COLOR_IMG_3BYTES or COLOR_IMG_4BYTES). Modes:
//  0: colour output of the source's kind; each band's byte is kept when the
//     band is selected and passes, else 0 (unselected bands are 0);
//  1: GREY_IMG output, the value of the first selected band (red, green,
//     blue) that passes, else 0;
//  2: GREY_IMG output, when every selected band passes, the value of blue if
//     selected, else green if selected, else red (so the red byte when no
//     band is selected); else 0.
// Within a row both images advance one byte per pixel from the first
// clipped pixel (index * 3, or index * 1 for grey output), not one pixel;
// hosts depend on this stride. An unknown mode returns -2 before anything
// is touched.
int color_thresholding(image* src, unsigned red_threshold, unsigned green_threshold, unsigned blue_threshold,
                       rectangle* rect, band_t bands, int mode, image* dst);
// GREY_IMG source into a GREY_IMG: 255 where the byte passes, else 0.
// Threshold 0 passes everything, 256 nothing.
int grey_thresholding(image* src, unsigned threshold, rectangle* rect, image* dst);
// Four-byte pixels read as floats into an image of the source's kind: the
// value itself where it passes, else 0 (NaN gives 0). Any kind is read so:
// on a kind of fewer bytes per pixel, pixel i is still bytes 4i .. 4i + 3,
// and the pixels whose bytes would lie past the buffer are skipped.
int float_thresholding(image* src, float threshold, rectangle* rect, image* dst);
// Four-byte pixels read as signed 32-bit integers (threshold too) into an
// image of the source's kind: the value where it passes, else 0. Any kind,
// as float_thresholding.
int int_thresholding(image* src, unsigned threshold, rectangle* rect, image* dst);

}  // namespace nerva
