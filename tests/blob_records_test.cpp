// The blob and probability records: copies, lists, geometry, and the exchange of measures between them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "segmenter_test_support.h"

using namespace nerva;
using segmenter_test::vals;

namespace {

prob_rel_data* prd(blob_type_t t)
{
    prob_rel_data* p = prdata_new();
    p->type = t;
    return p;
}

// Chains the blobs in order through next and prev; returns the head.
blob_ptr link(const std::vector<blob_ptr>& blobs)
{
    for (size_t i = 0; i + 1 < blobs.size(); ++i) {
        blobs[i]->next = blobs[i + 1];
        blobs[i + 1]->prev = blobs[i];
    }
    return blobs.front();
}

// Identifiers from head, checking that every link has its mirror.
std::vector<int> idents_checked(blob_ptr head)
{
    std::vector<int> idents;
    EXPECT_TRUE(!head || !head->prev);
    for (blob_ptr b = head; b; b = b->next) {
        idents.push_back(b->ident);
        EXPECT_TRUE(!b->next || b->next->prev == b);
    }
    return idents;
}

blob_ptr box_blob(int x, int y, int w, int h, uint32_t occlusion = 0)
{
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, x, y, w, h);
    b->occlusion = static_cast<blob_occl_type>(occlusion);
    return b;
}
blob_ptr make_blob(int ident, int w = 1, int h = 1)
{
    blob_ptr b = box_blob(0, 0, w, h);
    return b->ident = ident, b;
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

TEST(ProbRelData, DeepCopiesAreLinkedAndIndependentShallowOnesTakeTheirArgumentsInOrder)
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
    EXPECT_TRUE(!copy->sublist && sub != mid->sublist && sub->next->type == CHILD && sub->next->prev == sub);

    // Single copies keep the neighbours as they are and deep-copy the sublist.
    prob_rel_data* one = copy_prdata(mid);
    EXPECT_TRUE(one->next == mid->next && one->prev == head && one->sublist != mid->sublist);
    prob_rel_data* dst = prd(NOISE);
    dst->sublist = prd(CHAIR);  // freed by the copy
    copy_prdata(mid, dst);
    EXPECT_TRUE(dst->type == CAR && dst->sublist != mid->sublist && dst->sublist->next->type == CHILD);
    copy_prdata(dst, dst);  // onto itself: an equal nested list
    EXPECT_EQ(dst->sublist->next->type, CHILD);

    head->sublist = chain({FACE, CHILD});
    prdata_free(head);  // one record with its nested list, not its neighbours
    EXPECT_EQ(mid->type, CAR);
    free_prd_list(mid);  // the copies survive their source
    EXPECT_EQ(vals(copy->next->sublist->next->type, one->sublist->type), vals(CHILD, FACE));
    one->next = one->prev = dst->next = dst->prev = nullptr;
    prdata_free(one);
    prdata_free(dst);
    free_prd_list(copy);

    prob_rel_data* a = chain({PERSON, CAR, TRUCK});
    prob_rel_data* b = chain({FACE, CHAIR});
    a->next->sublist = prd(CHILD), a->next->occlusion = MM_OBJECT_SIT;

    // Destination first: b's head takes the data but stays in its own list.
    prob_rel_data* own_next = b->next;
    EXPECT_EQ(copy_prdata_only_info(b, a->next), b);
    EXPECT_EQ(vals(b->type, b->occlusion, b->next, b->prev, b->sublist),
              vals(CAR, MM_OBJECT_SIT, own_next, (prob_rel_data*)nullptr, (prob_rel_data*)nullptr));
    EXPECT_FALSE(copy_prdata_only_info(nullptr, a) || copy_prdata_only_info(b, nullptr));

    // Source first: dst shares src's neighbours and nested list.
    prob_rel_data* loose = prdata_new();
    EXPECT_EQ(copy_prdata_no_lists(a->next, loose), loose);
    EXPECT_EQ(vals(loose->type, loose->next, loose->prev, loose->sublist),
              vals(CAR, a->next->next, a, a->next->sublist));
    std::free(loose);  // owns nothing it points to
    free_prd_list(a);
    free_prd_list(b);
}

TEST(ProbRelData, ExchangeWithBlobCrossesMeasures)
{
    prob_rel_data* p = prdata_new();
    for (int i = 0; i < 17; ++i) p->*kMeasure[i] = 100 + i;
    p->type = VEHICLE, p->subtype = STANDING, p->occlusion = MM_CAM_OCCL_LEFT;
    init_rectangle(&p->bbox, 1, 2, 3, 4);
    std::strcpy(p->info, "hyp");
    p->info3D[5] = 9.5;

    blob_ptr b = blob_new();
    b->occlusion = MM_OBJECT_TOP, b->measures[4] = -1;
    copy_prd_to_blob(p, b);
    // The occlusion is not copied into the blob; entries 4..6 are not exchanged.
    EXPECT_EQ(vals(b->type, b->subtype, b->bbox.ymax, b->occlusion, b->info3D[5], std::string(b->info)),
              vals(VEHICLE, STANDING, 5, MM_OBJECT_TOP, 9.5, std::string("hyp")));
    EXPECT_EQ(vals(b->prd_extra[0], b->prd_extra[1], b->prd_extra[2], b->measures[4], b->measures[6]),
              vals(103.0, 104.0, 105.0, -1.0, 0.0));

    // Back into a record: m3..m5, occlusion and links are left alone.
    prob_rel_data* q = chain({UNKNOWN, UNKNOWN});
    q->occlusion = MM_AOI_OUTSIDE, q->m4 = 7;
    copy_blob_to_prd(b, q);
    for (int i = 0; i < 17; ++i)
        if (kBlobSlot[i] >= 0) {
            EXPECT_EQ(b->measures[kBlobSlot[i]], 100 + i) << "m" << i;
            EXPECT_EQ(q->*kMeasure[i], 100 + i) << "m" << i;
        }
    EXPECT_EQ(vals(q->m3, q->m4, q->occlusion, q->next->prev, q->type, q->bbox.xmax, q->info3D[5]),
              vals(0.0, 7.0, MM_AOI_OUTSIDE, q, VEHICLE, 3, 9.5));
    EXPECT_STREQ(q->info, "hyp");
    prdata_free(p);
    free_prd_list(q);
}

TEST(ProbRelData, SetNullKeepsWhatEachFormPromises)
{
    prob_rel_data* p = chain({PERSON, CAR});
    p->sublist = prd(FACE), p->subtype = LYING, p->occlusion = MM_CAM_OCCL_TOP, p->m9 = 3, p->info[0] = 'x';
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, 5, 6, 7, 8);
    set_null_3D_prd(b, p);
    EXPECT_EQ(vals(p->type, p->subtype, p->bbox.xmax, p->occlusion, p->m9, p->info[0], p->sublist->type, p->next->type),
              vals(PERSON, LYING, 11, MM_OCCL_NONE, 0.0, '\0', FACE, CAR));
    free_prd_list(p);
}

TEST(BlobCopy, CopiesDropDuplicateOrFreeOwnedDataAndDataCopiesKeepPlaceAndIdentity)
{
    EXPECT_FALSE(copy_blob(blob_ptr()) || copy_blob_with_lists(blob_ptr()) || copy_blob(blob_new(), blob_ptr()));
    blob_ptr a = make_blob(1), b = make_blob(2, 3, 4), c = make_blob(3);
    link({a, b, c});
    b->prd_list = prd(PERSON), b->prd_list_2 = prd(CAR), b->aux = b.get();
    b->fathers[BLOB_MAX_FATHERS - 1] = 42;

    // Same neighbours (the list unchanged), no lists, aux kept: only copy_blob(src, dst) clears it.
    blob_ptr copy = copy_blob(b);
    EXPECT_TRUE(copy->fathers[BLOB_MAX_FATHERS - 1] == 42 && !copy->prd_list && !copy->prd_list_2);
    EXPECT_TRUE(copy->aux == b.get() && copy->next == c && copy->prev == a && a->next == b);
    blob_ptr deep = copy_blob_with_lists(b);
    ASSERT_NE(deep->prd_list, nullptr);
    EXPECT_TRUE(deep->prd_list != b->prd_list && deep->prd_list_2->type == CAR);
    blob_free(deep);  // frees the copies only

    // Overwriting frees the destination's lists and buffer; the whole record comes over, ident included.
    copy->prd_list = prd(CAR), copy->prd_list_2 = prd(TRUCK), copy->buffer = std::malloc(16), copy->ident = 9;
    EXPECT_EQ(copy_blob(b, copy), copy.get());
    EXPECT_TRUE(copy->ident == 2 && copy->bbox.ymax == 3 && copy->next == c);
    EXPECT_TRUE(!copy->prd_list && !copy->prd_list_2 && !copy->buffer && !copy->aux);
    EXPECT_EQ(b->prd_list->type, PERSON);
    copy->next = copy->prev = nullptr;
    free_blob_list(a);

    blob_ptr a1 = link({make_blob(1), make_blob(2)});
    blob_ptr b1 = link({make_blob(11, 9, 9), make_blob(12, 9, 9)});
    blob_ptr b2 = b1->next;
    b2->prd_list = prd(PERSON), b2->prd_list->sublist = prd(FACE), a1->prd_list = prd(NOISE);
    a1->buffer = std::malloc(4);

    copy_blob_data(b2, a1);
    EXPECT_TRUE(a1->ident == 1 && a1->bbox.width == 9 && !a1->buffer);
    EXPECT_NE(a1->prd_list->sublist, b2->prd_list->sublist);
    EXPECT_EQ(idents_checked(a1), (std::vector<int>{1, 2}));
    EXPECT_EQ(idents_checked(b1), (std::vector<int>{11, 12}));
    free_blob_list(b1);      // the copies outlive the source's lists
    copy_blob_data(a1, a1);  // onto itself: the lists survive
    EXPECT_EQ(a1->prd_list->sublist->type, FACE);
    free_blob_list(a1);
}

TEST(BlobList, CopyCountFreeBiggestSameFatherAndCleanup)
{
    EXPECT_FALSE(copy_blob_list(blob_ptr()) || blob_list_number(blob_ptr()) || blob_get_biggest2D(blob_ptr()));

    blob_ptr head = link({make_blob(0, 2, 3), make_blob(1, 3, 2), make_blob(2, 1, 5)});
    head->next->prd_list = prd(PERSON);
    EXPECT_EQ(blob_list_number(head->next), 2);
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 0);  // first of equal areas
    head->next->next->bbox.width = 2;               // stored sizes count, not bounds
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 2);

    blob_ptr copy = copy_blob_list(head);
    EXPECT_EQ(idents_checked(copy), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(copy->next->prd_list, nullptr);
    copy->next->bbox.xmin = 99;
    EXPECT_EQ(head->next->bbox.xmin, 0);

    // Two-way links must not keep a freed list alive: every blob is cut
    // loose, so one the host still holds comes back unlinked.
    std::weak_ptr<RLEblob> tail = head->next->next, copy_tail = copy->next->next;
    blob_ptr held = copy->next;
    free_blob_list(head);
    free_blob_list(copy);
    head.reset();
    copy.reset();
    EXPECT_TRUE(tail.expired() && copy_tail.expired());
    EXPECT_FALSE(held->next || held->prev);

    blob_ptr a = blob_new(), b = blob_new();
    a->fathers[0] = b->fathers[0] = 3, b->nb_fathers = 1;
    EXPECT_EQ(blob_same_father(a, b), 0);  // a has no valid fathers
    a->fathers[1] = b->fathers[1] = 7;     // beyond b's count: not seen
    a->fathers[0] = 5, a->nb_fathers = 2;
    EXPECT_EQ(blob_same_father(a, b), 0);

    // Clean and free release the lists but forget the buffer, which is not theirs.
    int local = 0;
    b->buffer = &local, b->prd_list = prd(PERSON), b->prd_list->next = prd(CAR), b->prd_list_2 = prd(TRUCK);
    blob_clean(b);
    EXPECT_FALSE(b->buffer || b->prd_list || b->prd_list_2);
    b->prd_list = prd(PERSON), b->buffer = &local;
    blob_free(b);  // the caller's pointer is a copy: it stays set
    ASSERT_TRUE(b);
    EXPECT_FALSE(b->prd_list || b->buffer);
}

TEST(BlobGeometry, OverlapRatiosContainmentSplitsAndOcclusionPredicates)
{
    blob_ptr small = box_blob(2, 2, 10, 10), large = box_blob(0, 0, 100, 100);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(large, small), 1.0);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(small, large), 0.01);              // over b's area
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob_strict(small, large), 100.0);  // integer branch
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(box_blob(0, 0, 4, 4), box_blob(2, 0, 4, 4)), 0.5);
    EXPECT_TRUE(isPixBelongsToBlob(small, 2, 11) && !isPixBelongsToBlob(small, 12, 11));
    EXPECT_TRUE(is_blob1_inside_blob2(small, small) && is_blob1_inside_blob2(small, large));
    EXPECT_FALSE(is_blob1_inside_blob2(large, small));
    blob_ptr same = box_blob(2, 2, 99, 10);
    same->bbox.xmax = small->bbox.xmax;  // sizes are not compared
    EXPECT_TRUE(same2DBlob(small, same));
    same->bbox.ymax = INT32_MIN, small->bbox.ymax = INT32_MAX;
    EXPECT_FALSE(same2DBlob(small, same));

    // Splits change only the two bounds; the copy owns no lists and keeps b's
    // links (it names b's neighbour, which does not name it).
    blob_ptr b = box_blob(0, 0, 10, 6), neighbour = blob_new();
    b->npix = 42, b->prd_list = prdata_new(), b->next = neighbour;
    for (int x : {0, 9, -3}) EXPECT_FALSE(vertical_split_blob(b, x)) << x;
    blob_ptr right = vertical_split_blob(b, 4);
    ASSERT_TRUE(right);
    const auto box = [](const blob_ptr& x) {
        return std::vector<int>{x->bbox.xmin, x->bbox.ymin, x->bbox.xmax, x->bbox.ymax, x->bbox.width, x->bbox.height};
    };
    EXPECT_EQ(box(b), (std::vector<int>{0, 0, 4, 5, 10, 6}));
    EXPECT_EQ(box(right), (std::vector<int>{5, 0, 9, 5, 10, 6}));
    EXPECT_TRUE(right->npix == 42 && !right->prd_list && right->next == neighbour && b->next == neighbour);
    EXPECT_FALSE(neighbour->prev || horizontal_split_blob(b, 5));
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_EQ(box(b), (std::vector<int>{0, 0, 4, 2, 10, 6}));
    EXPECT_EQ(box(lower), (std::vector<int>{0, 3, 4, 5, 10, 6}));
    blob_free(copy_blob(b));  // takes a blob pointer by value
    blob_free(b);

    const struct {
        bool (*predicate)(blob_ptr);
        std::vector<uint32_t> yes, no;
    } rows[] = {
        {isBlobOcculted, {0x1, 0x6, 0xA, 0x10, 0x80, 0x20000000}, {0x0, 0x3, 0x11, 0x50, 0x80000000u, 0x20000001}},
        {isBlobTopOcculted, {0x2, 0x6, 0xA, 0x10}, {0x1, 0x20, 0x12, 0x20000000}},
        {isBlobBottomOcculted, {0x1, 0x5, 0x9, 0x20, 0x20000000}, {0x2, 0x10, 0x21}},
    };
    for (const auto& r : rows) {
        for (uint32_t o : r.yes) EXPECT_TRUE(r.predicate(box_blob(0, 0, 1, 1, o))) << o;
        for (uint32_t o : r.no) EXPECT_FALSE(r.predicate(box_blob(0, 0, 1, 1, o))) << o;
    }
}
