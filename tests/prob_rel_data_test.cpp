#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

prob_rel_data* prd(blob_type_t t)
{
    prob_rel_data* p = prdata_new();
    p->type = t;
    return p;
}

prob_rel_data* chain(const std::vector<blob_type_t>& types)
{
    prob_rel_data *head = nullptr, *tail = nullptr;
    for (blob_type_t t : types) {
        prob_rel_data* p = prd(t);
        (tail ? tail->next : head) = p;
        p->prev = tail;
        tail = p;
    }
    return head;
}

// The record's measures m0..m16 by number.
double prob_rel_data::*const kMeasure[17] = {
    &prob_rel_data::m0,  &prob_rel_data::m1,  &prob_rel_data::m2,  &prob_rel_data::m3,  &prob_rel_data::m4,
    &prob_rel_data::m5,  &prob_rel_data::m6,  &prob_rel_data::m7,  &prob_rel_data::m8,  &prob_rel_data::m9,
    &prob_rel_data::m10, &prob_rel_data::m11, &prob_rel_data::m12, &prob_rel_data::m13, &prob_rel_data::m14,
    &prob_rel_data::m15, &prob_rel_data::m16};

// Blob measures slot of each record measure; m3..m5 (-1) go to prd_extra.
const int kBlobSlot[17] = {0, 2, 1, -1, -1, -1, 11, 13, 12, 14, 16, 15, 3, 7, 8, 9, 10};

}  // namespace

TEST(ProbRelData, DeepCopiesAreLinkedAndIndependent)
{
    prob_rel_data* head = chain({PERSON, CAR, TRUCK});
    prob_rel_data* mid = head->next;
    mid->sublist = chain({FACE, CHILD});
    prob_rel_data* copy = copy_prdata_list(head);
    std::vector<blob_type_t> types;
    for (prob_rel_data *p = copy, *prev = nullptr; p; prev = p, p = p->next) {
        EXPECT_EQ(p->prev, prev);
        types.push_back(p->type);
    }
    EXPECT_EQ(types, (std::vector<blob_type_t>{PERSON, CAR, TRUCK}));
    prob_rel_data* sub = copy->next->sublist;
    EXPECT_FALSE(copy->sublist);
    EXPECT_NE(sub, mid->sublist);
    EXPECT_EQ(sub->next->type, CHILD);
    EXPECT_EQ(sub->next->prev, sub);

    // Single copies keep the neighbours as they are and deep-copy the sublist.
    prob_rel_data* one = copy_prdata(mid);
    EXPECT_EQ(one->next, mid->next);
    EXPECT_EQ(one->prev, head);
    EXPECT_NE(one->sublist, mid->sublist);
    prob_rel_data* dst = prd(NOISE);
    dst->sublist = prd(CHAIR);  // freed by the copy
    copy_prdata(mid, dst);
    EXPECT_EQ(dst->type, CAR);
    EXPECT_NE(dst->sublist, mid->sublist);
    EXPECT_EQ(dst->sublist->next->type, CHILD);
    copy_prdata(dst, dst);  // onto itself: an equal nested list
    EXPECT_EQ(dst->sublist->next->type, CHILD);

    head->sublist = chain({FACE, CHILD});
    prdata_free(head);  // one record with its nested list, not its neighbours
    EXPECT_EQ(mid->type, CAR);
    free_prd_list(mid);  // the copies survive their source
    EXPECT_EQ(copy->next->sublist->next->type, CHILD);
    EXPECT_EQ(one->sublist->type, FACE);
    one->next = one->prev = dst->next = dst->prev = nullptr;
    prdata_free(one);
    prdata_free(dst);
    free_prd_list(copy);
}

TEST(ProbRelData, ArgumentOrderOfShallowCopies)
{
    prob_rel_data* a = chain({PERSON, CAR, TRUCK});
    prob_rel_data* b = chain({FACE, CHAIR});
    a->next->sublist = prd(CHILD);
    a->next->occlusion = MM_OBJECT_SIT;

    // Destination first: b's head takes the data but stays in its own list.
    prob_rel_data* own_next = b->next;
    EXPECT_EQ(copy_prdata_only_info(b, a->next), b);
    EXPECT_EQ(b->type, CAR);
    EXPECT_EQ(b->occlusion, MM_OBJECT_SIT);
    EXPECT_EQ(b->next, own_next);
    EXPECT_FALSE(b->prev);
    EXPECT_FALSE(b->sublist);
    EXPECT_FALSE(copy_prdata_only_info(nullptr, a));
    EXPECT_FALSE(copy_prdata_only_info(b, nullptr));

    // Source first: dst shares src's neighbours and nested list.
    prob_rel_data* loose = prdata_new();
    EXPECT_EQ(copy_prdata_no_lists(a->next, loose), loose);
    EXPECT_EQ(loose->type, CAR);
    EXPECT_EQ(loose->next, a->next->next);
    EXPECT_EQ(loose->prev, a);
    EXPECT_EQ(loose->sublist, a->next->sublist);
    std::free(loose);  // owns nothing it points to
    free_prd_list(a);
    free_prd_list(b);
}

TEST(ProbRelData, ExchangeWithBlobCrossesMeasures)
{
    prob_rel_data* p = prdata_new();
    for (int i = 0; i < 17; ++i) p->*kMeasure[i] = 100 + i;
    p->type = VEHICLE;
    p->subtype = STANDING;
    p->occlusion = MM_CAM_OCCL_LEFT;
    init_rectangle(&p->bbox, 1, 2, 3, 4);
    std::strcpy(p->info, "hyp");
    p->info3D[5] = 9.5;

    blob_ptr b = blob_new();
    b->occlusion = MM_OBJECT_TOP;
    b->measures[4] = -1;
    copy_prd_to_blob(p, b);
    // The occlusion is not copied into the blob; entries 4..6 are not exchanged.
    EXPECT_EQ(b->type, VEHICLE);
    EXPECT_EQ(b->subtype, STANDING);
    EXPECT_EQ(b->bbox.ymax, 5);
    EXPECT_EQ(b->occlusion, MM_OBJECT_TOP);
    EXPECT_EQ(b->info3D[5], 9.5);
    EXPECT_STREQ(b->info, "hyp");
    EXPECT_EQ(b->prd_extra[0], 103);
    EXPECT_EQ(b->prd_extra[1], 104);
    EXPECT_EQ(b->prd_extra[2], 105);
    EXPECT_EQ(b->measures[4], -1);
    EXPECT_EQ(b->measures[6], 0);

    // Back into a record: m3..m5, occlusion and links are left alone.
    prob_rel_data* q = chain({UNKNOWN, UNKNOWN});
    q->occlusion = MM_AOI_OUTSIDE;
    q->m4 = 7;
    copy_blob_to_prd(b, q);
    for (int i = 0; i < 17; ++i)
        if (kBlobSlot[i] >= 0) {
            EXPECT_EQ(b->measures[kBlobSlot[i]], 100 + i) << "m" << i;
            EXPECT_EQ(q->*kMeasure[i], 100 + i) << "m" << i;
        }
    EXPECT_EQ(q->m3, 0);
    EXPECT_EQ(q->m4, 7);
    EXPECT_EQ(q->occlusion, MM_AOI_OUTSIDE);
    EXPECT_EQ(q->next->prev, q);
    EXPECT_EQ(q->type, VEHICLE);
    EXPECT_EQ(q->bbox.xmax, 3);
    EXPECT_EQ(q->info3D[5], 9.5);
    EXPECT_FALSE(std::strcmp(q->info, "hyp"));
    prdata_free(p);
    free_prd_list(q);
}

TEST(ProbRelData, SetNullKeepsWhatEachFormPromises)
{
    prob_rel_data* p = chain({PERSON, CAR});
    p->sublist = prd(FACE);
    p->subtype = LYING;
    p->occlusion = MM_CAM_OCCL_TOP;
    p->m9 = 3;
    p->info[0] = 'x';
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, 5, 6, 7, 8);
    set_null_3D_prd(b, p);
    EXPECT_EQ(p->type, PERSON);
    EXPECT_EQ(p->subtype, LYING);
    EXPECT_EQ(p->bbox.xmax, 11);
    EXPECT_EQ(p->occlusion, MM_OCCL_NONE);
    EXPECT_EQ(p->m9, 0);
    EXPECT_EQ(p->info[0], 0);
    EXPECT_EQ(p->sublist->type, FACE);
    EXPECT_EQ(p->next->type, CAR);
    free_prd_list(p);
}
