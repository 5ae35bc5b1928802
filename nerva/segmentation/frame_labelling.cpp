// The driver's labelling: the same sweep as the img2regs step functions, run
// on plain indices. The run owners, absorber and hole links and the region
// chain are computed as integers and written into their shared-pointer
// fields once at the end, and only where the value changes, so the sweep
// itself makes no reference-count updates (locked instructions that would
// also stall the memory pipeline).
#include <algorithm>

#include "nerva/segmentation/pool_blocks.h"
#include "nerva/segmentation/region_ops.h"
#include "nerva/segmentation/segmenter_internal.h"
#include "nerva/segmentation/sweep_cursor.h"

namespace nerva {

namespace {

constexpr int32_t kNone = -1;

// Run owners are indices in a scratch array, by run position in the pool.
struct IndexSweep : detail::SweepCursor<IndexSweep> {
    img2regs& st;
    const seg_slot* base;  // the segment pool's storage: run position = slot - base
    int32_t* owner;        // region per run position, kNone = no region yet

    explicit IndexSweep(MV_RLEsegm& segm)
        : SweepCursor(*segm.i2r, &segm), st(*segm.i2r), base(segm.seg_pool.data()),
          owner(segm.label_scratch.run_owner.data())
    {
    }

    int32_t position(const seg_slot* slot) const { return static_cast<int32_t>(slot - base); }
    region& reg(int32_t r) { return *s->reg_pool[static_cast<size_t>(r)]; }

    bool unowned(const seg_slot* slot) const { return owner[position(slot)] == kNone; }

    void new_region(const seg_slot* slot)
    {
        auto& scratch = s->label_scratch;
        if (static_cast<size_t>(s->nb_regs) >= s->reg_pool.size()) {
            const size_t n = s->reg_pool.size();
            s->reg_pool.resize(n + n / 2 + 64);
            detail::fill_from_block(s->reg_pool, n, s->reg_pool.size());
            for (size_t i = n; i < s->reg_pool.size(); ++i) s->reg_pool[i]->ident = static_cast<int32_t>(i);
        }
        if (scratch.absorber.size() < s->reg_pool.size()) {
            scratch.absorber.resize(s->reg_pool.size());
            scratch.hole.resize(s->reg_pool.size());
        }
        const int32_t r = s->nb_regs++;
        const segment& run = **slot;
        detail::region_init_stats(reg(r), run.x_start, run.x_end, y);
        scratch.absorber[static_cast<size_t>(r)] = kNone;
        scratch.hole[static_cast<size_t>(r)] = kNone;
        owner[position(slot)] = r;
    }

    void replace(int32_t old_reg, int32_t new_reg)
    {
        const int32_t cur_first = position(cur_runs), prev_first = position(prev_runs);
        const int32_t cur_end = std::min(cur_idx, cur_count - 1);
        for (int32_t k = 0; k <= cur_end; ++k)
            if (owner[cur_first + k] == old_reg) owner[cur_first + k] = new_reg;
        for (int32_t k = prev_idx < 0 ? 0 : prev_idx; k < prev_count; ++k)
            if (owner[prev_first + k] == old_reg) owner[prev_first + k] = new_reg;
    }

    void fusion()
    {
        const int32_t cur_pos = position(cur_slot);
        const int32_t rc = owner[cur_pos], rp = owner[position(prev_slot)];
        if (rc == kNone) {
            detail::region_add_run(reg(rp), cur->x_start, cur->x_end, y);
            owner[cur_pos] = rp;
        } else if (rc != rp) {
            const bool current_survives = reg(rc).ident < reg(rp).ident;
            const int32_t survivor = current_survives ? rc : rp, absorbed = current_survives ? rp : rc;
            detail::region_merge_stats(reg(survivor), reg(absorbed));
            s->label_scratch.absorber[static_cast<size_t>(absorbed)] = survivor;
            replace(absorbed, survivor);
        } else if (prev_idx != 0) {
            // A hole closes; it is counted on the owner of the previous-row
            // run just left of prev_seg, whatever region that is.
            const int32_t left = owner[position(prev_runs + prev_idx - 1)];
            if (left != kNone) {
                s->label_scratch.hole[static_cast<size_t>(left)] = rc;
                region& l = reg(left);
                l.nholes = wrap_add(l.nholes, 1);
            }
        }
    }

    int32_t root(int32_t r) const
    {
        const int32_t* absorber = s->label_scratch.absorber.data();
        while (absorber[r] != kNone) r = absorber[r];
        return r;
    }

    void pass2()
    {
        int32_t* absorber = s->label_scratch.absorber.data();
        int32_t* hole = s->label_scratch.hole.data();
        for (int32_t r = 0; r < s->nb_regs; ++r) {
            if (absorber[r] != kNone) absorber[r] = root(absorber[r]);
            const int32_t h = hole[r];
            if (h != kNone && absorber[h] != kNone) {
                const int32_t rt = root(absorber[h]);
                absorber[h] = rt;
                hole[r] = rt;
            }
        }
        for (int32_t k = 0; k < s->nb_segs; ++k)
            if (owner[k] != kNone && absorber[owner[k]] != kNone) owner[k] = absorber[owner[k]];
    }
};

const std::shared_ptr<region>& region_at(const MV_RLEsegm& s, int32_t r)
{
    static const std::shared_ptr<region> none;
    return r == kNone ? none : s.reg_pool[static_cast<size_t>(r)];
}

void write_back(IndexSweep& sw)
{
    MV_RLEsegm& s = *sw.s;
    img2regs& st = sw.st;
    const int32_t* owner = s.label_scratch.run_owner.data();
    for (int32_t k = 0; k < s.nb_segs; ++k)
        detail::set_link(s.seg_pool[static_cast<size_t>(k)]->owner, region_at(s, owner[k]));
    const int32_t* absorber = s.label_scratch.absorber.data();
    const int32_t* hole = s.label_scratch.hole.data();
    for (int32_t r = 0; r < s.nb_regs; ++r) {
        region& R = *s.reg_pool[static_cast<size_t>(r)];
        if (R.link) R.link.reset();
        detail::set_link(R.next, region_at(s, r + 1 < s.nb_regs ? r + 1 : kNone));
        detail::set_link(R.absorber, region_at(s, absorber[r]));
        detail::set_link(R.hole, region_at(s, hole[r]));
    }
    detail::set_link(st.first, region_at(s, s.nb_regs > 0 ? 0 : kNone));
    detail::set_link(st.last, region_at(s, s.nb_regs > 0 ? s.nb_regs - 1 : kNone));

    sw.store_cursor(st);
}

}  // namespace

void label_frame(MV_RLEsegm& s)
{
    img2regs& st = *s.i2r;
    auto& scratch = s.label_scratch;
    if (scratch.run_owner.size() < s.seg_pool.size()) scratch.run_owner.resize(s.seg_pool.size());
    std::fill_n(scratch.run_owner.data(), s.nb_segs, kNone);

    // Start on the first row of interest that holds a run.
    const int32_t lines = static_cast<int32_t>(s.rle_img->lines.size());
    const int32_t last_row = s.roi_ymax < lines - 1 ? s.roi_ymax : lines - 1;
    st.y = s.roi_ymin < 0 ? 0 : s.roi_ymin;
    while (st.y <= last_row && s.rle_img->lines[static_cast<size_t>(st.y)]->nb_segs <= 0) ++st.y;
    if (st.y > last_row) {
        st.first.reset();
        st.last.reset();
        return;
    }

    IndexSweep sw(s);
    sw.load_row(sw.y);
    sw.open_regions_for_row();
    sw.cur_idx = sw.cur_count;

    // The first repetition pairs the first non-empty row with itself.
    const int32_t nrows = s.roi_ymax - s.roi_ymin + 1;
    for (int32_t i = 0; i < nrows && sw.y <= last_row; ++i) {
        sw.initstep();
        if (sw.cur_count != 0 && sw.prev_count != 0) sw.iter();
        ++sw.y;
    }
    sw.pass2();
    write_back(sw);
}

}  // namespace nerva
