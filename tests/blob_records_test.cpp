// The blob and probability records: copies, lists, geometry, and the exchange
// of measures between them. Ownership faults (a list shared by two copies, a
// self-copy that frees its source) show under the sanitizers, since every
// record made here is freed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <tuple>

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

TEST(ProbRelData, ListCopiesAreDeepAndSingleCopiesKeepTheNeighbours)
{
    prob_rel_data* head = chain({PERSON, CAR, TRUCK});
    prob_rel_data* mid = head->next;
    mid->sublist = chain({FACE, CHILD});
    prob_rel_data* copy = copy_prdata_list(head);
    EXPECT_EQ(copy->next->next->prev, copy->next);
    EXPECT_NE(copy->next->sublist, mid->sublist);
    EXPECT_EQ(copy->next->sublist->next->prev, copy->next->sublist);

    prob_rel_data* one = copy_prdata(mid);
    EXPECT_EQ(one->next, mid->next);
    EXPECT_EQ(one->prev, head);
    // Into a record, its nested list is replaced; onto itself, an equal nested list stays.
    prob_rel_data* dst = prd(NOISE);
    dst->sublist = prd(CHAIR);
    copy_prdata(mid, dst);
    copy_prdata(dst, dst);
    EXPECT_EQ(dst->sublist->next->type, CHILD);
    prdata_free(head);  // one record with its nested list, not its neighbours
    free_prd_list(mid);
    for (prob_rel_data* p : {one, dst}) {
        p->next = nullptr;
        p->prev = nullptr;
        prdata_free(p);
    }
    free_prd_list(copy);
}

// Destination first for the info copy, source first for the no-list copy.
TEST(ProbRelData, InfoOnlyAndNoListCopiesTakeTheirArgumentsInOppositeOrders)
{
    prob_rel_data* a = chain({PERSON, CAR, TRUCK});
    prob_rel_data* b = chain({FACE, CHAIR});
    a->next->sublist = prd(CHILD);
    prob_rel_data* own_next = b->next;
    EXPECT_EQ(copy_prdata_only_info(b, a->next), b);
    EXPECT_EQ(b->type, CAR);
    EXPECT_EQ(b->next, own_next) << "b stays in its own list";
    EXPECT_EQ(b->sublist, nullptr);
    EXPECT_EQ(copy_prdata_only_info(nullptr, a), nullptr);
    EXPECT_EQ(copy_prdata_only_info(b, nullptr), nullptr);

    prob_rel_data* loose = prdata_new();
    EXPECT_EQ(copy_prdata_no_lists(a->next, loose), loose);
    EXPECT_EQ(loose->type, CAR);
    EXPECT_EQ(loose->prev, a) << "shares the source's neighbours";
    EXPECT_EQ(loose->sublist, a->next->sublist) << "and its nested list";
    std::free(loose);  // owns nothing it points to
    free_prd_list(a);
    free_prd_list(b);
}

// m1 and m2 cross; m3..m5 go one way only; the occlusion stays each record's own.
TEST(ProbRelData, ExchangeWithABlobCrossesSomeMeasuresAndLeavesOthers)
{
    prob_rel_data* p = prdata_new();
    p->m1 = 101;
    p->m2 = 102;
    p->m3 = 103;
    p->m4 = 104;
    p->occlusion = MM_CAM_OCCL_LEFT;
    std::strcpy(p->info, "hyp");
    blob_ptr blob = blob_new();
    blob->occlusion = MM_OBJECT_TOP;
    blob->measures[4] = -1;
    copy_prd_to_blob(p, blob);
    EXPECT_EQ(blob->measures[1], 102.0);
    EXPECT_EQ(blob->measures[2], 101.0);
    EXPECT_EQ(blob->prd_extra[0], 103.0);
    EXPECT_EQ(blob->measures[4], -1.0) << "not exchanged";
    EXPECT_EQ(blob->occlusion, MM_OBJECT_TOP);
    EXPECT_STREQ(blob->info, "hyp");

    prob_rel_data* q = chain({UNKNOWN, UNKNOWN});
    q->occlusion = MM_AOI_OUTSIDE;
    q->m4 = 7;
    copy_blob_to_prd(blob, q);
    EXPECT_EQ(q->m1, 101.0);
    EXPECT_EQ(q->m4, 7.0) << "m3..m5 only go to the blob";
    EXPECT_EQ(q->occlusion, MM_AOI_OUTSIDE);
    EXPECT_EQ(q->next->prev, q);

    // Clears all but type, subtype and links, then takes the blob's box.
    q->sublist = prd(FACE);
    q->subtype = LYING;
    q->m9 = 3;
    init_rectangle(&blob->bbox, 5, 6, 7, 8);
    set_null_3D_prd(blob, q);
    EXPECT_EQ(q->subtype, LYING);
    EXPECT_EQ(q->m9, 0.0);
    EXPECT_EQ(q->occlusion, MM_OCCL_NONE);
    EXPECT_EQ(q->bbox.xmax, 11);
    EXPECT_EQ(q->sublist->type, FACE);
    prdata_free(p);
    free_prd_list(q);
}

TEST(BlobCopy, CopiesKeepNeighboursAndOverwritingFreesTheDestinationsData)
{
    EXPECT_EQ(copy_blob(blob_ptr()), nullptr);
    EXPECT_EQ(copy_blob(blob_new(), blob_ptr()), nullptr);
    blob_ptr a = box_blob(0, 0, 1, 1, 1), b = box_blob(0, 0, 3, 4, 2), c = box_blob(0, 0, 1, 1, 3);
    link({a, b, c});
    b->prd_list = prd(PERSON);
    b->prd_list_2 = prd(CAR);
    b->aux = b.get();

    // Same neighbours, the list unchanged, no lists; aux is cleared by copy_blob(src, dst) only.
    blob_ptr copy = copy_blob(b);
    EXPECT_EQ(copy->aux, b.get());
    EXPECT_EQ(copy->prev, a);
    EXPECT_EQ(a->next, b);
    EXPECT_EQ(copy->prd_list, nullptr);
    blob_ptr deep = copy_blob_with_lists(b);
    EXPECT_EQ(deep->prd_list_2->type, CAR);
    blob_free(deep);  // frees the copies only
    // Overwriting frees the destination's lists and buffer (the sanitizers see a leak).
    copy->prd_list = prd(CAR);
    copy->buffer = std::malloc(16);
    copy->ident = 9;
    EXPECT_EQ(copy_blob(b, copy), copy.get());
    EXPECT_EQ(copy->ident, 2);
    EXPECT_EQ(copy->prd_list, nullptr);
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
    EXPECT_FALSE(isPixBelongsToBlob(small, 12, 11));
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
    EXPECT_EQ(b->bbox.xmax, 4);
    EXPECT_EQ(right->bbox.xmin, 5);
    EXPECT_EQ(right->bbox.width, 10);
    EXPECT_EQ(right->npix, 42);
    EXPECT_EQ(right->prd_list, nullptr);
    EXPECT_EQ(right->next, neighbour);
    EXPECT_EQ(neighbour->prev, nullptr);
    EXPECT_EQ(horizontal_split_blob(b, 5), nullptr);
    blob_ptr lower = horizontal_split_blob(b, 2);
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->bbox.ymin, 3);
    EXPECT_EQ(b->bbox.ymax, 2);
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
