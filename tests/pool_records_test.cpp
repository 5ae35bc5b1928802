// Pool records that start untouched: what a host reads in them before and
// after frames, and blobs kept past their segmenter.
#include <gtest/gtest.h>

#include "segmenter_test_support.h"

namespace {

using namespace segmenter_test;

TEST(PoolRecords, NewPoolsReadAsValueInitialisedRecordsWithTheirPositions)
{
    segm_ptr s = segmenter_for(64, 48);
    ASSERT_EQ(s->reg_pool.size(), 50000u);
    ASSERT_EQ(s->seg_pool.size(), 100000u);
    size_t wrong_ident = 0, dirty_region = 0, dirty_segment = 0;
    for (size_t i = 0; i < s->reg_pool.size(); ++i) {
        const region& r = *s->reg_pool[i];
        wrong_ident += r.ident != static_cast<int32_t>(i);
        dirty_region += r.npix != 0 || r.sum_x != 0 || r.next || r.absorber || !r.reg_lines.empty();
    }
    for (const auto& seg : s->seg_pool) dirty_segment += seg->x_start != 0 || seg->x_end != 0 || seg->owner;
    EXPECT_EQ(wrong_ident, 0u);
    EXPECT_EQ(dirty_region, 0u);
    EXPECT_EQ(dirty_segment, 0u);
}

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
