#pragma once

#include <cstdint>
#include <memory>

// One horizontal foreground run, the unit a run-length line is made of.
// Labelling (nerva/segmentation/) writes the region a run belongs to; the
// run-length image needs only the record itself, so `region` stays an
// incomplete type here.
namespace nerva {

struct region;

// The row is not stored: it is the index of the run-length line that holds
// the run. Runs are stored end-first.
struct segment {
    int32_t x_end;                  // last column, inclusive
    int32_t x_start;                // first column, inclusive
    std::shared_ptr<region> owner;  // null until labelling assigns it
};

// Both columns 0, no owner.
std::shared_ptr<segment> segment_new();
// Drops the reference it was given, a copy of the caller's: the caller's own
// pointer is left as it is. The record goes when its last reference does.
void segment_free(std::shared_ptr<segment> seg);

}  // namespace nerva
