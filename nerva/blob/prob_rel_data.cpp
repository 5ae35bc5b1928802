#include <cstdlib>
#include <cstring>

#include "nerva/blob/RLEblob.h"

// Probability records are plain records: calloc'd, copied by assignment,
// released with free. A record owns its nested sublist; a list is owned
// through its head.
namespace nerva {

namespace {

// Clears every field except the nested list and the two neighbours.
void clear_keeping_links(prob_rel_data* p)
{
    prob_rel_data* sublist = p->sublist;
    prob_rel_data* next = p->next;
    prob_rel_data* prev = p->prev;
    std::memset(p, 0, sizeof(*p));
    p->sublist = sublist;
    p->next = next;
    p->prev = prev;
}

}  // namespace

prob_rel_data* prdata_new() { return static_cast<prob_rel_data*>(std::calloc(1, sizeof(prob_rel_data))); }

void prdata_free(prob_rel_data* p)
{
    if (!p) return;
    free_prd_list(p->sublist);
    std::free(p);
}

void free_prd_list(prob_rel_data* head)
{
    while (head) {
        prob_rel_data* next = head->next;
        prdata_free(head);
        head = next;
    }
}

prob_rel_data* copy_prdata(const prob_rel_data* src)
{
    if (!src) return nullptr;
    prob_rel_data* copy = prdata_new();
    if (!copy) return nullptr;
    *copy = *src;
    copy->sublist = copy_prdata_list(src->sublist);
    return copy;
}

void copy_prdata(const prob_rel_data* src, prob_rel_data* dst)
{
    if (!src || !dst) return;
    // Copy the nested list before dst lets go of its own, which may be the
    // same list when src and dst are one record.
    prob_rel_data* sublist = copy_prdata_list(src->sublist);
    free_prd_list(dst->sublist);
    *dst = *src;
    dst->sublist = sublist;
}

prob_rel_data* copy_prdata_list(const prob_rel_data* head)
{
    prob_rel_data* new_head = nullptr;
    prob_rel_data* new_tail = nullptr;
    for (const prob_rel_data* p = head; p; p = p->next) {
        prob_rel_data* copy = prdata_new();
        if (!copy) {
            free_prd_list(new_head);
            return nullptr;
        }
        *copy = *p;
        copy->sublist = nullptr;
        copy->next = nullptr;
        copy->prev = new_tail;
        if (new_tail) new_tail->next = copy;
        else new_head = copy;
        new_tail = copy;
        if (p->sublist) {
            copy->sublist = copy_prdata_list(p->sublist);
            if (!copy->sublist) {
                free_prd_list(new_head);
                return nullptr;
            }
        }
    }
    return new_head;
}

prob_rel_data* copy_prdata_no_lists(const prob_rel_data* src, prob_rel_data* dst)
{
    if (src && dst) *dst = *src;
    return dst;
}

prob_rel_data* copy_prdata_only_info(prob_rel_data* dst, const prob_rel_data* src)
{
    if (!dst || !src) return nullptr;
    prob_rel_data* sublist = dst->sublist;
    prob_rel_data* next = dst->next;
    prob_rel_data* prev = dst->prev;
    *dst = *src;
    dst->sublist = sublist;
    dst->next = next;
    dst->prev = prev;
    return dst;
}

// The measures travel crossed in three pairs (m1/m2, m7/m8, m10/m11): the
// blob and the record order them differently, and both sides rely on it.
void copy_prd_to_blob(const prob_rel_data* p, blob_ptr b)
{
    if (!p || !b) return;
    b->type = p->type;
    b->subtype = p->subtype;
    b->bbox = p->bbox;
    std::memcpy(b->info, p->info, sizeof(b->info));
    std::memcpy(b->info3D, p->info3D, sizeof(b->info3D));
    double* m = b->measures;
    m[0] = p->m0;
    m[2] = p->m1;
    m[1] = p->m2;
    b->prd_extra[0] = p->m3;
    b->prd_extra[1] = p->m4;
    b->prd_extra[2] = p->m5;
    m[11] = p->m6;
    m[13] = p->m7;
    m[12] = p->m8;
    m[14] = p->m9;
    m[16] = p->m10;
    m[15] = p->m11;
    m[3] = p->m12;
    m[7] = p->m13;
    m[8] = p->m14;
    m[9] = p->m15;
    m[10] = p->m16;
}

void copy_blob_to_prd(blob_ptr b, prob_rel_data* p)
{
    if (!b || !p) return;
    p->type = b->type;
    p->subtype = b->subtype;
    p->bbox = b->bbox;
    std::memcpy(p->info, b->info, sizeof(p->info));
    std::memcpy(p->info3D, b->info3D, sizeof(p->info3D));
    const double* m = b->measures;
    p->m0 = m[0];
    p->m1 = m[2];
    p->m2 = m[1];
    p->m6 = m[11];
    p->m7 = m[13];
    p->m8 = m[12];
    p->m9 = m[14];
    p->m10 = m[16];
    p->m11 = m[15];
    p->m12 = m[3];
    p->m13 = m[7];
    p->m14 = m[8];
    p->m15 = m[9];
    p->m16 = m[10];
}

void set_null_3D_prd(blob_ptr b, prob_rel_data* p)
{
    if (!b || !p) return;
    const blob_type_t type = p->type;
    const blob_subtype_t subtype = p->subtype;
    clear_keeping_links(p);
    p->type = type;
    p->subtype = subtype;
    p->bbox = b->bbox;
}

void set_null_3D_prd(prob_rel_data* p, blob_type_t type, blob_subtype_t subtype, blob_occl_type occlusion,
                     const rectangle* box)
{
    if (!p) return;
    clear_keeping_links(p);
    p->type = type;
    p->subtype = subtype;
    p->occlusion = occlusion;
    if (box) p->bbox = *box;
}

}  // namespace nerva
