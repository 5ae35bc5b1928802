// Shape measures of a blob from the runs of its region: pixel sums up to the
// second order, exact in integers, and the boundary length, in one pass over
// the region's rows.
#include "nerva/segmentation/blob_shape.h"

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

// Pixels shared by two sorted lists of disjoint spans.
int64_t overlap(const std::vector<Span>& above, const std::vector<Span>& row)
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

// The region's runs of row y, left to right. Its per-row index says where the
// first lies and how many there are; runs of other regions may sit between.
void runs_of_row(const MV_RLEsegm& s, const region& reg, int32_t y, std::vector<Span>& out)
{
    out.clear();
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
    int64_t runs = 0, shared_edges = 0;
    std::vector<Span> above, row;
    for (int32_t y = reg.y_min; y <= reg.y_max; ++y) {
        runs_of_row(*s, reg, y, row);
        for (const Span& r : row) sums.add(r.first - reg.x_min, r.last - reg.x_min, y - reg.y_min);
        runs += static_cast<int64_t>(row.size());
        shared_edges += overlap(above, row);
        std::swap(above, row);
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
    m.perimeter = 4 * sums.n - 2 * (sums.n - runs) - 2 * shared_edges;
    const double box = static_cast<double>(reg.x_max - reg.x_min + 1) * static_cast<double>(reg.y_max - reg.y_min + 1);
    m.extent = static_cast<double>(sums.n) / box;
    *shape = m;
    return 0;
}

}  // namespace nerva
