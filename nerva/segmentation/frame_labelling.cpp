// The driver's labelling: the two-row sweep of the labelling engine on the
// run bounds extraction left in run_bounds, with every run owner, absorber,
// hole and region statistic kept in compact arrays. The segment records,
// the region records and the img2regs cursor are written once, at the end,
// and only where a value changes, so the sweep touches neither the pools'
// records nor a reference count.
//
// The steps are those of LabellingEngine (labelling_engine.h) with its
// union-find flag set, walked over the same cursors in the same order; the
// equivalence test holds the two to the same final state. The engine itself
// still labels a frame whose pool regions no longer carry their pool
// position as ident (a host may write them): merges compare idents, and the
// sweep here compares positions.
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

    // The frame's result into the records' fields and the img2regs record;
    // false, part-way through the regions, at the first pool region whose
    // ident is not its position (merges compare idents): the engine must
    // label this frame instead, and rewrites every record this wrote.
    bool write_back()
    {
        const auto ref = [&](int32_t r) -> const std::shared_ptr<region>& {
            static const std::shared_ptr<region> no_region;
            return r == kNone ? no_region : segm_.reg_pool[static_cast<size_t>(r)];
        };
        const int32_t regions = segm_.nb_regs;
        for (int32_t r = 0; r < regions; ++r) {
            region& reg = *segm_.reg_pool[static_cast<size_t>(r)];
            if (reg.ident != r) return false;
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
        return true;
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
            const int32_t survivor = rc < rp ? rc : rp;
            const int32_t absorbed = rc < rp ? rp : rc;
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

// The engine on plain indices over the pool's records, for a frame whose
// region idents are not their positions.
struct IndexOwners {
    using handle = int32_t;
    static constexpr bool union_find = true;

    MV_RLEsegm* segm;
    LabelScratch* scratch;
    const RunSlot* pool_base;  // run number = slot - pool_base
    int32_t* run_owner;        // region per run number
    int32_t* absorbers;        // absorber per region
    int32_t* holes;            // hole per region

    explicit IndexOwners(MV_RLEsegm& s)
        : segm(&s), scratch(&s.work->labels), pool_base(s.seg_pool.data()), run_owner(nullptr), absorbers(nullptr),
          holes(nullptr)
    {
        if (scratch->run_owner.size() < segm->seg_pool.size()) scratch->run_owner.resize(segm->seg_pool.size());
        run_owner = scratch->run_owner.data();
        regions_grew();
    }

    static bool exists(handle reg) { return reg != kNone; }
    static handle none() { return kNone; }

    handle owner(const RunSlot* run) const { return run_owner[run - pool_base]; }
    void set_owner(const RunSlot* run, handle reg) const { run_owner[run - pool_base] = reg; }
    region& stats(handle reg) const { return *segm->reg_pool[static_cast<size_t>(reg)]; }
    handle region_at(int32_t index) const { return index; }
    void regions_grew()
    {
        if (scratch->absorber.size() < segm->reg_pool.size()) {
            scratch->absorber.resize(segm->reg_pool.size());
            scratch->hole.resize(segm->reg_pool.size());
        }
        absorbers = scratch->absorber.data();
        holes = scratch->hole.data();
    }
    void clear_links(handle reg) const
    {
        absorbers[reg] = kNone;
        holes[reg] = kNone;
    }
    // The chain is the pool order: nothing to write until the end.
    void chain(handle, bool) const {}
    void reset_chain() const {}
    handle first() const { return segm->nb_regs > 0 ? 0 : kNone; }
    handle last() const { return segm->nb_regs - 1; }
    handle next(handle reg) const { return reg + 1 < segm->nb_regs ? reg + 1 : kNone; }
    handle absorber(handle reg) const { return absorbers[reg]; }
    void set_absorber(handle reg, handle survivor) const { absorbers[reg] = survivor; }
    handle hole(handle reg) const { return holes[reg]; }
    void set_hole(handle reg, handle other) const { holes[reg] = other; }

    const std::shared_ptr<region>& region_ref(handle reg) const
    {
        static const std::shared_ptr<region> no_region;
        return reg == kNone ? no_region : segm->reg_pool[static_cast<size_t>(reg)];
    }

    // Writes the frame's result into the records' shared-pointer fields.
    void write_back(img2regs& state) const
    {
        for (int32_t k = 0; k < segm->nb_segs; ++k)
            set_link(segm->seg_pool[static_cast<size_t>(k)]->owner, region_ref(run_owner[k]));
        for (int32_t r = 0; r < segm->nb_regs; ++r) {
            region& reg = *segm->reg_pool[static_cast<size_t>(r)];
            if (reg.link) reg.link.reset();
            set_link(reg.next, region_ref(next(r)));
            set_link(reg.absorber, region_ref(absorbers[r]));
            set_link(reg.hole, region_ref(holes[r]));
        }
        set_link(state.first, region_ref(first()));
        set_link(state.last, region_ref(segm->nb_regs > 0 ? last() : kNone));
    }
};

void label_with_engine(MV_RLEsegm& segm)
{
    img2regs& state = *segm.i2r;
    LabellingEngine<IndexOwners> engine(state, &segm, IndexOwners(segm));
    std::fill_n(engine.store.run_owner, segm.nb_segs, kNone);
    if (!engine.start()) {
        state.first.reset();
        state.last.reset();
        engine.store_cursor();
        return;
    }
    engine.sweep(segm.roi_ymax - segm.roi_ymin + 1);
    engine.pass2();
    engine.store.write_back(state);
    engine.store_cursor();
}

// The frame's result from a finished sweep: the records, or the engine when
// the pool's idents are not their positions.
bool conclude(MV_RLEsegm& segm, CompactSweep& sweep, int32_t regions_before)
{
    if (!sweep.finish()) {
        // No region: only the bounds, the chain's ends and the cursor change.
        CompactSweep::write_runs(segm);
        segm.i2r->first.reset();
        segm.i2r->last.reset();
        sweep.write_cursor(*segm.i2r);
        return false;
    }
    if (sweep.write_back()) return true;
    segm.nb_regs = regions_before;
    CompactSweep::write_runs(segm);
    label_with_engine(segm);
    return false;
}

}  // namespace

bool label_frame(MV_RLEsegm& segm)
{
    const int32_t regions_before = segm.nb_regs;
    CompactSweep sweep(segm);
    for (int32_t y = segm.roi_ymin; y <= segm.roi_ymax; ++y) sweep.add_row(y);
    return conclude(segm, sweep, regions_before);
}

}  // namespace detail
}  // namespace nerva
