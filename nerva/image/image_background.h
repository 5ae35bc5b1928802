#pragma once

#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"

// Background maintenance and change detection.
//
// The running average of a background value B towards a current value C is
//     C + trunc((B - C) * k),   k = 1 - rate,
// with B - C converted to float, the product taken in single precision and
// truncated toward zero; a byte keeps the low 8 bits of the sum. So rate 1
// copies the current image and rate 0 keeps the background; B = 100, C = 50,
// rate 0.1 gives 95 and B = 50, C = 100 gives 55. Any rate is defined: a
// huge product adds the low bits of its exact integer part (0 from 2^64 on),
// an infinite or NaN one adds 0.
//
// BG_IMG pixels are 32-bit words holding colour bytes 0, 1, 2 (blue, green,
// red) in bits 0-9, 10-19 and 20-29; bits 30-31 are left as they were.
//
// Results: 0 on success (an empty clipped rectangle included), negative on
// failure. Rectangles are clipped to the images unless stated.
namespace nerva {

// Running average of every clipped pixel. GREY_IMG bytes; SIGNED_COLOR_IMG
// each signed 10-bit field (masked back to 10 bits, bits 30-31 kept);
// COLOR_IMG_3BYTES bytes 2, 1 and 0 of each pixel. -1 for a null argument,
// differing kinds, a capacity of 0 or any other kind.
int update(image* background, image* current, float rate, rectangle* rect);
// Running average of the bytes only where |B - C| < threshold: large changes
// are not learned. Refused (-1) only when neither image is a GREY_IMG: one
// grey image is enough, the other is read one byte per pixel whatever its kind.
int grey_thresholded_update(image* background, image* current, float rate, int threshold, rectangle* rect);
// As grey_thresholded_update on bytes 2, 1, 0 with the red, green and blue
// thresholds, for two COLOR_IMG_3BYTES images (else -1). Within a row both
// images advance one byte per step from the first clipped pixel, not one
// pixel: hosts depend on this stride.
int color_thresholded_update(image* background, image* current, float rate, int red_threshold, int green_threshold,
                             int blue_threshold, rectangle* rect);

// Packs the colour bytes of every pixel of rect (unclipped, bounds inclusive)
// into the BG_IMG words. Refusals, each printed with puts on stdout:
//  -1 "copy_to_bg ERROR : from_img or to_bg or rect is NULL."
//  -2 "copy_to_bg ERROR : from_img is not a COLOR IMAGE or to_bg is not a BG IMAGE."
//     only when both conditions hold: a grey source into a BG_IMG passes
//  -3 "copy_to_bg ERROR : bbox has invalid dimensions." (xmax < xmin or
//     ymax < ymin, compared unsigned, so negative bounds land here)
//  -4 "copy_to_bg  ERROR : bbox  and images have incompatible dimensions."
//     (xmax or ymax beyond either image; a bound equal to the width or height
//     is accepted, the column or row past the image being skipped)
// Pixels whose bytes would lie outside either buffer are skipped.
int copy_to_bg(image* from_img, image* to_bg, rectangle* rect);
// The mirror: colour bytes 2, 1, 0 take the low 8 bits of bits 20-29, 10-19,
// 0-9. Same codes with "copy_from_bg ERROR : from_bg or to_img or rect is
// NULL.", "copy_from_bg ERROR : from_bg is not a BG IMAGE or to_img  is not a
// COLOR IMAGE.", "copy_from_bg ERROR : bbox has invalid dimensions." (signed
// comparison) and "copy_from_bg  ERROR : bbox  and images have incompatible
// dimensions."
int copy_from_bg(image* from_bg, image* to_img, rectangle* rect);

// |a - b| per clipped pixel into out, initialised to a's kind and size.
// Colour kinds: bytes 2, 1, 0, all three images stepping one byte per pixel
// from the row's first clipped pixel as in color_thresholded_update; GREY_IMG
// bytes; INT_IMG signed values (the magnitude's low 32 bits); FLOAT_IMG in
// single precision. -1 for a null argument, differing kinds or sizes or a
// capacity of 0 (out untouched), an out that cannot be initialised, or
// another kind (refused after out was initialised to it).
int abs_difference(image* a, image* b, rectangle* rect, image* out);
// a - b per clipped pixel into out, initialised as an INT_IMG of a's size:
// GREY_IMG differences of the bytes; INT_IMG wrapped 32-bit differences;
// FLOAT_IMG the difference truncated toward zero (saturated, NaN 0); colour
// kinds the three signed channel differences (-255..255) packed as a
// SIGNED_COLOR_IMG word: blue in bits 0-9, green 10-19, red 20-29, bits
// 30-31 zero, pixels stepping by whole pixels. Checks, in the same order, as
// abs_difference.
int sign_difference(image* a, image* b, rectangle* rect, image* out);
// Does no work: 0 when img or rect is null or out is null, -1 otherwise.
int abs_image(image* img, rectangle* rect, image* out);

// Re-initialises img to mask's kind and size, then, if img is a colour image,
// blackens it where the mask is set (_color_show_chgmt with steps 1, 1).
// So a GREY_IMG mask turns img into a GREY_IMG and returns -1: hosts pass a
// colour mask. -1 for a null argument or differing sizes.
int show_chgmt(image* mask, image* img, rectangle* rect);
// Every column_step-th column and row_step-th row of the clipped rectangle
// from its top-left: where the mask's byte (one byte per pixel) is non-zero,
// img's three colour bytes become 0. -1 for a null argument, a non-colour img
// or a step below 1.
int _color_show_chgmt(image* mask, image* img, rectangle* rect, int column_step, int row_step);

}  // namespace nerva
