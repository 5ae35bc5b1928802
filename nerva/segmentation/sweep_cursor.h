#pragma once

// The two-row merge sweep of region labelling, written once for its two
// users: the public img2regs step functions, whose run owners are the runs'
// shared pointers, and the driver, which keeps run owners as plain indices
// until the frame is labelled. Internal header.
//
// Derived supplies, for the runs in the pool slots it is given:
//   bool unowned(const seg_slot* slot)   the run has no region yet
//   void new_region(const seg_slot* slot) opens a region for the run on row y
//   void fusion()                         connects cur with prev
#include <cstdint>
#include <memory>

#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {
namespace detail {

template <class Derived>
struct SweepCursor {
    using seg_slot = std::shared_ptr<segment>;

    MV_RLEsegm* s;  // the run-length image and the pools
    int32_t y;
    seg_slot* cur_runs;
    seg_slot* prev_runs;
    int32_t cur_count, prev_count;
    int32_t cur_idx, prev_idx;
    // The runs under examination, and the slots their shared pointers live
    // in (the record's own cur_seg and prev_seg until the cursor moves).
    segment* cur;
    segment* prev;
    const seg_slot* cur_slot;
    const seg_slot* prev_slot;

    SweepCursor(const img2regs& st, MV_RLEsegm* segm)
        : s(segm), y(st.y), cur_runs(st.cur_runs), prev_runs(st.prev_runs), cur_count(st.cur_count),
          prev_count(st.prev_count), cur_idx(st.cur_idx), prev_idx(st.prev_idx), cur(st.cur_seg.get()),
          prev(st.prev_seg.get()), cur_slot(&st.cur_seg), prev_slot(&st.prev_seg)
    {
    }

    Derived& self() { return static_cast<Derived&>(*this); }

    // Writes the cursor back; the two run references only where they moved.
    void store_cursor(img2regs& st)
    {
        st.y = y;
        st.cur_runs = cur_runs;
        st.prev_runs = prev_runs;
        st.cur_count = cur_count;
        st.prev_count = prev_count;
        st.cur_idx = cur_idx;
        st.prev_idx = prev_idx;
        if (cur_slot != &st.cur_seg) st.cur_seg = *cur_slot;
        if (prev_slot != &st.prev_seg) st.prev_seg = *prev_slot;
        cur_slot = &st.cur_seg;
        prev_slot = &st.prev_seg;
    }

    void load_row(int32_t row)
    {
        const RLEline& line = *s->rle_img->lines[static_cast<size_t>(row)];
        prev_runs = cur_runs;
        prev_count = cur_count;
        cur_runs = line.segs;
        cur_count = line.nb_segs;
    }

    void open_regions_for_row()
    {
        for (int32_t k = 0; k < cur_count; ++k) self().new_region(&cur_runs[k]);
    }

    void avanp()
    {
        ++prev_idx;
        if (prev_idx < prev_count) {
            prev_slot = &prev_runs[prev_idx];
            prev = prev_slot->get();
        }
    }

    void avanc()
    {
        // A run left without a connection starts a region of its own.
        if (cur_idx >= 0 && self().unowned(cur_slot)) self().new_region(cur_slot);
        ++cur_idx;
        if (cur_idx < cur_count) {
            cur_slot = &cur_runs[cur_idx];
            cur = cur_slot->get();
        }
    }

    void initstep()
    {
        load_row(y);
        if (prev_count == 0 && cur_count > 0) open_regions_for_row();
        cur_idx = -1;
        prev_idx = -1;
        avanp();
        avanc();
    }

    void iter()
    {
        while (cur_idx < cur_count) {
            if (prev_idx == prev_count) {
                for (int32_t k = cur_idx; k < cur_count; ++k)
                    if (self().unowned(&cur_runs[k])) self().new_region(&cur_runs[k]);
                return;
            }
            if (prev->x_end < cur->x_start) {
                avanp();
            } else if (cur->x_end < prev->x_start) {
                avanc();
            } else {
                self().fusion();
                if (prev->x_end < cur->x_end) avanp();
                else avanc();
            }
        }
    }
};

}  // namespace detail
}  // namespace nerva
