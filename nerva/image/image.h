#pragma once

#include <cstdint>
#include <cstdio>

#include "nerva/geometry/rectangle.h"

// The raster image record of the image toolkit, its pixel kinds, creation,
// copies, kind conversions and binary PPM/PGM writing.
//
// Records are plain: made zero-filled with calloc, released with free through
// destroy_image. Pixels are stored row after row with no padding. The pixel
// at frame column x, row y has element index
//     (y - y_origin) * width + (x - x_origin)
// and starts at byte index * bytes_per_pixel, except that the colour kinds
// always use 3 as the multiplier (COLOR_IMG_4BYTES included).
//
// Operations taking a rectangle clip it to the image: columns
// max(xmin, 0) .. min(xmax, width - 1), rows likewise, inclusive; an empty
// range does nothing and succeeds. The clipped bounds are frame coordinates
// reached through the addressing rule above, whatever the origins: a GREY_IMG
// of width 10 with x_origin 5 and a rectangle over columns 5..100 has
// columns 5..9 walked, that is indices 0..4. A pixel whose bytes the rule puts
// before or past the buffer is skipped; every other pixel is taken where the
// rule puts it (with origins other than 0 that may be on a neighbouring row).
namespace nerva {

// Negative values name the kinds below; a positive value n is a generic image
// whose pixels are n opaque bytes.
enum image_type : int32_t {
    COLOR_IMG_3BYTES = -1,  // bytes blue, green, red
    SIGNED_COLOR_IMG = -2,  // 32-bit word, three signed 10-bit fields at bits 0, 10, 20
    GREY_IMG = -3,          // one unsigned byte
    FLOAT_IMG = -4,         // 32-bit float
    INT_IMG = -5,           // 32-bit integer
    BG_IMG = -6,            // 32-bit word, colour bytes 0, 1, 2 in bits 0-9, 10-19, 20-29
    COLOR_IMG_4BYTES = -7,  // blue, green, red, spare; only made by image_data_encapsulate
};

enum copy_type_t : int32_t {
    COPY_IN_PLACE = 0,  // same size as the source, pixels keep their coordinates
    COPY_CROP = 1,      // rectangle-sized, clipped top-left corner becomes (0, 0)
};

struct image {
    image_type type;
    uint32_t width;
    uint32_t height;
    uint32_t capacity;  // pixels the owned buffer holds; 0 = buffer not owned
    int64_t bytes_per_pixel;
    int32_t x_origin;  // frame coordinates of the buffer's first pixel
    int32_t y_origin;
    unsigned char* data;
    char* name;  // owned, may be null
    uint64_t reserved;
};

// ---- creation and release ----

// Sets img up for the kind and size, reusing its buffer when it can:
//  - COLOR_IMG_4BYTES is always set up as COLOR_IMG_3BYTES;
//  - same kind, a buffer and capacity >= width * height: returns 0 and
//    changes nothing at all, not even width and height;
//  - another kind whose width * height pixels fit in the buffer: kind, size
//    and bytes_per_pixel change, buffer, origins and name stay, and capacity
//    is re-expressed in pixels of the new kind (so capacity * bytes_per_pixel
//    never exceeds the buffer); returns 0;
//  - otherwise a fresh set-up: origins 0, name forgotten (not freed); a 0 x 0
//    size forgets the buffer (not freed) and returns 0; else the old buffer is
//    freed and a zeroed one allocated: 1, or -1 on failure or a kind of 0 or
//    below -7. A size with one side 0 is such a set-up too (bytes_per_pixel
//    set, result 1) over no pixels: capacity 0 and a shared empty buffer that
//    is never freed. Positive kinds get their buffer with capacity 0 (not
//    owned: the host frees it), a real allocation even with one side 0.
// Null img: -1.
int initialize_image(image* img, image_type type, unsigned width, unsigned height);
// New zero-filled record set up by initialize_image; null on failure.
image* make_image(image_type type, unsigned width, unsigned height);
// Frees the owned buffer (kinds -7..-1 and positive, capacity non-zero), the
// name and the record. -1 for null, else 0.
int destroy_image(image* img);
// Zeroes capacity * bytes_per_pixel bytes: nothing when the record does not
// own its buffer (capacity 0, e.g. a generic kind). -1 when there is no buffer.
int clear_image(image* img);

// ---- copies ----

// New image of src's kind and size with src's pixels and its own copy of the
// name; origins 0. Handles COLOR_IMG_3BYTES, FLOAT_IMG and COLOR_IMG_4BYTES;
// the copy of a COLOR_IMG_4BYTES image is a COLOR_IMG_3BYTES record whose
// buffer holds all 4 * width * height source bytes unchanged. Any other kind
// (GREY_IMG included) is a fatal misuse: a perror message and exit status 0.
// Null for a null src or a failed allocation.
image* copy_whole_image(image* src);
// Initialises dst to src's kind and to src's size (COPY_IN_PLACE) or rect's
// width and height (COPY_CROP), then copies the clipped rectangle, each pixel
// addressed in dst as initialize_image leaves it (a dst that keeps a larger
// shape gets the pixels at its own addresses; those past its buffer are
// skipped). A rectangle at (0, 0) of src's exact size copies the whole buffer
// at once. -1 for a null argument, an unknown `how`, COPY_CROP with a
// negative width or height, or a failed initialisation; else 0.
int copy_image_content(image* src, rectangle* rect, image* dst, copy_type_t how);
// Makes img (or a new record when null) wrap the caller's buffer of rows x
// columns pixels. Only GREY_IMG, COLOR_IMG_3BYTES and COLOR_IMG_4BYTES are
// accepted (others: message on stderr, null). The record then owns the
// buffer: destroy_image frees it, so it must come from malloc/calloc. A
// record already wrapping `data` is returned untouched. Null for a null
// buffer or a non-positive size.
image* image_data_encapsulate(unsigned char* data, int rows, int columns, image* img, image_type type);

// ---- kind conversions ----

// New full-size GREY_IMG, origins 0, with only the clipped rectangle written
// (the rest is 0); a GREY_IMG src is returned itself, not copied. The
// rectangle's frame coordinates address both images, so a src with other
// origins lands shifted. Colour sources give (299 R + 587 G + 114 B) / 1000,
// but within a row the source advances one byte per pixel from the first
// clipped pixel, not one pixel: hosts depend on this stride. SIGNED_COLOR_IMG, FLOAT_IMG and INT_IMG keep the low byte
// of their value. Null for a null src or rect or any other kind.
image* convert_to_grey(image* src, rectangle* rect);
// One-byte mask to colour: each clipped pixel becomes 255,255,255 when the
// source byte is non-zero, else 0,0,0. A null rect means the whole image.
// Without dst a COLOR_IMG_3BYTES image of the clipped size is made, placed
// (through its origins) at the clipped corner so frame coordinates address
// it. A given dst is addressed through its own origins, pixels past its
// buffer skipped. Returns dst or the new image; null for a null src, a dst
// that is not a colour image, or a failed allocation.
image* convert_to_4bytes(image* src, rectangle* rect, image* dst);
// Colour to one-byte mask: 255 where the red byte is non-zero, else 0.
// Source must be a colour kind; otherwise as convert_to_4bytes, the made
// image being a GREY_IMG.
image* convert_to_1byte(image* src, rectangle* rect, image* dst);

// ---- files ----

// Binary portable-anymap file: "P6" for the colour kinds (red, green, blue on
// disk), "P5" for GREY_IMG, FLOAT_IMG and INT_IMG, "P0" for the others; then
// "width height 255" (sizes unsigned, never negative). Pixels follow for the
// colour kinds, GREY_IMG and FLOAT_IMG, the buffer from its first pixel
// whatever the origins (each float truncated toward zero, low 8 bits kept:
// 300.7 gives 44); any other kind gets the header only and still succeeds. 0, or -1 with
// a message on stderr ("Error opening ..." / "Error writing in ..."); a
// partly written file stays on disk. Null img: -1, nothing printed.
int save_image(image* img, const char* path);
// The pieces of save_image; each returns -1 on the first failed write.
int _write_header(image* img, FILE* file);
int _write_color_data(image* img, FILE* file);
int _write_grey_data(image* img, FILE* file);
int _write_float_data(image* img, FILE* file);

}  // namespace nerva
