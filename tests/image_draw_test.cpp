#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

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

TEST(DrawRectangle, OutlineValuesRefusalsAndClipping)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 6, 5);
    unsigned char* corner = pixel(colour, 1, 1);
    corner[0] = 10, corner[1] = 20, corner[2] = 30;
    rectangle r = box(1, 1, 3, 3), dot = box(2, 2, 1, 1);
    ASSERT_EQ(draw_rectangle(&r, colour), 0);
    EXPECT_EQ(bytes_t(corner, corner + 3), (bytes_t{255, 20, 30}));
    EXPECT_EQ(nonzero_bytes(colour), 8 + 2);  // eight outline pixels, blue byte only
    ASSERT_EQ(draw_color_rectangle(&r, colour, 1, 2, 3), 0);
    EXPECT_EQ(bytes_t(corner, corner + 3), (bytes_t{3, 2, 1}));  // given as red, green, blue

    image* grey = keep.make(GREY_IMG, 5, 4);
    ASSERT_EQ(draw_color_rectangle(&dot, grey, 1, 2, 3), 0);  // colour ignored
    EXPECT_TRUE(grey->data[2 * 5 + 2] == 155 && nonzero_bytes(grey) == 1);
    EXPECT_EQ(draw_rectangle(&dot, keep.make(INT_IMG, 4, 4)), -1);

    clear_image(grey);
    rectangle wide = box(0, 0, 6, 2), tall = box(0, 0, 2, 5);  // xmax == width, ymax == height
    EXPECT_TRUE(draw_rectangle(&wide, grey) == -1 && draw_rectangle(&tall, grey) == -1);
    rectangle off = box(-3, -2, 5, 4);  // xmax 1, ymax 1: only the part inside is drawn
    ASSERT_EQ(draw_rectangle(&off, grey), 0);
    EXPECT_EQ(nonzero_bytes(grey), 3);
    EXPECT_EQ(grey->data[1] + grey->data[5] + grey->data[6], 3 * 155);
}

TEST(DrawLines, StraightAndDiagonal)
{
    owned keep;
    image* img = keep.make(COLOR_IMG_3BYTES, 5, 5);
    ASSERT_EQ(bb_draw_color_line(1, 3, 2, VERTICAL_LINE, img, 9, 8, 7), 0);
    EXPECT_EQ(bytes_t(pixel(img, 2, 3), pixel(img, 2, 3) + 3), (bytes_t{7, 8, 9}));
    EXPECT_EQ(nonzero_bytes(img), 9);
    ASSERT_EQ(bb_draw_color_line(3, 1, 0, HORIZONTAL_LINE, img, 1, 1, 1), 0);    // from > to: nothing
    ASSERT_EQ(bb_draw_color_line(-10, 10, 4, HORIZONTAL_LINE, img, 1, 1, 1), 0);  // clipped to the row
    ASSERT_EQ(bb_draw_color_line(0, 1, 99, VERTICAL_LINE, img, 1, 1, 1), 0);      // off the image
    EXPECT_EQ(nonzero_bytes(img), 9 + 15);
    EXPECT_EQ(bb_draw_color_line(0, 1, 0, VERTICAL_LINE, keep.make(GREY_IMG, 5, 5), 1, 1, 1), -1);

    clear_image(img);
    ASSERT_EQ(bb_draw_color_line_diag(0, 0, 4, 4, img, 0, 255, 0), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(pixel(img, i, i)[1], 255) << i;
    EXPECT_EQ(nonzero_bytes(img), 5);
    ASSERT_EQ(bb_draw_color_line_diag(-100, 2, 100, 2, img, 0, 0, 1), 0);  // samples off the image skipped
    EXPECT_EQ(nonzero_bytes(img), 9);  // whole pixels: (2, 2) loses its green
}

TEST(ClearImageArea, ClippedAndByKind)
{
    owned keep;
    image* grey = keep.make(GREY_IMG, 4, 3, bytes_t(12, 7));
    rectangle r = box(-1, 1, 3, 9), mid = box(1, 0, 2, 1);  // r: columns 0..1, rows 1..2
    ASSERT_EQ(clear_image_area(grey, &r), 0);
    EXPECT_EQ(bytes(grey, 12), (bytes_t{7, 7, 7, 7, 0, 0, 7, 7, 0, 0, 7, 7}));
    EXPECT_EQ(clear_image_area(keep.make(BG_IMG, 2, 2), &r), -1);

    // Four-byte colour: three bytes cleared from the first pixel's index * 3,
    // then four-byte steps.
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(16));
    std::memset(buffer, 1, 16);
    image* wide = keep(image_data_encapsulate(buffer, 1, 4, nullptr, COLOR_IMG_4BYTES));
    ASSERT_EQ(clear_image_area(wide, &mid), 0);
    EXPECT_EQ(bytes(wide, 16), (bytes_t{1, 1, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1, 1, 1}));
}

TEST(MergeBinaryImages, DoorFamiliesAndPicture)
{
    owned keep;
    image* mask = keep.make(GREY_IMG, 4, 2, {255, 100, 0, 125, 50, 150, 200, 77});
    // Door pixels (blue, green, red): red, empty, red, not pure red, empty, red, grey, empty.
    image* door = keep.make(COLOR_IMG_3BYTES, 4, 2, {0, 0, 255, 9, 9, 0, 0, 0, 255, 1, 0, 255,
                                                     0, 0, 0, 0, 0, 255, 5, 5, 5, 0, 0, 0});
    merge_binary_images(mask, door);
    EXPECT_EQ(bytes(mask, 8), (bytes_t{50, 150, 0, 255, 125, 200, 100, 77}));
    merge_binary_images(mask, keep.make(GREY_IMG, 4, 2));  // grey door: only 125 -> 255
    EXPECT_EQ(bytes(mask, 8), (bytes_t{50, 150, 0, 255, 255, 200, 100, 77}));

    mask->data[6] = 0;
    image* picture = keep(merge_binary_images_color(mask, door));
    // 50: red; else door red byte 255: (r, g, b) = (0, 100, 100); else 0: black; else white
    EXPECT_EQ(bytes(picture, 24), (bytes_t{0, 0, 255, 255, 255, 255, 100, 100, 0, 100, 100, 0,
                                           255, 255, 255, 100, 100, 0, 0, 0, 0, 255, 255, 255}));
}

TEST(MergeBinaryImagesDeathTest, MissingOrMismatchedMasksExitWithStatusOne)
{
    owned keep;
    image* mask = keep.make(GREY_IMG, 4, 2);
    image* door = keep.make(COLOR_IMG_3BYTES, 4, 2);
    const auto status_one = testing::ExitedWithCode(1);
    EXPECT_EXIT(merge_binary_images(nullptr, door), status_one,
                "the Mask image is NULL : this mask image must be defined \\(use an empty mask \\(pix=255\\)if you do "
                "not want to hide any thing\\)\n");
    EXPECT_EXIT(merge_binary_images(mask, nullptr), status_one,
                "the Door Mask image is NULL : this Door mask image must be defined\n");
    EXPECT_EXIT(merge_binary_images(door, door), status_one, "io_img1 is not a GREY_IMG : no merge is applied \n");
    EXPECT_EXIT(merge_binary_images(mask, keep.make(COLOR_IMG_3BYTES, 4, 1)), status_one,
                "io_img1 height and i_img2 height are not the same : no merge is applied \n");
    EXPECT_EXIT(merge_binary_images_color(mask, keep.make(COLOR_IMG_3BYTES, 3, 2)), status_one,
                "io_img1 width and i_img2 width are not the same : no merge is applied \n");
    EXPECT_EXIT(merge_binary_images_color(door, door), status_one,
                "io_img1 is not a GREY_IMG : no merge color is applied \n");
    EXPECT_EXIT(merge_binary_images_color(mask, mask), status_one,
                "io_img2 is not a COLOR_IMG_3BYTES : no merge color is applied \n");
}

TEST(SaveGradient, FourFilesWithTheirNames)
{
    owned keep;
    image *gx = keep.make(FLOAT_IMG, 4, 3), *gy = keep.make(FLOAT_IMG, 4, 3);
    put<float>(gx, 5, 3.0f);  // pixel (1, 1)
    put<float>(gy, 5, -4.0f);
    const std::string base = temp_path("out");
    ASSERT_EQ(save_gradient(gx, gy, base.c_str()), 0);
    // 2|gx|, 2|gy|, 5 * sqrt(2), (pi + atan2(-4, 3)) / 2pi * 255; borders 0
    const std::pair<const char*, int> files[] = {{"_gradx..ppm", 6}, {"_grady.ppm", 8}, {"_gradm.ppm", 7}, {"_grado.ppm", 89}};
    for (auto [suffix, value] : files) {
        const cv::Mat m = cv::imread(base + suffix, cv::IMREAD_UNCHANGED);
        ASSERT_FALSE(m.empty()) << suffix;
        EXPECT_TRUE(m.at<unsigned char>(1, 1) == value && m.at<unsigned char>(0, 0) == 0) << suffix;
    }
}
