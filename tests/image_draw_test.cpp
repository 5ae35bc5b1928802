#include <gtest/gtest.h>

#include "image_test_support.h"

using namespace image_test;

namespace {

unsigned char* pixel(image* img, int x, int y) { return img->data + (y * img->width + x) * 3; }

int nonzero_bytes(const image* img)
{
    int n = 0;
    for (size_t i = 0; i < size_t{img->width} * img->height * img->bytes_per_pixel; ++i) n += img->data[i] != 0;
    return n;
}

}  // namespace

TEST(Draw, RectangleOutlinesAColourImageInTheBlueByteAlone)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 6, 5);
    unsigned char* corner = pixel(colour, 1, 1);
    corner[0] = 10;
    corner[1] = 20;
    corner[2] = 30;
    rectangle r = box(1, 1, 3, 3);
    ASSERT_EQ(draw_rectangle(&r, colour), 0);
    EXPECT_EQ(bytes_t(corner, corner + 3), (bytes_t{255, 20, 30}));
    EXPECT_EQ(nonzero_bytes(colour), 8 + 2);  // eight outline pixels, blue byte only
    ASSERT_EQ(draw_color_rectangle(&r, colour, 1, 2, 3), 0);
    EXPECT_EQ(bytes_t(corner, corner + 3), (bytes_t{3, 2, 1}));  // given as red, green, blue
}

// The grey value is fixed: the colour given is ignored.
TEST(Draw, RectangleOnGreyIgnoresTheColourAndIsRefusedWhenItsFarCornerReachesTheSize)
{
    owned keep;
    rectangle dot = box(2, 2, 1, 1);
    image* grey = keep.make(GREY_IMG, 5, 4);
    ASSERT_EQ(draw_color_rectangle(&dot, grey, 1, 2, 3), 0);
    EXPECT_EQ(grey->data[2 * 5 + 2], 155);
    EXPECT_EQ(nonzero_bytes(grey), 1);
    EXPECT_EQ(draw_rectangle(&dot, keep.make(INT_IMG, 4, 4)), -1);
    rectangle wide = box(0, 0, 6, 2), tall = box(0, 0, 2, 5);  // xmax == width, ymax == height
    EXPECT_EQ(draw_rectangle(&wide, grey), -1);
    EXPECT_EQ(draw_rectangle(&tall, grey), -1);
    EXPECT_EQ(draw_color_rectangle(&wide, grey, 1, 2, 3), -1);
}

TEST(Draw, StraightLinesClipToTheImageAndNeedAColourImage)
{
    owned keep;
    image* img = keep.make(COLOR_IMG_3BYTES, 5, 5);
    ASSERT_EQ(bb_draw_color_line(1, 3, 2, VERTICAL_LINE, img, 9, 8, 7), 0);
    EXPECT_EQ(bytes_t(pixel(img, 2, 3), pixel(img, 2, 3) + 3), (bytes_t{7, 8, 9}));
    EXPECT_EQ(nonzero_bytes(img), 9);
    ASSERT_EQ(bb_draw_color_line(-10, 10, 4, HORIZONTAL_LINE, img, 1, 1, 1), 0);  // clipped to the row
    EXPECT_EQ(nonzero_bytes(img), 9 + 15);
    EXPECT_EQ(bb_draw_color_line(0, 1, 0, VERTICAL_LINE, keep.make(GREY_IMG, 5, 5), 1, 1, 1), -1);
}

TEST(Draw, DiagonalLinesSkipSamplesOffTheImage)
{
    owned keep;
    image* img = keep.make(COLOR_IMG_3BYTES, 5, 5);
    ASSERT_EQ(bb_draw_color_line_diag(0, 0, 4, 4, img, 0, 255, 0), 0);
    ASSERT_EQ(bb_draw_color_line_diag(-100, 2, 100, 2, img, 0, 0, 1), 0);
    EXPECT_EQ(nonzero_bytes(img), 9);  // whole pixels: (2, 2) loses its green
}

TEST(Draw, MergedMasksTakeTheDoorCodes)
{
    owned keep;
    image* mask = keep.make(GREY_IMG, 4, 2, {255, 100, 0, 125, 50, 150, 200, 77});
    // Door pixels (blue, green, red): red, empty, red, not pure red, empty, red, grey, empty.
    image* door = keep.make(COLOR_IMG_3BYTES, 4, 2,
                            {0, 0, 255, 9, 9, 0, 0, 0, 255, 1, 0, 255, 0, 0, 0, 0, 0, 255, 5, 5, 5, 0, 0, 0});
    merge_binary_images(mask, door);
    EXPECT_EQ(bytes(mask, 8), (bytes_t{50, 150, 0, 255, 125, 200, 100, 77}));
    merge_binary_images(mask, keep.make(GREY_IMG, 4, 2));  // grey door: only 125 -> 255
    EXPECT_EQ(bytes(mask, 8), (bytes_t{50, 150, 0, 255, 255, 200, 100, 77}));

    mask->data[6] = 0;
    image* picture = keep(merge_binary_images_color(mask, door));
    // 50: red; else door red byte 255: (r, g, b) = (0, 100, 100); else 0: black; else white
    EXPECT_EQ(bytes(picture, 24), (bytes_t{0,   0,   255, 255, 255, 255, 100, 100, 0, 100, 100, 0,
                                           255, 255, 255, 100, 100, 0,   0,   0,   0, 255, 255, 255}));
}

TEST(MergeBinaryImagesDeathTest, MissingOrMismatchedMasksExitWithStatusOne)
{
    owned keep;
    image* mask = keep.make(GREY_IMG, 4, 2);
    image* door = keep.make(COLOR_IMG_3BYTES, 4, 2);
    const auto status_one = testing::ExitedWithCode(1);
    EXPECT_EXIT(merge_binary_images(nullptr, door), status_one, "the Mask image is NULL : this mask image must be");
    EXPECT_EXIT(merge_binary_images_color(mask, mask), status_one,
                "io_img2 is not a COLOR_IMG_3BYTES : no merge color is applied \n");
}
