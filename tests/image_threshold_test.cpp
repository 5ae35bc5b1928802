#include <gtest/gtest.h>

#include <cmath>

#include "image_test_support.h"

using namespace image_test;

// What grey thresholding writes is held against a pixel walk with the
// change kernels; here, the kind it refuses.
TEST(Thresholding, GreyRefusesAColourSource)
{
    owned keep;
    rectangle all = box(0, 0, 4, 2);
    image* dst = keep.make(GREY_IMG, 4, 2);
    EXPECT_EQ(grey_thresholding(keep.make(COLOR_IMG_3BYTES, 4, 2), 0, &all, dst), -1);
}

// Float and signed integer thresholding keep the value or give zero.
TEST(Thresholding, FloatAndIntegerKeepTheValueNot255AndReadFourBytesAPixel)
{
    owned keep;
    rectangle all = box(0, 0, 3, 1);
    image* f = keep.make(FLOAT_IMG, 3, 1);
    put_all<float>(f, {2.5f, 0.5f, std::nanf("")});
    image* fout = keep.make(GREY_IMG, 1, 1);  // re-made as a FLOAT_IMG
    ASSERT_EQ(float_thresholding(f, 1.0f, &all, fout), 0);
    EXPECT_EQ(at<float>(fout, 0), 2.5f);
    EXPECT_EQ(at<float>(fout, 1), 0.0f);
    EXPECT_EQ(at<float>(fout, 2), 0.0f) << "NaN does not pass";
    image* n = keep.make(INT_IMG, 3, 1);
    put_all<int32_t>(n, {-5, 7, 3});
    ASSERT_EQ(int_thresholding(n, 0xFFFFFFF0u, &all, fout), 0);
    EXPECT_EQ(at<int32_t>(fout, 0), -5) << "-16 as a signed threshold";

    // No kind is refused: a grey source is read four bytes per pixel, and
    // the pixels whose four bytes lie past the buffer are skipped.
    all = box(0, 0, 6, 1);
    image* grey = keep.make(GREY_IMG, 6, 1, {1, 0, 0, 0, 9, 9});
    image* out = keep.make(GREY_IMG, 6, 1, bytes_t(6, 7));
    ASSERT_EQ(int_thresholding(grey, 1, &all, out), 0);
    EXPECT_EQ(bytes(out, 6), (bytes_t{1, 0, 0, 0, 7, 7})) << "pixel 0 is bytes 0..3; pixel 1 would pass the end";
    ASSERT_EQ(float_thresholding(keep.make(GREY_IMG, 3, 1), 0.0f, &all, out), 0) << "no pixel fits: nothing read";
}

TEST(Thresholding, ColourModesStepOneBytePerPixel)
{
    owned keep;
    rectangle all = box(0, 0, 3, 1);
    // Step i reads bytes i..i+2 as blue, green, red.
    image* bgr = keep.make(COLOR_IMG_3BYTES, 3, 1, {10, 20, 30, 40, 50, 60, 70, 80, 90});
    image* grey = keep.make(GREY_IMG, 3, 1);
    ASSERT_EQ(color_thresholding(bgr, 40, 0, 0, &all, BAND_RED, 1, grey), 0);
    EXPECT_EQ(bytes(grey, 3), (bytes_t{0, 40, 50}));
    // Mode 1: the first passing band in the order red, green, blue.
    ASSERT_EQ(color_thresholding(bgr, 200, 25, 0, &all, BAND_RED | BAND_GREEN | BAND_BLUE, 1, grey), 0);
    EXPECT_EQ(bytes(grey, 3), (bytes_t{10, 30, 40}));
    // Mode 2: every selected band passes; the value of the last selected one.
    ASSERT_EQ(color_thresholding(bgr, 35, 25, 0, &all, BAND_RED | BAND_GREEN, 2, grey), 0);
    EXPECT_EQ(color_thresholding(bgr, 0, 0, 0, &all, BAND_RED, 3, grey), -2);  // unknown mode, untouched
    EXPECT_EQ(bytes(grey, 3), (bytes_t{0, 30, 40}));
    EXPECT_EQ(color_thresholding(grey, 0, 0, 0, &all, BAND_RED, 1, grey), -1);  // colour input only
    // Mode 2 with no band: nothing selected fails, and "else red" gives the red byte.
    ASSERT_EQ(color_thresholding(bgr, 255, 255, 255, &all, band_t(0), 2, grey), 0);
    EXPECT_EQ(bytes(grey, 3), (bytes_t{30, 40, 50}));
    // Mode 0: unselected bands write 0 over the stepped bytes; later bytes stay.
    image* colour = keep.make(COLOR_IMG_3BYTES, 3, 1, bytes_t(9, 7));
    ASSERT_EQ(color_thresholding(bgr, 0, 0, 25, &all, BAND_RED | BAND_GREEN | BAND_BLUE, 0, colour), 0);
    EXPECT_EQ(bytes(colour, 9), (bytes_t{0, 0, 30, 40, 50, 7, 7, 7, 7}));
}
