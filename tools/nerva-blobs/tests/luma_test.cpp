// The program's grey frames: the decoder's luma, next to OpenCV's grey of
// the same video, frame by frame.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "luma_source.h"

namespace {

const std::string kVtest = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";

}  // namespace

// The luma differs from a BGR-to-grey conversion (no range expansion, no
// colour round trip): by at most 20 levels on vtest, which the README states.
TEST(LumaDecode, EveryFrameOfVtestIsThereAndWithinTwentyLevelsOfOpenCvsGrey)
{
    if (!std::filesystem::exists(kVtest)) GTEST_SKIP() << "no " << kVtest << " (opencv-doc)";
    auto luma = nerva_blobs::open_luma_video(kVtest, false);
    cv::VideoCapture capture(kVtest, cv::CAP_FFMPEG);
    cv::Mat frame, grey, bgr, converted, difference;
    int frames = 0;
    double widest = 0;
    while (luma->read_with_luma(frame, grey)) {
        ASSERT_TRUE(capture.read(bgr)) << "frame " << frames;
        cv::cvtColor(bgr, converted, cv::COLOR_BGR2GRAY);
        cv::absdiff(grey, converted, difference);
        double most = 0;
        cv::minMaxLoc(difference, nullptr, &most);
        widest = std::max(widest, most);
        ++frames;
    }
    EXPECT_FALSE(capture.read(bgr));
    EXPECT_EQ(frames, 795);
    EXPECT_EQ(luma->total(), 795);
    EXPECT_LE(widest, 20.0);
}
