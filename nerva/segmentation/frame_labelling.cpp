// The driver's labelling: the two-row sweep of the labelling engine on the
// run bounds extraction left in run_bounds, with every run owner, absorber,
// hole and region statistic kept in compact arrays. The segment records,
// the region records and the img2regs cursor are written once, at the end,
// and only where a value changes, so the sweep touches neither the pools'
// records nor a reference count.
//
// The steps are those of LabellingEngine (labelling_engine.h) with its
// union-find flag set, walked over the same cursors in the same order; the
// equivalence test holds the two to the same final state. Merges compare the
// pool records' idents, so a host that renumbers the pool's regions sees the
// merges follow its numbers here too.
#include <algorithm>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/segmentation/internal/labelling_engine.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/region_ops.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {
namespace detail {

namespace {

constexpr int32_t kNone = -1;

// The sweep over run numbers. A row is the run numbers [begin, begin+count)
// of the pool; `slot` numbers stand for the engine's cursor slots (-1: the
// img2regs record's own cur_seg / prev_seg, not moved yet).
class CompactSweep : RowCursor {
public:
    explicit CompactSweep(MV_RLEsegm& segm)
        : RowCursor(RowCursor::of(*segm.i2r)), segm_(segm), labels_(segm.work->labels)
    {
        const int32_t lines = segm.rle_img ? static_cast<int32_t>(segm.rle_img->lines.size()) : 0;
        first_row_ = segm.roi_ymin < 0 ? 0 : segm.roi_ymin;
        last_row_ = segm.roi_ymax < lines - 1 ? segm.roi_ymax : lines - 1;
        bounds_ = segm.work->run_bounds.data();
        pool_base_ = segm.seg_pool.data();
        if (labels_.run_owner.size() < segm.seg_pool.size()) {
            labels_.run_owner.resize(segm.seg_pool.size());
            labels_.run_row.resize(segm.seg_pool.size());
        }
        owner_ = labels_.run_owner.data();
        regions_grew();
    }

    // Labels the row at row_y against the row above: img2regs_init on the first row of
    // interest that holds a run, then one img2regs_exec step per row. Rows
    // come in order, each once, every row of interest.
    void add_row(int32_t row_y)
    {
        const RLEline& row = line(row_y);
        if (row.nb_segs > 0) {
            const ptrdiff_t begin = row.segs - pool_base_;
            std::fill_n(owner_ + begin, row.nb_segs, kNone);
            std::fill_n(labels_.run_row.data() + begin, row.nb_segs, row_y);
        }
        if (row_y < first_row_ || row_y > last_row_) return;
        y = row_y;
        if (!started_) {
            if (row.nb_segs <= 0) return;
            started_ = true;
            load_row(row_y);
            for (int32_t k = 0; k < cur_count; ++k) new_region(cur_begin_ + k, row_y);
            cur_idx = cur_count;
        }
        load_row(row_y);
        self_pair_ = prev_runs == cur_runs && prev_count == cur_count;
        if (prev_count == 0 && cur_count > 0)
            for (int32_t k = 0; k < cur_count; ++k) new_region(cur_begin_ + k, row_y);
        // img2regs_initstep: both cursors on their row's first run.
        cur_idx = 0;
        prev_idx = 0;
        if (prev_count > 0) prev_slot_ = prev_begin_;
        if (cur_count > 0) cur_slot_ = cur_begin_;
        if (cur_count != 0 && prev_count != 0) pair_rows();
    }

    // After the last row: img2regs_pass2; false when no row of interest held
    // a run.
    bool finish()
    {
        y = last_row_ + 1 > first_row_ ? last_row_ + 1 : first_row_;
        if (!started_) {
            cur_runs = nullptr;
            cur_count = 0;
            return false;
        }
        pass2();
        return true;
    }

    // The frame's result into the records' fields and the img2regs record.
    void write_back()
    {
        const auto ref = [&](int32_t r) -> const std::shared_ptr<region>& {
            static const std::shared_ptr<region> no_region;
            return r == kNone ? no_region : segm_.reg_pool[static_cast<size_t>(r)];
        };
        const int32_t regions = segm_.nb_regs;
        for (int32_t r = 0; r < regions; ++r) {
            region& reg = *segm_.reg_pool[static_cast<size_t>(r)];
            const RegionStats& st = stats_[r];
            reg.seed_x = st.seed_x;
            reg.y_min = st.y_min;
            reg.npix = st.npix;
            reg.nholes = st.nholes;
            reg.x_min = st.x_min;
            reg.x_max = st.x_max;
            reg.y_max = st.y_max;
            reg.sum_x = st.sum_x;
            reg.sum_y = st.sum_y;
            if (reg.link) reg.link.reset();
            set_link(reg.next, ref(r + 1 < regions ? r + 1 : kNone));
            set_link(reg.absorber, ref(absorber_[r]));
            set_link(reg.hole, ref(hole_[r]));
        }
        // One pass over the runs, the last of pass 2 with it: each run moves
        // to its region's survivor, and its record takes bounds and owner.
        const int32_t runs = segm_.nb_segs;
        int32_t* const owner = owner_;
        const int32_t* const absorber = absorber_;
        for (int32_t k = 0; k < runs; ++k) {
            int32_t reg = owner[k];
            if (reg != kNone && absorber[reg] != kNone) owner[k] = reg = absorber[reg];
            segment& seg = *pool_base_[k];
            seg.x_start = bounds_[2 * k];
            seg.x_end = bounds_[2 * k + 1];
            set_link(seg.owner, ref(reg));
        }
        img2regs& state = *segm_.i2r;
        set_link(state.first, ref(regions > 0 ? 0 : kNone));
        set_link(state.last, ref(regions > 0 ? regions - 1 : kNone));
        write_cursor(state);
    }

    // The cursor alone (a frame without a run of interest).
    void write_cursor(img2regs& state) const
    {
        write_into(state);
        if (cur_slot_ >= 0) state.cur_seg = pool_base_[cur_slot_];
        if (prev_slot_ >= 0) state.prev_seg = pool_base_[prev_slot_];
    }

    // Writes the bounds of every run of the frame into its segment record.
    static void write_runs(MV_RLEsegm& segm)
    {
        const int32_t* b = segm.work->run_bounds.data();
        for (int32_t k = 0; k < segm.nb_segs; ++k) {
            segment& seg = *segm.seg_pool[static_cast<size_t>(k)];
            seg.x_start = b[2 * k];
            seg.x_end = b[2 * k + 1];
        }
    }

private:
    const RLEline& line(int32_t row) const { return *segm_.rle_img->lines[static_cast<size_t>(row)]; }

    void regions_grew()
    {
        const size_t n = segm_.reg_pool.size();
        if (labels_.absorber.size() < n) {
            labels_.absorber.resize(n);
            labels_.hole.resize(n);
            labels_.stats.resize(n);
        }
        absorber_ = labels_.absorber.data();
        hole_ = labels_.hole.data();
        stats_ = labels_.stats.data();
    }

    void load_row(int32_t row)
    {
        const RLEline& l = line(row);
        prev_runs = cur_runs;
        prev_count = cur_count;
        prev_begin_ = cur_begin_;
        cur_runs = l.segs;
        cur_count = l.nb_segs;
        // Only a row with runs is read through its number: an empty row's
        // pointer may be stale.
        if (cur_count > 0) cur_begin_ = static_cast<int32_t>(l.segs - pool_base_);
    }

    // img2regs_iter. The cursor lives in locals while a row pair is swept:
    // the owner and link arrays hold int32 like the cursor's members, so the
    // compiler would reload the members after every store into them.
    void pair_rows()
    {
        const int32_t* const b = bounds_;
        int32_t* const owner = owner_;
        const int32_t pb = prev_begin_, cb = cur_begin_, pn = prev_count, cn = cur_count, row_y = y;
        int32_t pi = prev_idx, ci = cur_idx, pslot = prev_slot_, cslot = cur_slot_;
        while (ci < cn) {
            if (pi == pn) {  // every run left without a region opens one
                for (int32_t k = cb + ci; k < cb + cn; ++k)
                    if (owner[k] == kNone) new_region(k, row_y);
                break;
            }
            const int32_t p = pb + pi, c = cb + ci;
            bool leave_prev;
            if (b[2 * p + 1] < b[2 * c]) {
                leave_prev = true;
            } else if (b[2 * c + 1] < b[2 * p]) {
                leave_prev = false;
            } else {
                fusion(p, c, pi, ci, row_y);
                leave_prev = b[2 * p + 1] < b[2 * c + 1];
            }
            if (leave_prev) {  // img2regs_avanp: the run left takes its survivor as owner
                if (owner[p] != kNone) owner[p] = find(owner[p]);
                if (++pi < pn) pslot = pb + pi;
            } else {  // img2regs_avanc: the run left without a region starts one
                if (owner[c] == kNone) new_region(c, row_y);
                if (++ci < cn) cslot = cb + ci;
            }
        }
        prev_idx = pi;
        cur_idx = ci;
        prev_slot_ = pslot;
        cur_slot_ = cslot;
    }

    // img2regs_fusion: run c (index ci of the current row) shares a column
    // with run p (index pi of the previous row).
    void fusion(int32_t p, int32_t c, int32_t pi, int32_t ci, int32_t row_y)
    {
        const int32_t rc = find(owner_[c]);
        const int32_t rp = find(owner_[p]);
        if (rc == kNone) {
            region_add_run(stats_[rp], bounds_[2 * c], bounds_[2 * c + 1], row_y);
            owner_[c] = rp;
        } else if (rc != rp) {
            // The lower ident survives; on equal idents (a host may number
            // regions alike) the previous row's region does. Read from the
            // records at the merge: merges are rarer than regions.
            const bool cur_survives = ident(rc) < ident(rp);
            const int32_t survivor = cur_survives ? rc : rp;
            const int32_t absorbed = cur_survives ? rp : rc;
            region_merge_stats(stats_[survivor], stats_[absorbed]);
            absorber_[absorbed] = survivor;
            if (self_pair_) replace(absorbed, survivor, pi, ci);
        } else if (pi != 0) {
            const int32_t left = owner_[p - 1];
            if (left != kNone) {
                hole_[left] = rc;
                stats_[left].nholes = wrap_add(stats_[left].nholes, 1);
            }
        }
    }

    int32_t ident(int32_t reg) const { return segm_.reg_pool[static_cast<size_t>(reg)]->ident; }

    // img2regs_replace (the first row paired with itself only).
    void replace(int32_t old_reg, int32_t new_reg, int32_t pi, int32_t ci)
    {
        const int32_t cur_end = ci < cur_count - 1 ? ci : cur_count - 1;
        for (int32_t k = 0; k <= cur_end; ++k)
            if (owner_[cur_begin_ + k] == old_reg) owner_[cur_begin_ + k] = new_reg;
        for (int32_t k = pi < 0 ? 0 : pi; k < prev_count; ++k)
            if (owner_[prev_begin_ + k] == old_reg) owner_[prev_begin_ + k] = new_reg;
    }

    // img2regs_new_region for run `run` on row row_y.
    void new_region(int32_t run, int32_t row_y)
    {
        if (static_cast<size_t>(segm_.nb_regs) >= segm_.reg_pool.size()) {
            grow_region_pool(segm_);
            regions_grew();
        }
        const int32_t reg = segm_.nb_regs++;
        region_init_stats(stats_[reg], bounds_[2 * run], bounds_[2 * run + 1], row_y);
        absorber_[reg] = kNone;
        hole_[reg] = kNone;
        owner_[run] = reg;
    }

    // The survivor a region belongs to now, halving the path on the way.
    int32_t find(int32_t reg)
    {
        if (reg == kNone) return reg;
        for (;;) {
            const int32_t up = absorber_[reg];
            if (up == kNone) return reg;
            const int32_t upper = absorber_[up];
            if (upper == kNone) return up;
            absorber_[reg] = upper;
            reg = upper;
        }
    }

    int32_t root(int32_t reg) const
    {
        for (int32_t up = absorber_[reg]; up != kNone; up = absorber_[reg]) reg = up;
        return reg;
    }

    // img2regs_pass2, its pass over the runs left to write_back.
    void pass2()
    {
        const int32_t regions = segm_.nb_regs;
        for (int32_t r = 0; r < regions; ++r) {
            if (absorber_[r] != kNone) absorber_[r] = root(absorber_[r]);
            const int32_t hole = hole_[r];
            if (hole != kNone && absorber_[hole] != kNone) {
                const int32_t hole_root = root(absorber_[hole]);
                absorber_[hole] = hole_root;
                hole_[r] = hole_root;
            }
        }
        // Every run moves to its region's survivor as the records are
        // written (write_back).
    }

    MV_RLEsegm& segm_;
    LabelScratch& labels_;
    const int32_t* bounds_ = nullptr;
    RunSlot* pool_base_ = nullptr;
    int32_t first_row_ = 0, last_row_ = -1;  // the rows labelling reads
    bool started_ = false;
    int32_t* owner_ = nullptr;
    int32_t* absorber_ = nullptr;
    int32_t* hole_ = nullptr;
    RegionStats* stats_ = nullptr;

    // The engine's cursor (RowCursor), with rows also as run numbers.
    int32_t cur_begin_ = 0, prev_begin_ = 0;
    int32_t cur_slot_ = -1, prev_slot_ = -1;
    bool self_pair_ = false;
};

// The frame's result from a finished sweep.
bool conclude(MV_RLEsegm& segm, CompactSweep& sweep)
{
    if (!sweep.finish()) {
        // No region: only the bounds, the chain's ends and the cursor change.
        CompactSweep::write_runs(segm);
        segm.i2r->first.reset();
        segm.i2r->last.reset();
        sweep.write_cursor(*segm.i2r);
        return false;
    }
    sweep.write_back();
    return true;
}

}  // namespace

bool label_frame(MV_RLEsegm& segm)
{
    CompactSweep sweep(segm);
    for (int32_t y = segm.roi_ymin; y <= segm.roi_ymax; ++y) sweep.add_row(y);
    return conclude(segm, sweep);
}

}  // namespace detail
}  // namespace nerva
