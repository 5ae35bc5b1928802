#include "nerva/geometry/rectangle.h"

#include <cmath>
#include <cstdlib>

#include "nerva/geometry/MathFunctions.h"
#include "nerva/geometry/internal/wrap_arith.h"

namespace nerva {

namespace {

using math::max;
using math::min;

// Areas and squared gaps are 32-bit products as stored; very large boxes wrap
// (well-defined) rather than invoke undefined overflow.
int area_of(const rectangle* r) { return wrap_mul(r->width, r->height); }

int axis_gap(int amin, int amax, int bmin, int bmax)
{
    if (amin < amax && amax < bmin && bmin < bmax) return wrap_sub(bmin, amax);
    if (bmin < bmax && bmax < amin && amin < amax) return wrap_sub(amin, bmax);
    return 0;
}

}  // namespace

rectangle* new_rectangle() { return static_cast<rectangle*>(std::calloc(1, sizeof(rectangle))); }

void free_rectangle(rectangle* r) { std::free(r); }

void init_rectangle(rectangle* r, int x, int y, int w, int h)
{
    if (!r) return;
    r->xmin = x;
    r->ymin = y;
    r->width = w;
    r->height = h;
    r->xmax = w > 0 ? wrap_add(x, w - 1) : x;
    r->ymax = h > 0 ? wrap_add(y, h - 1) : y;
}

void initRectangle(rectangle* r, int x, int y, int w, int h)
{
    if (!r) return;
    r->xmin = x;
    r->ymin = y;
    r->width = w;
    r->height = h;
    r->xmax = wrap_sub(wrap_add(x, w), 1);
    r->ymax = wrap_sub(wrap_add(y, h), 1);
}

rectangle* make_rectangle(int x, int y, int w, int h)
{
    rectangle* r = new_rectangle();
    init_rectangle(r, x, y, w, h);
    return r;
}

rectangle* copy_rectangle(const rectangle* r)
{
    rectangle* c = new_rectangle();
    *c = *r;
    return c;
}

rectangle* absorb_rectangle(rectangle* a, const rectangle* b)
{
    if (!a) return nullptr;
    if (!b) return a;
    a->xmin = min(a->xmin, b->xmin);
    a->xmax = max(a->xmax, b->xmax);
    a->ymin = min(a->ymin, b->ymin);
    a->ymax = max(a->ymax, b->ymax);
    a->width = wrap_add(wrap_sub(a->xmax, a->xmin), 1);
    a->height = wrap_add(wrap_sub(a->ymax, a->ymin), 1);
    return a;
}

rectangle* merge_rectangle(const rectangle* a, const rectangle* b)
{
    if (!a && !b) return nullptr;
    if (!a) return copy_rectangle(b);
    if (!b) return copy_rectangle(a);
    rectangle* m = new_rectangle();
    m->xmin = min(a->xmin, b->xmin);
    m->xmax = max(a->xmax, b->xmax);
    m->ymin = min(a->ymin, b->ymin);
    m->ymax = max(a->ymax, b->ymax);
    m->width = wrap_add(wrap_sub(a->xmax, a->xmin), 1);
    m->height = wrap_add(wrap_sub(a->ymax, a->ymin), 1);
    return m;
}

rectangle* rectangle_intersection(const rectangle* a, const rectangle* b)
{
    const int xmin = max(a->xmin, b->xmin), xmax = min(a->xmax, b->xmax);
    const int ymin = max(a->ymin, b->ymin), ymax = min(a->ymax, b->ymax);
    if (ymin > ymax || xmin > xmax) return nullptr;
    return make_rectangle(xmin, ymin, wrap_add(wrap_sub(xmax, xmin), 1), wrap_add(wrap_sub(ymax, ymin), 1));
}

rectangle* rectangle_union(const rectangle* a, const rectangle* b)
{
    const int xmin = min(a->xmin, b->xmin), xmax = max(a->xmax, b->xmax);
    const int ymin = min(a->ymin, b->ymin), ymax = max(a->ymax, b->ymax);
    if (ymin > ymax || xmin > xmax) return nullptr;
    return make_rectangle(xmin, ymin, wrap_add(wrap_sub(xmax, xmin), 1), wrap_add(wrap_sub(ymax, ymin), 1));
}

double rectangle_intersect_ratio(const rectangle* a, const rectangle* b)
{
    if (!a || !b) return 0.0;
    rectangle* i = rectangle_intersection(a, b);
    if (!i) return 0.0;
    const double ratio = static_cast<double>(area_of(i)) / static_cast<double>(area_of(a));
    free_rectangle(i);
    return ratio;
}

double rectangle_intersect_ratio_strict(const rectangle* a, const rectangle* b)
{
    if (!a || !b) return 0.0;
    rectangle* i = rectangle_intersection(a, b);
    if (!i) return 0.0;
    const int A = area_of(a), B = area_of(b), I = area_of(i);
    free_rectangle(i);
    const double i_over_b = static_cast<double>(I) / static_cast<double>(B);
    // A NaN ratio (B == 0) is "not below 0.5".
    if (B <= A && !(i_over_b < 0.5)) return static_cast<double>(I) / static_cast<double>(A);
    return static_cast<double>(wrap_add(wrap_sub(B, I), 100) / 100);
}

int rectangle_distance(const rectangle* a, const rectangle* b)
{
    if (!a || !b) return -1;
    if (a == b) return 0;
    const int dx = axis_gap(a->xmin, a->xmax, b->xmin, b->xmax);
    const int dy = axis_gap(a->ymin, a->ymax, b->ymin, b->ymax);
    // Squares in 32-bit integers, their sum and root in double: boxes far
    // apart cannot overflow the sum.
    const double d = std::sqrt(static_cast<double>(wrap_mul(dx, dx)) + static_cast<double>(wrap_mul(dy, dy)));
    return static_cast<int>(d);
}

float rectangle_exact_distance(const rectangle* a, const rectangle* b)
{
    if (!a || !b) return -1.0f;
    if (a == b) return 0.0f;
    const float cxa = static_cast<float>(wrap_add(a->xmin, a->xmax) * 0.5);
    const float cya = static_cast<float>(wrap_add(a->ymin, a->ymax) * 0.5);
    const float cxb = static_cast<float>(wrap_add(b->xmin, b->xmax) * 0.5);
    const float cyb = static_cast<float>(wrap_add(b->ymin, b->ymax) * 0.5);
    const float dx = cxa - cxb, dy = cya - cyb;
    return std::sqrt(dx * dx + dy * dy);
}

int rectangles_intersect(const rectangle* a, const rectangle* b)
{
    return (a->xmin < b->xmax && b->xmin < a->xmax && a->ymin < b->ymax && b->ymin < a->ymax) ? 1 : 0;
}

double rect_distance(const rectangle* a, const rectangle* b)
{
    if (rectangles_intersect(a, b)) return 0.0;
    int dx;
    if (a->xmin >= b->xmax) dx = wrap_sub(a->xmin, b->xmax);
    else if (b->xmin >= a->xmax) dx = wrap_sub(b->xmin, a->xmax);
    else dx = 0;
    int dy;
    if (a->ymin >= b->ymax) dy = wrap_sub(a->ymin, b->ymax);
    else if (b->ymin >= a->ymax) dy = wrap_sub(b->ymin, a->ymax);
    else return dx;  // overlapping in y
    if (dx == 0) return dy;
    if (dy == 0) return dx;
    return std::sqrt(static_cast<double>(wrap_add(wrap_mul(dx, dx), wrap_mul(dy, dy))));
}

int rectangle_in_rectangle(const rectangle* a, const rectangle* b)
{
    return (a->xmin >= b->xmin && a->xmax <= b->xmax && a->ymin >= b->ymin && a->ymax <= b->ymax) ? 1 : 0;
}

int rectangleIntersectionArea(const rectangle* a, const rectangle* b)
{
    if (!a || !b) return 0;
    const int xmin = max(a->xmin, b->xmin), xmax = min(a->xmax, b->xmax);
    const int ymin = max(a->ymin, b->ymin), ymax = min(a->ymax, b->ymax);
    if (ymin > ymax || xmin > xmax) return 0;
    return wrap_mul(wrap_add(wrap_sub(xmax, xmin), 1), wrap_add(wrap_sub(ymax, ymin), 1));
}

int rectangleNIntersectionArea(const std::set<rectangle*>& rects)
{
    auto it = rects.begin();
    int xmin = (*it)->xmin, xmax = (*it)->xmax, ymin = (*it)->ymin, ymax = (*it)->ymax;
    for (++it; it != rects.end(); ++it) {
        xmin = max(xmin, (*it)->xmin);
        xmax = min(xmax, (*it)->xmax);
        ymin = max(ymin, (*it)->ymin);
        ymax = min(ymax, (*it)->ymax);
    }
    if (xmax < xmin || ymax < ymin) return 0;
    return wrap_mul(wrap_add(wrap_sub(xmax, xmin), 1), wrap_add(wrap_sub(ymax, ymin), 1));
}

int rectangleArea(const rectangle* r) { return area_of(r); }

frectangle* new_frectangle() { return static_cast<frectangle*>(std::calloc(1, sizeof(frectangle))); }

void free_frectangle(frectangle* f) { std::free(f); }

void init_frectangle(frectangle* f, double x, double y, double w, double h)
{
    if (!f) return;
    f->xmin = x;
    f->ymin = y;
    f->width = w;
    f->height = h;
    f->xmax = w > 0.0 ? x + w - 1.0 : x;
    f->ymax = h > 0.0 ? y + h - 1.0 : y;
}

frectangle* make_frectangle(double x, double y, double w, double h)
{
    frectangle* f = new_frectangle();
    init_frectangle(f, x, y, w, h);
    return f;
}

}  // namespace nerva
