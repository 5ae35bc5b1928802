// The blob and probability records: copies, lists, geometry, and the exchange
// of measures between them. Ownership faults (a list shared by two copies, a
// self-copy that frees its source) show under the sanitizers, since every
// record made here is freed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

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

prob_rel_data* chain(const std::vector<blob_type_t>& types)
{
    prob_rel_data *head = nullptr, *tail = nullptr;
    for (blob_type_t t : types) {
        prob_rel_data* p = prd(t);
        if (tail) tail->next = p;
        else head = p;
        p->prev = tail;
        tail = p;
    }
    return head;
}

blob_ptr box_blob(int x, int y, int w, int h, int ident = 0)
{
    blob_ptr b = blob_new();
    init_rectangle(&b->bbox, x, y, w, h);
    b->ident = ident;
    return b;
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
    for (blob_ptr b = head; b; b = b->next) {
        idents.push_back(b->ident);
        if (b->next) {
            EXPECT_EQ(b->next->prev, b) << "blob " << b->ident;
        }
    }
    return idents;
}

}  // namespace

TEST(ProbRelData, ListAndSingleCopiesKeepTheirLinks)
{
    prob_rel_data* head = chain({PERSON, CAR, TRUCK});
    prob_rel_data* mid = head->next;
    mid->sublist = chain({FACE, CHILD});
    prob_rel_data* copy = copy_prdata_list(head);
    EXPECT_EQ(vals(copy->next->next->type, copy->next->next->prev, copy->next->sublist->next->prev),
              vals(TRUCK, copy->next, copy->next->sublist));

    // Single copies keep the neighbours; into a record, its nested list is
    // replaced; onto itself, an equal nested list stays.
    prob_rel_data* one = copy_prdata(mid);
    EXPECT_EQ(one->next, mid->next);
    EXPECT_EQ(one->prev, head);
    prob_rel_data* dst = prd(NOISE);
    dst->sublist = prd(CHAIR);
    copy_prdata(mid, dst);
    copy_prdata(dst, dst);
    EXPECT_EQ(vals(dst->type, dst->sublist->next->type), vals(CAR, CHILD));
    head->sublist = chain({FACE});
    prdata_free(head);  // one record with its nested list, not its neighbours
    free_prd_list(mid);
    for (prob_rel_data* p : {one, dst}) {
        p->next = nullptr;
        p->prev = nullptr;
    }
    for (prob_rel_data* p : {one, dst}) prdata_free(p);
    free_prd_list(copy);
}

TEST(ProbRelData, InfoOnlyAndNoListCopiesTakeTheirArgumentsInOppositeOrders)
{
    prob_rel_data* a = chain({PERSON, CAR, TRUCK});
    prob_rel_data* b = chain({FACE, CHAIR});
    a->next->sublist = prd(CHILD);
    a->next->occlusion = MM_OBJECT_SIT;
    // Destination first: b's head takes the data but stays in its own list.
    prob_rel_data* own_next = b->next;
    EXPECT_EQ(copy_prdata_only_info(b, a->next), b);
    EXPECT_EQ(vals(b->type, b->occlusion, b->next, b->prev, b->sublist),
              vals(CAR, MM_OBJECT_SIT, own_next, (prob_rel_data*)nullptr, (prob_rel_data*)nullptr));
    EXPECT_EQ(copy_prdata_only_info(nullptr, a), nullptr);
    EXPECT_EQ(copy_prdata_only_info(b, nullptr), nullptr);
    // Source first: dst shares src's neighbours and nested list.
    prob_rel_data* loose = prdata_new();
    EXPECT_EQ(copy_prdata_no_lists(a->next, loose), loose);
    EXPECT_EQ(vals(loose->type, loose->next, loose->prev, loose->sublist),
              vals(CAR, a->next->next, a, a->next->sublist));
    std::free(loose);  // owns nothing it points to
    free_prd_list(a);
    free_prd_list(b);
}

TEST(ProbRelData, ExchangeWithABlobCrossesSomeMeasuresAndLeavesOthers)
{
    prob_rel_data* p = prdata_new();
    p->m1 = 101;
    p->m2 = 102;
    p->m3 = 103;
    p->m4 = 104;
    p->m5 = 105;
    p->m6 = 106;
    p->m12 = 112;
    p->m16 = 116;
    p->type = VEHICLE;
    p->subtype = STANDING;
    p->occlusion = MM_CAM_OCCL_LEFT;
    init_rectangle(&p->bbox, 1, 2, 3, 4);
    std::strcpy(p->info, "hyp");
    p->info3D[5] = 9.5;
    blob_ptr blob = blob_new();
    blob->occlusion = MM_OBJECT_TOP;
    blob->measures[4] = -1;
    copy_prd_to_blob(p, blob);
    // m1 and m2 cross; m3..m5 go aside; the occlusion stays the blob's.
    EXPECT_EQ(vals(blob->measures[1], blob->measures[2], blob->measures[3], blob->measures[10], blob->measures[11],
                   blob->measures[4]),
              vals(102.0, 101.0, 112.0, 116.0, 106.0, -1.0));
    EXPECT_EQ(vals(blob->prd_extra[0], blob->prd_extra[2], blob->type, blob->subtype, blob->bbox.ymax, blob->occlusion,
                   blob->info3D[5]),
              vals(103.0, 105.0, VEHICLE, STANDING, 5, MM_OBJECT_TOP, 9.5));
    EXPECT_STREQ(blob->info, "hyp");

    // Back into a record: m3..m5, occlusion and links are left alone.
    prob_rel_data* q = chain({UNKNOWN, UNKNOWN});
    q->occlusion = MM_AOI_OUTSIDE;
    q->m4 = 7;
    copy_blob_to_prd(blob, q);
    EXPECT_EQ(vals(q->m1, q->m2, q->m12, q->m3, q->m4, q->occlusion, q->next->prev, q->type, q->info3D[5]),
              vals(101.0, 102.0, 112.0, 0.0, 7.0, MM_AOI_OUTSIDE, q, VEHICLE, 9.5));

    q->sublist = prd(FACE);
    q->subtype = LYING;
    q->occlusion = MM_CAM_OCCL_TOP;
    q->m9 = 3;
    q->info[0] = 'x';
    init_rectangle(&blob->bbox, 5, 6, 7, 8);
    set_null_3D_prd(blob, q);
    EXPECT_EQ(vals(q->type, q->subtype, q->bbox.xmax, q->occlusion, q->m9, q->info[0], q->sublist->type, q->next->type),
              vals(VEHICLE, LYING, 11, MM_OCCL_NONE, 0.0, '\0', FACE, UNKNOWN));
    prdata_free(p);
    free_prd_list(q);
}

TEST(BlobCopy, CopiesKeepNeighboursAndOverwritingFreesTheDestinationsData)
{
    EXPECT_EQ(copy_blob(blob_ptr()), nullptr);
    EXPECT_EQ(copy_blob_with_lists(blob_ptr()), nullptr);
    EXPECT_EQ(copy_blob(blob_new(), blob_ptr()), nullptr);
    blob_ptr a = box_blob(0, 0, 1, 1, 1), b = box_blob(0, 0, 3, 4, 2), c = box_blob(0, 0, 1, 1, 3);
    link({a, b, c});
    b->prd_list = prd(PERSON);
    b->prd_list_2 = prd(CAR);
    b->aux = b.get();

    // Same neighbours (the list unchanged), no lists, aux kept: only copy_blob(src, dst) clears it.
    blob_ptr copy = copy_blob(b);
    EXPECT_EQ(copy->aux, b.get());
    EXPECT_EQ(copy->next, c);
    EXPECT_EQ(copy->prev, a);
    EXPECT_EQ(a->next, b);
    EXPECT_EQ(copy->prd_list, nullptr);
    EXPECT_EQ(copy->prd_list_2, nullptr);
    blob_ptr deep = copy_blob_with_lists(b);
    EXPECT_EQ(deep->prd_list_2->type, CAR);
    blob_free(deep);  // frees the copies only
    // Overwriting frees the destination's lists and buffer; the whole record comes over, ident included.
    copy->prd_list = prd(CAR);
    copy->prd_list_2 = prd(TRUCK);
    copy->buffer = std::malloc(16);
    copy->ident = 9;
    EXPECT_EQ(copy_blob(b, copy), copy.get());
    EXPECT_EQ(copy->ident, 2);
    EXPECT_EQ(copy->bbox.ymax, 3);
    EXPECT_EQ(copy->next, c);
    EXPECT_EQ(copy->prd_list, nullptr);
    EXPECT_EQ(copy->prd_list_2, nullptr);
    EXPECT_EQ(copy->buffer, nullptr);
    EXPECT_EQ(copy->aux, nullptr);
    copy->next = nullptr;
    copy->prev = nullptr;
    free_blob_list(a);
}

TEST(BlobCopy, DataCopiesKeepPlaceAndIdentity)
{
    blob_ptr a1 = link({box_blob(0, 0, 1, 1, 1), box_blob(0, 0, 1, 1, 2)});
    blob_ptr b1 = link({box_blob(0, 0, 9, 9, 11), box_blob(0, 0, 9, 9, 12)});
    blob_ptr b2 = b1->next;
    b2->prd_list = prd(PERSON);
    b2->prd_list->sublist = prd(FACE);
    a1->prd_list = prd(NOISE);
    a1->buffer = std::malloc(4);
    copy_blob_data(b2, a1);
    EXPECT_EQ(a1->ident, 1);
    EXPECT_EQ(a1->bbox.width, 9);
    EXPECT_EQ(a1->buffer, nullptr);
    EXPECT_EQ(idents_checked(a1), (std::vector<int>{1, 2}));
    EXPECT_EQ(idents_checked(b1), (std::vector<int>{11, 12}));
    free_blob_list(b1);      // the copies outlive the source's lists
    copy_blob_data(a1, a1);  // onto itself: the lists survive
    EXPECT_EQ(a1->prd_list->sublist->type, FACE);
    free_blob_list(a1);
}

TEST(BlobList, CopyCountBiggestAndFreeUnlinks)
{
    EXPECT_EQ(copy_blob_list(blob_ptr()), nullptr);
    EXPECT_EQ(blob_list_number(blob_ptr()), 0);
    EXPECT_EQ(blob_get_biggest2D(blob_ptr()), nullptr);
    blob_ptr head = link({box_blob(0, 0, 2, 3, 0), box_blob(0, 0, 3, 2, 1), box_blob(0, 0, 1, 5, 2)});
    head->next->prd_list = prd(PERSON);
    EXPECT_EQ(blob_list_number(head->next), 2);
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 0);  // first of equal areas
    head->next->next->bbox.width = 2;               // stored sizes count, not bounds
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 2);
    blob_ptr copy = copy_blob_list(head);
    EXPECT_EQ(idents_checked(copy), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(copy->next->prd_list, nullptr);

    // Two-way links must not keep a freed list alive: every blob is cut
    // loose, so one the host still holds comes back unlinked.
    std::weak_ptr<RLEblob> tail = head->next->next, copy_tail = copy->next->next;
    blob_ptr held = copy->next;
    for (blob_ptr* list : {&head, &copy}) {
        free_blob_list(*list);
        list->reset();
    }
    EXPECT_TRUE(tail.expired());
    EXPECT_TRUE(copy_tail.expired());
    EXPECT_EQ(held->next, nullptr);
    EXPECT_EQ(held->prev, nullptr);
}

// Clean and free release the lists but forget the buffer, which is not theirs.
TEST(BlobList, CleanAndFreeForgetTheBuffer)
{
    int local = 0;
    blob_ptr b = blob_new();
    b->buffer = &local;
    b->prd_list = chain({PERSON, CAR});
    b->prd_list_2 = prd(TRUCK);
    blob_clean(b);
    EXPECT_EQ(b->buffer, nullptr);
    EXPECT_EQ(b->prd_list, nullptr);
    EXPECT_EQ(b->prd_list_2, nullptr);
    b->prd_list = prd(PERSON);
    b->buffer = &local;
    blob_free(b);  // the caller's pointer is a copy: it stays set
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->prd_list, nullptr);
    EXPECT_EQ(b->buffer, nullptr);
}

TEST(BlobGeometry, OverlapRatiosAndContainment)
{
    blob_ptr small = box_blob(2, 2, 10, 10), large = box_blob(0, 0, 100, 100);
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob(large, small), 1.0);
    EXPECT_DOUBLE_EQ(is_blob1_overlap_blob2(small, large), 0.01);              // over b's area
    EXPECT_DOUBLE_EQ(compute_overlap_ratio_blob_strict(small, large), 100.0);  // integer branch
    EXPECT_TRUE(isPixBelongsToBlob(small, 2, 11));
    EXPECT_FALSE(isPixBelongsToBlob(small, 12, 11));
    EXPECT_TRUE(is_blob1_inside_blob2(small, large));
    EXPECT_FALSE(is_blob1_inside_blob2(large, small));
    blob_ptr same = box_blob(2, 2, 99, 10);
    same->bbox.xmax = small->bbox.xmax;  // sizes are not compared
    EXPECT_TRUE(same2DBlob(small, same));
    same->bbox.ymax = INT32_MIN;
    small->bbox.ymax = INT32_MAX;
    EXPECT_FALSE(same2DBlob(small, same));
}

// Splits change only the two bounds; the copy owns no lists and keeps b's
// links (it names b's neighbour, which does not name it).
TEST(BlobGeometry, SplitsChangeOnlyTwoBounds)
{
    blob_ptr b = box_blob(0, 0, 10, 6), neighbour = blob_new();
    b->npix = 42;
    b->prd_list = prdata_new();
    b->next = neighbour;
    for (int x : {0, 9, -3}) EXPECT_FALSE(vertical_split_blob(b, x)) << x;
    blob_ptr right = vertical_split_blob(b, 4);
    ASSERT_TRUE(right);
    const auto box = [](const blob_ptr& x) {
        return std::vector<int>{x->bbox.xmin, x->bbox.ymin, x->bbox.xmax, x->bbox.ymax, x->bbox.width, x->bbox.height};
    };
    EXPECT_EQ(box(b), (std::vector<int>{0, 0, 4, 5, 10, 6}));
    EXPECT_EQ(box(right), (std::vector<int>{5, 0, 9, 5, 10, 6}));
    EXPECT_EQ(right->npix, 42);
    EXPECT_EQ(right->prd_list, nullptr);
    EXPECT_EQ(right->next, neighbour);
    EXPECT_EQ(b->next, neighbour);
    EXPECT_EQ(neighbour->prev, nullptr);
    EXPECT_EQ(horizontal_split_blob(b, 5), nullptr);
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_EQ(box(lower), (std::vector<int>{0, 3, 4, 5, 10, 6}));
    blob_free(copy_blob(b));  // takes a blob pointer by value
    blob_free(b);
}

// Whole codes, not bits: a combination no code names is not occluded.
// Object-bottom counts as top-occluded and object-top as bottom-occluded.
TEST(BlobGeometry, OcclusionPredicatesCompareWholeCodes)
{
    blob_ptr b = blob_new();
    const std::tuple<bool (*)(blob_ptr), uint32_t, bool> rows[] = {
        {isBlobOcculted, 0x6, true},         {isBlobOcculted, 0x3, false},
        {isBlobOcculted, 0x11, false},       {isBlobTopOcculted, 0x10, true},
        {isBlobTopOcculted, 0x20, false},    {isBlobBottomOcculted, 0x20, true},
        {isBlobBottomOcculted, 0x10, false}, {isBlobBottomOcculted, 0x20000000, true}};
    for (auto [predicate, code, expected] : rows) {
        b->occlusion = static_cast<blob_occl_type>(code);
        EXPECT_EQ(predicate(b), expected) << code;
    }
}
