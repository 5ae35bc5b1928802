#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

struct Limits {
    int limits[4][4];
    int counts[4];
    int sides[4];
};

// Limit tables of a box with the given eight image corners, checked for
// agreement between the three tables.
Limits limits_of(std::initializer_list<parall_point> corners)
{
    parallelepiped* p = new_parallelepiped();
    int i = 0;
    for (const auto& c : corners) p->corners[i++] = c;
    Limits l;
    std::memset(&l, 0x7f, sizeof(l));  // garbage the function must overwrite
    get_parall_limits(p, l.limits, l.counts, l.sides);
    free_parallelepiped(p);
    int total = 0;
    for (int k = 0; k < 4; ++k) {
        for (int s = 0; s < 4; ++s) EXPECT_EQ(l.limits[k][s], l.sides[s] == k ? 1 : 0);
        total += l.counts[k];
    }
    EXPECT_EQ(total, 4);
    return l;
}

}  // namespace

TEST(Parallelepiped, RecordCopyAndGroundSizes)
{
    EXPECT_EQ(copy_parallelepiped(nullptr), nullptr);
    free_parallelepiped(nullptr);

    parallelepiped* p = new_parallelepiped();
    p->ground[0] = {100, 100};  // not used by get_w_l
    p->ground[1] = {4, 0};
    p->ground[2] = {4, 3};
    p->ground[3] = {0, 3};
    p->spare = 99;
    parallelepiped* copy = copy_parallelepiped(p);
    EXPECT_EQ(std::memcmp(copy, p, sizeof(*p)), 0);
    double w = 0, l = 0;
    get_w_l(copy, &w, &l);
    EXPECT_DOUBLE_EQ(l, 3.0);
    EXPECT_DOUBLE_EQ(w, 4.0);
    free_parallelepiped(p);
    free_parallelepiped(copy);

    Limits d;
    init_parall_limits(d.limits, d.counts, d.sides);
    for (int s = 0; s < 4; ++s) EXPECT_TRUE(d.sides[s] == s && d.counts[s] == 1 && d.limits[s][s] == 1);
}

TEST(ParallelepipedLimits, ExtremeCornersPickTheirEdges)
{
    // corners[0] is left of and above everything, corners[6] right and below.
    Limits l = limits_of({{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {2, 7}});
    EXPECT_EQ(std::vector<int>(l.sides, l.sides + 4), (std::vector<int>{0, 2, 2, 0}));
    EXPECT_EQ(std::vector<int>(l.counts, l.counts + 4), (std::vector<int>{2, 0, 2, 0}));

    // The far face's corner (k + 4) counts for its edge as well.
    l = limits_of({{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {-1, 20}});
    EXPECT_EQ(std::vector<int>(l.sides, l.sides + 4), (std::vector<int>{3, 3, 2, 0}));
}

TEST(ParallelepipedLimits, TiesStayWithTheLowerEdge)
{
    // Edges 1 and 3 share the smallest x and y; edges 0 and 2 the largest y.
    Limits l = limits_of({{5, 9}, {2, 4}, {8, 9}, {2, 5}, {5, 1}, {3, 0}, {8, 1}, {4, 0}});
    EXPECT_EQ(std::vector<int>(l.sides, l.sides + 4), (std::vector<int>{1, 0, 2, 1}));
    l = limits_of({});  // every corner at the origin
    EXPECT_EQ(l.counts[0], 4);
}
