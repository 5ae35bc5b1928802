#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "nerva/rle/segment.h"

// The records labelling builds on runs (nerva/rle/segment.h): a connected
// region being grown from runs, and a sorted singly linked list of runs.
// Segments and regions live in the segmenter's pools and are recycled
// every frame, so none of the region operations allocates.
namespace nerva {

struct region;

// Where one region's runs lie on one row: the region has `nb_segs` runs on
// row `y`, the first of them at position `first_seg` in the row's run list.
struct RLEregionline {
    int32_t y;
    int32_t nb_segs;
    int32_t first_seg;
};

// A connected set of runs under construction.
struct region {
    int32_t seed_x;  // first column of the run that created the region
    int32_t y_min;   // row of that run: the region's top row
    int32_t ident;   // position in the region pool; lower ident survives a merge
    int32_t npix;
    int32_t nholes;
    int32_t x_min;
    int32_t x_max;
    int32_t y_max;
    double sum_x;  // sums of pixel columns / rows; doubles so big regions fit
    double sum_y;
    std::shared_ptr<region> link;                           // spare reference, reset by region_initialize
    std::shared_ptr<region> next;                           // next region in creation order
    std::shared_ptr<region> absorber;                       // survivor that absorbed this one, or null
    std::shared_ptr<region> hole;                           // region passed with the last recorded hole
    std::vector<std::shared_ptr<RLEregionline>> reg_lines;  // one entry per box row
};

// Plain list node (calloc/free); sorted by x_start.
struct segment_list {
    int32_t x_end;
    int32_t x_start;
    std::shared_ptr<region> owner;
    segment_list* next;
};

std::shared_ptr<region> region_new();

// Drops the reference it was given, a copy of the caller's: the caller's own
// pointer is left as it is. The record goes when its last reference does.
void region_free(std::shared_ptr<region> reg);

// One zero-filled node.
segment_list* new_segment_list();
// Inserts a node in front of the first node whose x_start >= x_start (so a
// new node precedes equal keys) and returns the possibly new head.
segment_list* insert_in_seg_list(segment_list* list, int x_start, int x_end, std::shared_ptr<region> reg);
// Frees every node. Only the head's owner reference is released; the owners
// of later nodes are discarded with the node memory and keep one reference.
void free_segment_list(segment_list* list);

// Makes reg describe exactly the run [x_start, x_end] on row y. Leaves ident
// and reg_lines alone.
void region_initialize(std::shared_ptr<region> reg, int x_start, int x_end, int y);
// Adds the run [x_start, x_end] on row y; runs arrive in increasing rows, so
// y_max is set, not compared.
void region_absorb_segment(std::shared_ptr<region> reg, int x_start, int x_end, int y);
// Adds absorbed's statistics into survivor and links absorbed to it; absorbed
// keeps its own (now stale) statistics.
void region_absorb_region(std::shared_ptr<region> survivor, std::shared_ptr<region> absorbed);
// Counts one hole in reg and remembers other; a null reg is ignored.
void region_add_hole(std::shared_ptr<region> reg, std::shared_ptr<region> other);

}  // namespace nerva
