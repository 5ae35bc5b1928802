#pragma once

#include <cstdint>

// The 3D box later stages fit around an object standing on the ground: four
// ground-plane corners and the eight box corners projected into the image.
// corners[k] and corners[k + 4] are joined by vertical edge k (k = 0..3).
// Plain record: allocated zero-filled by new_parallelepiped, released with
// free_parallelepiped.
namespace nerva {

struct parall_point {
    double x;
    double y;
};

struct parallelepiped {
    parall_point ground[4];   // base corners on the ground plane
    parall_point corners[8];  // image corners; edge k joins k and k + 4
    int64_t spare;            // copied with the record
};

// Image limits of a box, in the order the limit tables index them.
enum parall_limit_t : int { PARALL_LEFT = 0, PARALL_BOTTOM = 1, PARALL_RIGHT = 2, PARALL_TOP = 3 };

// Zero-filled record, or null when allocation fails.
parallelepiped* new_parallelepiped();
// Null is ignored.
void free_parallelepiped(parallelepiped* p);
// New record with every field of p; null for null or failed allocation.
parallelepiped* copy_parallelepiped(const parallelepiped* p);

// l = |ground[1] - ground[2]|, w = |ground[2] - ground[3]|; ground[0] unused.
void get_w_l(const parallelepiped* p, double* w, double* l);

// Default tables: edge s forms limit s.
void init_parall_limits(int limits[4][4], int counts[4], int sides[4]);
// For each limit s (left = smallest x, bottom = largest y, right = largest x,
// top = smallest y; y grows downwards) the edge that holds the extreme image
// corner: sides[s] is that edge, limits[k][s] is 1 when edge k forms limit s,
// counts[k] the number of limits edge k forms (counts sum to 4). On equal
// values the lower edge index wins.
void get_parall_limits(const parallelepiped* p, int limits[4][4], int counts[4], int sides[4]);

}  // namespace nerva
