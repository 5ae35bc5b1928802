// The public img2regs step functions: each one loads the labelling engine on
// the segmenter's img2regs record, takes its one step and stores the cursor
// back. Run owners and region links are the records' own shared pointers,
// written as the sweep goes, so a host stepping through these functions sees
// every intermediate state.
#include "nerva/internal/report.h"
#include "nerva/segmentation/internal/labelling_engine.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {

namespace {

using detail::RunSlot;

struct SharedOwners {
    using handle = std::shared_ptr<region>;
    using Run = const RunSlot*;
    static constexpr bool union_find = false;  // a host sees every relabelling

    img2regs& state;
    MV_RLEsegm* segm;

    static bool exists(const handle& reg) { return static_cast<bool>(reg); }
    static handle none() { return nullptr; }

    static int32_t x_start(Run run) { return (*run)->x_start; }
    static int32_t x_end(Run run) { return (*run)->x_end; }
    static handle owner(Run run) { return (*run)->owner; }
    static void set_owner(Run run, const handle& reg) { (*run)->owner = reg; }
    static region& stats(const handle& reg) { return *reg; }
    static int32_t ident(const handle& reg) { return reg->ident; }
    handle region_at(int32_t index) const { return segm->reg_pool[static_cast<size_t>(index)]; }
    static void regions_grew() {}
    static void clear_links(const handle& reg)
    {
        reg->link.reset();
        reg->next.reset();
        reg->absorber.reset();
        reg->hole.reset();
    }
    void chain(const handle& reg, bool first_of_frame) const
    {
        if (first_of_frame) state.first = reg;
        else state.last->next = reg;
        state.last = reg;
    }
    void begin_frame() const
    {
        state.first.reset();
        state.last.reset();
    }
    handle first() const { return state.first; }
    handle last() const { return state.last; }
    static handle next(const handle& reg) { return reg->next; }
    static handle absorber(const handle& reg) { return reg->absorber; }
    static void set_absorber(const handle& reg, const handle& survivor) { reg->absorber = survivor; }
    static handle hole(const handle& reg) { return reg->hole; }
    static void set_hole(const handle& reg, const handle& other) { reg->hole = other; }

    static Run row_runs(const RLEline& line) { return line.segs; }
    Run pool_run(int32_t k) const { return segm->seg_pool.data() + k; }
    static void run_settled(Run, const handle&) {}  // its owner is its record's field
    static Run cursor_row(RunSlot* runs) { return runs; }
    static Run cursor_slot(const RunSlot& slot) { return &slot; }
    static void store_slot(RunSlot& slot, Run run)
    {
        if (run != &slot) slot = *run;
    }
};

using Engine = detail::LabellingEngine<SharedOwners>;

Engine engine_on(img2regs& state, MV_RLEsegm* segm) { return Engine(state, segm, SharedOwners{state, segm}); }

}  // namespace

void img2regs_new_region(i2r_ptr i2r, int x_start, std::shared_ptr<segment> run, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.new_region(x_start, &run);
}

void img2regs_init(i2r_ptr i2r, segm_ptr segm)
{
    // Starting a frame sets the current row only; the previous-row fields
    // keep what they held until the sweep's first step loads them.
    std::shared_ptr<segment>* const prev_runs = i2r->prev_runs;
    const int32_t prev_count = i2r->prev_count;
    Engine engine = engine_on(*i2r, segm.get());
    engine.start();
    engine.store_cursor();
    i2r->prev_runs = prev_runs;
    i2r->prev_count = prev_count;
}

void img2regs_exec(i2r_ptr i2r, int nrows, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.sweep(nrows);
    engine.store_cursor();
}

void img2regs_initstep(i2r_ptr i2r, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.initstep();
    engine.store_cursor();
}

void img2regs_iter(i2r_ptr i2r, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.iter();
    engine.store_cursor();
}

void img2regs_avanp(i2r_ptr i2r)
{
    Engine engine = engine_on(*i2r, nullptr);
    engine.avanp();
    engine.store_cursor();
}

void img2regs_avanc(i2r_ptr i2r, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.avanc();
    engine.store_cursor();
}

void img2regs_fusion(i2r_ptr i2r)
{
    // The sweep never calls fusion without a previous-row run; a host can.
    if (!i2r->prev_seg) {
        detail::report(MESSAGES_STDERR, "precseg->region is null !!\n");
        return;
    }
    Engine engine = engine_on(*i2r, nullptr);
    engine.fusion();
    engine.store_cursor();
}

void img2regs_replace(i2r_ptr i2r, std::shared_ptr<region> old_reg, std::shared_ptr<region> new_reg)
{
    Engine engine = engine_on(*i2r, nullptr);
    engine.replace(old_reg, new_reg);
}

void img2regs_pass2(i2r_ptr i2r, segm_ptr segm)
{
    Engine engine = engine_on(*i2r, segm.get());
    engine.pass2();
}

}  // namespace nerva
