#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

struct Limits {
    int limits[4][4];
    int counts[4];
    int sides[4];
};

// A box whose eight image corners are given as (x, y) pairs.
parallelepiped* box_with_corners(std::initializer_list<parall_point> pts)
{
    parallelepiped* p = new_parallelepiped();
    int i = 0;
    for (const auto& pt : pts) p->corners[i++] = pt;
    return p;
}

Limits limits_of(const parallelepiped* p)
{
    Limits l;
    std::memset(&l, 0x7f, sizeof(l));  // garbage the function must overwrite
    get_parall_limits(p, l.limits, l.counts, l.sides);
    return l;
}

void expect_consistent(const Limits& l)
{
    int total = 0;
    for (int k = 0; k < 4; ++k) {
        int formed = 0;
        for (int s = 0; s < 4; ++s) {
            EXPECT_EQ(l.limits[k][s], l.sides[s] == k ? 1 : 0);
            formed += l.limits[k][s];
        }
        EXPECT_EQ(l.counts[k], formed);
        total += l.counts[k];
    }
    EXPECT_EQ(total, 4);
}

}  // namespace

TEST(Parallelepiped, RecordLifecycle)
{
    EXPECT_EQ(copy_parallelepiped(nullptr), nullptr);
    free_parallelepiped(nullptr);

    parallelepiped* p = new_parallelepiped();
    EXPECT_EQ(p->corners[7].y, 0.0);
    p->ground[3] = {1.5, -2.0};
    p->corners[6] = {7, 8};
    p->spare = 99;
    parallelepiped* copy = copy_parallelepiped(p);
    ASSERT_NE(copy, p);
    EXPECT_EQ(std::memcmp(copy, p, sizeof(*p)), 0);
    copy->corners[6].x = 0;
    EXPECT_EQ(p->corners[6].x, 7);
    free_parallelepiped(p);
    free_parallelepiped(copy);
}

TEST(Parallelepiped, GroundWidthAndLength)
{
    parallelepiped* p = new_parallelepiped();
    p->ground[0] = {100, 100};  // not used
    p->ground[1] = {4, 0};
    p->ground[2] = {4, 3};
    p->ground[3] = {0, 3};
    double w = 0, l = 0;
    get_w_l(p, &w, &l);
    EXPECT_DOUBLE_EQ(l, 3.0);
    EXPECT_DOUBLE_EQ(w, 4.0);
    free_parallelepiped(p);
}

TEST(ParallelepipedLimits, DefaultTable)
{
    Limits l;
    std::memset(&l, 0x7f, sizeof(l));
    init_parall_limits(l.limits, l.counts, l.sides);
    for (int s = 0; s < 4; ++s) EXPECT_EQ(l.sides[s], s);
    expect_consistent(l);
}

TEST(ParallelepipedLimits, ExtremeCornersPickTheirEdges)
{
    // corners[0] is top-left of everything, corners[6] bottom-right.
    parallelepiped* p = box_with_corners(
        {{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {2, 7}});
    Limits l = limits_of(p);
    EXPECT_EQ(l.sides[PARALL_LEFT], 0);
    EXPECT_EQ(l.sides[PARALL_BOTTOM], 2);
    EXPECT_EQ(l.sides[PARALL_RIGHT], 2);
    EXPECT_EQ(l.sides[PARALL_TOP], 0);
    EXPECT_EQ(l.counts[0], 2);
    EXPECT_EQ(l.counts[1], 0);
    EXPECT_EQ(l.counts[2], 2);
    EXPECT_EQ(l.counts[3], 0);
    expect_consistent(l);

    // The upper face's corner (k + 4) counts for its edge as well.
    p->corners[7] = {-1, 20};
    l = limits_of(p);
    EXPECT_EQ(l.sides[PARALL_LEFT], 3);
    EXPECT_EQ(l.sides[PARALL_BOTTOM], 3);
    expect_consistent(l);
    free_parallelepiped(p);
}

TEST(ParallelepipedLimits, TiesStayWithTheLowerEdge)
{
    // Edges 1 and 3 share the smallest x; edges 0 and 2 the largest y.
    parallelepiped* p = box_with_corners(
        {{5, 9}, {2, 4}, {8, 9}, {2, 5}, {5, 1}, {3, 0}, {8, 1}, {4, 0}});
    Limits l = limits_of(p);
    EXPECT_EQ(l.sides[PARALL_LEFT], 1);
    EXPECT_EQ(l.sides[PARALL_BOTTOM], 0);
    EXPECT_EQ(l.sides[PARALL_RIGHT], 2);
    EXPECT_EQ(l.sides[PARALL_TOP], 1);
    expect_consistent(l);

    // All corners at one point: edge 0 forms every limit.
    parallelepiped* flat = new_parallelepiped();
    l = limits_of(flat);
    for (int s = 0; s < 4; ++s) EXPECT_EQ(l.sides[s], 0);
    EXPECT_EQ(l.counts[0], 4);
    expect_consistent(l);
    free_parallelepiped(p);
    free_parallelepiped(flat);
}
