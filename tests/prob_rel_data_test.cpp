#include <gtest/gtest.h>

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

prob_rel_data* chain(const std::vector<prob_rel_data*>& records)
{
    for (size_t i = 0; i + 1 < records.size(); ++i) {
        records[i]->next = records[i + 1];
        records[i + 1]->prev = records[i];
    }
    return records.front();
}

// The record's measures m0..m16 by number.
double prob_rel_data::*const kMeasure[17] = {
    &prob_rel_data::m0,  &prob_rel_data::m1,  &prob_rel_data::m2,  &prob_rel_data::m3,  &prob_rel_data::m4,
    &prob_rel_data::m5,  &prob_rel_data::m6,  &prob_rel_data::m7,  &prob_rel_data::m8,  &prob_rel_data::m9,
    &prob_rel_data::m10, &prob_rel_data::m11, &prob_rel_data::m12, &prob_rel_data::m13, &prob_rel_data::m14,
    &prob_rel_data::m15, &prob_rel_data::m16};

}  // namespace

TEST(ProbRelData, NewFreeAndNulls)
{
    prob_rel_data* p = prdata_new();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->type, UNKNOWN);
    EXPECT_EQ(p->m16, 0.0);
    EXPECT_EQ(p->sublist, nullptr);
    EXPECT_EQ(p->next, nullptr);
    prdata_free(p);
    prdata_free(nullptr);
    free_prd_list(nullptr);
    EXPECT_EQ(copy_prdata(nullptr), nullptr);
    EXPECT_EQ(copy_prdata_list(nullptr), nullptr);
    copy_prdata(nullptr, nullptr);

    // Freeing one record takes its nested list but not its neighbours.
    prob_rel_data* head = chain({prd(PERSON), prd(CAR)});
    head->sublist = chain({prd(FACE), prd(CHILD)});
    prob_rel_data* second = head->next;
    prdata_free(head);
    EXPECT_EQ(second->type, CAR);
    prdata_free(second);
}

TEST(ProbRelData, DeepListCopyIsLinkedAndIndependent)
{
    prob_rel_data* head = chain({prd(PERSON), prd(CAR), prd(TRUCK)});
    head->next->sublist = chain({prd(FACE), prd(CHILD)});
    head->next->m7 = 2.5;

    prob_rel_data* copy = copy_prdata_list(head);
    std::vector<blob_type_t> types;
    prob_rel_data* prev = nullptr;
    for (prob_rel_data* p = copy; p; p = p->next) {
        EXPECT_EQ(p->prev, prev);
        types.push_back(p->type);
        prev = p;
        for (prob_rel_data* q = head; q; q = q->next) EXPECT_NE(p, q);
    }
    EXPECT_EQ(types, (std::vector<blob_type_t>{PERSON, CAR, TRUCK}));
    prob_rel_data* sub = copy->next->sublist;
    ASSERT_NE(sub, nullptr);
    EXPECT_NE(sub, head->next->sublist);
    EXPECT_EQ(sub->type, FACE);
    EXPECT_EQ(sub->next->type, CHILD);
    EXPECT_EQ(sub->next->prev, sub);
    EXPECT_EQ(copy->sublist, nullptr);
    EXPECT_EQ(copy->next->m7, 2.5);

    free_prd_list(head);  // the copy survives its source
    EXPECT_EQ(copy->next->sublist->next->type, CHILD);
    free_prd_list(copy);
}

TEST(ProbRelData, SingleCopiesKeepNeighboursAndDeepCopySublist)
{
    prob_rel_data* list = chain({prd(PERSON), prd(CAR), prd(TRUCK)});
    prob_rel_data* mid = list->next;
    mid->sublist = prd(FACE);

    prob_rel_data* copy = copy_prdata(mid);
    EXPECT_EQ(copy->next, mid->next);  // neighbours as they are
    EXPECT_EQ(copy->prev, list);
    EXPECT_NE(copy->sublist, mid->sublist);
    EXPECT_EQ(copy->sublist->type, FACE);

    prob_rel_data* dst = prd(NOISE);
    dst->sublist = prd(CHAIR);  // freed by the copy
    copy_prdata(mid, dst);
    EXPECT_EQ(dst->type, CAR);
    EXPECT_EQ(dst->next, mid->next);
    EXPECT_NE(dst->sublist, mid->sublist);
    EXPECT_EQ(dst->sublist->type, FACE);

    copy_prdata(dst, dst);  // onto itself: keeps an equal nested list
    ASSERT_NE(dst->sublist, nullptr);
    EXPECT_EQ(dst->sublist->type, FACE);

    copy->next = copy->prev = dst->next = dst->prev = nullptr;
    prdata_free(copy);
    prdata_free(dst);
    free_prd_list(list);
}

TEST(ProbRelData, ArgumentOrderOfShallowCopies)
{
    prob_rel_data* a = chain({prd(PERSON), prd(CAR), prd(TRUCK)});
    prob_rel_data* b = chain({prd(FACE), prd(CHAIR)});
    a->next->sublist = prd(CHILD);
    a->next->occlusion = MM_OBJECT_SIT;
    a->next->m12 = 4.0;

    // Destination first: b's head takes the data and stays in its own list.
    prob_rel_data* dst = b;
    prob_rel_data* own_next = dst->next;
    EXPECT_EQ(copy_prdata_only_info(dst, a->next), dst);
    EXPECT_EQ(dst->type, CAR);
    EXPECT_EQ(dst->occlusion, MM_OBJECT_SIT);
    EXPECT_EQ(dst->m12, 4.0);
    EXPECT_EQ(dst->next, own_next);
    EXPECT_EQ(dst->prev, nullptr);
    EXPECT_EQ(dst->sublist, nullptr);
    EXPECT_EQ(copy_prdata_only_info(nullptr, a), nullptr);
    EXPECT_EQ(copy_prdata_only_info(dst, nullptr), nullptr);
    EXPECT_EQ(dst->type, CAR);

    // Source first: dst shares src's neighbours and nested list.
    prob_rel_data* loose = prdata_new();
    EXPECT_EQ(copy_prdata_no_lists(a->next, loose), loose);
    EXPECT_EQ(loose->type, CAR);
    EXPECT_EQ(loose->next, a->next->next);
    EXPECT_EQ(loose->prev, a);
    EXPECT_EQ(loose->sublist, a->next->sublist);

    std::free(loose);  // shares everything it points to
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
    EXPECT_EQ(b->type, VEHICLE);
    EXPECT_EQ(b->subtype, STANDING);
    EXPECT_EQ(b->occlusion, MM_OBJECT_TOP);
    EXPECT_EQ(b->bbox.ymax, 5);
    EXPECT_STREQ(b->info, "hyp");
    EXPECT_EQ(b->info3D[5], 9.5);
    // Record measure -> blob slot; m3..m5 go to the three values after npix.
    const int slot[17] = {0, 2, 1, -1, -1, -1, 11, 13, 12, 14, 16, 15, 3, 7, 8, 9, 10};
    for (int i = 0; i < 17; ++i)
        if (slot[i] >= 0) {
            EXPECT_EQ(b->measures[slot[i]], 100 + i) << "m" << i;
        }
    EXPECT_EQ(b->prd_extra[0], 103);
    EXPECT_EQ(b->prd_extra[2], 105);
    EXPECT_EQ(b->measures[4], -1);  // entries 4..6 are not exchanged
    EXPECT_EQ(b->measures[6], 0);

    // Back into a fresh record: m3..m5, occlusion and links are left alone.
    prob_rel_data* q = prdata_new();
    q->occlusion = MM_AOI_OUTSIDE;
    q->m4 = 7;
    copy_blob_to_prd(b, q);
    for (int i = 0; i < 17; ++i)
        if (slot[i] >= 0) {
            EXPECT_EQ(q->*kMeasure[i], 100 + i) << "m" << i;
        }
    EXPECT_EQ(q->m3, 0);
    EXPECT_EQ(q->m4, 7);
    EXPECT_EQ(q->occlusion, MM_AOI_OUTSIDE);
    EXPECT_EQ(q->type, VEHICLE);
    EXPECT_STREQ(q->info, "hyp");

    // The round trip blob -> record -> blob restores the blob.
    blob_ptr c = blob_new();
    c->occlusion = MM_CAM_OCCL_TOP;
    copy_prd_to_blob(q, c);
    EXPECT_EQ(c->occlusion, MM_CAM_OCCL_TOP);
    for (int i = 0; i < BLOB_NB_MEASURES; ++i)
        if (i < 4 || i > 6) {
            EXPECT_EQ(c->measures[i], b->measures[i]) << i;
        }
    EXPECT_EQ(c->bbox.xmax, b->bbox.xmax);
    prdata_free(p);
    prdata_free(q);
}

TEST(ProbRelData, SetNullKeepsWhatEachFormPromises)
{
    prob_rel_data* p = chain({prd(PERSON), prd(CAR)});
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
    EXPECT_EQ(p->occlusion, MM_OCCL_NONE);
    EXPECT_EQ(p->m9, 0);
    EXPECT_EQ(p->info[0], 0);
    EXPECT_EQ(p->bbox.xmax, 11);
    EXPECT_EQ(p->sublist->type, FACE);
    EXPECT_EQ(p->next->type, CAR);

    rectangle box{1, 1, 2, 2, 2, 2};
    p->m0 = 1;
    set_null_3D_prd(p, CHAIR, ARMUP, MM_OBJECT_INSIDE, &box);
    EXPECT_EQ(p->type, CHAIR);
    EXPECT_EQ(p->subtype, ARMUP);
    EXPECT_EQ(p->occlusion, MM_OBJECT_INSIDE);
    EXPECT_EQ(p->bbox.xmax, 2);
    EXPECT_EQ(p->m0, 0);
    EXPECT_EQ(p->next->prev, p);
    EXPECT_EQ(p->sublist->type, FACE);
    free_prd_list(p);
}
