// Shape measures of a blob from the runs of its region: pixel sums up to the
// second order, exact in integers, the boundary's pixel edges and its
// weighted border pixels, in one pass over the region's rows that keeps
// three rows of runs and of border runs at a time.
#include "nerva/segmentation/blob_shape.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

__extension__ typedef __int128 int128;

struct Span {
    int32_t first, last;
};

// Sums of the pixels of the region, coordinates taken from the box's corner
// so that the second-order sums stay well inside 64 bits for any frame of up
// to 2^15 pixels a side.
struct Sums {
    int64_t n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;

    void add(int64_t a, int64_t b, int64_t y_row)
    {
        const int64_t len = b - a + 1;
        const int64_t sx = (a + b) * len / 2;
        // Sum of k^2 for k in a..b.
        const int64_t sxx = (b * (b + 1) * (2 * b + 1) - (a - 1) * a * (2 * a - 1)) / 6;
        n += len;
        x += sx;
        y += len * y_row;
        xx += sxx;
        xy += sx * y_row;
        yy += len * y_row * y_row;
    }

    // n^2 times the central moment, exact: n * sum(uv) - sum(u) * sum(v).
    double central(int64_t uv, int64_t u, int64_t v) const
    {
        const int128 scaled = static_cast<int128>(n) * uv - static_cast<int128>(u) * v;
        return static_cast<double>(scaled) / (static_cast<double>(n) * static_cast<double>(n));
    }
};

using Spans = std::vector<Span>;

// Pixels shared by two sorted lists of disjoint spans.
int64_t overlap(const Spans& above, const Spans& row)
{
    int64_t shared = 0;
    size_t i = 0, j = 0;
    while (i < above.size() && j < row.size()) {
        const int32_t first = std::max(above[i].first, row[j].first);
        const int32_t last = std::min(above[i].last, row[j].last);
        if (last >= first) shared += last - first + 1;
        if (above[i].last < row[j].last) ++i;
        else ++j;
    }
    return shared;
}

// The pixels of `a` also in `b`, both sorted lists of disjoint spans.
void intersect(const Spans& a, const Spans& b, Spans& out)
{
    out.clear();
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const int32_t first = std::max(a[i].first, b[j].first);
        const int32_t last = std::min(a[i].last, b[j].last);
        if (last >= first) out.push_back({first, last});
        if (a[i].last < b[j].last) ++i;
        else ++j;
    }
}

// The border of a row: its pixels with a 4-neighbour outside the region,
// that is the row's spans less the pixels inside a span, not at its ends,
// with region pixels above and below.
void border_of(const Spans& above, const Spans& row, const Spans& below, Spans& border, Spans& inner, Spans& covered)
{
    inner.clear();
    for (const Span& r : row)
        if (r.last - r.first >= 2) inner.push_back({r.first + 1, r.last - 1});
    intersect(inner, above, covered);
    intersect(covered, below, inner);  // the interior pixels, inside the row's spans
    border.clear();
    size_t k = 0;
    for (const Span& r : row) {
        int32_t x = r.first;
        for (; k < inner.size() && inner[k].last <= r.last; ++k) {
            if (inner[k].first > x) border.push_back({x, inner[k].first - 1});
            x = inner[k].last + 1;
        }
        if (x <= r.last) border.push_back({x, r.last});
    }
}

// Reads whether a column lies in a sorted list of spans, for columns that
// never decrease.
struct SpanCursor {
    const Spans& spans;
    size_t i = 0;
    bool covers(int32_t x)
    {
        while (i < spans.size() && spans[i].last < x) ++i;
        return i < spans.size() && spans[i].first <= x;
    }
};

// Border pixels of a row counted by weight class: `counts[0]` weigh 1,
// `counts[1]` sqrt(2), `counts[2]` (1 + sqrt(2)) / 2. A pixel's class follows
// from 1 + 2 * (its 4-neighbours on the border) + 10 * (its diagonal
// neighbours on the border). Border pixels run along the outline, so they
// are few next to the blob's pixels and are weighed one by one.
void weigh_border_row(const Spans& above, const Spans& row, const Spans& below, int64_t counts[3])
{
    SpanCursor left{row}, right{row}, up{above}, up_left{above}, up_right{above}, down{below}, down_left{below},
        down_right{below};
    for (const Span& span : row)
        for (int32_t x = span.first; x <= span.last; ++x) {
            const int sides = left.covers(x - 1) + right.covers(x + 1) + up.covers(x) + down.covers(x);
            const int corners =
                up_left.covers(x - 1) + up_right.covers(x + 1) + down_left.covers(x - 1) + down_right.covers(x + 1);
            switch (1 + 2 * sides + 10 * corners) {
            case 5:
            case 7:
            case 15:
            case 17:
            case 25:
            case 27: ++counts[0]; break;
            case 21:
            case 33: ++counts[1]; break;
            case 13:
            case 23: ++counts[2]; break;
            default: break;
            }
        }
}

// The region's runs of row y, left to right. Its per-row index says where the
// first lies and how many there are; runs of other regions may sit between.
void runs_of_row(const MV_RLEsegm& s, const region& reg, int32_t y, Spans& out)
{
    out.clear();
    if (y < reg.y_min || y > reg.y_max) return;
    const RLEline* line = s.rle_img->lines[static_cast<size_t>(y)].get();
    if (!line || !line->segs) return;
    int32_t k = 0, wanted = line->nb_segs;
    const size_t row = static_cast<size_t>(y - reg.y_min);
    if (row < reg.reg_lines.size() && reg.reg_lines[row] && reg.reg_lines[row]->y == y) {
        k = std::max(reg.reg_lines[row]->first_seg, 0);
        wanted = reg.reg_lines[row]->nb_segs;
    }
    for (int32_t found = 0; k < line->nb_segs && found < wanted; ++k) {
        const segment& run = *line->segs[k];
        if (run.owner.get() != &reg) continue;
        ++found;
        // Column sampling stores runs that hold no pixel: they add nothing.
        if (run.x_end >= run.x_start) out.push_back({run.x_start, run.x_end});
    }
}

}  // namespace

int RLEsegm_blob_shape(std::shared_ptr<RLEblob> blob, segm_ptr s, blob_shape* shape)
{
    if (!blob || !s || !shape || !s->rle_img || blob->nb_fathers < 1) return -1;
    const int32_t ident = blob->fathers[0];
    if (ident < 0 || ident >= s->nb_regs || static_cast<size_t>(ident) >= s->reg_pool.size()) return -1;
    const region& reg = *s->reg_pool[static_cast<size_t>(ident)];
    if (reg.absorber || reg.y_min < 0 || reg.y_max >= static_cast<int32_t>(s->rle_img->lines.size())) return -1;

    Sums sums;
    int64_t runs = 0, shared_edges = 0, weighed[3] = {0, 0, 0};
    // Rows y - 1 to y + 2 of the region, borders of rows y - 1 to y + 1.
    // Kept per thread, so that measuring every blob of a frame allocates
    // only for the first.
    thread_local Spans above, row, below, after, border_above, border, border_below, inner, covered;
    above.clear();
    border_above.clear();
    runs_of_row(*s, reg, reg.y_min, row);
    runs_of_row(*s, reg, reg.y_min + 1, below);
    border_of(above, row, below, border, inner, covered);
    for (int32_t y = reg.y_min; y <= reg.y_max; ++y) {
        for (const Span& r : row) sums.add(r.first - reg.x_min, r.last - reg.x_min, y - reg.y_min);
        runs += static_cast<int64_t>(row.size());
        shared_edges += overlap(above, row);
        runs_of_row(*s, reg, y + 2, after);
        border_of(row, below, after, border_below, inner, covered);
        weigh_border_row(border_above, border, border_below, weighed);
        std::swap(above, row);
        std::swap(row, below);
        std::swap(below, after);
        std::swap(border_above, border);
        std::swap(border, border_below);
    }
    if (sums.n == 0) return -1;

    blob_shape m;
    m.npix = static_cast<int32_t>(sums.n);
    m.mu20 = sums.central(sums.xx, sums.x, sums.x);
    m.mu11 = sums.central(sums.xy, sums.x, sums.y);
    m.mu02 = sums.central(sums.yy, sums.y, sums.y);
    // Eigenvalues of the covariance matrix [[mu20, mu11], [mu11, mu02]].
    const double half_sum = (m.mu20 + m.mu02) / 2, half_diff = (m.mu20 - m.mu02) / 2;
    const double radius = std::hypot(half_diff, m.mu11);
    const double major = half_sum + radius, minor = std::max(half_sum - radius, 0.0);
    m.orientation = (m.mu11 == 0 && half_diff == 0) ? 0.0 : std::atan2(m.mu11, half_diff) / 2;
    m.major_axis = 4 * std::sqrt(major);
    m.minor_axis = 4 * std::sqrt(minor);
    m.eccentricity = major > 0 ? std::sqrt(1 - minor / major) : 0.0;
    // Every pixel has four edges; each horizontal neighbour inside a run and
    // each vertical neighbour inside the region hides two.
    m.boundary_edges = 4 * sums.n - 2 * (sums.n - runs) - 2 * shared_edges;
    const double root2 = std::sqrt(2.0);
    m.perimeter = static_cast<double>(weighed[0]) + static_cast<double>(weighed[1]) * root2 +
                  static_cast<double>(weighed[2]) * ((1 + root2) / 2);
    const double box = static_cast<double>(reg.x_max - reg.x_min + 1) * static_cast<double>(reg.y_max - reg.y_min + 1);
    m.extent = static_cast<double>(sums.n) / box;
    *shape = m;
    return 0;
}

}  // namespace nerva
