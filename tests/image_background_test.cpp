#include <gtest/gtest.h>

#include <iterator>

#include "image_test_support.h"

using namespace image_test;

// The grey running average is held against the formula with the change
// kernels; here, the packed kind and a refusal.
TEST(BackgroundUpdate, PackedRunningAverageKeepsTheTopBitsAndMixedKindsAreRefused)
{
    owned keep;
    rectangle all = box(0, 0, 3, 1);
    EXPECT_EQ(update(keep.make(GREY_IMG, 3, 1), keep.make(COLOR_IMG_3BYTES, 2, 1), 0.5f, &all), -1);

    image* packed = keep.make(SIGNED_COLOR_IMG, 1, 1);
    image* packed_cur = keep.make(SIGNED_COLOR_IMG, 1, 1);
    put<uint32_t>(packed, 0, pack(100, -100, 0) | 0xC0000000u);
    put<uint32_t>(packed_cur, 0, pack(50, 100, -300));
    ASSERT_EQ(update(packed, packed_cur, 0.1f, &all), 0);
    EXPECT_EQ(at<uint32_t>(packed, 0), pack(95, -80, -30) | 0xC0000000u);  // signed fields, bits 30-31 kept
}

// What each kind learns is held against a pixel walk with the change
// kernels; here, the kinds each update takes.
TEST(BackgroundUpdate, TheGreyThresholdedUpdateNeedsOneGreyImage)
{
    owned keep;
    rectangle two = box(0, 0, 2, 1);
    image* grey = keep.make(GREY_IMG, 2, 1);
    image* colour = keep.make(COLOR_IMG_3BYTES, 2, 1);
    EXPECT_EQ(grey_thresholded_update(grey, colour, 0.0f, 10, &two), 0);
    EXPECT_EQ(grey_thresholded_update(colour, colour, 0.5f, 10, &two), -1);
}

TEST(BackgroundCopies, PackAndUnpackKeepingTheTopBits)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 2, 2, {5, 25, 45, 65, 85, 105, 125, 145, 165, 185, 205, 225});
    image* bg = keep.make(BG_IMG, 2, 2);
    image* back = keep.make(COLOR_IMG_3BYTES, 2, 2);
    put<uint32_t>(bg, 3, 0xC0000000u);
    rectangle all = bounds(0, 0, 1, 1);
    ASSERT_EQ(copy_to_bg(colour, bg, &all), 0);
    EXPECT_EQ(at<uint32_t>(bg, 0), pack(5, 25, 45));
    EXPECT_EQ(at<uint32_t>(bg, 3), pack(185, 205, 225) | 0xC0000000u);
    ASSERT_EQ(copy_from_bg(bg, back, &all), 0);
    EXPECT_EQ(bytes(back, 12), bytes(colour, 12));
}

// One line each on standard output; hosts' filters match the double spaces.
TEST(BackgroundCopies, RefusalsGiveTheirCodeAndTheirLine)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 2, 2);
    image* bg = keep.make(BG_IMG, 2, 2);
    image* grey = keep.make(GREY_IMG, 2, 2);
    rectangle all = bounds(0, 0, 1, 1), to_edge = bounds(1, 0, 2, 2), inverted = bounds(1, 0, 0, 1),
              negative = bounds(-1, 0, 1, 1), wide = bounds(0, 0, 3, 1);
    const struct {
        int (*copy)(image*, image*, rectangle*);
        image *from, *to;
        rectangle* rect;
        int code;
        const char* line;
    } cases[] = {
        {copy_to_bg, colour, bg, &to_edge, 0, ""},  // a bound equal to the size passes
        {copy_to_bg, grey, bg, &all, 0, ""},        // both kinds must be wrong to refuse
        {copy_to_bg, nullptr, bg, &all, -1, "copy_to_bg ERROR : from_img or to_bg or rect is NULL.\n"},
        {copy_to_bg, grey, grey, &all, -2,
         "copy_to_bg ERROR : from_img is not a COLOR IMAGE or to_bg is not a BG IMAGE.\n"},
        {copy_to_bg, colour, bg, &inverted, -3, "copy_to_bg ERROR : bbox has invalid dimensions.\n"},
        {copy_to_bg, colour, bg, &negative, -3, "copy_to_bg ERROR : bbox has invalid dimensions.\n"},
        {copy_to_bg, colour, bg, &wide, -4, "copy_to_bg  ERROR : bbox  and images have incompatible dimensions.\n"},
        {copy_from_bg, bg, nullptr, &all, -1, "copy_from_bg ERROR : from_bg or to_img or rect is NULL.\n"},
        {copy_from_bg, grey, grey, &all, -2,
         "copy_from_bg ERROR : from_bg is not a BG IMAGE or to_img  is not a COLOR IMAGE.\n"},
        {copy_from_bg, bg, colour, &inverted, -3, "copy_from_bg ERROR : bbox has invalid dimensions.\n"},
        {copy_from_bg, bg, colour, &negative, 0, ""},  // compared signed: a clipped walk
        {copy_from_bg, bg, colour, &wide, -4, "copy_from_bg  ERROR : bbox  and images have incompatible dimensions.\n"},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE("case " + std::to_string(i));
        testing::internal::CaptureStdout();
        EXPECT_EQ(cases[i].copy(cases[i].from, cases[i].to, cases[i].rect), cases[i].code);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), cases[i].line);
    }
}

// Absolute differences are held against a pixel walk with the change kernels.
// Signed ones are integers for grey, packed like SIGNED_COLOR_IMG for colour.
TEST(Differences, SignedDifferencesAreIntegersOrPackedAndABackgroundKindIsRefused)
{
    owned keep;
    rectangle all = box(0, 0, 2, 1);
    image* a = keep.make(GREY_IMG, 2, 1, {10, 200});
    image* diff = keep.make(GREY_IMG, 1, 1);
    ASSERT_EQ(sign_difference(a, keep.make(GREY_IMG, 2, 1, {250, 50}), &all, diff), 0);
    EXPECT_EQ(diff->type, INT_IMG);
    EXPECT_EQ(at<int32_t>(diff, 0), -240);
    EXPECT_EQ(at<int32_t>(diff, 1), 150);

    image* ca = keep.make(COLOR_IMG_3BYTES, 2, 1, {10, 20, 30, 40, 50, 60});
    image* cb = keep.make(COLOR_IMG_3BYTES, 2, 1, {30, 20, 10, 0, 0, 0});
    ASSERT_EQ(sign_difference(ca, cb, &all, diff), 0);
    EXPECT_EQ(at<uint32_t>(diff, 0), pack(-20, 0, 20));
    EXPECT_EQ(at<uint32_t>(diff, 1), pack(40, 50, 60));

    // A background kind is refused after the destination is initialised.
    image* out = keep.make(GREY_IMG, 2, 1);
    EXPECT_EQ(abs_difference(keep.make(BG_IMG, 1, 1), keep.make(BG_IMG, 1, 1), &all, out), -1);
    EXPECT_EQ(out->type, BG_IMG);
}
