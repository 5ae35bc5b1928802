#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <set>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

struct RectDeleter {
    void operator()(rectangle* r) const { free_rectangle(r); }
};
using rect_ptr = std::unique_ptr<rectangle, RectDeleter>;

rect_ptr box(int xmin, int ymin, int xmax, int ymax)
{
    return rect_ptr(make_rectangle(xmin, ymin, xmax - xmin + 1, ymax - ymin + 1));
}

// xmin, ymin, xmax, ymax, width, height; empty for a null record.
std::vector<int> fields(const rectangle* r)
{
    if (!r) return {};
    return {r->xmin, r->ymin, r->xmax, r->ymax, r->width, r->height};
}
using F = std::vector<int>;

}  // namespace

TEST(RectangleCreation, GuardedAndUnguardedInit)
{
    rect_ptr r(new_rectangle());
    EXPECT_EQ(fields(r.get()), (F{0, 0, 0, 0, 0, 0}));
    init_rectangle(r.get(), 10, 20, 0, 5);
    EXPECT_EQ(fields(r.get()), (F{10, 20, 10, 24, 0, 5}));
    initRectangle(r.get(), 10, 20, 0, 5);
    EXPECT_EQ(fields(r.get()), (F{10, 20, 9, 24, 0, 5}));
    init_rectangle(r.get(), 3, 4, -2, -7);
    EXPECT_EQ(fields(r.get()), (F{3, 4, 3, 4, -2, -7}));
    init_rectangle(nullptr, 1, 1, 1, 1);
    initRectangle(nullptr, 1, 1, 1, 1);

    EXPECT_EQ(fields(rect_ptr(copy_rectangle(r.get())).get()), (F{3, 4, 3, 4, -2, -7}));

    frectangle* f = make_frectangle(1.5, 2.0, 0.0, 3.0);
    EXPECT_EQ(f->xmax, 1.5);
    EXPECT_EQ(f->ymax, 4.0);
    free_frectangle(f);
    free_rectangle(nullptr);
    free_frectangle(nullptr);
}

TEST(RectangleSetOps, AbsorbMergeIntersectionUnion)
{
    auto a = box(0, 0, 9, 9), b = box(20, 20, 29, 29);
    rect_ptr m(merge_rectangle(a.get(), b.get()));
    EXPECT_EQ(fields(m.get()), (F{0, 0, 29, 29, 10, 10}));  // sizes from the first argument only
    rect_ptr u(rectangle_union(a.get(), b.get()));
    EXPECT_EQ(fields(u.get()), (F{0, 0, 29, 29, 30, 30}));
    EXPECT_EQ(rectangle_intersection(a.get(), b.get()), nullptr);

    EXPECT_EQ(merge_rectangle(nullptr, nullptr), nullptr);
    EXPECT_EQ(fields(rect_ptr(merge_rectangle(nullptr, b.get())).get()), (F{20, 20, 29, 29, 10, 10}));

    EXPECT_EQ(absorb_rectangle(nullptr, b.get()), nullptr);
    EXPECT_EQ(absorb_rectangle(a.get(), nullptr), a.get());
    EXPECT_EQ(absorb_rectangle(a.get(), b.get()), a.get());
    EXPECT_EQ(fields(a.get()), (F{0, 0, 29, 29, 30, 30}));
}

TEST(RectangleSetOps, BoxesSharingOneColumn)
{
    auto a = box(0, 0, 5, 9), b = box(5, 2, 9, 4);
    rect_ptr i(rectangle_intersection(a.get(), b.get()));
    EXPECT_EQ(fields(i.get()), (F{5, 2, 5, 4, 1, 3}));
    EXPECT_EQ(rectangleIntersectionArea(a.get(), b.get()), 3);
    EXPECT_EQ(rectangles_intersect(a.get(), b.get()), 0);  // strict test disagrees on purpose
    EXPECT_EQ(rect_distance(a.get(), b.get()), 0.0);
    EXPECT_EQ(rectangleIntersectionArea(a.get(), nullptr), 0);
}

TEST(RectangleRatios, PlainAndStrict)
{
    auto a = box(0, 0, 9, 9), b = box(5, 0, 14, 9);
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio(a.get(), b.get()), 0.5);
    EXPECT_EQ(rectangle_intersect_ratio(a.get(), nullptr), 0.0);
    EXPECT_EQ(rectangle_intersect_ratio(a.get(), box(50, 50, 60, 60).get()), 0.0);

    // B <= A and I/B >= 0.5: I/A.
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio_strict(a.get(), b.get()), 0.5);
    // Small a inside a large b: the integer branch (B - I + 100) / 100.
    auto small = box(0, 0, 9, 9), large = box(0, 0, 99, 99);
    EXPECT_EQ(rectangle_intersect_ratio_strict(small.get(), large.get()), 100.0);
    // I/B below 0.5 with B <= A: the integer branch again, truncated.
    auto big = box(0, 0, 19, 19), corner = box(15, 15, 24, 24);
    EXPECT_EQ(rectangle_intersect_ratio_strict(big.get(), corner.get()), 1.0);  // (100-25+100)/100
    // B == 0 (stored sizes): NaN counts as "not below", so I/A.
    auto zero = box(2, 2, 3, 3);
    zero->width = 0;
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio_strict(a.get(), zero.get()), 0.04);
    EXPECT_EQ(rectangle_intersect_ratio_strict(nullptr, b.get()), 0.0);
}

TEST(RectangleDistances, GapsCentresAndStrictness)
{
    auto a = box(0, 0, 5, 5), b = box(7, 0, 9, 5);
    EXPECT_EQ(rectangle_distance(a.get(), b.get()), 2);  // gap without subtracting one
    auto c = box(8, 9, 12, 13);
    EXPECT_EQ(rectangle_distance(a.get(), c.get()), 5);  // dx 3, dy 4
    EXPECT_EQ(rectangle_distance(a.get(), nullptr), -1);
    auto thin1 = box(0, 0, 0, 5), thin2 = box(4, 0, 4, 5);  // one pixel wide: no x gap
    EXPECT_EQ(rectangle_distance(thin1.get(), thin2.get()), 0);

    EXPECT_FLOAT_EQ(rectangle_exact_distance(a.get(), c.get()), std::sqrt(7.5f * 7.5f + 8.5f * 8.5f));
    EXPECT_EQ(rectangle_exact_distance(nullptr, c.get()), -1.0f);

    EXPECT_EQ(rect_distance(a.get(), b.get()), 2.0);
    EXPECT_DOUBLE_EQ(rect_distance(a.get(), c.get()), std::sqrt(9.0 + 16.0));
    EXPECT_EQ(rect_distance(a.get(), box(0, 9, 5, 12).get()), 4.0);  // dx 0: result is dy
    EXPECT_EQ(rect_distance(a.get(), box(10, 2, 12, 3).get()), 5.0);  // overlapping in y: result is dx
}

TEST(RectangleContainment, InsideAndNIntersection)
{
    auto outer = box(0, 0, 9, 9), inner = box(2, 2, 9, 5);
    EXPECT_EQ(rectangle_in_rectangle(inner.get(), outer.get()), 1);
    EXPECT_EQ(rectangle_in_rectangle(outer.get(), outer.get()), 1);
    EXPECT_EQ(rectangle_in_rectangle(outer.get(), inner.get()), 0);

    std::set<rectangle*> one{inner.get()};
    EXPECT_EQ(rectangleNIntersectionArea(one), 8 * 4);
    auto third = box(5, 0, 20, 3);
    std::set<rectangle*> three{outer.get(), inner.get(), third.get()};
    EXPECT_EQ(rectangleNIntersectionArea(three), 5 * 2);
    auto far = box(50, 50, 60, 60);
    std::set<rectangle*> disjoint{outer.get(), inner.get(), far.get()};
    EXPECT_EQ(rectangleNIntersectionArea(disjoint), 0);

    EXPECT_EQ(rectangleArea(inner.get()), 32);
}
