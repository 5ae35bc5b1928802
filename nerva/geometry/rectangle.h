#pragma once

#include <cstdint>
#include <set>

// Axis-aligned boxes in pixel coordinates. Bounds are inclusive: a one-pixel
// box has xmin == xmax and width == 1. x grows along the image width, y
// downwards. Records are plain: allocated zero-filled by new_rectangle /
// make_rectangle and released with free_rectangle; whoever receives a new
// rectangle from a function owns it.
//
// Several pairs of functions differ on purpose and hosts rely on the
// difference: init_rectangle guards zero sizes, initRectangle does not;
// merge_rectangle takes its sizes from the first argument only;
// rectangles_intersect is strict while rectangle_intersection is inclusive.
namespace nerva {

struct rectangle {
    int32_t xmin;
    int32_t ymin;
    int32_t xmax;
    int32_t ymax;
    int32_t width;
    int32_t height;
};

struct frectangle {
    double xmin;
    double ymin;
    double xmax;
    double ymax;
    double width;
    double height;
};

rectangle* new_rectangle();
void free_rectangle(rectangle* r);  // null is ignored

// xmax = x + w - 1 when w > 0, else x (likewise y); width/height keep w/h.
void init_rectangle(rectangle* r, int x, int y, int w, int h);
// Unguarded: xmax = x + w - 1 always, so w == 0 gives xmax = x - 1.
void initRectangle(rectangle* r, int x, int y, int w, int h);
rectangle* make_rectangle(int x, int y, int w, int h);
rectangle* copy_rectangle(const rectangle* r);  // r must not be null

// Grows a in place to cover b and returns a (null a -> null; null b -> a).
rectangle* absorb_rectangle(rectangle* a, const rectangle* b);
// New box over both bounds, but width/height come from a's bounds alone.
rectangle* merge_rectangle(const rectangle* a, const rectangle* b);
// New box of the common part (sharing one column counts), or null.
rectangle* rectangle_intersection(const rectangle* a, const rectangle* b);
// New bounding box, or null for inverted inputs.
rectangle* rectangle_union(const rectangle* a, const rectangle* b);

// Intersection area over the area of a (stored sizes); 0.0 when disjoint.
double rectangle_intersect_ratio(const rectangle* a, const rectangle* b);
// I/A when B <= A and I/B >= 0.5; otherwise the integer (B - I + 100) / 100.
double rectangle_intersect_ratio_strict(const rectangle* a, const rectangle* b);

// Gap between edges, truncated; one-pixel-wide axes contribute no gap. The
// squares are 32-bit integers, their sum and root doubles. -1 on null, 0 for
// the same pointer.
int rectangle_distance(const rectangle* a, const rectangle* b);
// Distance between centres in float; -1 on null, 0 for the same pointer.
float rectangle_exact_distance(const rectangle* a, const rectangle* b);
// Edge gap built on the strict rectangles_intersect.
double rect_distance(const rectangle* a, const rectangle* b);

// Strict overlap: boxes sharing exactly one column or row do not intersect.
int rectangles_intersect(const rectangle* a, const rectangle* b);
// 1 when a lies inside b (inclusive: a box lies inside itself).
int rectangle_in_rectangle(const rectangle* a, const rectangle* b);
// Pixel count of the common part from the bounds; 0 if none or null.
int rectangleIntersectionArea(const rectangle* a, const rectangle* b);
// Pixel count common to every box of a non-empty set.
int rectangleNIntersectionArea(const std::set<rectangle*>& rects);
// width * height as stored.
int rectangleArea(const rectangle* r);

frectangle* new_frectangle();
void free_frectangle(frectangle* f);
void init_frectangle(frectangle* f, double x, double y, double w, double h);
frectangle* make_frectangle(double x, double y, double w, double h);

}  // namespace nerva
