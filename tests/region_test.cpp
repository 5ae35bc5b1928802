#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

TEST(Region, AbsorbedRegionPointsAtTheSurvivorAndKeepsItsStatistics)
{
    auto s = region_new(), a = region_new();
    region_initialize(s, 0, 1, 0);
    region_initialize(a, 5, 6, 0);
    region_absorb_segment(a, 5, 9, 1);
    a->nholes = 2;
    region_absorb_region(s, a);
    EXPECT_EQ(a->absorber, s);
    EXPECT_EQ(s->absorber, nullptr);
    EXPECT_EQ(a->npix, 7);  // the absorbed region keeps its statistics
    EXPECT_EQ(s->npix, 9);
    EXPECT_EQ(s->nholes, 2);
}

TEST(SegmentList, KeepsStartOrderAndPutsANewNodeBeforeEqualStarts)
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
    EXPECT_EQ(list->next->owner, second5) << "a new node goes before an equal start";
    EXPECT_EQ(list->next->x_end, 7);
    EXPECT_EQ(list->next->next->owner, first5);
    free_segment_list(list);
    free_segment_list(nullptr);
}

// Only the head node's owner is released; later references are abandoned.
TEST(SegmentList, FreeReleasesOnlyTheHeadOwner)
{
    segment_list* list = nullptr;
    auto head_owner = region_new(), later_owner = region_new();
    list = insert_in_seg_list(insert_in_seg_list(nullptr, 1, 1, head_owner), 4, 4, later_owner);
    free_segment_list(list);
    EXPECT_EQ(head_owner.use_count(), 1L);
    EXPECT_EQ(later_owner.use_count(), 2L);
}
