#include <gtest/gtest.h>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

blob_ptr box_blob(int x, int y, int w, int h)
{
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, x, y, w, h);
    return b;
}

blob_ptr with_occlusion(uint32_t o)
{
    blob_ptr b = blob_new();
    b->occlusion = static_cast<blob_occl_type>(o);
    return b;
}

blob_ptr with_type(int t)
{
    blob_ptr b = blob_new();
    b->type = static_cast<blob_type_t>(t);
    return b;
}

}  // namespace

TEST(BlobGeometry, OverlapRatios)
{
    blob_ptr small = box_blob(2, 2, 10, 10);  // 100
    blob_ptr large = box_blob(0, 0, 100, 100);  // 10000
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(small, large), 1.0);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(large, small), 1.0);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(small, large), 0.01);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(large, small), 1.0);
    // Strict form inherits the integer branch when b is the larger box.
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob_strict(small, large), 100.0);

    // Equal areas: a's area is the divisor.
    blob_ptr a = box_blob(0, 0, 4, 4), b = box_blob(2, 0, 4, 4);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(a, b), 0.5);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(a, box_blob(50, 50, 4, 4)), 0.0);
}

TEST(BlobGeometry, ContainmentAndIdentity)
{
    blob_ptr b = box_blob(10, 20, 5, 5);  // 10..14, 20..24
    EXPECT_TRUE(isPixBelongsToBlob(b, 10, 20));
    EXPECT_TRUE(isPixBelongsToBlob(b, 14, 24));
    EXPECT_FALSE(isPixBelongsToBlob(b, 15, 24));
    EXPECT_FALSE(isPixBelongsToBlob(b, 12, 19));

    EXPECT_TRUE(is_blob1_inside_blob2(b, b));
    EXPECT_TRUE(is_blob1_inside_blob2(box_blob(11, 21, 2, 2), b));
    EXPECT_FALSE(is_blob1_inside_blob2(b, box_blob(11, 21, 2, 2)));
    EXPECT_FALSE(is_blob1_inside_blob2(box_blob(10, 20, 6, 5), b));

    blob_ptr same = box_blob(10, 20, 5, 5);
    same->bbox.width = 99;  // sizes are not compared
    EXPECT_TRUE(same2DBlob(b, same));
    same->bbox.ymax = 25;
    EXPECT_FALSE(same2DBlob(b, same));
    blob_ptr far = box_blob(10, 20, 5, 5);
    far->bbox.xmin = INT32_MIN;
    b->bbox.xmin = INT32_MAX;
    EXPECT_FALSE(same2DBlob(b, far));
}

TEST(BlobPredicates, OcclusionReadsExactValues)
{
    const uint32_t any[] = {0x1, 0x2, 0x4, 0x5, 0x6, 0x8, 0x9, 0xA, 0x10, 0x20, 0x40, 0x80, 0x20000000};
    for (uint32_t o : any) EXPECT_TRUE(isBlobOcculted(with_occlusion(o))) << o;
    for (uint32_t o : {0x0u, 0x3u, 0x11u, 0x50u, 0x100u, 0x80000000u, 0x20000001u})
        EXPECT_FALSE(isBlobOcculted(with_occlusion(o))) << o;

    for (uint32_t o : {0x2u, 0x6u, 0xAu, 0x10u}) EXPECT_TRUE(isBlobTopOcculted(with_occlusion(o))) << o;
    for (uint32_t o : {0x1u, 0x20u, 0x3u, 0x12u, 0x20000000u}) EXPECT_FALSE(isBlobTopOcculted(with_occlusion(o))) << o;

    for (uint32_t o : {0x1u, 0x5u, 0x9u, 0x20u, 0x20000000u})
        EXPECT_TRUE(isBlobBottomOcculted(with_occlusion(o))) << o;
    for (uint32_t o : {0x2u, 0x10u, 0x3u, 0x21u, 0x0u}) EXPECT_FALSE(isBlobBottomOcculted(with_occlusion(o))) << o;
}

TEST(BlobPredicates, ClassificationTypeLists)
{
    for (int t = 0; t <= 33; ++t) {
        const bool human = (t >= 1 && t <= 4) || t == 17 || t == 21;
        const bool vehicle = t == 6 || (t >= 9 && t <= 11);
        EXPECT_EQ(isBlobHuman(with_type(t)), human) << t;
        EXPECT_EQ(isBlobAVehicle(with_type(t)), vehicle) << t;
        EXPECT_EQ(isBlobARealObject(with_type(t)), human || vehicle || t == 5) << t;
    }
}

TEST(BlobSplit, OnlyTheTwoBoundsChange)
{
    blob_ptr b = box_blob(0, 0, 10, 6);
    b->npix = 42;
    b->sumx = 7.0;
    b->prd_list = prdata_new();
    blob_ptr neighbour = blob_new();
    b->next = neighbour;

    EXPECT_FALSE(vertical_split_blob(b, 0));
    EXPECT_FALSE(vertical_split_blob(b, 9));
    EXPECT_FALSE(vertical_split_blob(b, -3));
    EXPECT_EQ(b->bbox.xmax, 9);

    blob_ptr right = vertical_split_blob(b, 4);
    ASSERT_TRUE(right);
    EXPECT_EQ(b->bbox.xmin, 0);
    EXPECT_EQ(b->bbox.xmax, 4);
    EXPECT_EQ(right->bbox.xmin, 5);
    EXPECT_EQ(right->bbox.xmax, 9);
    EXPECT_EQ(b->bbox.width, 10);
    EXPECT_EQ(right->bbox.width, 10);
    EXPECT_EQ(right->npix, 42);
    EXPECT_EQ(right->sumx, 7.0);
    EXPECT_EQ(right->prd_list, nullptr);
    EXPECT_FALSE(right->next);
    EXPECT_EQ(b->next, neighbour);

    EXPECT_FALSE(horizontal_split_blob(b, 5));
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_EQ(b->bbox.ymax, 2);
    EXPECT_EQ(lower->bbox.ymin, 3);
    EXPECT_EQ(lower->bbox.ymax, 5);
    EXPECT_EQ(lower->bbox.xmax, 4);
    EXPECT_EQ(lower->bbox.height, 6);

    blob_free(b);
}

TEST(BlobPredicates, PositionTable)
{
    const int expected[9][4] = {{1, 0, 0, 1}, {1, 0, 1, 1}, {0, 0, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 1},
                                {0, 1, 1, 1}, {1, 1, 0, 0}, {1, 1, 1, 0}, {0, 1, 1, 0}};
    int flags[4];
    for (int p = 0; p < 9; ++p) {
        set_in_height_given_position(p, flags);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(flags[i], expected[p][i]) << p << "," << i;
    }
    for (int p : {9, -1, 100}) {
        set_in_height_given_position(p, flags);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(flags[i], expected[1][i]) << p;
    }
}
