#pragma once

#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"

// Drawing boxes and lines into images, zeroing areas, merging a detection
// mask with a door mask, and exporting gradient images.
//
// Colour pixels are bytes blue, green, red; the red, green and blue arguments
// go to bytes 2, 1 and 0. Drawing never writes outside the image: parts of an
// outline or line that fall outside it (negative xmin or ymin, lines past an
// edge) are skipped, the rest is drawn.
namespace nerva {

enum line_type : int32_t {
    HORIZONTAL_LINE = 0,
    VERTICAL_LINE = 1,  // any non-zero value draws vertically
};

// Outlines rect: row ymin, column xmax, row ymax, column xmin. GREY_IMG gets
// 155, FLOAT_IMG 255.0, colour kinds only byte 0 set to 255 (the other two
// bytes keep their values). -1 for a null argument, capacity 0, xmax >= width,
// ymax >= height (the sizes alone, whatever the origins) or another kind;
// else 0.
int draw_rectangle(rectangle* rect, image* img);
// As draw_rectangle, colour kinds taking red, green, blue; GREY_IMG and
// FLOAT_IMG still get 155 and 255.0.
int draw_color_rectangle(rectangle* rect, image* img, int red, int green, int blue);
// Line at column `at` over rows from..to (vertical) or at row `at` over
// columns from..to (HORIZONTAL_LINE); from > to draws nothing. Colour kinds
// only; -1 otherwise, for a null image or capacity 0.
int bb_draw_color_line(int from, int to, int at, line_type direction, image* img, int red, int green, int blue);
// Exactly 201 samples at t = i * 0.005 rounded once to float (not i times
// 0.005f), each point computed in float and truncated toward zero: long lines
// have gaps, short ones repeat points. Checks as above.
int bb_draw_color_line_diag(int x0, int y0, int x1, int y1, image* img, int red, int green, int blue);
// Zeroes the clipped rectangle. COLOR_IMG_4BYTES clears 3 bytes per pixel
// starting at the first pixel's index * 3 and then stepping 4 bytes, as
// hosts expect. -1 for a null argument, BG_IMG and generic kinds; 0 otherwise
// (an empty clipped range included).
int clear_image_area(image* img, rectangle* rect);

// Updates the one-byte detection mask io_img1 with the door mask i_img2 (same
// size). Colour door: values of the 255-family {255, 125, 50} and 100-family
// {100, 150, 200} become 125/150 where the door's red byte is 0, 50/200 where
// the door pixel is pure red, 255/100 elsewhere. Grey door: every 125 becomes
// 255, whatever the door pixel holds. Other door kinds: nothing. A missing
// mask, a non-grey io_img1 or differing sizes print a message on stderr and
// end the process with status 1.
void merge_binary_images(image* io_img1, image* i_img2);
// New COLOR_IMG_3BYTES picture of mask io_img1 over colour door io_img2:
// mask 50 red; else door red byte 255 -> (r, g, b) = (0, 100, 100); else mask
// 0 black; else white. A missing image, wrong kinds or differing sizes print
// a message on stderr and end the process with status 1. Null if the picture
// cannot be allocated.
image* merge_binary_images_color(image* io_img1, image* io_img2);

// Largest and smallest value of one channel (0 red, 1 green, other blue) of
// a colour image, away from a border of min(width, height) / 20 pixels. Both
// outputs are -1 for a null image, capacity 0 or a non-colour kind (the last
// with a message on stdout); an empty scan leaves 0 and 255.
void check_RGB_channels_extension(image* img, int* maximum, int* minimum, int channel);

// Saves 2|gx|, 2|gy|, the magnitude * sqrt(2) and the orientation scaled to
// 0..255 of two FLOAT_IMG gradients as base_gradx..ppm (two dots, as hosts
// expect), base_grady.ppm, base_gradm.ppm and base_grado.ppm, four images of
// gx's size: rows 1 .. gx height - 2, columns 1 .. gy width - 2, the rest 0.
// The inputs are read as floats whatever their kind; a pixel either buffer
// does not hold stays 0, and empty inputs give header-only files. Save
// failures are reported by save_image only. Always 0 (-1 for a null argument).
int save_gradient(image* gx, image* gy, const char* base);

}  // namespace nerva
