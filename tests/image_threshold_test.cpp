#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

rectangle box(int x, int y, int w, int h)
{
    rectangle r;
    init_rectangle(&r, x, y, w, h);
    return r;
}

std::vector<unsigned char> bytes_of(const image* img)
{
    return std::vector<unsigned char>(img->data, img->data + img->width * img->height * img->bytes_per_pixel);
}

}  // namespace

TEST(GreyThresholding, BinaryOutputInsideTheClippedRectangle)
{
    image* src = make_image(GREY_IMG, 4, 2);
    const unsigned char values[8] = {0, 9, 10, 11, 255, 3, 10, 200};
    std::memcpy(src->data, values, 8);
    image* dst = make_image(GREY_IMG, 4, 2);
    std::memset(dst->data, 7, 8);

    rectangle r = box(1, -3, 2, 10);  // columns 1..2, all rows
    ASSERT_EQ(grey_thresholding(src, 10, &r, dst), 0);
    EXPECT_EQ(bytes_of(dst), (std::vector<unsigned char>{7, 0, 255, 7, 7, 0, 255, 7}));

    rectangle all = box(0, 0, 4, 2);
    ASSERT_EQ(grey_thresholding(src, 0, &all, dst), 0);
    EXPECT_EQ(bytes_of(dst), std::vector<unsigned char>(8, 255));
    ASSERT_EQ(grey_thresholding(src, 256, &all, dst), 0);
    EXPECT_EQ(bytes_of(dst), std::vector<unsigned char>(8, 0));

    std::memset(dst->data, 7, 8);
    rectangle left = box(-5, 0, 3, 2), above = box(0, -9, 4, 3);
    EXPECT_EQ(grey_thresholding(src, 0, &left, dst), 0);
    EXPECT_EQ(grey_thresholding(src, 0, &above, dst), 0);
    EXPECT_EQ(bytes_of(dst), std::vector<unsigned char>(8, 7));

    image* colour = make_image(COLOR_IMG_3BYTES, 4, 2);
    EXPECT_EQ(grey_thresholding(colour, 0, &all, dst), -1);
    // A destination that keeps a shape too narrow for the source is refused.
    image* strip = make_image(GREY_IMG, 8, 1);
    EXPECT_EQ(grey_thresholding(src, 0, &all, strip), -1);
    for (image* i : {src, dst, colour, strip}) destroy_image(i);
}

TEST(KeepOrZeroThresholding, FloatAndSignedInteger)
{
    image* f = make_image(FLOAT_IMG, 3, 1);
    const float fv[3] = {2.5f, 0.5f, std::nanf("")};
    std::memcpy(f->data, fv, sizeof fv);
    image* fout = make_image(GREY_IMG, 1, 1);  // re-made as a FLOAT_IMG
    rectangle all = box(0, 0, 3, 1);
    ASSERT_EQ(float_thresholding(f, 1.0f, &all, fout), 0);
    ASSERT_EQ(fout->type, FLOAT_IMG);
    float got[3];
    std::memcpy(got, fout->data, sizeof got);
    EXPECT_EQ(got[0], 2.5f);  // the value itself, not 255
    EXPECT_EQ(got[1], 0.0f);
    EXPECT_EQ(got[2], 0.0f);

    image* n = make_image(INT_IMG, 3, 1);
    const int32_t nv[3] = {-5, 7, 3};
    std::memcpy(n->data, nv, sizeof nv);
    image* nout = make_image(INT_IMG, 3, 1);
    ASSERT_EQ(int_thresholding(n, 3, &all, nout), 0);
    int32_t ngot[3];
    std::memcpy(ngot, nout->data, sizeof ngot);
    EXPECT_EQ(ngot[0], 0);
    EXPECT_EQ(ngot[1], 7);
    EXPECT_EQ(ngot[2], 3);
    // A huge unsigned threshold is negative as a signed one: everything passes.
    ASSERT_EQ(int_thresholding(n, 0xFFFFFFF0u, &all, nout), 0);
    std::memcpy(ngot, nout->data, sizeof ngot);
    EXPECT_EQ(ngot[0], -5);

    image* grey = make_image(GREY_IMG, 3, 1);
    EXPECT_EQ(float_thresholding(grey, 0.0f, &all, fout), -1);  // one-byte pixels are not floats
    for (image* i : {f, fout, n, nout, grey}) destroy_image(i);
}

TEST(ColorThresholding, ModesAndTheOneByteStride)
{
    image* src = make_image(COLOR_IMG_3BYTES, 3, 1);
    // pixels (b, g, r): (10, 20, 30) (40, 50, 60) (70, 80, 90)
    for (int i = 0; i < 9; ++i) src->data[i] = static_cast<unsigned char>(10 * (i + 1));
    rectangle all = box(0, 0, 3, 1);

    image* grey = make_image(GREY_IMG, 3, 1);
    // Mode 1, red only: step i reads bytes i..i+2 as blue, green, red.
    ASSERT_EQ(color_thresholding(src, 40, 0, 0, &all, BAND_RED, 1, grey), 0);
    EXPECT_EQ(bytes_of(grey), (std::vector<unsigned char>{0, 40, 50}));
    // Mode 1 takes the first passing band in the order red, green, blue.
    ASSERT_EQ(color_thresholding(src, 200, 25, 0, &all, BAND_RED | BAND_GREEN | BAND_BLUE, 1, grey), 0);
    EXPECT_EQ(bytes_of(grey), (std::vector<unsigned char>{10, 30, 40}));
    // Mode 2: all selected must pass; the value is the last selected band.
    ASSERT_EQ(color_thresholding(src, 35, 25, 0, &all, BAND_RED | BAND_GREEN, 2, grey), 0);
    EXPECT_EQ(bytes_of(grey), (std::vector<unsigned char>{0, 30, 40}));
    ASSERT_EQ(color_thresholding(src, 0, 0, 20, &all, BAND_RED | BAND_BLUE, 2, grey), 0);
    EXPECT_EQ(bytes_of(grey), (std::vector<unsigned char>{0, 20, 30}));

    // Mode 3 is refused before the destination is touched.
    std::memset(grey->data, 7, 3);
    EXPECT_EQ(color_thresholding(src, 0, 0, 0, &all, BAND_RED, 3, grey), -2);
    EXPECT_EQ(grey->type, GREY_IMG);
    EXPECT_EQ(bytes_of(grey), std::vector<unsigned char>(3, 7));

    // Mode 0: colour output; with no band selected the stepped bytes become 0
    // and the bytes past them keep their values.
    image* colour = make_image(COLOR_IMG_3BYTES, 3, 1);
    std::memset(colour->data, 7, 9);
    ASSERT_EQ(color_thresholding(src, 0, 0, 0, &all, static_cast<band_t>(0), 0, colour), 0);
    EXPECT_EQ(bytes_of(colour), (std::vector<unsigned char>{0, 0, 0, 0, 0, 7, 7, 7, 7}));
    // Every band selected: each stepped byte ends as its own blue pass.
    ASSERT_EQ(color_thresholding(src, 0, 0, 25, &all, BAND_RED | BAND_GREEN | BAND_BLUE, 0, colour), 0);
    EXPECT_EQ(bytes_of(colour), (std::vector<unsigned char>{0, 0, 30, 40, 50, 7, 7, 7, 7}));

    EXPECT_EQ(color_thresholding(grey, 0, 0, 0, &all, BAND_RED, 1, grey), -1);  // colour input only
    for (image* i : {src, grey, colour}) destroy_image(i);
}
