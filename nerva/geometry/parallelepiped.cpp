#include "nerva/geometry/parallelepiped.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <initializer_list>

namespace nerva {

namespace {

double distance(const parall_point& a, const parall_point& b)
{
    const double dx = a.x - b.x;
    const double dy = a.y - b.y;
    return std::sqrt(dx * dx + dy * dy);
}

// Edge holding the extreme coordinate for one limit. An edge takes over only
// when one of its points is strictly beyond everything seen before, so ties
// stay with the lower index. Edge 0 is the answer if no point qualifies
// (non-finite corners), which keeps the tables complete.
int extreme_edge(const parallelepiped& p, bool along_x, bool smallest)
{
    double extreme = smallest ? DBL_MAX : -DBL_MAX;
    int edge = 0;
    for (int k = 0; k < 4; ++k) {
        for (const parall_point* corner : {&p.corners[k], &p.corners[k + 4]}) {
            const double v = along_x ? corner->x : corner->y;
            if (smallest ? v < extreme : v > extreme) {
                extreme = v;
                edge = k;
            }
        }
    }
    return edge;
}

}  // namespace

parallelepiped* new_parallelepiped() { return static_cast<parallelepiped*>(std::calloc(1, sizeof(parallelepiped))); }

void free_parallelepiped(parallelepiped* p) { std::free(p); }

parallelepiped* copy_parallelepiped(const parallelepiped* p)
{
    if (!p) return nullptr;
    parallelepiped* copy = new_parallelepiped();
    if (copy) *copy = *p;
    return copy;
}

void get_w_l(const parallelepiped* p, double* w, double* l)
{
    *l = distance(p->ground[1], p->ground[2]);
    *w = distance(p->ground[2], p->ground[3]);
}

void init_parall_limits(int limits[4][4], int counts[4], int sides[4])
{
    for (int k = 0; k < 4; ++k) {
        for (int s = 0; s < 4; ++s) limits[k][s] = k == s;
        counts[k] = 1;
        sides[k] = k;
    }
}

void get_parall_limits(const parallelepiped* p, int limits[4][4], int counts[4], int sides[4])
{
    for (int k = 0; k < 4; ++k) {
        for (int s = 0; s < 4; ++s) limits[k][s] = 0;
        counts[k] = 0;
    }
    sides[PARALL_LEFT] = extreme_edge(*p, true, true);
    sides[PARALL_BOTTOM] = extreme_edge(*p, false, false);
    sides[PARALL_RIGHT] = extreme_edge(*p, true, false);
    sides[PARALL_TOP] = extreme_edge(*p, false, true);
    for (int s = 0; s < 4; ++s) {
        limits[sides[s]][s] = 1;
        ++counts[sides[s]];
    }
}

}  // namespace nerva
