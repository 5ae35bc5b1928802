#include <cstdio>
#include <cstdlib>

#include "nerva/image/image_draw.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

[[noreturn]] void refuse_merge(const char* message)
{
    detail::report(MESSAGES_STDERR, "%s", message);
    detail::fatal_exit(1);
}

// A mask code of the 255-family {255, 125, 50} or the 100-family
// {100, 150, 200} takes its family's value for the door pixel (blue, green,
// red bytes); any other code is returned unchanged.
unsigned char merged_code(unsigned char mask, const unsigned char* door)
{
    unsigned char base, empty_door, red_door;
    if (mask == 255 || mask == 125 || mask == 50) {
        base = 255, empty_door = 125, red_door = 50;
    } else if (mask == 100 || mask == 150 || mask == 200) {
        base = 100, empty_door = 150, red_door = 200;
    } else {
        return mask;
    }
    if (door[2] == 0) return empty_door;
    if (door[2] == 255 && door[1] == 0 && door[0] == 0) return red_door;
    return base;
}

void check_same_size(const image* a, const image* b)
{
    if (a->height != b->height)
        refuse_merge("io_img1 height and i_img2 height are not the same : no merge is applied \n");
    if (a->width != b->width) refuse_merge("io_img1 width and i_img2 width are not the same : no merge is applied \n");
}

const char* const mask_missing =
    "the Mask image is NULL : this mask image must be defined (use an empty mask (pix=255)if you do not want to hide "
    "any thing)\n";
const char* const door_missing = "the Door Mask image is NULL : this Door mask image must be defined\n";

}  // namespace

void merge_binary_images(image* io_img1, image* i_img2)
{
    if (!io_img1) refuse_merge(mask_missing);
    if (!i_img2) refuse_merge(door_missing);
    if (io_img1->type != GREY_IMG) refuse_merge("io_img1 is not a GREY_IMG : no merge is applied \n");
    check_same_size(io_img1, i_img2);

    const pixel_span s = whole_span(io_img1);
    if (s.empty() || !i_img2->data) return;
    for (int64_t y = 0; y < io_img1->height; ++y) {
        for (int64_t x = 0; x < io_img1->width; ++x) {
            unsigned char& m = io_img1->data[pixel_index(io_img1, x + io_img1->x_origin, y + io_img1->y_origin)];
            if (i_img2->type == COLOR_IMG_3BYTES)
                m = merged_code(m, i_img2->data + pixel_index(i_img2, x + i_img2->x_origin, y + i_img2->y_origin) * 3);
            else if (i_img2->type == GREY_IMG && m == 125) m = 255;  // the door pixel's value is not consulted
        }
    }
}

image* merge_binary_images_color(image* io_img1, image* io_img2)
{
    if (!io_img1) refuse_merge(mask_missing);
    if (!io_img2) refuse_merge(door_missing);
    if (io_img1->type != GREY_IMG) refuse_merge("io_img1 is not a GREY_IMG : no merge color is applied \n");
    if (io_img2->type != COLOR_IMG_3BYTES)
        refuse_merge("io_img2 is not a COLOR_IMG_3BYTES : no merge color is applied \n");
    check_same_size(io_img1, io_img2);

    image* out = make_image(COLOR_IMG_3BYTES, io_img1->width, io_img1->height);
    if (!out || !out->data || !io_img1->data || !io_img2->data) return out;
    for (int64_t y = 0; y < io_img1->height; ++y) {
        for (int64_t x = 0; x < io_img1->width; ++x) {
            const unsigned char m = io_img1->data[pixel_index(io_img1, x + io_img1->x_origin, y + io_img1->y_origin)];
            const unsigned char r =
                io_img2->data[pixel_index(io_img2, x + io_img2->x_origin, y + io_img2->y_origin) * 3 + 2];
            unsigned char* o = out->data + pixel_index(out, x, y) * 3;
            unsigned char red, green, blue;
            if (m == 50) red = 255, green = 0, blue = 0;
            else if (r == 255) red = 0, green = 100, blue = 100;
            else if (m == 0) red = green = blue = 0;
            else red = green = blue = 255;
            o[0] = blue, o[1] = green, o[2] = red;
        }
    }
    return out;
}

}  // namespace nerva
