#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// Sides and counts of a box with the given eight image corners, checked for
// agreement with the limits table.
std::pair<std::vector<int>, std::vector<int>> limits_of(std::initializer_list<parall_point> corners)
{
    parallelepiped* p = new_parallelepiped();
    int i = 0, limits[4][4], counts[4], sides[4], total = 0;
    for (const auto& c : corners) p->corners[i++] = c;
    std::memset(limits, 0x7f, sizeof limits);  // garbage the function must overwrite
    std::memset(counts, 0x7f, sizeof counts);
    std::memset(sides, 0x7f, sizeof sides);
    get_parall_limits(p, limits, counts, sides);
    free_parallelepiped(p);
    for (int k = 0; k < 4; ++k) {
        for (int s = 0; s < 4; ++s) EXPECT_EQ(limits[k][s], sides[s] == k ? 1 : 0);
        total += counts[k];
    }
    EXPECT_EQ(total, 4);
    return {std::vector<int>(sides, sides + 4), std::vector<int>(counts, counts + 4)};
}

}  // namespace

TEST(Parallelepiped, GroundSizesAndExtremeCornersPickTheirEdgesAndTiesStayLow)
{
    EXPECT_EQ(copy_parallelepiped(nullptr), nullptr);
    parallelepiped* p = new_parallelepiped();
    p->ground[0] = {100, 100};  // not used by get_w_l
    p->ground[1] = {4, 0}, p->ground[2] = {4, 3}, p->ground[3] = {0, 3};
    double w = 0, l = 0;
    get_w_l(p, &w, &l);
    EXPECT_EQ(std::make_pair(w, l), std::make_pair(4.0, 3.0));
    free_parallelepiped(p);

    // corners[0] is left of and above everything, corners[6] right and below.
    auto c = limits_of({{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {2, 7}});
    EXPECT_EQ(c.first, (std::vector<int>{0, 2, 2, 0}));
    EXPECT_EQ(c.second, (std::vector<int>{2, 0, 2, 0}));
    // The far face's corner (k + 4) counts for its edge as well.
    c = limits_of({{0, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 5}, {5, 6}, {10, 10}, {-1, 20}});
    EXPECT_EQ(c.first, (std::vector<int>{3, 3, 2, 0}));
    // Edges 1 and 3 share the smallest x and y; edges 0 and 2 the largest y.
    c = limits_of({{5, 9}, {2, 4}, {8, 9}, {2, 5}, {5, 1}, {3, 0}, {8, 1}, {4, 0}});
    EXPECT_EQ(c.first, (std::vector<int>{1, 0, 2, 1}));
    EXPECT_EQ(limits_of({}).second[0], 4);  // every corner at the origin
}
