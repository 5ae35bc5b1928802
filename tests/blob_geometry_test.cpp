#include <gtest/gtest.h>

#include <algorithm>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

blob_ptr box_blob(int x, int y, int w, int h)
{
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, x, y, w, h);
    return b;
}

bool occluded(bool (*predicate)(blob_ptr), uint32_t o)
{
    blob_ptr b = blob_new();
    b->occlusion = static_cast<blob_occl_type>(o);
    return predicate(b);
}

}  // namespace

TEST(BlobGeometry, OverlapRatiosAndContainment)
{
    blob_ptr small = box_blob(2, 2, 10, 10), large = box_blob(0, 0, 100, 100);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(small, large), 1.0);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(large, small), 1.0);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(small, large), 0.01);  // over b's area
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob_strict(small, large), 100.0);  // integer branch
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(box_blob(0, 0, 4, 4), box_blob(2, 0, 4, 4)), 0.5);

    EXPECT_TRUE(isPixBelongsToBlob(small, 2, 11));
    EXPECT_FALSE(isPixBelongsToBlob(small, 12, 11));
    EXPECT_TRUE(is_blob1_inside_blob2(small, small));
    EXPECT_TRUE(is_blob1_inside_blob2(small, large));
    EXPECT_FALSE(is_blob1_inside_blob2(large, small));

    blob_ptr same = box_blob(2, 2, 10, 10);
    same->bbox.width = 99;  // sizes are not compared
    EXPECT_TRUE(same2DBlob(small, same));
    same->bbox.ymax = INT32_MIN;
    small->bbox.ymax = INT32_MAX;
    EXPECT_FALSE(same2DBlob(small, same));
}

TEST(BlobPredicates, OcclusionReadsExactValuesWithCrossedObjectFlags)
{
    for (uint32_t o : {0x1u, 0x2u, 0x4u, 0x5u, 0x6u, 0x8u, 0x9u, 0xAu, 0x10u, 0x20u, 0x40u, 0x80u, 0x20000000u})
        EXPECT_TRUE(occluded(isBlobOcculted, o)) << o;
    for (uint32_t o : {0x0u, 0x3u, 0x11u, 0x50u, 0x100u, 0x80000000u, 0x20000001u})
        EXPECT_FALSE(occluded(isBlobOcculted, o)) << o;

    for (uint32_t o : {0x2u, 0x6u, 0xAu, 0x10u}) EXPECT_TRUE(occluded(isBlobTopOcculted, o)) << o;
    for (uint32_t o : {0x1u, 0x20u, 0x12u, 0x20000000u}) EXPECT_FALSE(occluded(isBlobTopOcculted, o)) << o;
    for (uint32_t o : {0x1u, 0x5u, 0x9u, 0x20u, 0x20000000u}) EXPECT_TRUE(occluded(isBlobBottomOcculted, o)) << o;
    for (uint32_t o : {0x2u, 0x10u, 0x21u}) EXPECT_FALSE(occluded(isBlobBottomOcculted, o)) << o;
}

TEST(BlobPredicates, ClassificationTypeLists)
{
    blob_ptr b = blob_new();
    for (int t = 0; t <= 33; ++t) {
        b->type = static_cast<blob_type_t>(t);
        const bool human = (t >= 1 && t <= 4) || t == 17 || t == 21;
        const bool vehicle = t == 6 || (t >= 9 && t <= 11);
        EXPECT_EQ(isBlobHuman(b), human) << t;
        EXPECT_EQ(isBlobAVehicle(b), vehicle) << t;
        EXPECT_EQ(isBlobARealObject(b), human || vehicle || t == 5) << t;
    }
}

TEST(BlobSplit, OnlyTheTwoBoundsChange)
{
    blob_ptr b = box_blob(0, 0, 10, 6);
    b->npix = 42;
    b->prd_list = prdata_new();
    blob_ptr neighbour = blob_new();
    b->next = neighbour;

    for (int x : {0, 9, -3}) EXPECT_FALSE(vertical_split_blob(b, x)) << x;
    EXPECT_EQ(b->bbox.xmax, 9);
    blob_ptr right = vertical_split_blob(b, 4);
    ASSERT_TRUE(right);
    EXPECT_TRUE(b->bbox.xmin == 0 && b->bbox.xmax == 4 && right->bbox.xmin == 5 && right->bbox.xmax == 9);
    EXPECT_TRUE(b->bbox.width == 10 && right->bbox.width == 10 && right->npix == 42);
    EXPECT_TRUE(!right->prd_list && !right->next && b->next == neighbour);

    EXPECT_FALSE(horizontal_split_blob(b, 5));
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_TRUE(b->bbox.ymax == 2 && lower->bbox.ymin == 3 && lower->bbox.ymax == 5 && lower->bbox.height == 6);
    blob_free(b);
}

TEST(BlobPredicates, PositionTable)
{
    const int expected[9][4] = {{1, 0, 0, 1}, {1, 0, 1, 1}, {0, 0, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 1},
                                {0, 1, 1, 1}, {1, 1, 0, 0}, {1, 1, 1, 0}, {0, 1, 1, 0}};
    int flags[4];
    for (int p : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1}) {
        set_in_height_given_position(p, flags);
        const int* row = expected[p >= 0 && p < 9 ? p : 1];
        EXPECT_TRUE(std::equal(flags, flags + 4, row)) << p;
    }
}
