#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// The edge that holds each limit (left, bottom, right, top) for the given
// eight image corners; `counts`, if given, the limits each edge holds.
std::vector<int> sides_of(std::initializer_list<parall_point> corners, std::vector<int>* counts = nullptr)
{
    parallelepiped* p = new_parallelepiped();
    int i = 0, limits[4][4], count[4], sides[4], set = 0;
    for (const auto& c : corners) p->corners[i++] = c;
    std::memset(limits, 0x7f, sizeof limits);  // garbage the function must overwrite
    get_parall_limits(p, limits, count, sides);
    free_parallelepiped(p);
    for (int s = 0; s < 4; ++s) set += limits[0][s] + limits[1][s] + limits[2][s] + limits[3][s];
    EXPECT_EQ(set, 4);
    if (counts) counts->assign(count, count + 4);
    return std::vector<int>(sides, sides + 4);
}

}  // namespace

TEST(Parallelepiped, GroundSizesComeFromTheLastThreeGroundPoints)
{
    parallelepiped* p = new_parallelepiped();
    p->ground[0] = {100, 100};  // not used by get_w_l
    p->ground[1] = {4, 0};
    p->ground[2] = {4, 3};
    p->ground[3] = {0, 3};
    double w = 0, l = 0;
    get_w_l(p, &w, &l);
    EXPECT_EQ(w, 4.0);
    EXPECT_EQ(l, 3.0);
    free_parallelepiped(p);
}

TEST(Parallelepiped, ExtremeCornersPickTheirEdgesAndTiesStayLow)
{
    // corners[0] is left of and above everything, corners[6] right and below.
    std::vector<int> counts;
    EXPECT_EQ(sides_of({{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {2, 7}}, &counts),
              (std::vector<int>{0, 2, 2, 0}));
    EXPECT_EQ(counts, (std::vector<int>{2, 0, 2, 0}));
    // Edges 1 and 3 share the smallest x and y; edges 0 and 2 the largest y.
    EXPECT_EQ(sides_of({{5, 9}, {2, 4}, {8, 9}, {2, 5}, {5, 1}, {3, 0}, {8, 1}, {4, 0}}),
              (std::vector<int>{1, 0, 2, 1}));
}
