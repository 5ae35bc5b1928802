// The running average read row by row, as nerva-blobs runs it without a
// clean-up, held to detect_changes then RLEsegm_segmentKAP on its mask,
// frame by frame on a real video decoded to grey as the program decodes it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "change_segmentation_support.h"
#include "luma_source.h"

using namespace segmenter_test;

namespace {

const std::string kVtest = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";

// Every frame of vtest after the first (the background) through both
// paths; how many were alike.
int alike_frames(rectangle rect, const std::function<void(segm_ptr)>& setup)
{
    auto luma = nerva_blobs::open_luma_video(kVtest, false);
    cv::Mat frame, grey;
    if (!luma->read_with_luma(frame, grey)) return 0;
    BothPaths both(grey, rect, setup);
    int frames = 0;
    while (luma->read_with_luma(frame, grey) && both.frame(grey, frames + 1)) ++frames;
    return frames;
}

}  // namespace

TEST(ChangeRowsOnVtest, WholeFrameExact)
{
    if (!std::filesystem::exists(kVtest)) GTEST_SKIP() << "no " << kVtest << " (opencv-doc)";
    EXPECT_EQ(alike_frames({0, 0, 767, 575, 768, 576}, [](segm_ptr) {}), 794);
}

// The detection's rectangle reaches past the region of interest on the
// left and stops short of it on the right; steps skip rows and columns.
TEST(ChangeRowsOnVtest, RegionOfInterestPartlyDetectedWithSteps)
{
    if (!std::filesystem::exists(kVtest)) GTEST_SKIP() << "no " << kVtest << " (opencv-doc)";
    EXPECT_EQ(alike_frames({0, 40, 600, 500, 601, 461},
                           [](segm_ptr s) {
                               RLEsegm_set_steps(s, 3, 2);
                               RLEsegm_set_ROI(13, 7, 700, 540, s);
                           }),
              794);
}
