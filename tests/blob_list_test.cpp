#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

blob_ptr make_blob(int ident, int x, int y, int w, int h)
{
    blob_ptr b = blob_new();
    b->ident = ident;
    init_rectangle(&b->bbox, x, y, w, h);
    b->npix = w * h;
    return b;
}

// Chains the blobs in order through next and prev; returns the head.
blob_ptr link(const std::vector<blob_ptr>& blobs)
{
    for (size_t i = 0; i + 1 < blobs.size(); ++i) {
        blobs[i]->next = blobs[i + 1];
        blobs[i + 1]->prev = blobs[i];
    }
    return blobs.empty() ? nullptr : blobs.front();
}

// Walks from head and checks that every link has its mirror.
std::vector<int> idents_checked(blob_ptr head)
{
    std::vector<int> idents;
    EXPECT_TRUE(!head || !head->prev);
    for (blob_ptr b = head; b; b = b->next) {
        idents.push_back(b->ident);
        if (b->next) {
            EXPECT_EQ(b->next->prev, b);
        }
    }
    return idents;
}

prob_rel_data* prd_with_type(blob_type_t t)
{
    prob_rel_data* p = prdata_new();
    p->type = t;
    return p;
}

}  // namespace

TEST(BlobRecord, NewBlobIsZeroFilled)
{
    blob_ptr b = blob_new();
    EXPECT_EQ(b->ident, 0);
    EXPECT_EQ(b->occlusion, MM_OCCL_NONE);
    EXPECT_EQ(b->type, UNKNOWN);
    EXPECT_EQ(b->bbox.width, 0);
    EXPECT_EQ(b->nb_fathers, 0);
    EXPECT_EQ(b->fathers[BLOB_MAX_FATHERS - 1], 0);
    EXPECT_EQ(b->measures[BLOB_NB_MEASURES - 1], 0.0);
    EXPECT_EQ(b->info[BLOB_INFO_BYTES - 1], 0);
    EXPECT_EQ(b->sumx, 0.0);
    EXPECT_EQ(b->spare_tail[1], 0);
    EXPECT_FALSE(b->next);
    EXPECT_FALSE(b->prev);
    EXPECT_EQ(b->buffer, nullptr);
    EXPECT_EQ(b->prd_list, nullptr);
    EXPECT_EQ(b->prd_list_2, nullptr);
    EXPECT_EQ(b->aux, nullptr);
    blob_free(b);
    EXPECT_FALSE(b);
}

TEST(BlobCopy, SingleCopyDropsOwnedDataAndKeepsLinks)
{
    EXPECT_FALSE(copy_blob(blob_ptr()));
    EXPECT_FALSE(copy_blob_with_lists(blob_ptr()));

    blob_ptr a = make_blob(1, 0, 0, 4, 4), b = make_blob(2, 10, 0, 3, 3), c = make_blob(3, 20, 0, 2, 2);
    link({a, b, c});
    b->prd_list = prd_with_type(PERSON);
    b->prd_list_2 = prd_with_type(CAR);
    b->buffer = std::malloc(8);
    b->aux = b.get();
    b->fathers[0] = 42;
    b->nb_fathers = 1;

    blob_ptr copy = copy_blob(b);
    EXPECT_EQ(copy->ident, 2);
    EXPECT_EQ(copy->fathers[0], 42);
    EXPECT_EQ(copy->aux, b.get());  // only copy_blob(src, dst) clears aux
    EXPECT_EQ(copy->buffer, nullptr);
    EXPECT_EQ(copy->prd_list, nullptr);
    EXPECT_EQ(copy->prd_list_2, nullptr);
    EXPECT_EQ(copy->next, c);  // same neighbours, the list itself unchanged
    EXPECT_EQ(copy->prev, a);
    EXPECT_EQ(a->next, b);

    blob_ptr deep = copy_blob_with_lists(b);
    ASSERT_NE(deep->prd_list, nullptr);
    EXPECT_NE(deep->prd_list, b->prd_list);
    EXPECT_EQ(deep->prd_list->type, PERSON);
    EXPECT_EQ(deep->prd_list_2->type, CAR);
    EXPECT_EQ(deep->buffer, nullptr);
    blob_free(deep);  // frees the copies only
    EXPECT_EQ(b->prd_list->type, PERSON);

    std::free(b->buffer);
    b->buffer = nullptr;
    copy->next = copy->prev = nullptr;
    free_blob_list(a);
    blob_free(copy);
}

TEST(BlobCopy, OverwriteFreesDestinationData)
{
    blob_ptr src = make_blob(7, 1, 2, 3, 4), dst = make_blob(9, 0, 0, 1, 1), other = make_blob(8, 0, 0, 1, 1);
    src->prd_list = prd_with_type(PERSON);
    src->next = other;
    src->aux = src.get();
    dst->prd_list = prd_with_type(CAR);
    dst->prd_list_2 = prd_with_type(TRUCK);
    dst->buffer = std::malloc(16);

    EXPECT_EQ(copy_blob(src, blob_ptr()), nullptr);
    EXPECT_EQ(copy_blob(src, dst), dst.get());
    EXPECT_EQ(dst->ident, 7);  // ident too: the whole record is overwritten
    EXPECT_EQ(dst->bbox.xmax, 3);
    EXPECT_EQ(dst->next, other);
    EXPECT_EQ(dst->prd_list, nullptr);
    EXPECT_EQ(dst->prd_list_2, nullptr);
    EXPECT_EQ(dst->buffer, nullptr);
    EXPECT_EQ(dst->aux, nullptr);
    EXPECT_EQ(src->prd_list->type, PERSON);

    dst->next = nullptr;
    blob_free(src);
    blob_free(dst);
}

TEST(BlobCopy, DataCopyBetweenListsKeepsPlaceAndIdentity)
{
    blob_ptr a1 = make_blob(1, 0, 0, 2, 2), a2 = make_blob(2, 5, 5, 2, 2);
    blob_ptr b1 = make_blob(11, 0, 0, 9, 9), b2 = make_blob(12, 1, 1, 9, 9);
    link({a1, a2});
    link({b1, b2});
    b2->prd_list = prd_with_type(PERSON);
    b2->prd_list->sublist = prd_with_type(FACE);
    b2->prd_list_2 = prd_with_type(CHAIR);
    a1->prd_list = prd_with_type(NOISE);
    a1->buffer = std::malloc(4);

    copy_blob_data(b2, a1);
    EXPECT_EQ(a1->ident, 1);
    EXPECT_EQ(a1->next, a2);
    EXPECT_FALSE(a1->prev);
    EXPECT_EQ(a1->bbox.xmin, 1);
    EXPECT_EQ(a1->bbox.width, 9);
    EXPECT_EQ(a1->buffer, nullptr);
    ASSERT_NE(a1->prd_list, nullptr);
    EXPECT_NE(a1->prd_list, b2->prd_list);
    EXPECT_NE(a1->prd_list->sublist, b2->prd_list->sublist);
    EXPECT_EQ(a1->prd_list->sublist->type, FACE);
    EXPECT_EQ(a1->prd_list_2->type, CHAIR);
    EXPECT_EQ(b2->prev, b1);
    EXPECT_EQ(idents_checked(a1), (std::vector<int>{1, 2}));
    EXPECT_EQ(idents_checked(b1), (std::vector<int>{11, 12}));

    // Freeing the source's lists leaves the copies intact.
    free_blob_list(b1);
    EXPECT_EQ(a1->prd_list->sublist->type, FACE);

    // Onto itself: the lists survive as equal copies.
    copy_blob_data(a1, a1);
    ASSERT_NE(a1->prd_list, nullptr);
    EXPECT_EQ(a1->prd_list->sublist->type, FACE);
    copy_blob_data(a1, blob_ptr());
    copy_blob_data(blob_ptr(), a1);
    EXPECT_EQ(a1->ident, 1);
    free_blob_list(a1);
}

TEST(BlobList, CopyCountAndFree)
{
    EXPECT_FALSE(copy_blob_list(blob_ptr()));
    EXPECT_EQ(blob_list_number(blob_ptr()), 0);

    blob_ptr head = link({make_blob(0, 0, 0, 1, 1), make_blob(1, 0, 0, 2, 2), make_blob(2, 0, 0, 3, 3)});
    head->next->prd_list = prd_with_type(PERSON);
    EXPECT_EQ(blob_list_number(head), 3);
    EXPECT_EQ(blob_list_number(head->next), 2);

    blob_ptr copy = copy_blob_list(head);
    EXPECT_EQ(idents_checked(copy), (std::vector<int>{0, 1, 2}));
    EXPECT_NE(copy->next, head->next);
    EXPECT_EQ(copy->next->prd_list, nullptr);

    // Changing the copy leaves the source alone.
    copy->next->bbox.xmin = 99;
    copy->next->next = nullptr;
    EXPECT_EQ(head->next->bbox.xmin, 0);
    EXPECT_EQ(blob_list_number(head), 3);

    // Freeing a list releases every blob, though each link is mirrored.
    std::weak_ptr<RLEblob> watch_tail = head->next->next;
    std::weak_ptr<RLEblob> watch_copy = copy->next;
    free_blob_list(head);
    head.reset();
    EXPECT_TRUE(watch_tail.expired());
    free_blob_list(copy);
    copy.reset();
    EXPECT_TRUE(watch_copy.expired());
}

TEST(BlobList, BiggestByStoredBoxArea)
{
    EXPECT_FALSE(blob_get_biggest2D(blob_ptr()));
    blob_ptr head = link({make_blob(0, 0, 0, 2, 3), make_blob(1, 0, 0, 3, 2), make_blob(2, 0, 0, 1, 5)});
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 0);  // first of equal areas
    head->next->next->bbox.width = 2;               // stored sizes count, not bounds
    EXPECT_EQ(blob_get_biggest2D(head)->ident, 2);
    free_blob_list(head);
}

TEST(BlobList, RemoveKeepsBothDirectionsConsistent)
{
    std::vector<blob_ptr> b;
    for (int i = 0; i < 4; ++i) b.push_back(make_blob(i, 0, 0, 1, 1));
    blob_ptr head = link(b);

    head = remove_blob(head, b[2]);
    EXPECT_EQ(idents_checked(head), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(b[2]->next, b[3]);  // the removed blob keeps its own links

    head = remove_blob(head, b[3]);
    EXPECT_EQ(idents_checked(head), (std::vector<int>{0, 1}));

    head = remove_blob(head, b[0]);
    EXPECT_EQ(head, b[1]);
    EXPECT_EQ(idents_checked(head), (std::vector<int>{1}));

    head = remove_blob(head, b[1]);
    EXPECT_FALSE(head);
    EXPECT_EQ(remove_blob(blob_ptr(), b[1]), nullptr);

    for (auto& blob : b) blob->next = blob->prev = nullptr;
}

TEST(BlobList, SameFather)
{
    blob_ptr a = blob_new(), b = blob_new();
    b->fathers[0] = 3;
    b->nb_fathers = 1;
    a->fathers[0] = 3;
    EXPECT_EQ(blob_same_father(a, b), 0);  // a has no valid fathers
    a->nb_fathers = 1;
    EXPECT_EQ(blob_same_father(a, b), 1);
    EXPECT_EQ(blob_same_father(b, a), 1);

    a->fathers[0] = 5;
    a->fathers[1] = 7;
    a->nb_fathers = 2;
    b->fathers[1] = 7;  // beyond b's count: not seen
    EXPECT_EQ(blob_same_father(a, b), 0);
    b->nb_fathers = 2;
    EXPECT_EQ(blob_same_father(a, b), 1);
    b->nb_fathers = 0;
    EXPECT_EQ(blob_same_father(a, b), 0);
}

TEST(BlobList, CleanFreesProbabilityListsAndForgetsBuffer)
{
    blob_ptr b = blob_new();
    int local = 0;
    b->buffer = &local;  // forgotten, never freed
    b->prd_list = prd_with_type(PERSON);
    b->prd_list->next = prd_with_type(CAR);
    b->prd_list_2 = prd_with_type(TRUCK);
    blob_clean(b);
    EXPECT_EQ(b->buffer, nullptr);
    EXPECT_EQ(b->prd_list, nullptr);
    EXPECT_EQ(b->prd_list_2, nullptr);

    b->prd_list = prd_with_type(PERSON);
    b->buffer = &local;
    blob_ptr other = b;
    blob_free(b);
    EXPECT_FALSE(b);
    EXPECT_EQ(other->prd_list, nullptr);
    EXPECT_EQ(other->buffer, nullptr);
}
