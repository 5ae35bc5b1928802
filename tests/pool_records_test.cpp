// Blobs a host keeps past their segmenter.
#include <gtest/gtest.h>

#include "segmenter_test_support.h"

namespace {

using namespace segmenter_test;

TEST(PoolRecords, BlobsKeptByTheHostOutliveTheirSegmenter)
{
    const cv::Mat mask = mask_from({"#.#.#", "....."});
    std::shared_ptr<RLEblob> head, last;
    {
        segm_ptr s = segmenter_for(mask);
        head = RLEsegm_segmentKAP(mask, s);
        last = head->next->next;
    }
    EXPECT_EQ(head->npix, 1);
    EXPECT_EQ(last->bbox.xmin, 4);
    // The segmenter's end cut the list, so that kept records hold no others.
    EXPECT_EQ(head->next, nullptr);
}

}  // namespace
