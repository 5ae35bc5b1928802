// Region labelling: one top-to-bottom sweep over pairs of consecutive rows
// joins 4-connected runs into regions (the lower ident survives a merge), and
// a second pass points every run and every absorbed region at its survivor.
//
// The sweep runs on a cursor of plain pointers and indices so that walking
// runs costs no reference-count traffic; the shared-pointer fields of the
// img2regs record are written back once, when the cursor is stored. Each
// public step function loads a cursor, takes its one step and stores it. The
// driver runs the same cursor with run owners kept as indices
// (frame_labelling.cpp).
#include <cstdio>

#include "nerva/segmentation/pool_blocks.h"
#include "nerva/segmentation/region_ops.h"
#include "nerva/segmentation/segmentationRLE.h"
#include "nerva/segmentation/sweep_cursor.h"

namespace nerva {

namespace {

// Run owners are the runs' own shared pointers.
struct Sweep : detail::SweepCursor<Sweep> {
    img2regs& st;

    Sweep(img2regs& state, MV_RLEsegm* segm) : SweepCursor(state, segm), st(state) {}

    void store() { store_cursor(st); }

    bool unowned(const seg_slot* slot) const { return !(*slot)->owner; }
    void new_region(const seg_slot* slot) { new_region((*slot)->x_start, **slot); }

    void new_region(int x_start, segment& run)
    {
        if (static_cast<size_t>(s->nb_regs) >= s->reg_pool.size()) {
            // More regions than the pool holds: grow it (regions are held by
            // shared pointer, so nothing already handed out moves).
            const size_t n = s->reg_pool.size();
            s->reg_pool.resize(n + n / 2 + 64);
            detail::fill_from_block(s->reg_pool, n, s->reg_pool.size());
            for (size_t i = n; i < s->reg_pool.size(); ++i) s->reg_pool[i]->ident = static_cast<int32_t>(i);
        }
        const std::shared_ptr<region>& reg = s->reg_pool[static_cast<size_t>(s->nb_regs++)];
        detail::region_init(*reg, x_start, run.x_end, y);
        if (s->nb_regs == 1) st.first = reg;
        else st.last->next = reg;
        st.last = reg;
        run.owner = reg;
    }

    // Relabels the runs still in the span being swept; runs further back keep
    // the absorbed region until the second pass.
    void replace(const region* old_reg, const std::shared_ptr<region>& new_reg)
    {
        for (int32_t k = 0; k <= cur_idx && k < cur_count; ++k)
            if (cur_runs[k]->owner.get() == old_reg) cur_runs[k]->owner = new_reg;
        for (int32_t k = prev_idx < 0 ? 0 : prev_idx; k < prev_count; ++k)
            if (prev_runs[k]->owner.get() == old_reg) prev_runs[k]->owner = new_reg;
    }

    void fusion()
    {
        if (!prev) {
            std::fputs("precseg->region is null !!\n", stderr);
            return;
        }
        region* rc = cur->owner.get();
        region* rp = prev->owner.get();
        if (!rc) {
            detail::region_add_run(*rp, cur->x_start, cur->x_end, y);
            cur->owner = prev->owner;
        } else if (rc != rp) {
            const bool current_survives = rc->ident < rp->ident;
            const std::shared_ptr<region> survivor = current_survives ? cur->owner : prev->owner;
            region& absorbed = current_survives ? *rp : *rc;
            detail::region_merge(*survivor, survivor, absorbed);
            replace(&absorbed, survivor);
        } else if (prev_idx != 0) {
            // The current run reaches a second run of its own region: a hole
            // closes. It is counted on the owner of the previous-row run just
            // left of prev_seg, whatever region that is.
            const std::shared_ptr<region>& left_owner = prev_runs[prev_idx - 1]->owner;
            if (left_owner) {
                left_owner->hole = cur->owner;
                left_owner->nholes = wrap_add(left_owner->nholes, 1);
            }
        }
    }
};

int32_t last_labelled_row(const MV_RLEsegm& s)
{
    // Never read past the run-length image, whatever the region of interest says.
    const int32_t lines = s.rle_img ? static_cast<int32_t>(s.rle_img->lines.size()) : 0;
    return s.roi_ymax < lines - 1 ? s.roi_ymax : lines - 1;
}

}  // namespace

void img2regs_new_region(i2r_ptr i2r, int x_start, std::shared_ptr<segment> run, segm_ptr segm)
{
    Sweep sw(*i2r, segm.get());
    sw.new_region(x_start, *run);
}

void img2regs_init(i2r_ptr i2r, segm_ptr segm)
{
    img2regs& st = *i2r;
    MV_RLEsegm& s = *segm;
    st.first.reset();
    st.last.reset();
    st.y = s.roi_ymin;
    const int32_t last_row = last_labelled_row(s);
    if (st.y < 0) st.y = 0;
    while (st.y <= last_row && s.rle_img->lines[static_cast<size_t>(st.y)]->nb_segs <= 0) ++st.y;
    if (st.y > last_row) {
        // No run anywhere: nothing to label.
        st.cur_runs = nullptr;
        st.cur_count = 0;
        return;
    }
    Sweep sw(st, &s);
    sw.load_row(sw.y);
    sw.open_regions_for_row();
    sw.cur_idx = sw.cur_count;
    sw.store();
}

void img2regs_exec(i2r_ptr i2r, int nrows, segm_ptr segm)
{
    img2regs& st = *i2r;
    MV_RLEsegm& s = *segm;
    const int32_t last_row = last_labelled_row(s);
    if (nrows <= 0 || st.y > last_row || st.y < 0) return;
    // The first repetition loads the first non-empty row again and pairs it
    // with itself; the holes this counts are part of the result.
    Sweep sw(st, &s);
    for (int i = 0; i < nrows && sw.y <= last_row; ++i) {
        sw.initstep();
        if (sw.cur_count != 0 && sw.prev_count != 0) sw.iter();
        ++sw.y;
    }
    sw.store();
}

void img2regs_initstep(i2r_ptr i2r, segm_ptr segm)
{
    Sweep sw(*i2r, segm.get());
    sw.initstep();
    sw.store();
}

void img2regs_iter(i2r_ptr i2r, segm_ptr segm)
{
    Sweep sw(*i2r, segm.get());
    sw.iter();
    sw.store();
}

void img2regs_avanp(i2r_ptr i2r)
{
    img2regs& st = *i2r;
    ++st.prev_idx;
    if (st.prev_idx < st.prev_count) st.prev_seg = st.prev_runs[st.prev_idx];
}

void img2regs_avanc(i2r_ptr i2r, segm_ptr segm)
{
    Sweep sw(*i2r, segm.get());
    sw.avanc();
    sw.store();
}

void img2regs_fusion(i2r_ptr i2r)
{
    img2regs& st = *i2r;
    if (!st.prev_seg) {
        std::fputs("precseg->region is null !!\n", stderr);
        return;
    }
    // Fusion never takes a region from the pool: no segmenter needed.
    Sweep sw(st, nullptr);
    sw.fusion();
    sw.store();
}

void img2regs_replace(i2r_ptr i2r, std::shared_ptr<region> old_reg, std::shared_ptr<region> new_reg)
{
    img2regs& st = *i2r;
    for (int32_t k = 0; k <= st.cur_idx && k < st.cur_count; ++k)
        if (st.cur_runs[k]->owner == old_reg) st.cur_runs[k]->owner = new_reg;
    for (int32_t k = st.prev_idx < 0 ? 0 : st.prev_idx; k < st.prev_count; ++k)
        if (st.prev_runs[k]->owner == old_reg) st.prev_runs[k]->owner = new_reg;
}

namespace {

// The shared pointer, somewhere along r's absorber chain, that names the
// chain's root. r must have an absorber.
const std::shared_ptr<region>& root_ref(const region& r)
{
    const std::shared_ptr<region>* ref = &r.absorber;
    while ((*ref)->absorber) ref = &(*ref)->absorber;
    return *ref;
}

}  // namespace

void img2regs_pass2(i2r_ptr i2r, segm_ptr segm)
{
    img2regs& st = *i2r;
    MV_RLEsegm& s = *segm;
    if (!st.first) return;

    // Regions are not renumbered: each absorbed region is pointed straight
    // at its survivor (the earliest-created region of the component).
    const region* end = st.last ? st.last->next.get() : nullptr;
    for (region* r = st.first.get(); r && r != end; r = r->next.get()) {
        if (r->absorber) {
            std::shared_ptr<region> root = root_ref(*r);
            r->absorber = std::move(root);
        }
        if (r->hole && r->hole->absorber) {
            std::shared_ptr<region> root = root_ref(*r->hole);
            r->hole->absorber = root;
            r->hole = std::move(root);
        }
    }
    for (int32_t k = 0; k < s.nb_segs; ++k) {
        segment& run = *s.seg_pool[static_cast<size_t>(k)];
        if (run.owner && run.owner->absorber) run.owner = run.owner->absorber;
    }
}

}  // namespace nerva
