#include "nerva/blob/RLEblob.h"
#include "nerva/blob/internal/blob_internal.h"

#include <cstdlib>

#include "nerva/geometry/internal/wrap_arith.h"

namespace nerva {

namespace {

// Member-wise copy of the whole record; the caller decides which of the
// owned pointers the copy may keep.
blob_ptr duplicate_record(const RLEblob& src)
{
    blob_ptr copy = blob_new();
    *copy = src;
    copy->buffer = nullptr;
    copy->prd_list = nullptr;
    copy->prd_list_2 = nullptr;
    return copy;
}

int box_area(const RLEblob& b) { return wrap_mul(b.bbox.width, b.bbox.height); }

}  // namespace

blob_ptr blob_new() { return std::make_shared<RLEblob>(); }

blob_ptr copy_blob(blob_ptr src)
{
    if (!src) return nullptr;
    return duplicate_record(*src);
}

RLEblob* copy_blob(blob_ptr src, blob_ptr dst)
{
    if (!dst || !src) return nullptr;
    detail::release_blob_data(*dst, detail::BlobBuffer::free);
    *dst = *src;
    dst->prd_list = nullptr;
    dst->prd_list_2 = nullptr;
    dst->aux = nullptr;
    dst->buffer = nullptr;
    return dst.get();
}

void copy_blob_data(blob_ptr src, blob_ptr dst)
{
    if (!src || !dst) return;
    // The copies are made before dst lets go of its own lists, so a blob
    // copied onto itself keeps equal lists instead of reading freed ones.
    prob_rel_data* list_copy = copy_prdata_list(src->prd_list);
    prob_rel_data* list_2_copy = copy_prdata_list(src->prd_list_2);

    const int32_t ident = dst->ident;
    blob_ptr next = dst->next;
    blob_ptr prev = dst->prev;
    detail::release_blob_data(*dst, detail::BlobBuffer::free);
    *dst = *src;
    dst->ident = ident;
    dst->next = std::move(next);
    dst->prev = std::move(prev);
    dst->prd_list = list_copy;
    dst->prd_list_2 = list_2_copy;
    dst->buffer = nullptr;
}

blob_ptr copy_blob_with_lists(blob_ptr src)
{
    if (!src) return nullptr;
    blob_ptr copy = duplicate_record(*src);
    copy->prd_list = copy_prdata_list(src->prd_list);
    copy->prd_list_2 = copy_prdata_list(src->prd_list_2);
    return copy;
}

blob_ptr copy_blob_list(blob_ptr head)
{
    blob_ptr new_head;
    blob_ptr new_tail;
    for (blob_ptr b = head; b; b = b->next) {
        blob_ptr copy = duplicate_record(*b);
        copy->next = nullptr;
        copy->prev = new_tail;
        if (new_tail) new_tail->next = copy;
        else new_head = copy;
        new_tail = copy;
    }
    return new_head;
}

void blob_free(blob_ptr b)
{
    if (b) detail::release_blob_data(*b, detail::BlobBuffer::forget);
}

void free_blob_list(blob_ptr head)
{
    // Neighbours hold each other through both links, so a list is a cycle of
    // references: each blob is cut loose as it is freed, or none would go.
    while (head) {
        blob_ptr next = std::move(head->next);
        head->prev = nullptr;
        blob_free(std::move(head));
        head = std::move(next);
    }
}

void detail::release_blob_data(RLEblob& b, BlobBuffer buffer)
{
    free_prd_list(b.prd_list);
    free_prd_list(b.prd_list_2);
    b.prd_list = nullptr;
    b.prd_list_2 = nullptr;
    if (buffer == BlobBuffer::free) std::free(b.buffer);
    b.buffer = nullptr;
}

void blob_clean(blob_ptr b)
{
    if (b) detail::release_blob_data(*b, detail::BlobBuffer::forget);
}

int blob_list_number(blob_ptr head)
{
    int count = 0;
    for (const RLEblob* b = head.get(); b; b = b->next.get()) ++count;
    return count;
}

blob_ptr blob_get_biggest2D(blob_ptr head)
{
    blob_ptr best;
    int best_area = 0;
    for (blob_ptr b = head; b; b = b->next) {
        const int area = box_area(*b);
        if (!best || area > best_area) {
            best = b;
            best_area = area;
        }
    }
    return best;
}

blob_ptr remove_blob(blob_ptr head, blob_ptr b)
{
    if (!head || !b) return head;
    if (b == head) {
        blob_ptr new_head = b->next;
        if (new_head) new_head->prev = nullptr;
        return new_head;
    }
    if (b->prev) b->prev->next = b->next;
    if (b->next) b->next->prev = b->prev;
    return head;
}

int blob_same_father(blob_ptr a, blob_ptr b)
{
    if (!a || !b || a->nb_fathers < 1 || b->nb_fathers < 1) return 0;
    // Counts beyond the array's capacity are garbage; read only what exists.
    const int na = a->nb_fathers < BLOB_MAX_FATHERS ? a->nb_fathers : BLOB_MAX_FATHERS;
    const int nb = b->nb_fathers < BLOB_MAX_FATHERS ? b->nb_fathers : BLOB_MAX_FATHERS;
    for (int i = 0; i < na; ++i)
        for (int j = 0; j < nb; ++j)
            if (a->fathers[i] == b->fathers[j]) return 1;
    return 0;
}

}  // namespace nerva
