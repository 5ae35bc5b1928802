// The driver's labelling: the labelling engine over the run bounds
// extraction left in run_bounds, with every run owner, absorber, hole and
// region statistic kept in compact arrays. The segment records, the region
// records and the img2regs cursor are written once, at the end, and only
// where a value changes, so the sweep touches neither the pools' records nor
// a reference count.
#include <algorithm>

#include "nerva/segmentation/internal/labelling_engine.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {
namespace detail {

namespace {

constexpr int32_t kNone = -1;

// Runs and regions by number: a run's number is its place in the segment
// pool, a region's its place in the region pool. Merges compare the pool
// records' idents, so a host that renumbers the pool's regions sees the
// merges follow its numbers here too.
class IndexOwners {
public:
    using handle = int32_t;
    using Run = int32_t;
    static constexpr bool union_find = true;

    explicit IndexOwners(MV_RLEsegm& segm)
        : segm_(&segm), labels_(&segm.work->labels), bounds_(segm.work->run_bounds.data()),
          pool_base_(segm.seg_pool.data())
    {
        if (labels_->run_owner.size() < segm.seg_pool.size()) labels_->run_owner.resize(segm.seg_pool.size());
        owner_ = labels_->run_owner.data();
        regions_grew();
    }

    static bool exists(int32_t reg) { return reg != kNone; }
    static int32_t none() { return kNone; }

    int32_t x_start(int32_t run) const { return bounds_[2 * run]; }
    int32_t x_end(int32_t run) const { return bounds_[2 * run + 1]; }
    int32_t owner(int32_t run) const { return owner_[run]; }
    void set_owner(int32_t run, int32_t reg) const { owner_[run] = reg; }
    RegionStats& stats(int32_t reg) const { return stats_[reg]; }
    // Read from the records at the merge: merges are rarer than regions.
    int32_t ident(int32_t reg) const { return segm_->reg_pool[static_cast<size_t>(reg)]->ident; }
    static int32_t region_at(int32_t index) { return index; }
    void regions_grew()
    {
        const size_t n = segm_->reg_pool.size();
        if (labels_->absorber.size() < n) {
            labels_->absorber.resize(n);
            labels_->hole.resize(n);
            labels_->stats.resize(n);
        }
        absorber_ = labels_->absorber.data();
        hole_ = labels_->hole.data();
        stats_ = labels_->stats.data();
    }
    void clear_links(int32_t reg) const
    {
        absorber_[reg] = kNone;
        hole_[reg] = kNone;
    }
    // The chain is the region numbers in order; the records' links are
    // written with the rest (write_regions).
    static void chain(int32_t, bool) {}
    void begin_frame() const { std::fill_n(owner_, segm_->nb_segs, kNone); }
    int32_t first() const { return segm_->nb_regs > 0 ? 0 : kNone; }
    int32_t last() const { return segm_->nb_regs - 1; }
    static int32_t next(int32_t reg) { return reg + 1; }
    int32_t absorber(int32_t reg) const { return absorber_[reg]; }
    void set_absorber(int32_t reg, int32_t survivor) const { absorber_[reg] = survivor; }
    int32_t hole(int32_t reg) const { return hole_[reg]; }
    void set_hole(int32_t reg, int32_t other) const { hole_[reg] = other; }

    int32_t row_runs(const RLEline& line) const
    {
        // An empty row's pointer may be stale: only a row with runs is read.
        return line.nb_segs > 0 ? static_cast<int32_t>(line.segs - pool_base_) : 0;
    }
    static int32_t pool_run(int32_t k) { return k; }
    // Pass 2's last step writes the run's record: bounds and owner.
    void run_settled(int32_t run, int32_t reg) const
    {
        segment& seg = *pool_base_[run];
        seg.x_start = bounds_[2 * run];
        seg.x_end = bounds_[2 * run + 1];
        set_link(seg.owner, region_ref(reg));
    }
    // The sweep always loads its rows and moves its cursors before reading them.
    static int32_t cursor_row(RunSlot*) { return 0; }
    static int32_t cursor_slot(const RunSlot&) { return kNone; }
    void store_slot(RunSlot& slot, int32_t run) const
    {
        if (run != kNone) slot = pool_base_[run];
    }

    // The frame's regions into their records, and the chain's ends into the
    // img2regs record.
    void write_regions() const
    {
        const int32_t regions = segm_->nb_regs;
        for (int32_t r = 0; r < regions; ++r) {
            region& reg = *segm_->reg_pool[static_cast<size_t>(r)];
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
            set_link(reg.next, region_ref(r + 1 < regions ? r + 1 : kNone));
            set_link(reg.absorber, region_ref(absorber_[r]));
            set_link(reg.hole, region_ref(hole_[r]));
        }
        img2regs& state = *segm_->i2r;
        set_link(state.first, region_ref(regions > 0 ? 0 : kNone));
        set_link(state.last, region_ref(regions > 0 ? regions - 1 : kNone));
    }

private:
    const std::shared_ptr<region>& region_ref(int32_t reg) const
    {
        static const std::shared_ptr<region> no_region;
        return reg == kNone ? no_region : segm_->reg_pool[static_cast<size_t>(reg)];
    }

    MV_RLEsegm* segm_;
    LabelScratch* labels_;
    const int32_t* bounds_;
    RunSlot* pool_base_;
    int32_t* owner_ = nullptr;
    int32_t* absorber_ = nullptr;
    int32_t* hole_ = nullptr;
    RegionStats* stats_ = nullptr;
};

}  // namespace

bool label_frame(MV_RLEsegm& segm)
{
    LabellingEngine<IndexOwners> engine(*segm.i2r, &segm, IndexOwners(segm));
    const bool labelled = engine.start();
    if (labelled) {
        engine.sweep(segm.roi_ymax - segm.roi_ymin + 1);
        engine.pass2();
    } else {
        write_run_records(segm, 0, segm.nb_segs);
    }
    engine.store_cursor();
    engine.store.write_regions();
    return labelled;
}

}  // namespace detail
}  // namespace nerva
