#pragma once
// A stream of grey frames through the running average twice, each with its
// own background and segmenter set up alike: detect_changes then
// RLEsegm_segmentKAP on a fresh mask, and ChangeRows read by
// RLEsegm_segment_rows. The backgrounds and the blobs are compared frame by
// frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "segmenter_test_support.h"

namespace segmenter_test {

// A library record over a Mat's pixels, which the Mat keeps owning.
inline image borrowed(cv::Mat& m)
{
    image record{};
    record.type = GREY_IMG;
    record.width = static_cast<unsigned>(m.cols);
    record.height = static_cast<unsigned>(m.rows);
    record.capacity = static_cast<unsigned>(m.total());
    record.bytes_per_pixel = 1;
    record.data = m.data;
    return record;
}

struct BothPaths {
    float rate = 0.01f;
    unsigned threshold = 25;
    rectangle rect;
    cv::Mat separate_bg, fused_bg, mask;
    segm_ptr separate, fused;
    ChangeRows rows;

    // `setup` sets the steps, region of interest... of each segmenter.
    BothPaths(const cv::Mat& first, rectangle detected, const std::function<void(segm_ptr)>& setup)
        : rect(detected), separate_bg(first.clone()), fused_bg(first.clone()), mask(first.size(), CV_8UC1),
          separate(segmenter_for(first)), fused(segmenter_for(first))
    {
        setup(separate);
        setup(fused);
    }

    // Frame `index` through both; false once they differ.
    bool frame(cv::Mat& grey, int index)
    {
        SCOPED_TRACE("frame " + std::to_string(index));
        mask.setTo(0);
        image current = borrowed(grey), sb = borrowed(separate_bg), fb = borrowed(fused_bg), m = borrowed(mask);
        EXPECT_EQ(detect_changes(&sb, &current, rate, threshold, &rect, &m), 0);
        const std::vector<RLEblob*> want = blobs_of(RLEsegm_segmentKAP(mask, separate));
        EXPECT_EQ(rows.begin(&fb, &current, rate, threshold, &rect), 0);
        const std::vector<RLEblob*> got = blobs_of(RLEsegm_segment_rows(rows, grey.cols, grey.rows, fused));
        rows.finish();
        EXPECT_EQ(cv::countNonZero(fused_bg != separate_bg), 0) << "background pixels apart";
        EXPECT_EQ(got.size(), want.size()) << "blob count";
        for (size_t i = 0; i < std::min(got.size(), want.size()); ++i) {
            SCOPED_TRACE("blob " + std::to_string(i));
            EXPECT_EQ(got[i]->bbox.xmin, want[i]->bbox.xmin);
            EXPECT_EQ(got[i]->bbox.ymin, want[i]->bbox.ymin);
            EXPECT_EQ(got[i]->bbox.xmax, want[i]->bbox.xmax);
            EXPECT_EQ(got[i]->bbox.ymax, want[i]->bbox.ymax);
            EXPECT_EQ(got[i]->npix, want[i]->npix);
        }
        return !::testing::Test::HasFailure();
    }
};

}  // namespace segmenter_test
