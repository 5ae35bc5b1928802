#include <gtest/gtest.h>

#include "image_test_support.h"

using namespace image_test;

// Rectangles clip to the image's size (columns 0 .. width - 1) and the
// clipped frame coordinates reach the pixels through the origins: a host
// that moves an image's origins sees its pixels shifted, and only what would
// fall outside the buffer is skipped.
TEST(ImageOrigins, RectanglesClipToTheSizeAndAddressThroughTheOrigins)
{
    owned keep;
    rectangle wide = bounds(5, 0, 100, 0);
    image* grey = keep.make(GREY_IMG, 10, 1, bytes_t(10, 9));
    grey->x_origin = 5;
    ASSERT_EQ(clear_image_area(grey, &wide), 0);  // columns 5..9: indices 0..4
    EXPECT_EQ(bytes(grey, 10), (bytes_t{0, 0, 0, 0, 0, 9, 9, 9, 9, 9}));

    // Columns left of the origin reach the end of the row above; the first
    // row's have no row above and are skipped.
    image* two_rows = keep.make(GREY_IMG, 4, 2, bytes_t(8, 9));
    two_rows->x_origin = 2;
    rectangle all = bounds(0, 0, 3, 1);
    ASSERT_EQ(clear_image_area(two_rows, &all), 0);
    EXPECT_EQ(bytes(two_rows, 8), (bytes_t{0, 0, 0, 0, 0, 0, 9, 9}));

    // Thresholding: the source moved, the destination made afresh (origins 0).
    image* src = keep.make(GREY_IMG, 4, 1, {10, 20, 30, 40});
    src->x_origin = -2;
    image* mask = keep.make(GREY_IMG, 4, 1, bytes_t(4, 7));
    rectangle first_two = bounds(0, 0, 1, 0);
    ASSERT_EQ(grey_thresholding(src, 25, &first_two, mask), 0);  // src indices 2, 3 into mask 0, 1
    EXPECT_EQ(bytes(mask, 4), (bytes_t{255, 255, 7, 7}));

    // A difference with one image moved: each is read at its own index of the same frame pixel.
    image* a = keep.make(GREY_IMG, 4, 1, {0, 0, 0, 0});
    a->x_origin = 2;
    image* out = keep.make(GREY_IMG, 4, 1, bytes_t(4, 7));
    ASSERT_EQ(abs_difference(a, keep.make(GREY_IMG, 4, 1, {1, 2, 3, 4}), &all, out), 0);
    EXPECT_EQ(bytes(out, 4), (bytes_t{7, 7, 3, 4}));  // columns 2, 3: indices 0, 1 of a, 2, 3 of b and out

    // The grey conversion is made with origins 0: a moved source lands shifted.
    image* real = keep.make(FLOAT_IMG, 3, 1);
    put_all<float>(real, {1.0f, 2.0f, 3.0f});
    real->x_origin = 1;
    image* converted = keep(convert_to_grey(real, &all));
    EXPECT_TRUE(converted->x_origin == 0 && converted->y_origin == 0);
    EXPECT_EQ(bytes(converted, 3), (bytes_t{0, 1, 2}));
}
