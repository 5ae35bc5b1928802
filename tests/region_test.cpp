#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

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
    EXPECT_EQ(r->npix, 3);
    EXPECT_EQ(r->sum_x, 12.0);
    EXPECT_EQ(r->sum_y, 21.0);
    EXPECT_EQ(r->x_min, 3);
    EXPECT_EQ(r->x_max, 5);
    EXPECT_EQ(r->y_min, 7);
    EXPECT_EQ(r->y_max, 7);
    EXPECT_EQ(r->seed_x, 3);
    EXPECT_EQ(r->nholes, 0);
    EXPECT_EQ(r->ident, 42);  // the pool position survives re-initialisation
    EXPECT_FALSE(r->link || r->next || r->absorber || r->hole);
}

TEST(Region, AbsorbSegmentAddsPixelsAndSums)
{
    auto r = region_new();
    region_initialize(r, 10, 12, 4);
    region_absorb_segment(r, 6, 6, 5);  // one pixel adds exactly x, y, 1
    EXPECT_EQ(r->npix, 4);
    EXPECT_EQ(r->sum_x, 33.0 + 6);
    EXPECT_EQ(r->sum_y, 12.0 + 5);
    EXPECT_EQ(r->x_min, 6);
    EXPECT_EQ(r->y_max, 5);

    region_absorb_segment(r, 0, 0, 9);  // a run at column 0 adds 0 to sum_x
    EXPECT_EQ(r->sum_x, 39.0);
    region_absorb_segment(r, 0, 20, 3);  // y_max is set, not compared
    EXPECT_EQ(r->y_max, 3);
    EXPECT_EQ(r->x_max, 20);
    EXPECT_EQ(r->sum_x, 39.0 + 210);
    EXPECT_EQ(r->seed_x, 10);
    EXPECT_EQ(r->y_min, 4);
}

TEST(Region, SumsStayExactForWideImages)
{
    auto r = region_new();
    region_initialize(r, 20000, 30000, 40000);
    double expected = 0;
    for (int x = 20000; x <= 30000; ++x) expected += x;
    EXPECT_EQ(r->sum_x, expected);
    EXPECT_EQ(r->sum_y, 40000.0 * 10001);
}

TEST(Region, AbsorbRegionMergesIntoSurvivorOnly)
{
    auto s = region_new(), a = region_new();
    region_initialize(s, 0, 1, 0);
    region_initialize(a, 5, 6, 0);
    region_absorb_segment(a, 5, 9, 1);
    a->nholes = 2;
    region_absorb_region(s, a);
    EXPECT_EQ(a->absorber, s);
    EXPECT_EQ(a->npix, 7);  // absorbed keeps its own statistics
    EXPECT_EQ(s->npix, 9);
    EXPECT_EQ(s->nholes, 2);
    EXPECT_EQ(s->x_min, 0);
    EXPECT_EQ(s->x_max, 9);
    EXPECT_EQ(s->y_max, 1);
    EXPECT_EQ(s->sum_x, 1.0 + 11 + 35);
    EXPECT_EQ(s->sum_y, 5.0);
    EXPECT_FALSE(s->absorber);
}

TEST(Region, AddHoleIgnoresNullAndRemembersOther)
{
    region_add_hole(nullptr, region_new());  // nothing to crash on
    auto r = region_new(), o = region_new();
    region_add_hole(r, o);
    region_add_hole(r, o);
    EXPECT_EQ(r->nholes, 2);
    EXPECT_EQ(r->hole, o);
}

TEST(Region, FreeDropsOneReference)
{
    auto keep = region_new();
    auto ref = keep;
    region_free(ref);
    EXPECT_FALSE(ref);
    EXPECT_EQ(keep.use_count(), 1);
    auto seg = segment_new();
    EXPECT_EQ(seg->x_start, 0);
    EXPECT_FALSE(seg->owner);
    segment_free(seg);
    EXPECT_FALSE(seg);
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
    EXPECT_EQ(later_owner.use_count(), 2);
    free_segment_list(list);
    EXPECT_EQ(head_owner.use_count(), 1);
    EXPECT_EQ(later_owner.use_count(), 2);  // kept: the later node's reference is abandoned
}

TEST(SegmentList, NewNodeIsZeroFilled)
{
    segment_list* n = new_segment_list();
    EXPECT_EQ(n->x_start, 0);
    EXPECT_EQ(n->x_end, 0);
    EXPECT_FALSE(n->owner);
    EXPECT_EQ(n->next, nullptr);
    free_segment_list(n);
}

TEST(RLEImageModel, InitializeResizeAndFree)
{
    auto img = RLEimage_initialize(nullptr, 320, 240);
    ASSERT_TRUE(img);
    EXPECT_EQ(img->width, 320);
    EXPECT_EQ(img->height, 240);
    ASSERT_EQ(img->lines.size(), 240u);
    for (auto& line : img->lines) {
        ASSERT_TRUE(line);
        EXPECT_EQ(line->nb_segs, 0);
        EXPECT_EQ(line->seg_offset, 0);
        EXPECT_EQ(line->segs, nullptr);
    }

    std::vector<std::shared_ptr<segment>> pool{segment_new()};
    auto old_line = RLEimage_get_line(img, 3);
    old_line->nb_segs = 1;
    old_line->segs = &pool[0];

    auto same = RLEimage_initialize(img, 100, 100);
    EXPECT_EQ(same, img);
    ASSERT_EQ(img->lines.size(), 100u);
    EXPECT_NE(RLEimage_get_line(img, 3), old_line);  // every line is fresh
    EXPECT_EQ(RLEimage_get_line(img, 3)->nb_segs, 0);

    EXPECT_FALSE(RLEimage_get_line(nullptr, 0));

    EXPECT_FALSE(RLEimage_free(img));
    EXPECT_EQ(img->width, 100);
    EXPECT_EQ(img->height, 100);
    EXPECT_TRUE(img->lines.empty());
    EXPECT_FALSE(RLEimage_free(nullptr));

    auto fresh = RLEimage_new();
    EXPECT_EQ(fresh->width, 0);
    EXPECT_TRUE(fresh->lines.empty());
}
