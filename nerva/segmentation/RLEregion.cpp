#include "nerva/segmentation/RLEregion.h"

#include <cstdlib>
#include <new>

#include "nerva/segmentation/internal/region_ops.h"

namespace nerva {

std::shared_ptr<region> region_new() { return std::make_shared<region>(); }

void region_free(std::shared_ptr<region> reg) { reg.reset(); }

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
        region_free(list->owner);
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

void region_initialize(std::shared_ptr<region> reg, int x_start, int x_end, int y)
{
    detail::region_init(*reg, x_start, x_end, y);
}

void region_absorb_segment(std::shared_ptr<region> reg, int x_start, int x_end, int y)
{
    detail::region_add_run(*reg, x_start, x_end, y);
}

void region_absorb_region(std::shared_ptr<region> survivor, std::shared_ptr<region> absorbed)
{
    detail::region_merge(*survivor, survivor, *absorbed);
}

void region_add_hole(std::shared_ptr<region> reg, std::shared_ptr<region> other)
{
    if (!reg) return;
    reg->hole = std::move(other);
    reg->nholes = wrap_add(reg->nholes, 1);
}

}  // namespace nerva
