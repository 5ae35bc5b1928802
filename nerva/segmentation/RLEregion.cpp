#include "nerva/segmentation/RLEregion.h"

#include <cstdlib>
#include <new>

#include "nerva/geometry/wrap_arith.h"

namespace nerva {

std::shared_ptr<segment> segment_new() { return std::make_shared<segment>(); }

std::shared_ptr<region> region_new() { return std::make_shared<region>(); }

void segment_free(std::shared_ptr<segment>& seg) { seg.reset(); }

void region_free(std::shared_ptr<region>& reg) { reg.reset(); }

segment_list* new_segment_list()
{
    void* mem = std::calloc(1, sizeof(segment_list));
    if (!mem) return nullptr;
    // Zero-filled memory is a valid empty shared_ptr on every ABI we target,
    // but construct it properly so the node is a real object.
    return new (mem) segment_list{0, 0, nullptr, nullptr};
}

segment_list* insert_in_seg_list(segment_list* list, int x_start, int x_end, std::shared_ptr<region> reg)
{
    segment_list* node = new_segment_list();
    node->x_start = x_start;
    node->x_end = x_end;
    node->owner = std::move(reg);
    if (!list) return node;

    segment_list* prev = nullptr;
    segment_list* cur = list;
    while (cur && x_start > cur->x_start) {
        prev = cur;
        cur = cur->next;
    }
    node->next = cur;
    if (!prev) return node;
    prev->next = node;
    return list;
}

void free_segment_list(segment_list* list)
{
    if (!list) return;
    if (list->owner) {
        std::shared_ptr<region> head_owner = list->owner;
        region_free(head_owner);
        list->owner.reset();
    }
    while (list) {
        segment_list* next = list->next;
        // No destructor runs: the owner references of later nodes are
        // abandoned with the node memory, not released.
        std::free(list);
        list = next;
    }
}

void region_initialize(std::shared_ptr<region> r, int x_start, int x_end, int y)
{
    r->seed_x = x_start;
    r->y_min = y;
    r->x_min = x_start;
    r->x_max = x_end;
    r->y_max = y;
    r->nholes = 0;
    r->link.reset();
    r->next.reset();
    r->absorber.reset();
    r->hole.reset();
    const int32_t n = wrap_add(wrap_sub(x_end, x_start), 1);
    r->npix = n;
    // The numerator is always even, so halving it as a double is exact.
    const int32_t twice_sum = wrap_add(wrap_mul(wrap_sub(1, x_start), x_start), wrap_mul(wrap_add(x_end, 1), x_end));
    r->sum_x = twice_sum * 0.5;
    r->sum_y = static_cast<double>(wrap_mul(y, n));
}

void region_absorb_segment(std::shared_ptr<region> r, int x_start, int x_end, int y)
{
    if (x_start < r->x_min) r->x_min = x_start;
    if (x_end > r->x_max) r->x_max = x_end;
    const int32_t n = wrap_add(wrap_sub(x_end, x_start), 1);
    r->npix = wrap_add(r->npix, n);
    r->y_max = y;
    r->sum_x += wrap_range_sum(x_start, x_end);
    r->sum_y += wrap_mul(y, n);
}

void region_absorb_region(std::shared_ptr<region> survivor, std::shared_ptr<region> absorbed)
{
    absorbed->absorber = survivor;
    survivor->npix = wrap_add(survivor->npix, absorbed->npix);
    survivor->nholes = wrap_add(survivor->nholes, absorbed->nholes);
    survivor->sum_x += absorbed->sum_x;
    survivor->sum_y += absorbed->sum_y;
    if (absorbed->x_min < survivor->x_min) survivor->x_min = absorbed->x_min;
    if (absorbed->x_max > survivor->x_max) survivor->x_max = absorbed->x_max;
    if (absorbed->y_max > survivor->y_max) survivor->y_max = absorbed->y_max;
}

void region_add_hole(std::shared_ptr<region> r, std::shared_ptr<region> other)
{
    if (!r) return;
    r->hole = std::move(other);
    r->nholes = wrap_add(r->nholes, 1);
}

}  // namespace nerva
