#pragma once

// Region arithmetic on plain references, shared by the public region
// operations and the labelling sweeps (which must not pay for shared-pointer
// copies on every run). The statistics functions take any record with the
// region's statistics fields: the pool's `region` or the driver's compact
// copy, so both sums are the same arithmetic. Internal header.
#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/segmentation/RLEregion.h"

namespace nerva {
namespace detail {

// The statistics part of region_init: the region's links are left alone.
// Box updates as selects, not branches: whether a run widens a box is
// data the branch predictor cannot learn, and the labelling sweep makes one
// per run.
inline int32_t lower(int32_t a, int32_t b) { return a < b ? a : b; }
inline int32_t higher(int32_t a, int32_t b) { return a > b ? a : b; }

template <class Stats>
inline void region_init_stats(Stats& reg, int x_start, int x_end, int y)
{
    reg.seed_x = x_start;
    reg.y_min = y;
    reg.x_min = x_start;
    reg.x_max = x_end;
    reg.y_max = y;
    reg.nholes = 0;
    const int32_t run_pixels = wrap_add(wrap_sub(x_end, x_start), 1);
    reg.npix = run_pixels;
    // The numerator is always even, so halving it as a double is exact.
    const int32_t twice_sum = wrap_add(wrap_mul(wrap_sub(1, x_start), x_start), wrap_mul(wrap_add(x_end, 1), x_end));
    reg.sum_x = twice_sum * 0.5;
    reg.sum_y = static_cast<double>(wrap_mul(y, run_pixels));
}

inline void region_init(region& reg, int x_start, int x_end, int y)
{
    region_init_stats(reg, x_start, x_end, y);
    reg.link.reset();
    reg.next.reset();
    reg.absorber.reset();
    reg.hole.reset();
}

// The statistics part of region_merge.
template <class Stats>
inline void region_merge_stats(Stats& survivor, const Stats& absorbed)
{
    survivor.npix = wrap_add(survivor.npix, absorbed.npix);
    survivor.nholes = wrap_add(survivor.nholes, absorbed.nholes);
    survivor.sum_x += absorbed.sum_x;
    survivor.sum_y += absorbed.sum_y;
    survivor.x_min = lower(absorbed.x_min, survivor.x_min);
    survivor.x_max = higher(absorbed.x_max, survivor.x_max);
    survivor.y_max = higher(absorbed.y_max, survivor.y_max);
}

template <class Stats>
inline void region_add_run(Stats& reg, int x_start, int x_end, int y)
{
    reg.x_min = lower(x_start, reg.x_min);
    reg.x_max = higher(x_end, reg.x_max);
    const int32_t run_pixels = wrap_add(wrap_sub(x_end, x_start), 1);
    reg.npix = wrap_add(reg.npix, run_pixels);
    reg.y_max = y;
    reg.sum_x += wrap_range_sum(x_start, x_end);
    reg.sum_y += wrap_mul(y, run_pixels);
}

// `survivor_ref` is a shared pointer to `survivor`.
inline void region_merge(region& survivor, const std::shared_ptr<region>& survivor_ref, region& absorbed)
{
    absorbed.absorber = survivor_ref;
    region_merge_stats(survivor, absorbed);
}

}  // namespace detail
}  // namespace nerva
