#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

rectangle box(int x, int y, int w, int h)
{
    rectangle r;
    init_rectangle(&r, x, y, w, h);
    return r;
}

unsigned char* pixel(image* img, int x, int y) { return img->data + (y * img->width + x) * 3; }

int count_nonzero(const image* img)
{
    int n = 0;
    for (size_t i = 0; i < size_t{img->width} * img->height * img->bytes_per_pixel; ++i) n += img->data[i] != 0;
    return n;
}

}  // namespace

TEST(DrawRectangle, OutlineValuesByKind)
{
    image* colour = make_image(COLOR_IMG_3BYTES, 6, 5);
    unsigned char* corner = pixel(colour, 1, 1);
    corner[0] = 10, corner[1] = 20, corner[2] = 30;
    rectangle r = box(1, 1, 3, 3);
    ASSERT_EQ(draw_rectangle(&r, colour), 0);
    EXPECT_EQ(corner[0], 255);  // only the blue byte is set
    EXPECT_EQ(corner[1], 20);
    EXPECT_EQ(corner[2], 30);
    EXPECT_EQ(pixel(colour, 3, 2)[0], 255);
    EXPECT_EQ(pixel(colour, 2, 2)[0], 0);  // inside is untouched
    EXPECT_EQ(count_nonzero(colour), 8 + 2);

    ASSERT_EQ(draw_color_rectangle(&r, colour, 1, 2, 3), 0);
    EXPECT_EQ(corner[2], 1);
    EXPECT_EQ(corner[1], 2);
    EXPECT_EQ(corner[0], 3);

    image* grey = make_image(GREY_IMG, 4, 4);
    rectangle dot = box(2, 2, 1, 1);
    ASSERT_EQ(draw_color_rectangle(&dot, grey, 1, 2, 3), 0);  // colour ignored
    EXPECT_EQ(grey->data[2 * 4 + 2], 155);
    EXPECT_EQ(count_nonzero(grey), 1);

    image* f = make_image(FLOAT_IMG, 4, 4);
    ASSERT_EQ(draw_rectangle(&dot, f), 0);
    float v;
    std::memcpy(&v, f->data + 4 * (2 * 4 + 2), 4);
    EXPECT_EQ(v, 255.0f);

    image* ints = make_image(INT_IMG, 4, 4);
    EXPECT_EQ(draw_rectangle(&dot, ints), -1);
    for (image* i : {colour, grey, f, ints}) destroy_image(i);
}

TEST(DrawRectangle, RefusalsAndClipping)
{
    image* grey = make_image(GREY_IMG, 5, 4);
    rectangle wide = box(0, 0, 6, 2);  // xmax == width
    EXPECT_EQ(draw_rectangle(&wide, grey), -1);
    rectangle tall = box(0, 0, 2, 5);
    EXPECT_EQ(draw_rectangle(&tall, grey), -1);
    EXPECT_EQ(draw_rectangle(nullptr, grey), -1);
    EXPECT_EQ(count_nonzero(grey), 0);

    // Negative xmin and ymin: the parts inside the image are drawn.
    rectangle off = box(-3, -2, 5, 4);  // xmax 1, ymax 1
    ASSERT_EQ(draw_rectangle(&off, grey), 0);
    EXPECT_EQ(grey->data[1 * 5 + 0], 155);  // row ymax
    EXPECT_EQ(grey->data[1 * 5 + 1], 155);
    EXPECT_EQ(grey->data[0 * 5 + 1], 155);  // column xmax
    EXPECT_EQ(count_nonzero(grey), 3);

    image* empty = make_image(GREY_IMG, 0, 0);
    rectangle dot = box(0, 0, 1, 1);
    EXPECT_EQ(draw_rectangle(&dot, empty), -1);
    destroy_image(empty);
    destroy_image(grey);
}

TEST(DrawLines, StraightAndDiagonal)
{
    image* img = make_image(COLOR_IMG_3BYTES, 5, 5);
    ASSERT_EQ(bb_draw_color_line(1, 3, 2, VERTICAL_LINE, img, 9, 8, 7), 0);
    for (int y = 1; y <= 3; ++y) EXPECT_EQ(pixel(img, 2, y)[2], 9);
    EXPECT_EQ(pixel(img, 2, 1)[0], 7);
    EXPECT_EQ(count_nonzero(img), 9);

    ASSERT_EQ(bb_draw_color_line(3, 1, 0, HORIZONTAL_LINE, img, 1, 1, 1), 0);  // from > to: nothing
    ASSERT_EQ(bb_draw_color_line(-10, 10, 4, HORIZONTAL_LINE, img, 1, 1, 1), 0);  // clipped to the row
    EXPECT_EQ(count_nonzero(img), 9 + 15);
    EXPECT_EQ(bb_draw_color_line(0, 1, 99, VERTICAL_LINE, img, 1, 1, 1), 0);  // off the image
    EXPECT_EQ(count_nonzero(img), 9 + 15);

    image* grey = make_image(GREY_IMG, 5, 5);
    EXPECT_EQ(bb_draw_color_line(0, 1, 0, VERTICAL_LINE, grey, 1, 1, 1), -1);
    EXPECT_EQ(bb_draw_color_line_diag(0, 0, 1, 1, grey, 1, 1, 1), -1);
    destroy_image(grey);

    clear_image(img);
    ASSERT_EQ(bb_draw_color_line_diag(0, 0, 0, 0, img, 255, 0, 0), 0);
    EXPECT_EQ(pixel(img, 0, 0)[2], 255);
    EXPECT_EQ(count_nonzero(img), 1);

    clear_image(img);
    ASSERT_EQ(bb_draw_color_line_diag(0, 0, 4, 4, img, 0, 255, 0), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(pixel(img, i, i)[1], 255) << i;
    EXPECT_EQ(count_nonzero(img), 5);
    ASSERT_EQ(bb_draw_color_line_diag(-100, 2, 100, 2, img, 0, 0, 1), 0);  // samples off the image skipped
    destroy_image(img);
}

TEST(ClearImageArea, ByKind)
{
    image* grey = make_image(GREY_IMG, 4, 3);
    std::memset(grey->data, 7, 12);
    rectangle r = box(-1, 1, 3, 9);  // clipped to columns 0..1, rows 1..2
    ASSERT_EQ(clear_image_area(grey, &r), 0);
    EXPECT_EQ(count_nonzero(grey), 12 - 4);
    EXPECT_EQ(grey->data[4], 0);
    EXPECT_EQ(grey->data[6], 7);
    rectangle outside = box(10, 10, 2, 2);
    EXPECT_EQ(clear_image_area(grey, &outside), 0);
    destroy_image(grey);

    image* bg = make_image(BG_IMG, 2, 2);
    EXPECT_EQ(clear_image_area(bg, &r), -1);
    destroy_image(bg);

    // Four-byte colour: starts at the first pixel's index * 3, clears three
    // bytes, steps four.
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(4 * 4));
    std::memset(buffer, 1, 16);
    image* wide = image_data_encapsulate(buffer, 1, 4, nullptr, COLOR_IMG_4BYTES);
    rectangle mid = box(1, 0, 2, 1);
    ASSERT_EQ(clear_image_area(wide, &mid), 0);
    const unsigned char expected[16] = {1, 1, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(std::memcmp(buffer, expected, 16), 0);
    destroy_image(wide);
}

TEST(MergeBinaryImages, ColourDoorFamilies)
{
    image* mask = make_image(GREY_IMG, 4, 2);
    const unsigned char codes[8] = {255, 100, 0, 125, 50, 150, 200, 77};
    std::memcpy(mask->data, codes, 8);
    image* door = make_image(COLOR_IMG_3BYTES, 4, 2);
    auto paint = [&](int i, unsigned char b, unsigned char g, unsigned char r) {
        door->data[3 * i] = b, door->data[3 * i + 1] = g, door->data[3 * i + 2] = r;
    };
    paint(0, 0, 0, 255);   // pure red: 255 -> 50
    paint(1, 9, 9, 0);     // empty door: 100 -> 150
    paint(2, 0, 0, 255);   // 0 stays 0
    paint(3, 1, 0, 255);   // red but not pure: base 255
    paint(4, 0, 0, 0);     // empty: 50 -> 125
    paint(5, 0, 0, 255);   // pure red: 150 -> 200
    paint(6, 5, 5, 5);     // other: base 100
    paint(7, 0, 0, 0);     // 77 is in no family
    merge_binary_images(mask, door);
    const unsigned char merged[8] = {50, 150, 0, 255, 125, 200, 100, 77};
    EXPECT_EQ(std::memcmp(mask->data, merged, 8), 0);

    // A grey door only turns 125 into 255, whatever it holds.
    image* grey_door = make_image(GREY_IMG, 4, 2);
    mask->data[0] = 125;
    mask->data[1] = 150;
    merge_binary_images(mask, grey_door);
    EXPECT_EQ(mask->data[0], 255);
    EXPECT_EQ(mask->data[1], 150);
    EXPECT_EQ(mask->data[4], 255);

    image* picture = merge_binary_images_color(mask, door);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->type, COLOR_IMG_3BYTES);
    auto rgb = [&](int i) {
        const unsigned char* p = picture->data + 3 * i;
        return cv::Vec3b(p[2], p[1], p[0]);
    };
    // mask {255, 150, 0, 255, 255, 200, 100, 77} over the door above
    EXPECT_EQ(rgb(0), cv::Vec3b(0, 100, 100));  // door red
    EXPECT_EQ(rgb(1), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(rgb(2), cv::Vec3b(0, 100, 100));
    mask->data[2] = 50;
    mask->data[6] = 0;
    image* again = merge_binary_images_color(mask, door);
    EXPECT_EQ(again->data[3 * 2 + 2], 255);  // 50 is red even over a red door
    EXPECT_EQ(again->data[3 * 2 + 1], 0);
    EXPECT_EQ(again->data[3 * 6 + 2], 0);  // 0 over a non-red door is black
    for (image* i : {mask, door, grey_door, picture, again}) destroy_image(i);
}

TEST(MergeBinaryImagesDeathTest, MissingOrMismatchedMasksEndTheProcess)
{
    image* mask = make_image(GREY_IMG, 4, 2);
    image* door = make_image(COLOR_IMG_3BYTES, 4, 2);
    image* short_door = make_image(COLOR_IMG_3BYTES, 4, 1);
    image* narrow_door = make_image(COLOR_IMG_3BYTES, 3, 2);
    EXPECT_EXIT(merge_binary_images(nullptr, door), testing::ExitedWithCode(1),
                "the Mask image is NULL : this mask image must be defined \\(use an empty mask \\(pix=255\\)if you do "
                "not want to hide any thing\\)");
    EXPECT_EXIT(merge_binary_images(mask, nullptr), testing::ExitedWithCode(1),
                "the Door Mask image is NULL : this Door mask image must be defined");
    EXPECT_EXIT(merge_binary_images(door, door), testing::ExitedWithCode(1),
                "io_img1 is not a GREY_IMG : no merge is applied ");
    EXPECT_EXIT(merge_binary_images(mask, short_door), testing::ExitedWithCode(1),
                "io_img1 height and i_img2 height are not the same : no merge is applied ");
    EXPECT_EXIT(merge_binary_images(mask, narrow_door), testing::ExitedWithCode(1),
                "io_img1 width and i_img2 width are not the same : no merge is applied ");

    EXPECT_EXIT(merge_binary_images_color(mask, nullptr), testing::ExitedWithCode(1),
                "the Door Mask image is NULL : this Door mask image must be defined");
    EXPECT_EXIT(merge_binary_images_color(door, door), testing::ExitedWithCode(1),
                "io_img1 is not a GREY_IMG : no merge color is applied ");
    EXPECT_EXIT(merge_binary_images_color(mask, mask), testing::ExitedWithCode(1),
                "io_img2 is not a COLOR_IMG_3BYTES : no merge color is applied ");
    EXPECT_EXIT(merge_binary_images_color(mask, short_door), testing::ExitedWithCode(1),
                "io_img1 height and i_img2 height are not the same : no merge is applied ");
    for (image* i : {mask, door, short_door, narrow_door}) destroy_image(i);
}

TEST(CheckRGBChannels, MarginAndRefusals)
{
    image* img = make_image(COLOR_IMG_3BYTES, 30, 30);  // margin 1
    pixel(img, 0, 0)[2] = 250;     // in the margin: ignored
    pixel(img, 1, 1)[2] = 200;
    pixel(img, 28, 28)[2] = 3;
    int hi = 0, lo = 0;
    check_RGB_channels_extension(img, &hi, &lo, 0);
    EXPECT_EQ(hi, 200);
    EXPECT_EQ(lo, 0);
    pixel(img, 29, 29)[0] = 99;  // margin again
    check_RGB_channels_extension(img, &hi, &lo, 2);
    EXPECT_EQ(hi, 0);

    image* grey = make_image(GREY_IMG, 30, 30);
    testing::internal::CaptureStdout();
    check_RGB_channels_extension(grey, &hi, &lo, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "image : RGB_channels_extension ERROR : this function handles color image only! Sorry...");
    EXPECT_EQ(hi, -1);
    EXPECT_EQ(lo, -1);
    check_RGB_channels_extension(nullptr, &hi, &lo, 0);
    EXPECT_EQ(hi, -1);
    destroy_image(grey);
    destroy_image(img);
}

TEST(SaveGradient, FourFilesWithTheirNames)
{
    image* gx = make_image(FLOAT_IMG, 4, 3);
    image* gy = make_image(FLOAT_IMG, 4, 3);
    const float u = 3.0f, v = -4.0f;
    std::memcpy(gx->data + 4 * (1 * 4 + 1), &u, 4);
    std::memcpy(gy->data + 4 * (1 * 4 + 1), &v, 4);
    const std::string base = testing::TempDir() + "nerva_out";
    ASSERT_EQ(save_gradient(gx, gy, base.c_str()), 0);

    cv::Mat x = cv::imread(base + "_gradx..ppm", cv::IMREAD_UNCHANGED);
    cv::Mat y = cv::imread(base + "_grady.ppm", cv::IMREAD_UNCHANGED);
    cv::Mat m = cv::imread(base + "_gradm.ppm", cv::IMREAD_UNCHANGED);
    cv::Mat o = cv::imread(base + "_grado.ppm", cv::IMREAD_UNCHANGED);
    ASSERT_FALSE(x.empty() || y.empty() || m.empty() || o.empty());
    EXPECT_EQ(x.at<unsigned char>(1, 1), 6);
    EXPECT_EQ(y.at<unsigned char>(1, 1), 8);
    EXPECT_EQ(m.at<unsigned char>(1, 1), 7);  // 5 * sqrt(2) = 7.07
    // atan2(-4, 3) = -0.927: (pi - 0.927) / 2pi * 255 = 89.87
    EXPECT_EQ(o.at<unsigned char>(1, 1), 89);
    EXPECT_EQ(o.at<unsigned char>(0, 0), 0);  // border
    EXPECT_EQ(save_gradient(gx, nullptr, base.c_str()), -1);
    destroy_image(gx);
    destroy_image(gy);
}
