// The bit-wise clean-up against OpenCV's morphologyEx with elliptic
// elements, the clean-up the presets were tuned with: byte for byte, on
// random masks of awkward sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "clean_up.h"

namespace {

cv::Mat reference(const cv::Mat& mask, int open, int close)
{
    cv::Mat out = mask.clone();
    if (open > 0)
        cv::morphologyEx(out, out, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_ELLIPSE, {open, open}));
    if (close > 0)
        cv::morphologyEx(out, out, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_ELLIPSE, {close, close}));
    return out;
}

cv::Mat cleaned(nerva_pipeline::CleanUp& clean, const cv::Mat& mask)
{
    cv::Mat out(mask.size(), CV_8UC1, cv::Scalar(7));
    clean.apply(mask.data, mask.step, out.data, out.step, mask.cols, mask.rows);
    return out;
}

// Pixels where the two masks differ.
int differing(const cv::Mat& a, const cv::Mat& b) { return cv::countNonZero(a != b); }

cv::Mat random_mask(cv::RNG& rng, int width, int height, int percent)
{
    cv::Mat noise(height, width, CV_8UC1);
    rng.fill(noise, cv::RNG::UNIFORM, 0, 100);
    return noise < percent;
}

}  // namespace

TEST(CleanUp, TheEllipseIsOpenCvsAtEverySide)
{
    for (int side = 1; side <= 64; ++side) {
        cv::Mat drawn = cv::Mat::zeros(side, side, CV_8UC1);
        for (const auto& b : nerva_pipeline::CleanUp::ellipse_boxes(side))
            drawn(cv::Rect(b.x0 + side / 2, b.y0 + side / 2, b.x1 - b.x0 + 1, b.y1 - b.y0 + 1)).setTo(1);
        if (side == 1) drawn.setTo(1);  // the anchor alone: no boxes, nothing to do
        EXPECT_EQ(differing(drawn, cv::getStructuringElement(cv::MORPH_ELLIPSE, {side, side})), 0) << "side " << side;
    }
}

// Widths on both sides of a word's 64 pixels, kernels up to the frame's
// size (what the options allow), even sides (their anchor is off centre),
// sparse and dense masks: the frame's edges and the words' edges are where
// a bit-wise clean-up can go wrong. One clean-up per kernel pair sees every
// mask in turn, as a stream's frames: its buffers carry over from frame to
// frame and from size to size.
TEST(CleanUp, RandomMasksMatchMorphologyEx)
{
    cv::RNG rng(26);
    const cv::Size sizes[] = {{1, 1}, {5, 3}, {63, 9}, {64, 64}, {65, 33}, {127, 70}, {130, 129}, {200, 20}};
    std::vector<cv::Mat> masks;
    for (const cv::Size size : sizes)
        for (const int percent : {10, 50, 90}) masks.push_back(random_mask(rng, size.width, size.height, percent));
    const int sides[] = {0, 1, 2, 3, 4, 5, 7, 8, 11, 15, 20, 33, 64, 65, 129};
    for (const int open : sides)
        for (const int close : sides) {
            nerva_pipeline::CleanUp clean(open, close);
            for (size_t i = 0; i < masks.size(); ++i) {
                const cv::Mat& mask = masks[i];
                if (std::max(open, close) > std::min(mask.cols, mask.rows)) continue;
                EXPECT_EQ(differing(cleaned(clean, mask), reference(mask, open, close)), 0)
                    << mask.size() << " mask " << i << " open " << open << " close " << close;
            }
        }
}

// The program cleans masks in place and Python hands over views into
// larger arrays: rows further apart than the width.
TEST(CleanUp, InPlaceAndStridedRowsGiveTheSameMask)
{
    cv::RNG rng(7);
    cv::Mat wide = random_mask(rng, 150, 40, 60);
    const cv::Mat view = wide(cv::Rect(3, 2, 101, 31));
    const cv::Mat expected = reference(view.clone(), 3, 7);
    nerva_pipeline::CleanUp clean(3, 7);
    clean.apply(view.data, view.step, view.data, view.step, view.cols, view.rows);
    EXPECT_EQ(differing(view, expected), 0);
}

// Masks are 0 and 255; any other non-zero byte counts as foreground.
TEST(CleanUp, NonZeroBytesAreForeground)
{
    cv::Mat ones = cv::Mat::zeros(20, 20, CV_8UC1);
    ones(cv::Rect(5, 5, 8, 8)).setTo(1);
    nerva_pipeline::CleanUp clean(3, 0);
    EXPECT_EQ(differing(cleaned(clean, ones), reference(ones * 255, 3, 0)), 0);
}
