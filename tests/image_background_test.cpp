#include <gtest/gtest.h>

#include <cstring>
#include <string>
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

// Rectangle from its bounds, for bounds init_rectangle cannot express.
rectangle bounds(int xmin, int ymin, int xmax, int ymax) { return rectangle{xmin, ymin, xmax, ymax, 0, 0}; }

uint32_t word_at(const image* img, size_t i)
{
    uint32_t w;
    std::memcpy(&w, img->data + 4 * i, 4);
    return w;
}

void set_word(image* img, size_t i, uint32_t w) { std::memcpy(img->data + 4 * i, &w, 4); }

uint32_t pack(int blue, int green, int red)
{
    return (static_cast<uint32_t>(blue) & 0x3FF) | ((static_cast<uint32_t>(green) & 0x3FF) << 10) |
           ((static_cast<uint32_t>(red) & 0x3FF) << 20);
}

}  // namespace

TEST(BackgroundUpdate, RunningAverageTruncatesInSinglePrecision)
{
    image* bg = make_image(GREY_IMG, 3, 1);
    image* cur = make_image(GREY_IMG, 3, 1);
    bg->data[0] = 100, cur->data[0] = 50;
    bg->data[1] = 50, cur->data[1] = 100;
    bg->data[2] = 10, cur->data[2] = 200;
    rectangle all = box(0, 0, 3, 1);
    ASSERT_EQ(update(bg, cur, 0.1f, &all), 0);
    EXPECT_EQ(bg->data[0], 95);
    EXPECT_EQ(bg->data[1], 55);
    EXPECT_EQ(bg->data[2], 200 - 171);  // trunc(-190 * 0.9) = -171

    ASSERT_EQ(update(bg, cur, 1.0f, &all), 0);  // rate 1 copies the current image
    EXPECT_EQ(std::memcmp(bg->data, cur->data, 3), 0);
    bg->data[0] = 1;
    ASSERT_EQ(update(bg, cur, 0.0f, &all), 0);  // rate 0 keeps the background
    EXPECT_EQ(bg->data[0], 1);

    rectangle first = box(-4, 0, 5, 1);  // clipped to column 0
    bg->data[1] = 0;
    ASSERT_EQ(update(bg, cur, 1.0f, &first), 0);
    EXPECT_EQ(bg->data[0], 50);
    EXPECT_EQ(bg->data[1], 0);

    image* colour = make_image(COLOR_IMG_3BYTES, 3, 1);
    EXPECT_EQ(update(bg, colour, 0.5f, &all), -1);  // kinds differ
    image* f1 = make_image(FLOAT_IMG, 3, 1);
    image* f2 = make_image(FLOAT_IMG, 3, 1);
    EXPECT_EQ(update(f1, f2, 0.5f, &all), -1);
    for (image* i : {bg, cur, colour, f1, f2}) destroy_image(i);
}

TEST(BackgroundUpdate, ColourBytesAndPackedSignedFields)
{
    image* bg = make_image(COLOR_IMG_3BYTES, 2, 1);
    image* cur = make_image(COLOR_IMG_3BYTES, 2, 1);
    const unsigned char b[6] = {100, 50, 0, 9, 9, 9}, c[6] = {50, 100, 255, 9, 9, 9};
    std::memcpy(bg->data, b, 6);
    std::memcpy(cur->data, c, 6);
    rectangle all = box(0, 0, 2, 1);
    ASSERT_EQ(update(bg, cur, 0.1f, &all), 0);
    EXPECT_EQ(bg->data[0], 95);
    EXPECT_EQ(bg->data[1], 55);
    EXPECT_EQ(bg->data[2], 255 - 229);  // trunc(-255 * 0.9) = -229
    EXPECT_EQ(bg->data[3], 9);

    image* sbg = make_image(SIGNED_COLOR_IMG, 1, 1);
    image* scur = make_image(SIGNED_COLOR_IMG, 1, 1);
    set_word(sbg, 0, pack(100, -100, 0) | 0xC0000000u);  // bits 30-31 set
    set_word(scur, 0, pack(50, 100, -300));
    rectangle one = box(0, 0, 1, 1);
    ASSERT_EQ(update(sbg, scur, 0.1f, &one), 0);
    // 50 + trunc(45.0) = 95; 100 + trunc(-180.0) = -80; -300 + trunc(270.0) = -30
    EXPECT_EQ(word_at(sbg, 0), pack(95, -80, -30) | 0xC0000000u);
    for (image* i : {bg, cur, sbg, scur}) destroy_image(i);
}

TEST(BackgroundUpdate, ThresholdedUpdatesLearnOnlySmallChanges)
{
    image* bg = make_image(GREY_IMG, 2, 1);
    image* cur = make_image(GREY_IMG, 2, 1);
    bg->data[0] = 100, cur->data[0] = 50;  // change of 50: not learned
    bg->data[1] = 100, cur->data[1] = 95;  // change of 5: learned
    rectangle all = box(0, 0, 2, 1);
    ASSERT_EQ(grey_thresholded_update(bg, cur, 0.5f, 10, &all), 0);
    EXPECT_EQ(bg->data[0], 100);
    EXPECT_EQ(bg->data[1], 97);  // 95 + trunc(2.5)

    // One grey image is enough to pass.
    image* colour = make_image(COLOR_IMG_3BYTES, 2, 1);
    EXPECT_EQ(grey_thresholded_update(colour, cur, 0.5f, 10, &all), 0);
    image* colour2 = make_image(COLOR_IMG_3BYTES, 2, 1);
    EXPECT_EQ(grey_thresholded_update(colour, colour2, 0.5f, 10, &all), -1);

    // Colour: bytes 2, 1, 0 with the red, green, blue thresholds, one-byte
    // steps. Background bytes 100, current bytes 96 throughout the row.
    std::memset(colour->data, 100, 6);
    std::memset(colour2->data, 96, 6);
    ASSERT_EQ(color_thresholded_update(colour, colour2, 0.5f, 5, 0, 0, &all), 0);
    // Step 0 learns byte 2, step 1 learns byte 3; bytes past the steps stay.
    const unsigned char expected[6] = {100, 100, 98, 98, 100, 100};
    EXPECT_EQ(std::memcmp(colour->data, expected, 6), 0);
    EXPECT_EQ(color_thresholded_update(colour, cur, 0.5f, 5, 5, 5, &all), -1);
    for (image* i : {bg, cur, colour, colour2}) destroy_image(i);
}

TEST(BackgroundCopies, PackAndUnpackColourPixels)
{
    image* colour = make_image(COLOR_IMG_3BYTES, 2, 2);
    for (int i = 0; i < 12; ++i) colour->data[i] = static_cast<unsigned char>(20 * i + 5);
    image* bg = make_image(BG_IMG, 2, 2);
    set_word(bg, 3, 0xC0000000u);
    rectangle all = bounds(0, 0, 1, 1);
    ASSERT_EQ(copy_to_bg(colour, bg, &all), 0);
    EXPECT_EQ(word_at(bg, 0), pack(5, 25, 45));
    EXPECT_EQ(word_at(bg, 3), pack(185, 205, 225) | 0xC0000000u);  // bits 30-31 kept

    image* back = make_image(COLOR_IMG_3BYTES, 2, 2);
    ASSERT_EQ(copy_from_bg(bg, back, &all), 0);
    EXPECT_EQ(std::memcmp(back->data, colour->data, 12), 0);

    // A bound equal to the width is accepted (the column past the image
    // names no pixel).
    rectangle to_edge = bounds(1, 0, 2, 2);
    EXPECT_EQ(copy_to_bg(colour, bg, &to_edge), 0);
    EXPECT_EQ(copy_from_bg(bg, back, &to_edge), 0);
    EXPECT_EQ(std::memcmp(back->data, colour->data, 12), 0);
    for (image* i : {colour, bg, back}) destroy_image(i);
}

TEST(BackgroundCopies, RefusalsPrintWithPuts)
{
    image* colour = make_image(COLOR_IMG_3BYTES, 4, 4);
    image* bg = make_image(BG_IMG, 4, 4);
    image* grey = make_image(GREY_IMG, 4, 4);
    rectangle ok = bounds(0, 0, 3, 3), inverted = bounds(2, 0, 1, 3), negative = bounds(-1, 0, 2, 2),
              wide = bounds(0, 0, 5, 3), tall = bounds(0, 0, 3, 5);
    struct refusal {
        int code;
        std::string text;
    };
    auto run = [](auto call) {
        testing::internal::CaptureStdout();
        const int code = call();
        return refusal{code, testing::internal::GetCapturedStdout()};
    };

    refusal r = run([&] { return copy_to_bg(nullptr, bg, &ok); });
    EXPECT_EQ(r.code, -1);
    EXPECT_EQ(r.text, "copy_to_bg ERROR : from_img or to_bg or rect is NULL.\n");
    r = run([&] { return copy_to_bg(grey, grey, &ok); });
    EXPECT_EQ(r.code, -2);
    EXPECT_EQ(r.text, "copy_to_bg ERROR : from_img is not a COLOR IMAGE or to_bg is not a BG IMAGE.\n");
    r = run([&] { return copy_to_bg(grey, bg, &inverted); });  // grey into BG passes the kind check
    EXPECT_EQ(r.code, -3);
    EXPECT_EQ(r.text, "copy_to_bg ERROR : bbox has invalid dimensions.\n");
    r = run([&] { return copy_to_bg(colour, bg, &negative); });  // compared unsigned
    EXPECT_EQ(r.code, -3);
    r = run([&] { return copy_to_bg(colour, bg, &wide); });
    EXPECT_EQ(r.code, -4);
    EXPECT_EQ(r.text, "copy_to_bg  ERROR : bbox  and images have incompatible dimensions.\n");
    EXPECT_EQ(run([&] { return copy_to_bg(colour, bg, &tall); }).code, -4);
    EXPECT_EQ(run([&] { return copy_to_bg(grey, bg, &ok); }).code, 0);  // reads stay in the grey buffer

    r = run([&] { return copy_from_bg(bg, nullptr, &ok); });
    EXPECT_EQ(r.code, -1);
    EXPECT_EQ(r.text, "copy_from_bg ERROR : from_bg or to_img or rect is NULL.\n");
    r = run([&] { return copy_from_bg(grey, grey, &ok); });
    EXPECT_EQ(r.code, -2);
    EXPECT_EQ(r.text, "copy_from_bg ERROR : from_bg is not a BG IMAGE or to_img  is not a COLOR IMAGE.\n");
    r = run([&] { return copy_from_bg(bg, colour, &inverted); });
    EXPECT_EQ(r.code, -3);
    EXPECT_EQ(r.text, "copy_from_bg ERROR : bbox has invalid dimensions.\n");
    r = run([&] { return copy_from_bg(bg, colour, &wide); });
    EXPECT_EQ(r.code, -4);
    EXPECT_EQ(r.text, "copy_from_bg  ERROR : bbox  and images have incompatible dimensions.\n");
    EXPECT_EQ(run([&] { return copy_from_bg(bg, colour, &negative); }).code, 0);  // signed: clipped walk
    for (image* i : {colour, bg, grey}) destroy_image(i);
}

TEST(Differences, AbsoluteBySignedAndKind)
{
    rectangle all = box(0, 0, 2, 1);
    image* a = make_image(GREY_IMG, 2, 1);
    image* b = make_image(GREY_IMG, 2, 1);
    a->data[0] = 10, b->data[0] = 250;
    a->data[1] = 200, b->data[1] = 50;
    image* out = make_image(GREY_IMG, 2, 1);
    ASSERT_EQ(abs_difference(a, b, &all, out), 0);
    EXPECT_EQ(out->data[0], 240);
    EXPECT_EQ(out->data[1], 150);

    image* signed_out = make_image(GREY_IMG, 1, 1);
    ASSERT_EQ(sign_difference(a, b, &all, signed_out), 0);
    EXPECT_EQ(signed_out->type, INT_IMG);
    EXPECT_EQ(static_cast<int32_t>(word_at(signed_out, 0)), -240);
    EXPECT_EQ(static_cast<int32_t>(word_at(signed_out, 1)), 150);

    // Different heights: refused, out untouched.
    image* taller = make_image(GREY_IMG, 2, 2);
    out->data[0] = 7;
    EXPECT_EQ(abs_difference(a, taller, &all, out), -1);
    EXPECT_EQ(sign_difference(a, taller, &all, out), -1);
    EXPECT_EQ(out->type, GREY_IMG);
    EXPECT_EQ(out->data[0], 7);

    image* ia = make_image(INT_IMG, 2, 1);
    image* ib = make_image(INT_IMG, 2, 1);
    set_word(ia, 0, static_cast<uint32_t>(-5));
    set_word(ib, 0, 7);
    ASSERT_EQ(abs_difference(ia, ib, &all, out), 0);
    EXPECT_EQ(out->type, INT_IMG);
    EXPECT_EQ(word_at(out, 0), 12u);

    image* fa = make_image(FLOAT_IMG, 2, 1);
    image* fb = make_image(FLOAT_IMG, 2, 1);
    const float x = 1.5f, y = 4.0f;
    std::memcpy(fa->data, &x, 4);
    std::memcpy(fb->data, &y, 4);
    image* fout = make_image(FLOAT_IMG, 2, 1);
    ASSERT_EQ(abs_difference(fa, fb, &all, fout), 0);
    float got;
    std::memcpy(&got, fout->data, 4);
    EXPECT_EQ(got, 2.5f);
    ASSERT_EQ(sign_difference(fa, fb, &all, signed_out), 0);
    EXPECT_EQ(static_cast<int32_t>(word_at(signed_out, 0)), -2);  // -2.5 truncated

    image* bga = make_image(BG_IMG, 2, 1);
    image* bgb = make_image(BG_IMG, 2, 1);
    EXPECT_EQ(abs_difference(bga, bgb, &all, out), -1);
    for (image* i : {a, b, out, signed_out, taller, ia, ib, fa, fb, fout, bga, bgb}) destroy_image(i);
}

TEST(Differences, ColourStridesAndPacking)
{
    image* a = make_image(COLOR_IMG_3BYTES, 2, 1);
    image* b = make_image(COLOR_IMG_3BYTES, 2, 1);
    const unsigned char pa[6] = {10, 20, 30, 40, 50, 60}, pb[6] = {30, 20, 10, 0, 0, 0};
    std::memcpy(a->data, pa, 6);
    std::memcpy(b->data, pb, 6);
    rectangle all = box(0, 0, 2, 1);

    image* out = make_image(COLOR_IMG_3BYTES, 2, 1);
    std::memset(out->data, 9, 6);
    ASSERT_EQ(abs_difference(a, b, &all, out), 0);
    // Two one-byte steps cover bytes 0..3; bytes 4 and 5 keep their values.
    const unsigned char expected[6] = {20, 0, 20, 40, 9, 9};
    EXPECT_EQ(std::memcmp(out->data, expected, 6), 0);

    image* packed = make_image(INT_IMG, 2, 1);
    ASSERT_EQ(sign_difference(a, b, &all, packed), 0);
    EXPECT_EQ(word_at(packed, 0), pack(-20, 0, 20));
    EXPECT_EQ(word_at(packed, 1), pack(40, 50, 60));
    // The fields read back as signed values through the packed kind.
    packed->type = SIGNED_COLOR_IMG;
    image* grey = convert_to_grey(packed, &all);
    EXPECT_EQ(grey->data[0], (299 * -20 + 114 * 20) / 1000 & 0xFF);
    for (image* i : {a, b, out, packed, grey}) destroy_image(i);

    image* anything = make_image(GREY_IMG, 1, 1);
    EXPECT_EQ(abs_image(nullptr, &all, anything), 0);
    EXPECT_EQ(abs_image(anything, &all, nullptr), 0);
    EXPECT_EQ(abs_image(anything, &all, anything), -1);
    destroy_image(anything);
}

TEST(ShowChanges, BlackensWhereTheMaskIsSet)
{
    image* mask = make_image(COLOR_IMG_3BYTES, 3, 1);
    mask->data[1] = 1;  // the mask is read one byte per pixel: pixel (1, 0)
    image* img = make_image(COLOR_IMG_3BYTES, 3, 1);
    std::memset(img->data, 200, 9);
    rectangle all = box(0, 0, 3, 1);
    ASSERT_EQ(show_chgmt(mask, img, &all), 0);
    const unsigned char expected[9] = {200, 200, 200, 0, 0, 0, 200, 200, 200};
    EXPECT_EQ(std::memcmp(img->data, expected, 9), 0);

    // Steps: every second column from the clipped left.
    std::memset(mask->data, 1, 3);
    std::memset(img->data, 200, 9);
    ASSERT_EQ(_color_show_chgmt(mask, img, &all, 2, 1), 0);
    const unsigned char stepped[9] = {0, 0, 0, 200, 200, 200, 0, 0, 0};
    EXPECT_EQ(std::memcmp(img->data, stepped, 9), 0);
    EXPECT_EQ(_color_show_chgmt(mask, img, &all, 0, 1), -1);

    // A grey mask turns the picture into a GREY_IMG and fails.
    image* grey_mask = make_image(GREY_IMG, 3, 1);
    EXPECT_EQ(show_chgmt(grey_mask, img, &all), -1);
    EXPECT_EQ(img->type, GREY_IMG);
    image* other = make_image(GREY_IMG, 2, 1);
    EXPECT_EQ(show_chgmt(other, img, &all), -1);
    for (image* i : {mask, img, grey_mask, other}) destroy_image(i);
}
