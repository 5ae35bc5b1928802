#pragma once

// Region labelling, every rule written once: one top-to-bottom sweep over
// pairs of consecutive rows joins 4-connected runs into regions (the lower
// ident survives a merge), and a second pass points every run and every
// absorbed region at its survivor.
//
// Both paths run this engine; they differ only in where a run's bounds and
// region and a region's statistics and links are kept, the storage policy
// `Owners`:
//   - SharedOwners (labelling.cpp) keeps them in the records' own fields and
//     shared pointers, written as the sweep goes: what a host stepping
//     through the public img2regs_* functions sees.
//   - IndexOwners (frame_labelling.cpp), the driver's, keeps them in compact
//     arrays indexed by run and region number and writes the records once,
//     at the end, so the sweep touches neither a pool record nor a
//     reference count.
//
// An `Owners` policy provides, for a region handle (`handle`: a shared
// pointer or a region number) and a run handle (`Run`: a pointer to the
// run's slot or a run number; `run + k` is the run k places to the right):
//   static bool exists(const handle&)        false for "no region"
//   static handle none()
//   static constexpr bool union_find        see below
//   x_start(run), x_end(run)                 the run's columns
//   handle owner(run) / set_owner(run, r)    the run's region
//   stats(r)                                 where the statistics live
//   int32_t ident(r)                         the ident merges compare
//   handle region_at(pool_index)             a pool region
//   void regions_grew()                      the region pool just grew
//   void clear_links(r)                      a new region: no absorber, hole, next, link
//   void chain(r, first_of_frame)            appends r to the creation-order chain
//   void begin_frame()                       a new frame begins
//   handle first(), last(), next(r)          walks that chain
//   handle absorber(r) / set_absorber(r, s)
//   handle hole(r) / set_hole(r, other)
//   Run row_runs(const RLEline&)             a row's first run
//   Run pool_run(k)                          the k-th run of the segment pool
//   void run_settled(run, r)                 pass 2 is done with the run
//   Run cursor_row(RunSlot* runs)            the img2regs record's rows, and
//   Run cursor_slot(const RunSlot&)          its runs under the cursors,
//   void store_slot(RunSlot&, Run)           as the engine starts and ends
//
// With `union_find` false a merge relabels, there and then, every run of the
// two rows that the sweep may still read (replace): the literal rule, and
// what a host stepping through img2regs_* observes. With it true, the
// absorber links are a union-find forest instead: a merge writes one link,
// the owner of a run under a cursor is found by following the links (with
// path halving), and a previous-row run's owner is resolved once, as the
// cursor leaves it. The two give the same final state, since
//   - every owner the literal sweep reads under a cursor is a root, which is
//     what the search returns, and the union keeps the same survivor (the
//     lower ident); absorbed regions keep the statistics they were frozen
//     with;
//   - the owner the literal sweep reads just left of the previous-row cursor
//     (for a hole) is the root as it stood when the cursor left that run,
//     which is what is written there as it leaves;
//   - pass 2 points every run and every absorbed region at the root of its
//     chain, and the roots are the same whatever the shape of the chains.
// The first non-empty row paired with itself keeps the literal rule: there
// the current row's relabelling also reaches runs left of the previous-row
// cursor. Merges there are impossible for well-formed runs anyway, so this
// costs nothing. Time is then linear in the number of runs, where replace
// rescans the rest of both rows on every merge (a row of stripes closed by a
// bar below costs the square of the number of stripes).
#include <cstdint>
#include <memory>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/segmentation/internal/region_ops.h"
#include "nerva/segmentation/internal/segmenter_internal.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {
namespace detail {

using RunSlot = std::shared_ptr<segment>;

// The img2regs record's row cursor as plain values, so that walking the runs
// costs no reference-count update: copied out before a sweep, back after it.
struct RowCursor {
    int32_t y;
    RunSlot* cur_runs;
    RunSlot* prev_runs;
    int32_t cur_count, prev_count;
    int32_t cur_idx, prev_idx;

    static RowCursor of(const img2regs& s)
    {
        return {s.y, s.cur_runs, s.prev_runs, s.cur_count, s.prev_count, s.cur_idx, s.prev_idx};
    }
    void write_into(img2regs& s) const
    {
        s.y = y;
        s.cur_runs = cur_runs;
        s.prev_runs = prev_runs;
        s.cur_count = cur_count;
        s.prev_count = prev_count;
        s.cur_idx = cur_idx;
        s.prev_idx = prev_idx;
    }
};

template <class Owners>
class LabellingEngine : RowCursor {
public:
    using handle = typename Owners::handle;
    using Run = typename Owners::Run;

    // `segm` may be null for the steps that take no pool region (advancing in
    // the previous row, fusion, replace).
    LabellingEngine(img2regs& state, MV_RLEsegm* segm, Owners owners)
        : RowCursor(RowCursor::of(state)), store(owners), segm_(segm), state_(state),
          cur_first_(store.cursor_row(state.cur_runs)), prev_first_(store.cursor_row(state.prev_runs)),
          cur_slot_(store.cursor_slot(state.cur_seg)), prev_slot_(store.cursor_slot(state.prev_seg))
    {}

    // Writes the cursor back into the img2regs record; the two run references
    // only where they moved.
    void store_cursor()
    {
        write_into(state_);
        store.store_slot(state_.cur_seg, cur_slot_);
        store.store_slot(state_.prev_seg, prev_slot_);
    }

    // The last row labelling may read: the region of interest's, but never
    // past the run-length image.
    int32_t last_row() const
    {
        const int32_t lines = segm_->rle_img ? static_cast<int32_t>(segm_->rle_img->lines.size()) : 0;
        return segm_->roi_ymax < lines - 1 ? segm_->roi_ymax : lines - 1;
    }

    // img2regs_init: finds the first row of interest that holds a run and
    // gives each of its runs a region. False when no row holds a run.
    bool start()
    {
        store.begin_frame();
        y = segm_->roi_ymin < 0 ? 0 : segm_->roi_ymin;
        const int32_t last = last_row();
        while (y <= last && line(y).nb_segs <= 0) ++y;
        if (y > last) {
            cur_runs = nullptr;
            cur_count = 0;
            return false;
        }
        load_row(y);
        open_regions_for_row();
        cur_idx = cur_count;
        return true;
    }

    // img2regs_exec: labels up to `nrows` row pairs from row y. The first
    // pair is the first non-empty row with itself (start() left y on it);
    // the holes that self-pairing counts are part of the result.
    void sweep(int32_t nrows)
    {
        const int32_t last = last_row();
        if (nrows <= 0 || y > last || y < 0) return;
        for (int32_t i = 0; i < nrows && y <= last; ++i) {
            initstep();
            if (cur_count != 0 && prev_count != 0) iter();
            ++y;
        }
    }

    // img2regs_initstep: row y becomes the current row, the old current row
    // the previous one. After an empty row every run starts a region.
    void initstep()
    {
        load_row(y);
        self_pair_ = prev_runs == cur_runs && prev_count == cur_count;
        if (prev_count == 0 && cur_count > 0) open_regions_for_row();
        cur_idx = -1;
        prev_idx = -1;
        avanp();
        avanc();
    }

    // img2regs_iter, the two-row step. The runs of the previous row (P) and
    // of the current row (C) are walked left to right with one cursor each;
    // every test compares the two runs under the cursors:
    //
    //   1. previous row used up       2. P wholly left of C
    //        P:  ppp  ppp                  P:  ppp
    //        C:          ccc  cc           C:       ccc
    //      every C still without a         advance in P
    //      region opens one; done
    //
    //   3. C wholly left of P         4. P and C share a column
    //        P:       ppp                  P:   ppppp         P:  ppp
    //        C:  ccc                       C:     ccccc       C:  ccccc
    //      advance in C (a C left          fusion(), then advance the run
    //      without a region opens one)     that ends first (C on a tie)
    //
    // Runs touching only at a corner fall under 2 or 3: 4-connectivity.
    //
    // The cursor lives in locals while the pair is swept: a policy's owner
    // and link arrays hold int32 like the cursor's members, so the compiler
    // would reload the members after every store into them.
    void iter()
    {
        const Run prev_first = prev_first_, cur_first = cur_first_;
        const int32_t prev_n = prev_count, cur_n = cur_count, row = y;
        int32_t pi = prev_idx, ci = cur_idx;
        Run p = prev_slot_, c = cur_slot_;
        while (ci < cur_n) {
            if (pi == prev_n) {  // 1
                for (int32_t k = ci; k < cur_n; ++k)
                    if (!Owners::exists(store.owner(cur_first + k)))
                        open_region(store.x_start(cur_first + k), cur_first + k, row);
                break;
            }
            bool leave_prev;
            if (store.x_end(p) < store.x_start(c)) {  // 2
                leave_prev = true;
            } else if (store.x_end(c) < store.x_start(p)) {  // 3
                leave_prev = false;
            } else {  // 4
                fuse(p, c, pi, ci, row);
                leave_prev = store.x_end(p) < store.x_end(c);
            }
            if (leave_prev) leave_prev_run(p, pi, prev_first, prev_n);
            else leave_cur_run(c, ci, cur_first, cur_n, row);
        }
        prev_idx = pi;
        cur_idx = ci;
        prev_slot_ = p;
        cur_slot_ = c;
    }

    // img2regs_fusion on the runs under the cursors.
    void fusion() { fuse(prev_slot_, cur_slot_, prev_idx, cur_idx, y); }

    // img2regs_replace, from the cursors.
    void replace(const handle& old_reg, const handle& new_reg) { relabel(old_reg, new_reg, prev_idx, cur_idx); }

    // img2regs_new_region on row y.
    void new_region(int32_t x_start, Run run) { open_region(x_start, run, y); }

    // img2regs_avanp: the next run of the previous row (the last one stays
    // under the cursor once the row is used up).
    void avanp() { leave_prev_run(prev_slot_, prev_idx, prev_first_, prev_count); }

    // img2regs_avanc: the next run of the current row; the run being left
    // without a region starts one of its own.
    void avanc() { leave_cur_run(cur_slot_, cur_idx, cur_first_, cur_count, y); }

    // img2regs_pass2: every absorbed region, and every region a hole was
    // recorded with, is pointed straight at the root of its absorber chain;
    // then every run of the frame moves to its region's survivor. Regions are
    // not renumbered: a component is named by its earliest-created region.
    void pass2()
    {
        const handle head = store.first();
        if (!Owners::exists(head)) return;
        const handle tail = store.last();
        const handle end = Owners::exists(tail) ? store.next(tail) : Owners::none();
        for (handle r = head; Owners::exists(r) && r != end; r = store.next(r)) {
            const handle absorber = store.absorber(r);
            if (Owners::exists(absorber)) store.set_absorber(r, root(absorber));
            const handle hole = store.hole(r);
            if (Owners::exists(hole)) {
                const handle hole_absorber = store.absorber(hole);
                if (Owners::exists(hole_absorber)) {
                    const handle hole_root = root(hole_absorber);
                    store.set_absorber(hole, hole_root);
                    store.set_hole(r, hole_root);
                }
            }
        }
        const int32_t runs = segm_->nb_segs;  // read once: the owner stores may alias it
        for (int32_t k = 0; k < runs; ++k) {
            const Run run = store.pool_run(k);
            handle reg = store.owner(run);
            if (Owners::exists(reg)) {
                const handle survivor = store.absorber(reg);
                if (Owners::exists(survivor)) {
                    reg = survivor;
                    store.set_owner(run, reg);
                }
            }
            store.run_settled(run, reg);
        }
    }

    Owners store;

private:
    const RLEline& line(int32_t row) const { return *segm_->rle_img->lines[static_cast<size_t>(row)]; }

    void load_row(int32_t row)
    {
        const RLEline& l = line(row);
        prev_runs = cur_runs;
        prev_count = cur_count;
        prev_first_ = cur_first_;
        cur_runs = l.segs;
        cur_count = l.nb_segs;
        cur_first_ = store.row_runs(l);
    }

    void open_regions_for_row()
    {
        for (int32_t k = 0; k < cur_count; ++k) open_region(store.x_start(cur_first_ + k), cur_first_ + k, y);
    }

    // Run c (index ci of the current row) shares a column with run p (index
    // pi of the previous row).
    //   4a. C has no region yet: it joins P's region.
    //   4b. C and P belong to different regions: the one with the lower
    //       ident (created first; on equal idents, which a host renumbering
    //       the pool can give, P's) survives and absorbs the other; the runs
    //       still in the span being swept are relabelled (replace), the
    //       others wait for pass 2.
    //   4c. C reaches a second run of its own region, closing a hole:
    //             P:  ppp   ppp
    //             C:  ccccccccc
    //       the hole is counted on the owner of the previous-row run just
    //       left of P, whatever region that is (none when P is the row's
    //       first run).
    void fuse(Run p, Run c, int32_t pi, int32_t ci, int32_t row)
    {
        const handle rc = find(store.owner(c));
        const handle rp = find(store.owner(p));
        if (!Owners::exists(rc)) {
            region_add_run(store.stats(rp), store.x_start(c), store.x_end(c), row);
            store.set_owner(c, rp);
        } else if (rc != rp) {
            const bool current_survives = store.ident(rc) < store.ident(rp);
            const handle survivor = current_survives ? rc : rp;
            const handle absorbed = current_survives ? rp : rc;
            region_merge_stats(store.stats(survivor), store.stats(absorbed));
            store.set_absorber(absorbed, survivor);
            if (!Owners::union_find || self_pair_) relabel(absorbed, survivor, pi, ci);
        } else if (pi != 0) {
            const handle left = store.owner(prev_first_ + (pi - 1));
            if (Owners::exists(left)) {
                store.set_hole(left, rc);
                auto& left_stats = store.stats(left);
                left_stats.nholes = wrap_add(left_stats.nholes, 1);
            }
        }
    }

    // The runs of the current row up to run ci and of the previous row from
    // run pi on that belong to `old_reg` move to `new_reg`. Runs further
    // back keep the absorbed region until pass 2.
    void relabel(const handle& old_reg, const handle& new_reg, int32_t pi, int32_t ci)
    {
        const int32_t cur_end = ci < cur_count - 1 ? ci : cur_count - 1;
        for (int32_t k = 0; k <= cur_end; ++k)
            if (store.owner(cur_first_ + k) == old_reg) store.set_owner(cur_first_ + k, new_reg);
        for (int32_t k = pi < 0 ? 0 : pi; k < prev_count; ++k)
            if (store.owner(prev_first_ + k) == old_reg) store.set_owner(prev_first_ + k, new_reg);
    }

    // The next pool region, describing `run` from `x_start` on row `row`,
    // appended to the frame's chain. The pool grows when a frame needs more
    // regions than it holds.
    void open_region(int32_t x_start, Run run, int32_t row)
    {
        if (static_cast<size_t>(segm_->nb_regs) >= segm_->reg_pool.size()) {
            grow_region_pool(*segm_);
            store.regions_grew();
        }
        const int32_t index = segm_->nb_regs++;
        const handle reg = store.region_at(index);
        region_init_stats(store.stats(reg), x_start, store.x_end(run), row);
        store.clear_links(reg);
        store.chain(reg, index == 0);
        store.set_owner(run, reg);
    }

    // Moves the previous-row cursor on; the run left takes its survivor as
    // owner (union-find: the owner the literal rule would have left there).
    void leave_prev_run(Run& slot, int32_t& idx, Run first, int32_t count)
    {
        if (Owners::union_find && idx >= 0 && idx < count) {
            const handle reg = store.owner(slot);
            if (Owners::exists(reg)) store.set_owner(slot, find(reg));
        }
        slot = ++idx < count ? first + idx : slot;  // a select: whether the row ends here is data
    }

    // Moves the current-row cursor on; the run left without a region starts
    // one of its own.
    void leave_cur_run(Run& slot, int32_t& idx, Run first, int32_t count, int32_t row)
    {
        if (idx >= 0 && !Owners::exists(store.owner(slot))) open_region(store.x_start(slot), slot, row);
        slot = ++idx < count ? first + idx : slot;
    }

    // The survivor a run labelled `reg` belongs to now, halving the path on
    // the way (union-find only; the literal sweep keeps owners current).
    handle find(handle reg)
    {
        if (!Owners::union_find || !Owners::exists(reg)) return reg;
        for (;;) {
            const handle up = store.absorber(reg);
            if (!Owners::exists(up)) return reg;
            const handle upper = store.absorber(up);
            if (!Owners::exists(upper)) return up;
            store.set_absorber(reg, upper);
            reg = upper;
        }
    }

    handle root(handle reg)
    {
        for (handle up = store.absorber(reg); Owners::exists(up); up = store.absorber(reg)) reg = up;
        return reg;
    }

    MV_RLEsegm* segm_;  // the run-length image and the pools
    img2regs& state_;

    bool self_pair_ = false;  // the first non-empty row, paired with itself
    // The rows as runs, and the runs under the cursors (until the cursor
    // moves, the record's own cur_seg and prev_seg for the public steps).
    Run cur_first_, prev_first_;
    Run cur_slot_, prev_slot_;
};

}  // namespace detail
}  // namespace nerva
