#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// npix, x_min, x_max, y_min, y_max, seed_x, nholes, sum_x, sum_y
std::vector<double> stats(const std::shared_ptr<region>& r)
{
    return {double(r->npix), double(r->x_min), double(r->x_max), double(r->y_min), double(r->y_max),
            double(r->seed_x), double(r->nholes), r->sum_x, r->sum_y};
}

}  // namespace

TEST(Region, InitializeDescribesExactlyOneRun)
{
    auto r = region_new();
    r->link = region_new();
    r->next = region_new();
    r->absorber = region_new();
    r->hole = region_new();
    r->ident = 42;
    r->nholes = 7;
    region_initialize(r, 3, 5, 7);
    EXPECT_EQ(stats(r), (std::vector<double>{3, 3, 5, 7, 7, 3, 0, 12, 21}));
    EXPECT_EQ(r->ident, 42);  // the pool position survives re-initialisation
    EXPECT_FALSE(r->link || r->next || r->absorber || r->hole);

    // Sums stay exact for wide images.
    region_initialize(r, 20000, 30000, 40000);
    EXPECT_EQ(r->sum_x, 10001.0 * 25000);
    EXPECT_EQ(r->sum_y, 40000.0 * 10001);
}

TEST(Region, AbsorbSegmentAddsPixelsAndSums)
{
    auto r = region_new();
    region_initialize(r, 10, 12, 4);
    region_absorb_segment(r, 6, 6, 5);  // one pixel adds exactly x, y, 1
    EXPECT_EQ(stats(r), (std::vector<double>{4, 6, 12, 4, 5, 10, 0, 33 + 6, 12 + 5}));
    region_absorb_segment(r, 0, 0, 9);   // a run at column 0 adds 0 to sum_x
    region_absorb_segment(r, 0, 20, 3);  // y_max is set, not compared
    EXPECT_EQ(stats(r), (std::vector<double>{26, 0, 20, 4, 3, 10, 0, 39 + 210, 17 + 9 + 63}));
}

TEST(Region, AbsorbRegionMergesIntoSurvivorOnly)
{
    auto s = region_new(), a = region_new();
    region_initialize(s, 0, 1, 0);
    region_initialize(a, 5, 6, 0);
    region_absorb_segment(a, 5, 9, 1);
    a->nholes = 2;
    const auto before = stats(a);
    region_absorb_region(s, a);
    EXPECT_EQ(a->absorber, s);
    EXPECT_EQ(stats(a), before);  // absorbed keeps its own statistics
    EXPECT_EQ(stats(s), (std::vector<double>{9, 0, 9, 0, 1, 0, 2, 1 + 11 + 35, 5}));
    EXPECT_FALSE(s->absorber);

    region_add_hole(nullptr, region_new());  // nothing to crash on
    region_add_hole(s, a);
    region_add_hole(s, a);
    EXPECT_EQ(s->nholes, 4);
    EXPECT_EQ(s->hole, a);
    s->hole.reset();  // a->absorber and s->hole form a cycle of shared pointers
}

TEST(SegmentList, InsertKeepsOrderAndPutsNewNodesBeforeEqualKeys)
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
    EXPECT_EQ(list->next->owner, second5);
    EXPECT_EQ(list->next->x_end, 7);
    EXPECT_EQ(list->next->next->owner, first5);
    free_segment_list(list);
    free_segment_list(nullptr);
}

TEST(SegmentList, FreeReleasesOnlyTheHeadOwner)
{
    auto head_owner = region_new(), later_owner = region_new();
    segment_list* list = insert_in_seg_list(nullptr, 1, 1, head_owner);
    list = insert_in_seg_list(list, 4, 4, later_owner);
    EXPECT_EQ(head_owner.use_count(), 2);
    free_segment_list(list);
    EXPECT_EQ(head_owner.use_count(), 1);
    EXPECT_EQ(later_owner.use_count(), 2);  // kept: the later node's reference is abandoned
}

TEST(RLEImageModel, InitializeResizeAndFree)
{
    auto img = RLEimage_initialize(nullptr, 320, 240);
    ASSERT_TRUE(img);
    EXPECT_EQ(img->width, 320);
    EXPECT_EQ(img->height, 240);
    ASSERT_EQ(img->lines.size(), 240u);
    auto line = img->lines[239];
    EXPECT_TRUE(line && line->nb_segs == 0 && line->seg_offset == 0 && line->segs == nullptr);

    std::vector<std::shared_ptr<segment>> pool{segment_new()};
    auto old_line = RLEimage_get_line(img, 3);
    old_line->nb_segs = 1;
    old_line->segs = &pool[0];

    EXPECT_EQ(RLEimage_initialize(img, 100, 100), img);
    ASSERT_EQ(img->lines.size(), 100u);
    EXPECT_NE(RLEimage_get_line(img, 3), old_line);  // every line is fresh
    EXPECT_EQ(RLEimage_get_line(img, 3)->nb_segs, 0);
    EXPECT_FALSE(RLEimage_get_line(nullptr, 0));

    EXPECT_FALSE(RLEimage_free(img));
    EXPECT_EQ(img->height, 100);  // the sizes stay, the lines go
    EXPECT_TRUE(img->lines.empty());
    EXPECT_FALSE(RLEimage_free(nullptr));
}
