// The program's grey frames: the decoder's luma, next to OpenCV's grey of
// the same video, and the one-pass change detection run on them, next to
// the library's separate calls, frame by frame on a real video.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "luma_source.h"
#include "nerva/nerva.h"

namespace {

const std::string kVtest = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";

// A library record over a Mat's pixels, which the Mat keeps owning.
struct Borrowed {
    nerva::image record{};
    explicit Borrowed(cv::Mat& m)
    {
        record.type = nerva::GREY_IMG;
        record.width = static_cast<unsigned>(m.cols);
        record.height = static_cast<unsigned>(m.rows);
        record.capacity = static_cast<unsigned>(m.total());
        record.bytes_per_pixel = 1;
        record.data = m.data;
    }
};

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

// The program's one pass (detect_changes) leaves the mask and background
// the separate calls leave, on every frame of a real video.
TEST(LumaDecode, OnePassChangeDetectionMatchesTheSeparateCallsOnEveryFrame)
{
    if (!std::filesystem::exists(kVtest)) GTEST_SKIP() << "no " << kVtest << " (opencv-doc)";
    auto luma = nerva_blobs::open_luma_video(kVtest, false);
    cv::Mat frame, grey;
    ASSERT_TRUE(luma->read_with_luma(frame, grey));
    cv::Mat fused_bg = grey.clone(), separate_bg = grey.clone();
    cv::Mat fused_mask(grey.size(), CV_8UC1), mask(grey.size(), CV_8UC1), difference(grey.size(), CV_8UC1);
    Borrowed fb(fused_bg), sb(separate_bg), fm(fused_mask), m(mask), d(difference);
    nerva::rectangle all{0, 0, grey.cols - 1, grey.rows - 1, grey.cols, grey.rows};
    for (int i = 0; luma->read_with_luma(frame, grey); ++i) {
        Borrowed current(grey);
        ASSERT_EQ(nerva::detect_changes(&fb.record, &current.record, 0.01f, 25, &all, &fm.record), 0);
        ASSERT_EQ(nerva::abs_difference(&current.record, &sb.record, &all, &d.record), 0);
        ASSERT_EQ(nerva::grey_thresholding(&d.record, 25, &all, &m.record), 0);
        ASSERT_EQ(nerva::update(&sb.record, &current.record, 0.01f, &all), 0);
        ASSERT_EQ(cv::countNonZero(fused_mask != mask), 0) << "mask of frame " << i;
        ASSERT_EQ(cv::countNonZero(fused_bg != separate_bg), 0) << "background after frame " << i;
    }
}
