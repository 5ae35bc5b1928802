#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// npix, x_min, x_max, y_min, y_max, seed_x, nholes, sum_x, sum_y
using S = std::vector<double>;
S stats(const std::shared_ptr<region>& r)
{
    return {double(r->npix),   double(r->x_min),  double(r->x_max), double(r->y_min), double(r->y_max),
            double(r->seed_x), double(r->nholes), r->sum_x,         r->sum_y};
}

}  // namespace

TEST(Region, AbsorbRegionAndHoles)
{
    auto s = region_new(), a = region_new();
    region_initialize(s, 0, 1, 0);
    region_initialize(a, 5, 6, 0);
    region_absorb_segment(a, 5, 9, 1);
    a->nholes = 2;
    region_absorb_region(s, a);
    EXPECT_TRUE(a->absorber == s && !s->absorber && a->npix == 7);  // the absorbed region keeps its statistics
    EXPECT_EQ(stats(s), (S{9, 0, 9, 0, 1, 0, 2, 1 + 11 + 35, 5}));

    region_add_hole(nullptr, region_new()), region_add_hole(s, a), region_add_hole(s, a);
    EXPECT_TRUE(s->nholes == 4 && s->hole == a);
    s->hole.reset();  // a->absorber and s->hole form a cycle of shared pointers
}

TEST(SegmentList, OrderEqualKeysAndWhatFreeReleases)
{
    auto first5 = region_new(), second5 = region_new();
    segment_list* list = nullptr;
    list = insert_in_seg_list(list, 5, 6, first5);
    list = insert_in_seg_list(list, 2, 3, nullptr);
    list = insert_in_seg_list(list, 5, 7, second5);
    list = insert_in_seg_list(list, 9, 9, nullptr);
    std::vector<int> starts;
    for (segment_list* n = list; n; n = n->next) starts.push_back(n->x_start);
    EXPECT_EQ(starts, (std::vector<int>{2, 5, 5, 9}));
    EXPECT_TRUE(list->next->owner == second5 && list->next->x_end == 7 && list->next->next->owner == first5);
    free_segment_list(list);
    free_segment_list(nullptr);

    // Only the head node's owner is released; later references are abandoned.
    auto head_owner = region_new(), later_owner = region_new();
    list = insert_in_seg_list(insert_in_seg_list(nullptr, 1, 1, head_owner), 4, 4, later_owner);
    free_segment_list(list);
    EXPECT_EQ(std::make_pair(head_owner.use_count(), later_owner.use_count()), std::make_pair(1L, 2L));
}

TEST(RLEImageModel, InitializeResizeAndFree)
{
    auto img = RLEimage_initialize(nullptr, 320, 240);
    ASSERT_TRUE(img && img->lines.size() == 240u && img->lines[239] && !img->lines[239]->segs);
    std::vector<std::shared_ptr<segment>> pool{segment_new()};
    auto old_line = RLEimage_get_line(img, 3);
    old_line->nb_segs = 1, old_line->segs = &pool[0];
    EXPECT_EQ(RLEimage_initialize(img, 100, 100), img);
    ASSERT_EQ(img->lines.size(), 100u);
    EXPECT_TRUE(RLEimage_get_line(img, 3) != old_line && RLEimage_get_line(img, 3)->nb_segs == 0);  // all fresh
    EXPECT_FALSE(RLEimage_free(img) || RLEimage_free(nullptr));  // the lifetime test holds what it keeps
}
