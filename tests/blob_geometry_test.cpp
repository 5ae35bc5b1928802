#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

blob_ptr box_blob(int x, int y, int w, int h, uint32_t occlusion = 0)
{
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, x, y, w, h);
    b->occlusion = static_cast<blob_occl_type>(occlusion);
    return b;
}

}  // namespace

TEST(BlobGeometry, OverlapRatiosContainmentAndSplits)
{
    blob_ptr small = box_blob(2, 2, 10, 10), large = box_blob(0, 0, 100, 100);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(large, small), 1.0);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(small, large), 0.01);              // over b's area
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob_strict(small, large), 100.0);  // integer branch
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(box_blob(0, 0, 4, 4), box_blob(2, 0, 4, 4)), 0.5);
    EXPECT_TRUE(isPixBelongsToBlob(small, 2, 11) && !isPixBelongsToBlob(small, 12, 11));
    EXPECT_TRUE(is_blob1_inside_blob2(small, small) && is_blob1_inside_blob2(small, large));
    EXPECT_FALSE(is_blob1_inside_blob2(large, small));
    blob_ptr same = box_blob(2, 2, 99, 10);
    same->bbox.xmax = small->bbox.xmax;  // sizes are not compared
    EXPECT_TRUE(same2DBlob(small, same));
    same->bbox.ymax = INT32_MIN;
    small->bbox.ymax = INT32_MAX;
    EXPECT_FALSE(same2DBlob(small, same));

    // Splits change only the two bounds; the copy owns no lists and keeps b's
    // links (it names b's neighbour, which does not name it).
    blob_ptr b = box_blob(0, 0, 10, 6), neighbour = blob_new();
    b->npix = 42;
    b->prd_list = prdata_new();
    b->next = neighbour;
    for (int x : {0, 9, -3}) EXPECT_FALSE(vertical_split_blob(b, x)) << x;
    blob_ptr right = vertical_split_blob(b, 4);
    ASSERT_TRUE(right);
    const auto box = [](const blob_ptr& x) {
        return std::vector<int>{x->bbox.xmin, x->bbox.ymin, x->bbox.xmax, x->bbox.ymax, x->bbox.width, x->bbox.height};
    };
    EXPECT_EQ(box(b), (std::vector<int>{0, 0, 4, 5, 10, 6}));
    EXPECT_EQ(box(right), (std::vector<int>{5, 0, 9, 5, 10, 6}));
    EXPECT_TRUE(right->npix == 42 && !right->prd_list && right->next == neighbour && b->next == neighbour);
    EXPECT_FALSE(neighbour->prev || horizontal_split_blob(b, 5));
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_EQ(box(b), (std::vector<int>{0, 0, 4, 2, 10, 6}));
    EXPECT_EQ(box(lower), (std::vector<int>{0, 3, 4, 5, 10, 6}));
    blob_free(copy_blob(b));  // takes a blob pointer by value
    blob_free(b);
}

TEST(BlobPredicates, OcclusionReadsExactValuesWithCrossedObjectFlags)
{
    const struct {
        bool (*predicate)(blob_ptr);
        std::vector<uint32_t> yes, no;
    } rows[] = {
        {isBlobOcculted, {0x1, 0x6, 0xA, 0x10, 0x80, 0x20000000}, {0x0, 0x3, 0x11, 0x50, 0x80000000u, 0x20000001}},
        {isBlobTopOcculted, {0x2, 0x6, 0xA, 0x10}, {0x1, 0x20, 0x12, 0x20000000}},
        {isBlobBottomOcculted, {0x1, 0x5, 0x9, 0x20, 0x20000000}, {0x2, 0x10, 0x21}},
    };
    for (const auto& r : rows) {
        for (uint32_t o : r.yes) EXPECT_TRUE(r.predicate(box_blob(0, 0, 1, 1, o))) << o;
        for (uint32_t o : r.no) EXPECT_FALSE(r.predicate(box_blob(0, 0, 1, 1, o))) << o;
    }
}
