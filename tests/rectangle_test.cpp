#include <gtest/gtest.h>

#include <cmath>
#include <memory>

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

// One expectation per field, so a failure names the field; `what` names the case.
void expect_rectangle(const char* what, const rectangle* r, int xmin, int ymin, int xmax, int ymax, int width,
                      int height)
{
    SCOPED_TRACE(what);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->xmin, xmin);
    EXPECT_EQ(r->ymin, ymin);
    EXPECT_EQ(r->xmax, xmax);
    EXPECT_EQ(r->ymax, ymax);
    EXPECT_EQ(r->width, width);
    EXPECT_EQ(r->height, height);
}

}  // namespace

TEST(Rectangle, InitialisersDifferInHowTheyDeriveTheFarCorner)
{
    rect_ptr r(new_rectangle());
    init_rectangle(r.get(), 10, 20, 0, 5);
    expect_rectangle("init_rectangle", r.get(), 10, 20, 10, 24, 0, 5);
    initRectangle(r.get(), 10, 20, 0, 5);
    expect_rectangle("initRectangle", r.get(), 10, 20, 9, 24, 0, 5);
    init_rectangle(r.get(), 3, 4, -2, -7);
    expect_rectangle("copy of negative sizes", rect_ptr(copy_rectangle(r.get())).get(), 3, 4, 3, 4, -2, -7);
    init_rectangle(nullptr, 1, 1, 1, 1);
    initRectangle(nullptr, 1, 1, 1, 1);
}

TEST(Rectangle, MergeUnionAndAbsorb)
{
    auto a = box(0, 0, 9, 9), b = box(20, 20, 29, 29);
    expect_rectangle("merge keeps a's sizes", rect_ptr(merge_rectangle(a.get(), b.get())).get(), 0, 0, 29, 29, 10, 10);
    expect_rectangle("merge into null", rect_ptr(merge_rectangle(nullptr, b.get())).get(), 20, 20, 29, 29, 10, 10);
    EXPECT_EQ(merge_rectangle(nullptr, nullptr), nullptr);
    EXPECT_EQ(rectangle_intersection(a.get(), b.get()), nullptr);
    expect_rectangle("union", rect_ptr(rectangle_union(a.get(), b.get())).get(), 0, 0, 29, 29, 30, 30);
    EXPECT_EQ(absorb_rectangle(nullptr, b.get()), nullptr);
    EXPECT_EQ(absorb_rectangle(a.get(), nullptr), a.get());
    EXPECT_EQ(absorb_rectangle(a.get(), b.get()), a.get());
    expect_rectangle("absorbed into a", a.get(), 0, 0, 29, 29, 30, 30);
}

TEST(Rectangle, IntersectionOfBoxesSharingOneColumn)
{
    auto c = box(0, 0, 5, 9), d = box(5, 2, 9, 4);
    expect_rectangle("intersection", rect_ptr(rectangle_intersection(c.get(), d.get())).get(), 5, 2, 5, 4, 1, 3);
    EXPECT_EQ(rectangleIntersectionArea(c.get(), d.get()), 3);
    EXPECT_EQ(rectangles_intersect(c.get(), d.get()), 0);  // the strict test disagrees
    EXPECT_EQ(rect_distance(c.get(), d.get()), 0.0);
    EXPECT_EQ(rectangleIntersectionArea(c.get(), nullptr), 0);
}

TEST(Rectangle, IntersectRatios)
{
    auto a = box(0, 0, 9, 9), b = box(5, 0, 14, 9);
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio(a.get(), b.get()), 0.5);
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio_strict(a.get(), b.get()), 0.5);  // B <= A, I/B >= 0.5: I/A
    // The integer branch (B - I + 100) / 100: a small box inside a large one,
    // and I/B below 0.5 (truncated).
    EXPECT_EQ(rectangle_intersect_ratio_strict(a.get(), box(0, 0, 99, 99).get()), 100.0);
    EXPECT_EQ(rectangle_intersect_ratio_strict(box(0, 0, 19, 19).get(), box(15, 15, 24, 24).get()), 1.0);
    auto zero = box(2, 2, 3, 3);  // B == 0 from the stored sizes: NaN is "not below", so I/A
    zero->width = 0;
    EXPECT_DOUBLE_EQ(rectangle_intersect_ratio_strict(a.get(), zero.get()), 0.04);
    EXPECT_EQ(rectangle_intersect_ratio_strict(nullptr, b.get()), 0.0);
}

TEST(Rectangle, Distances)
{
    auto a = box(0, 0, 5, 5), b = box(7, 0, 9, 5), c = box(8, 9, 12, 13);
    EXPECT_EQ(rectangle_distance(a.get(), b.get()), 2);  // the gap without subtracting one
    EXPECT_EQ(rectangle_distance(a.get(), c.get()), 5);  // dx 3, dy 4
    EXPECT_EQ(rectangle_distance(a.get(), nullptr), -1);
    EXPECT_EQ(rectangle_distance(a.get(), box(33005, 33005, 33010, 33010).get()), 46669);  // sum in double
    EXPECT_EQ(rectangle_distance(box(0, 0, 0, 5).get(), box(4, 0, 4, 5).get()), 0);        // one pixel wide: no x gap

    EXPECT_FLOAT_EQ(rectangle_exact_distance(a.get(), c.get()), std::sqrt(7.5f * 7.5f + 8.5f * 8.5f));
    EXPECT_EQ(rect_distance(a.get(), box(0, 9, 5, 12).get()), 4.0);   // dx 0: dy
    EXPECT_EQ(rect_distance(a.get(), box(10, 2, 12, 3).get()), 5.0);  // overlapping in y: dx
}
