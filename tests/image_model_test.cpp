#include <gtest/gtest.h>

#include <cstdlib>

#include "image_test_support.h"

using namespace image_test;

TEST(ImageInitialize, AFourByteColourKindIsMadeThreeByteAndAnUnknownKindRefused)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_4BYTES, 4, 3);  // never set up as four-byte
    EXPECT_EQ(colour->type, COLOR_IMG_3BYTES);
    EXPECT_EQ(colour->bytes_per_pixel, 3);
    EXPECT_EQ(make_image(image_type(-8), 2, 2), nullptr);
}

TEST(ImageInitialize, ReusesTheBufferWhileItHasRoom)
{
    owned keep;
    // Same kind with room: nothing changes, not even the size.
    image* grey = keep.make(GREY_IMG, 100, 100);
    unsigned char* buffer = grey->data;
    EXPECT_EQ(initialize_image(grey, GREY_IMG, 10, 10), 0);
    EXPECT_EQ(grey->width, 100u);
    // Another kind that fits takes the buffer; capacity never claims more.
    grey->x_origin = 5;
    EXPECT_EQ(initialize_image(grey, FLOAT_IMG, 50, 50), 0);
    EXPECT_EQ(grey->data, buffer);
    EXPECT_EQ(grey->x_origin, 5);
    EXPECT_EQ(grey->width, 50u);
    EXPECT_EQ(grey->capacity * grey->bytes_per_pixel, 10000u);
    // Too big: a fresh set-up.
    EXPECT_EQ(initialize_image(grey, FLOAT_IMG, 60, 60), 1);
    EXPECT_EQ(grey->x_origin, 0);
    EXPECT_EQ(clear_image(keep.make(GREY_IMG, 0, 0)), -1);  // no buffer
}

TEST(ImageInitialize, CapacityZeroIsASetUpOverNoPixelsOrAHostsBuffer)
{
    owned keep;
    image* empty = keep.make(COLOR_IMG_3BYTES, 5, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->bytes_per_pixel, 3);
    EXPECT_EQ(empty->capacity, 0u);
    EXPECT_NE(empty->data, nullptr);
    EXPECT_EQ(clear_image(empty), 0);  // no byte to clear
    image* grey = keep.make(GREY_IMG, 2, 2);
    EXPECT_EQ(initialize_image(grey, FLOAT_IMG, 0, 10), 1);
    EXPECT_EQ(grey->bytes_per_pixel, 4);
    EXPECT_EQ(grey->height, 10u);
    EXPECT_EQ(grey->capacity, 0u);
    EXPECT_EQ(initialize_image(grey, FLOAT_IMG, 3, 3), 1);
    EXPECT_EQ(grey->capacity, 9u) << "a real buffer again";

    // A generic kind's buffer is the host's (capacity 0): clear_image leaves it.
    image* generic = make_image(image_type(2), 2, 2);
    generic->data[0] = 9;
    EXPECT_EQ(clear_image(generic), 0);
    EXPECT_EQ(generic->data[0], 9);
    std::free(generic->data);
    destroy_image(generic);
}

TEST(ImageCopyDeathTest, WholeImageAndUnsupportedKindExitingWithStatusZero)
{
    owned keep;
    image* src = keep.make(COLOR_IMG_3BYTES, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18});
    src->name = strdup("cam");
    image* copy = keep(copy_whole_image(src));
    EXPECT_EQ(bytes(copy, 18), bytes(src, 18));
    EXPECT_NE(copy->name, src->name);
    EXPECT_STREQ(copy->name, "cam");
    EXPECT_EXIT(copy_whole_image(keep.make(GREY_IMG, 2, 2)), testing::ExitedWithCode(0),
                "This type of image is not handled by copy_whole_image");
}

TEST(ImageCopy, ContentInPlaceCroppedAndRefused)
{
    owned keep;
    image* src = keep.make(GREY_IMG, 4, 3, {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21});
    image* dst = keep.make(GREY_IMG, 4, 3);
    rectangle inner = box(1, 1, 2, 5), corner = box(2, 1, 2, 2);  // inner is clipped at the bottom
    ASSERT_EQ(copy_image_content(src, &inner, dst, COPY_IN_PLACE), 0);
    EXPECT_EQ(bytes(dst, 12), (bytes_t{0, 0, 0, 0, 0, 15, 16, 0, 0, 19, 20, 0}));
    image* crop = keep.make(GREY_IMG, 1, 1);
    ASSERT_EQ(copy_image_content(src, &corner, crop, COPY_CROP), 0);
    EXPECT_EQ(crop->width, 2u);
    EXPECT_EQ(bytes(crop, 4), (bytes_t{16, 17, 20, 21}));
    EXPECT_EQ(copy_image_content(src, &corner, dst, copy_type_t(2)), -1);
    rectangle backwards = box(0, 0, -1, 1);
    EXPECT_EQ(copy_image_content(src, &backwards, dst, COPY_CROP), -1);
    EXPECT_EQ(dst->width, 4u) << "not 4 billion wide";
}

TEST(ImageCopy, GreyConversionStepsOneBytePerPixel)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 3, 2, {10, 20, 30, 40, 50, 60, 70, 80, 90, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    rectangle row1 = box(1, 1, 2, 1), all = box(0, 0, 2, 1);
    image* grey = keep(convert_to_grey(colour, &row1));
    // Row 1 starts at byte (1 * 3 + 1) * 3 = 12, then advances one byte.
    EXPECT_EQ(bytes(grey, 6),
              (bytes_t{0, 0, 0, 0, (299 * 6 + 587 * 5 + 114 * 4) / 1000, (299 * 7 + 587 * 6 + 114 * 5) / 1000}));
    EXPECT_EQ(convert_to_grey(grey, &row1), grey);  // no copy

    image* packed = keep.make(SIGNED_COLOR_IMG, 2, 1);
    put<uint32_t>(packed, 0, pack(200, -10, 100));  // signed fields
    EXPECT_EQ(keep(convert_to_grey(packed, &all))->data[0], (299 * 200 - 587 * 10 + 114 * 100) / 1000);
    EXPECT_EQ(convert_to_grey(keep.make(BG_IMG, 2, 1), &all), nullptr);
}

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
    // Columns 5..9: indices 0..4.
    ASSERT_EQ(clear_image_area(grey, &wide), 0);
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
    // Source indices 2, 3 into mask 0, 1.
    ASSERT_EQ(grey_thresholding(src, 25, &first_two, mask), 0);
    EXPECT_EQ(bytes(mask, 4), (bytes_t{255, 255, 7, 7}));

    // The grey conversion is made with origins 0: a moved source lands shifted.
    image* real = keep.make(FLOAT_IMG, 3, 1);
    put_all<float>(real, {1.0f, 2.0f, 3.0f});
    real->x_origin = 1;
    image* converted = keep(convert_to_grey(real, &all));
    EXPECT_EQ(converted->x_origin, 0);
    EXPECT_EQ(converted->y_origin, 0);
    EXPECT_EQ(bytes(converted, 3), (bytes_t{0, 1, 2}));
}
