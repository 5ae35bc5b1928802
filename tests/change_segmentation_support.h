#pragma once
// A stream of grey frames through the running average twice: detect_changes
// then RLEsegm_segmentKAP on its mask, and RLEsegm_segment_changes, each
// with its own background and segmenter, set up alike; the blobs and the
// backgrounds of the two are compared frame by frame.
#include <gtest/gtest.h>

#include <functional>

#include "segmenter_test_support.h"

namespace segmenter_test {

// A library record over a Mat's pixels, which the Mat keeps owning.
struct Borrowed {
    image record{};
    explicit Borrowed(cv::Mat& m)
    {
        record.type = GREY_IMG;
        record.width = static_cast<unsigned>(m.cols);
        record.height = static_cast<unsigned>(m.rows);
        record.capacity = static_cast<unsigned>(m.total());
        record.bytes_per_pixel = 1;
        record.data = m.data;
    }
};

struct BothPaths {
    float rate = 0.01f;
    unsigned threshold = 25;
    rectangle rect{};
    cv::Mat separate_bg, fused_bg, mask;
    segm_ptr separate, fused;

    // `setup` sets the steps, region of interest... of each segmenter.
    BothPaths(const cv::Mat& first, rectangle detected, const std::function<void(segm_ptr)>& setup)
        : rect(detected), separate_bg(first.clone()), fused_bg(first.clone()),
          mask(cv::Mat::zeros(first.size(), CV_8UC1)), separate(segmenter_for(first)), fused(segmenter_for(first))
    {
        setup(separate);
        setup(fused);
    }

    // Frame `index` through both; false once they differ.
    bool frame(cv::Mat& grey, int index)
    {
        mask.setTo(0);  // fresh: bytes outside the rectangle are 0
        Borrowed current(grey), sb(separate_bg), fb(fused_bg), m(mask);
        std::shared_ptr<RLEblob> fused_head;
        EXPECT_EQ(detect_changes(&sb.record, &current.record, rate, threshold, &rect, &m.record), 0);
        const std::shared_ptr<RLEblob> separate_head = RLEsegm_segmentKAP(mask, separate);
        EXPECT_EQ(RLEsegm_segment_changes(&fb.record, &current.record, rate, threshold, &rect, fused, &fused_head), 0);
        SCOPED_TRACE("frame " + std::to_string(index));
        expect_same_blobs(separate_head, fused_head);
        EXPECT_EQ(cv::countNonZero(fused_bg != separate_bg), 0) << "background pixels apart";
        return !::testing::Test::HasFailure();
    }

    static void expect_same_blobs(const std::shared_ptr<RLEblob>& separate, const std::shared_ptr<RLEblob>& fused)
    {
        const std::vector<RLEblob*> want = blobs_of(separate), got = blobs_of(fused);
        ASSERT_EQ(got.size(), want.size()) << "blob count";
        for (size_t i = 0; i < want.size(); ++i) {
            SCOPED_TRACE("blob " + std::to_string(i));
            EXPECT_EQ(got[i]->bbox.xmin, want[i]->bbox.xmin);
            EXPECT_EQ(got[i]->bbox.ymin, want[i]->bbox.ymin);
            EXPECT_EQ(got[i]->bbox.xmax, want[i]->bbox.xmax);
            EXPECT_EQ(got[i]->bbox.ymax, want[i]->bbox.ymax);
            EXPECT_EQ(got[i]->npix, want[i]->npix);
            EXPECT_EQ(got[i]->xc, want[i]->xc);
            EXPECT_EQ(got[i]->yc, want[i]->yc);
        }
    }
};

}  // namespace segmenter_test
