#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

struct rect_holder {
    rectangle r;
    rect_holder(int x, int y, int w, int h) { init_rectangle(&r, x, y, w, h); }
    rectangle* operator&() { return &r; }
};

float float_at(const image* img, size_t i)
{
    float v;
    std::memcpy(&v, img->data + 4 * i, sizeof v);
    return v;
}

void set_float(image* img, size_t i, float v) { std::memcpy(img->data + 4 * i, &v, sizeof v); }

}  // namespace

TEST(ImageInitialize, KindsSizesAndTheFourBytesRule)
{
    image* colour = make_image(COLOR_IMG_4BYTES, 4, 3);
    ASSERT_NE(colour, nullptr);
    EXPECT_EQ(colour->type, COLOR_IMG_3BYTES);
    EXPECT_EQ(colour->bytes_per_pixel, 3);
    EXPECT_EQ(colour->capacity, 12u);
    destroy_image(colour);

    image* generic = make_image(static_cast<image_type>(2), 3, 3);
    ASSERT_NE(generic, nullptr);
    EXPECT_EQ(generic->bytes_per_pixel, 2);
    EXPECT_EQ(generic->capacity, 0u);  // handed over unowned
    std::free(generic->data);         // so destroy_image leaves it to us
    destroy_image(generic);

    EXPECT_EQ(make_image(static_cast<image_type>(0), 2, 2), nullptr);
    EXPECT_EQ(make_image(static_cast<image_type>(-8), 2, 2), nullptr);
    EXPECT_EQ(initialize_image(nullptr, GREY_IMG, 1, 1), -1);
    EXPECT_EQ(destroy_image(nullptr), -1);
}

TEST(ImageInitialize, SameKindWithRoomChangesNothingNotEvenTheSize)
{
    image* img = make_image(GREY_IMG, 100, 100);
    unsigned char* buffer = img->data;
    EXPECT_EQ(initialize_image(img, GREY_IMG, 10, 10), 0);
    EXPECT_EQ(img->width, 100u);
    EXPECT_EQ(img->height, 100u);
    EXPECT_EQ(img->data, buffer);

    // Growing past the capacity allocates afresh.
    EXPECT_EQ(initialize_image(img, GREY_IMG, 200, 100), 1);
    EXPECT_EQ(img->width, 200u);
    EXPECT_EQ(img->capacity, 20000u);
    destroy_image(img);
}

TEST(ImageInitialize, OtherKindReusesABufferThatFits)
{
    image* img = make_image(FLOAT_IMG, 10, 10);  // 400 bytes
    unsigned char* buffer = img->data;
    img->x_origin = 5;

    EXPECT_EQ(initialize_image(img, GREY_IMG, 20, 20), 0);
    EXPECT_EQ(img->data, buffer);
    EXPECT_EQ(img->type, GREY_IMG);
    EXPECT_EQ(img->width, 20u);
    EXPECT_EQ(img->bytes_per_pixel, 1);
    EXPECT_EQ(img->x_origin, 5);  // kept with the buffer
    EXPECT_LE(img->capacity * img->bytes_per_pixel, 400);

    // Back to four-byte pixels: capacity never claims more than the buffer.
    EXPECT_EQ(initialize_image(img, INT_IMG, 5, 5), 0);
    EXPECT_LE(img->capacity * img->bytes_per_pixel, 400);
    EXPECT_EQ(clear_image(img), 0);

    // Too big for the buffer: fresh set-up, origins back to 0.
    EXPECT_EQ(initialize_image(img, COLOR_IMG_3BYTES, 20, 20), 1);
    EXPECT_EQ(img->x_origin, 0);
    EXPECT_EQ(img->capacity, 400u);
    destroy_image(img);
}

TEST(ImageInitialize, EmptySizeHasNoBuffer)
{
    image* img = make_image(GREY_IMG, 0, 0);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->data, nullptr);
    EXPECT_EQ(img->capacity, 0u);
    EXPECT_EQ(clear_image(img), -1);
    destroy_image(img);
}

TEST(ImageCopy, WholeImageCopiesPixelsAndName)
{
    image* src = make_image(COLOR_IMG_3BYTES, 3, 2);
    for (int i = 0; i < 18; ++i) src->data[i] = static_cast<unsigned char>(i + 1);
    src->name = static_cast<char*>(std::malloc(4));
    std::strcpy(src->name, "cam");
    image* copy = copy_whole_image(src);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::memcmp(copy->data, src->data, 18), 0);
    ASSERT_NE(copy->name, nullptr);
    EXPECT_NE(copy->name, src->name);
    EXPECT_STREQ(copy->name, "cam");
    destroy_image(copy);
    destroy_image(src);

    image* f = make_image(FLOAT_IMG, 2, 2);
    set_float(f, 3, -2.5f);
    image* fc = copy_whole_image(f);
    EXPECT_EQ(float_at(fc, 3), -2.5f);
    destroy_image(fc);
    destroy_image(f);
    EXPECT_EQ(copy_whole_image(nullptr), nullptr);
}

TEST(ImageCopy, FourBytePixelsAreCopiedWhole)
{
    const int w = 5, h = 3;
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(4 * w * h));
    for (int i = 0; i < 4 * w * h; ++i) buffer[i] = static_cast<unsigned char>(200 - i);
    image* src = image_data_encapsulate(buffer, h, w, nullptr, COLOR_IMG_4BYTES);
    ASSERT_NE(src, nullptr);
    image* copy = copy_whole_image(src);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->type, COLOR_IMG_3BYTES);  // records are never set up as four-byte ones
    EXPECT_EQ(std::memcmp(copy->data, buffer, 4 * w * h), 0);
    destroy_image(copy);
    destroy_image(src);  // owns the wrapped buffer
}

TEST(ImageCopyDeathTest, UnsupportedKindEndsTheProcessWithStatusZero)
{
    image* grey = make_image(GREY_IMG, 2, 2);
    EXPECT_EXIT(copy_whole_image(grey), testing::ExitedWithCode(0),
                "This type of image is not handled by copy_whole_image");
    destroy_image(grey);
}

TEST(ImageCopy, ContentInPlaceAndCropped)
{
    image* src = make_image(GREY_IMG, 4, 3);
    for (int i = 0; i < 12; ++i) src->data[i] = static_cast<unsigned char>(10 + i);
    image* dst = make_image(GREY_IMG, 4, 3);

    rect_holder inner(1, 1, 2, 5);  // runs past the bottom: clipped
    ASSERT_EQ(copy_image_content(src, &inner, dst, COPY_IN_PLACE), 0);
    const unsigned char in_place[12] = {0, 0, 0, 0, 0, 15, 16, 0, 0, 19, 20, 0};
    EXPECT_EQ(std::memcmp(dst->data, in_place, 12), 0);

    image* crop = make_image(GREY_IMG, 1, 1);
    rect_holder corner(2, 1, 2, 2);
    ASSERT_EQ(copy_image_content(src, &corner, crop, COPY_CROP), 0);
    ASSERT_EQ(crop->width, 2u);
    const unsigned char cropped[4] = {16, 17, 20, 21};
    EXPECT_EQ(std::memcmp(crop->data, cropped, 4), 0);

    rect_holder whole(0, 0, 4, 3);
    ASSERT_EQ(copy_image_content(src, &whole, dst, COPY_IN_PLACE), 0);
    EXPECT_EQ(std::memcmp(dst->data, src->data, 12), 0);

    EXPECT_EQ(copy_image_content(src, &whole, dst, static_cast<copy_type_t>(2)), -1);
    EXPECT_EQ(copy_image_content(src, nullptr, dst, COPY_CROP), -1);
    destroy_image(crop);
    destroy_image(dst);
    destroy_image(src);
}

TEST(ImageCopy, ContentRefusesADestinationThatKeptASmallerShape)
{
    // A 100 x 1 grey destination has room for 10 x 10 pixels, so it keeps its
    // shape when re-initialised; rows past its first cannot be written.
    image* src = make_image(GREY_IMG, 10, 10);
    image* dst = make_image(GREY_IMG, 100, 1);
    rect_holder inner(1, 1, 8, 8);
    EXPECT_EQ(copy_image_content(src, &inner, dst, COPY_IN_PLACE), -1);
    EXPECT_EQ(dst->width, 100u);
    destroy_image(dst);
    destroy_image(src);
}

TEST(ImageEncapsulate, WrapsOwnsAndRefuses)
{
    unsigned char* buffer = static_cast<unsigned char*>(std::calloc(6, 1));
    image* img = image_data_encapsulate(buffer, 2, 3, nullptr, GREY_IMG);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->height, 2u);
    EXPECT_EQ(img->width, 3u);
    EXPECT_EQ(img->capacity, 6u);
    img->width = 77;  // untouched when the same buffer is wrapped again
    EXPECT_EQ(image_data_encapsulate(buffer, 2, 3, img, GREY_IMG), img);
    EXPECT_EQ(img->width, 77u);

    testing::internal::CaptureStderr();
    EXPECT_EQ(image_data_encapsulate(buffer, 2, 3, nullptr, FLOAT_IMG), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "image : image_data_encapsulate : ERROR!\nThis function doesn't support yet a type of image different "
              "from GREY_IMG and COLOR_IMG_3BYTES. Sorry...\n");
    EXPECT_EQ(image_data_encapsulate(buffer, 0, 3, nullptr, GREY_IMG), nullptr);
    EXPECT_EQ(image_data_encapsulate(nullptr, 2, 3, nullptr, GREY_IMG), nullptr);
    destroy_image(img);
}

TEST(ImageConvert, GreyFromColourStepsOneBytePerPixel)
{
    image* src = make_image(COLOR_IMG_3BYTES, 3, 2);
    const unsigned char bytes[18] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    std::memcpy(src->data, bytes, 18);
    rect_holder row1(1, 1, 2, 1);
    image* grey = convert_to_grey(src, &row1);
    ASSERT_NE(grey, nullptr);
    EXPECT_EQ(grey->type, GREY_IMG);
    // Row 1 starts at byte (1 * 3 + 1) * 3 = 12, then advances one byte.
    EXPECT_EQ(grey->data[4], (299 * 6 + 587 * 5 + 114 * 4) / 1000);
    EXPECT_EQ(grey->data[5], (299 * 7 + 587 * 6 + 114 * 5) / 1000);
    for (int i : {0, 1, 2, 3}) EXPECT_EQ(grey->data[i], 0) << i;
    destroy_image(grey);

    image* already = make_image(GREY_IMG, 2, 2);
    EXPECT_EQ(convert_to_grey(already, &row1), already);
    destroy_image(already);
    EXPECT_EQ(convert_to_grey(src, nullptr), nullptr);
    destroy_image(src);
}

TEST(ImageConvert, GreyFromPackedFloatAndIntegerKeepsTheLowByte)
{
    rect_holder all(0, 0, 2, 1);
    image* packed = make_image(SIGNED_COLOR_IMG, 2, 1);
    const uint32_t word = (100u << 20) | ((1024u - 10u) << 10) | 200u;  // fields 200, -10, 100
    std::memcpy(packed->data, &word, 4);
    image* g = convert_to_grey(packed, &all);
    EXPECT_EQ(g->data[0], (299 * 200 - 587 * 10 + 114 * 100) / 1000);
    destroy_image(g);
    destroy_image(packed);

    image* f = make_image(FLOAT_IMG, 2, 1);
    set_float(f, 0, 300.7f);
    set_float(f, 1, -1.5f);
    g = convert_to_grey(f, &all);
    EXPECT_EQ(g->data[0], 44);
    EXPECT_EQ(g->data[1], 255);
    destroy_image(g);
    destroy_image(f);

    image* n = make_image(INT_IMG, 2, 1);
    const uint32_t v = 0x1234;
    std::memcpy(n->data + 4, &v, 4);
    g = convert_to_grey(n, &all);
    EXPECT_EQ(g->data[1], 0x34);
    destroy_image(g);
    destroy_image(n);

    image* bg = make_image(BG_IMG, 2, 1);
    EXPECT_EQ(convert_to_grey(bg, &all), nullptr);
    destroy_image(bg);
}

TEST(ImageConvert, MaskToColourAndBack)
{
    image* mask = make_image(GREY_IMG, 4, 3);
    mask->data[5] = 1;   // (1, 1)
    mask->data[10] = 9;  // (2, 2)
    rect_holder part(1, 1, 5, 5);  // clipped to 3 x 2 at (1, 1)

    image* colour = convert_to_4bytes(mask, &part, nullptr);
    ASSERT_NE(colour, nullptr);
    EXPECT_EQ(colour->width, 3u);
    EXPECT_EQ(colour->height, 2u);
    // Placed at the rectangle's corner, so frame (1, 1) is its first pixel.
    EXPECT_EQ(colour->x_origin, 1);
    EXPECT_EQ(colour->y_origin, 1);
    const unsigned char expected[18] = {255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 0, 0, 0};
    EXPECT_EQ(std::memcmp(colour->data, expected, 18), 0);

    image* back = convert_to_1byte(colour, &part, nullptr);
    ASSERT_NE(back, nullptr);
    const unsigned char grey[6] = {255, 0, 0, 0, 255, 0};
    EXPECT_EQ(std::memcmp(back->data, grey, 6), 0);

    image* full = convert_to_4bytes(mask, nullptr, nullptr);
    EXPECT_EQ(full->width, 4u);
    EXPECT_EQ(full->data[5 * 3 + 1], 255);
    // A destination that cannot hold the rectangle, or of the wrong kind.
    image* tiny = make_image(COLOR_IMG_3BYTES, 2, 2);
    EXPECT_EQ(convert_to_4bytes(mask, &part, tiny), nullptr);
    EXPECT_EQ(convert_to_4bytes(mask, nullptr, mask), nullptr);
    EXPECT_EQ(convert_to_1byte(mask, nullptr, nullptr), nullptr);  // source must be colour
    EXPECT_EQ(convert_to_4bytes(mask, nullptr, full), full);

    for (image* i : {mask, colour, back, full, tiny}) destroy_image(i);
}
