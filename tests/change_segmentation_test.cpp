// The running average read row by row (ChangeRows, RLEsegm_segment_rows)
// held to detect_changes then RLEsegm_segmentKAP at the corners a host can
// reach: odd widths, a threshold past the byte range, a detection
// rectangle and a region of interest that only partly meet, sparse steps,
// a memory ceiling.
#include <gtest/gtest.h>

#include "change_segmentation_support.h"

using namespace segmenter_test;

namespace {

// Noisy ground with bright blocks that move from frame to frame.
cv::Mat scene(int width, int height, int index)
{
    cv::Mat grey(height, width, CV_8UC1);
    cv::RNG rng(static_cast<uint64_t>(index) + 1);
    rng.fill(grey, cv::RNG::UNIFORM, 80, 120);
    for (int k = 0; k < 4; ++k) {
        const cv::Rect block((index * 7 + k * 19) % width, (index * 3 + k * 11) % height, 5 + k * 3, 4 + k);
        grey(block & cv::Rect(0, 0, width, height)).setTo(200 - k * 40);
    }
    return grey;
}

struct Case {
    const char* name;
    int width, height;
    rectangle rect, roi;  // the detection's, the segmenter's
    int step_x, step_y;
    float rate;
    unsigned threshold;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// Widths away from the vector sizes; rows and columns outside the rectangle
// are background; rows outside the region of interest are learned unread.
const Case kCases[] = {
    {"threshold_256", 131, 17, {0, 0, 130, 16, 131, 17}, {0, 0, 130, 16, 131, 17}, 1, 1, 0.01f, 256},
    {"rect_partly_outside", 131, 40, {-9, 5, 70, 60, 80, 56}, {0, 0, 130, 39, 131, 40}, 1, 1, 0.05f, 25},
    {"roi_inside_rect_sparse_rows", 131, 40, {0, 0, 130, 39, 131, 40}, {20, 7, 99, 30, 80, 24}, 1, 3, 0.05f, 25},
    {"sparse_both", 131, 40, {3, 2, 120, 37, 118, 36}, {5, 1, 127, 38, 123, 38}, 3, 2, 0.05f, 25},
};

class ChangeRowsCorners : public ::testing::TestWithParam<Case> {};

TEST_P(ChangeRowsCorners, GiveTheSeparateCallsBlobsAndBackground)
{
    const Case& c = GetParam();
    BothPaths both(scene(c.width, c.height, 0), c.rect, [&](segm_ptr s) {
        RLEsegm_set_steps(s, c.step_x, c.step_y);
        RLEsegm_set_ROI(c.roi.xmin, c.roi.ymin, c.roi.xmax, c.roi.ymax, s);
    });
    both.rate = c.rate;
    both.threshold = c.threshold;
    for (int i = 1; i <= 8; ++i) {
        cv::Mat grey = scene(c.width, c.height, i);
        if (!both.frame(grey, i)) break;
    }
}

INSTANTIATE_TEST_SUITE_P(Corners, ChangeRowsCorners, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

}  // namespace

// The rows are kept from frame to frame: a narrower rectangle must not find
// the foreground a wider one left in them.
TEST(ChangeRowsStream, ARectangleThatNarrowsLeavesNoOldForeground)
{
    BothPaths both(scene(131, 40, 0), {0, 0, 130, 39, 131, 40}, [](segm_ptr s) { RLEsegm_set_steps(s, 1, 2); });
    both.threshold = 0;  // every detected pixel is foreground
    for (int i = 1; i <= 4; ++i) {
        if (i == 3) both.rect = {30, 5, 90, 30, 61, 26};
        cv::Mat grey = scene(131, 40, i);
        if (!both.frame(grey, i)) break;
    }
}

// A ceiling below the frame's worst case makes the segmenter count the runs
// ahead: the rows are previewed, so a frame that fits is segmented.
TEST(ChangeRowsStream, AFrameWithinTheMemoryCeilingIsSegmented)
{
    const int width = 1000, height = 400;
    const cv::Mat first = scene(width, height, 0);
    BothPaths both(first, {0, 0, width - 1, height - 1, width, height},
                   [](segm_ptr s) { RLEsegm_set_memory_ceiling(s, size_t{20} << 20); });
    // Every other column changes by less than the threshold: the preview
    // counts the thresholded runs, not those of the difference.
    cv::Mat grey = first.clone();
    for (int x = 0; x < width; x += 2) grey.col(x) += 10;
    grey(cv::Rect(100, 100, 50, 40)).setTo(250);
    both.frame(grey, 1);
    EXPECT_EQ(both.fused->nb_blobs_cur, 1);
}

// A frame the segmenter refuses is learned all the same.
TEST(ChangeRowsStream, FinishLearnsTheRowsNeverRead)
{
    cv::Mat bg = scene(67, 23, 0), grey = scene(67, 23, 1), learned = bg.clone();
    image b = borrowed(bg), c = borrowed(grey), l = borrowed(learned);
    rectangle all{0, 0, 66, 22, 67, 23};
    ChangeRows rows;
    ASSERT_EQ(rows.begin(&b, &c, 0.5f, 25, &all), 0);
    CapturedMessages messages;
    EXPECT_EQ(RLEsegm_segment_rows(rows, 67, 23, nullptr), nullptr);
    rows.finish();
    ASSERT_EQ(update(&l, &c, 0.5f, &all), 0);
    EXPECT_EQ(cv::countNonZero(bg != learned), 0);
}
