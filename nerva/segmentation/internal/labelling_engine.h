#pragma once

// Region labelling, every rule written once: one top-to-bottom sweep over
// pairs of consecutive rows joins 4-connected runs into regions (the lower
// ident survives a merge), and a second pass points every run and every
// absorbed region at its survivor.
//
// The public img2regs step functions run this engine; where a run's region
// and a region's links are kept is the storage policy `Owners`'s choice
// (labelling.cpp: the records' own shared-pointer fields, written as the
// sweep goes, which is what a host stepping through img2regs_* sees).
// The driver's sweep (frame_labelling.cpp) walks these same steps, with the
// union-find flag set, over compact arrays of run bounds, owners and
// statistics, which the equivalence test holds to this engine's final state.
//
// An `Owners` policy provides, for a region handle `handle` (a shared pointer
// or an index) and a run given by its slot (`const RunSlot*`):
//   static bool exists(const handle&)       false for "no region"
//   static handle none()
//   handle owner(run) / set_owner(run, r)    the run's region
//   region& stats(r)                         the record the statistics live in
//   handle region_at(pool_index)             a pool region
//   void regions_grew()                      the region pool just grew
//   void clear_links(r)                      a new region: no absorber, hole, next, link
//   void chain(r, first_of_frame)            appends r to the creation-order chain
//   void reset_chain()                       a new frame begins
//   handle first(), last(), next(r)          walks that chain
//   handle absorber(r) / set_absorber(r, s)
//   handle hole(r) / set_hole(r, other)
//   static constexpr bool union_find       see below
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

    // `segm` may be null for the steps that take no pool region (advancing in
    // the previous row, fusion, replace).
    LabellingEngine(img2regs& state, MV_RLEsegm* segm, Owners owners)
        : RowCursor(RowCursor::of(state)), store(owners), segm_(segm), state_(state), cur(state.cur_seg.get()),
          prev(state.prev_seg.get()), cur_slot(&state.cur_seg), prev_slot(&state.prev_seg)
    {}

    // Writes the cursor back into the img2regs record; the two run references
    // only where they moved.
    void store_cursor()
    {
        write_into(state_);
        if (cur_slot != &state_.cur_seg) state_.cur_seg = *cur_slot;
        if (prev_slot != &state_.prev_seg) state_.prev_seg = *prev_slot;
        cur_slot = &state_.cur_seg;
        prev_slot = &state_.prev_seg;
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
        store.reset_chain();
        y = segm_->roi_ymin < 0 ? 0 : segm_->roi_ymin;
        const int32_t last = last_row();
        while (y <= last && segm_->rle_img->lines[static_cast<size_t>(y)]->nb_segs <= 0) ++y;
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
    void iter()
    {
        while (cur_idx < cur_count) {
            if (prev_idx == prev_count) {  // 1
                for (int32_t k = cur_idx; k < cur_count; ++k)
                    if (!Owners::exists(store.owner(&cur_runs[k]))) new_region(cur_runs[k]->x_start, &cur_runs[k]);
                return;
            }
            if (prev->x_end < cur->x_start) {  // 2
                avanp();
            } else if (cur->x_end < prev->x_start) {  // 3
                avanc();
            } else {  // 4
                fusion();
                if (prev->x_end < cur->x_end) avanp();
                else avanc();
            }
        }
    }

    // img2regs_fusion: C shares a column with P.
    //   4a. C has no region yet: it joins P's region.
    //   4b. C and P belong to different regions: the one with the lower
    //       ident (created first) survives and absorbs the other; the runs
    //       still in the span being swept are relabelled (replace), the
    //       others wait for pass 2.
    //   4c. C reaches a second run of its own region, closing a hole:
    //             P:  ppp   ppp
    //             C:  ccccccccc
    //       the hole is counted on the owner of the previous-row run just
    //       left of P, whatever region that is (none when P is the row's
    //       first run).
    void fusion()
    {
        const handle rc = find(store.owner(cur_slot));
        const handle rp = find(store.owner(prev_slot));
        if (!Owners::exists(rc)) {
            region_add_run(store.stats(rp), cur->x_start, cur->x_end, y);
            store.set_owner(cur_slot, rp);
        } else if (rc != rp) {
            const bool current_survives = store.stats(rc).ident < store.stats(rp).ident;
            const handle survivor = current_survives ? rc : rp;
            const handle absorbed = current_survives ? rp : rc;
            region_merge_stats(store.stats(survivor), store.stats(absorbed));
            store.set_absorber(absorbed, survivor);
            if (!Owners::union_find || self_pair_) replace(absorbed, survivor);
        } else if (prev_idx != 0) {
            const handle left = store.owner(prev_runs + prev_idx - 1);
            if (Owners::exists(left)) {
                store.set_hole(left, rc);
                region& left_region = store.stats(left);
                left_region.nholes = wrap_add(left_region.nholes, 1);
            }
        }
    }

    // img2regs_replace: the runs of the current row up to the cursor and of
    // the previous row from the cursor on that belong to `old_reg` move to
    // `new_reg`. Runs further back keep the absorbed region until pass 2.
    void replace(const handle& old_reg, const handle& new_reg)
    {
        const int32_t cur_end = cur_idx < cur_count - 1 ? cur_idx : cur_count - 1;
        for (int32_t k = 0; k <= cur_end; ++k)
            if (store.owner(cur_runs + k) == old_reg) store.set_owner(cur_runs + k, new_reg);
        for (int32_t k = prev_idx < 0 ? 0 : prev_idx; k < prev_count; ++k)
            if (store.owner(prev_runs + k) == old_reg) store.set_owner(prev_runs + k, new_reg);
    }

    // img2regs_new_region: the next pool region, describing `run` from
    // `x_start` on row y, appended to the frame's chain. The pool grows when
    // a frame needs more regions than it holds.
    void new_region(int32_t x_start, const RunSlot* run)
    {
        if (static_cast<size_t>(segm_->nb_regs) >= segm_->reg_pool.size()) {
            grow_region_pool(*segm_);
            store.regions_grew();
        }
        const int32_t index = segm_->nb_regs++;
        const handle reg = store.region_at(index);
        region_init_stats(store.stats(reg), x_start, (*run)->x_end, y);
        store.clear_links(reg);
        store.chain(reg, index == 0);
        store.set_owner(run, reg);
    }

    // img2regs_avanp: the next run of the previous row (the last one stays
    // under the cursor once the row is used up).
    void avanp()
    {
        if (Owners::union_find && prev_idx >= 0 && prev_idx < prev_count) {
            const handle reg = store.owner(prev_slot);
            if (Owners::exists(reg)) {
                const handle survivor = find(reg);
                if (survivor != reg) store.set_owner(prev_slot, survivor);
            }
        }
        ++prev_idx;
        if (prev_idx < prev_count) {
            prev_slot = &prev_runs[prev_idx];
            prev = prev_slot->get();
        }
    }

    // img2regs_avanc: the next run of the current row; the run being left
    // without a region starts one of its own.
    void avanc()
    {
        if (cur_idx >= 0 && !Owners::exists(store.owner(cur_slot))) new_region(cur->x_start, cur_slot);
        ++cur_idx;
        if (cur_idx < cur_count) {
            cur_slot = &cur_runs[cur_idx];
            cur = cur_slot->get();
        }
    }

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
        const RunSlot* runs = segm_->seg_pool.data();
        for (int32_t k = 0; k < segm_->nb_segs; ++k) {
            const handle reg = store.owner(runs + k);
            if (!Owners::exists(reg)) continue;
            const handle survivor = store.absorber(reg);
            if (Owners::exists(survivor)) store.set_owner(runs + k, survivor);
        }
    }

    Owners store;

private:
    void load_row(int32_t row)
    {
        const RLEline& line = *segm_->rle_img->lines[static_cast<size_t>(row)];
        prev_runs = cur_runs;
        prev_count = cur_count;
        cur_runs = line.segs;
        cur_count = line.nb_segs;
    }

    void open_regions_for_row()
    {
        for (int32_t k = 0; k < cur_count; ++k) new_region(cur_runs[k]->x_start, &cur_runs[k]);
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
    // The runs under the cursors, and the slots their shared pointers live in
    // (the record's own cur_seg and prev_seg until the cursor moves).
    segment* cur;
    segment* prev;
    const RunSlot* cur_slot;
    const RunSlot* prev_slot;
};

}  // namespace detail
}  // namespace nerva
