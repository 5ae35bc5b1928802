// The driver's labelling: the labelling engine with run owners, absorbers
// and holes kept as plain indices. They are written into their
// shared-pointer fields once at the end, and only where the value changes,
// so the sweep itself makes no reference-count update (locked instructions
// that would also stall the memory pipeline).
#include <algorithm>

#include "nerva/segmentation/internal/labelling_engine.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {
namespace detail {

namespace {

constexpr int32_t kNone = -1;

// Regions are pool positions; runs are numbered by their position in the
// segment pool.
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

}  // namespace

void label_frame(MV_RLEsegm& segm)
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

}  // namespace detail
}  // namespace nerva
