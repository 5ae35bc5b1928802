#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

// A named set of foreground masks of one size.
struct MaskSet {
    std::string name;
    std::vector<cv::Mat> masks;
};

// The foreground masks of vtest.avi as nerva-blobs makes them (running
// average, default learning rate and threshold), every `stride`-th frame;
// empty if the video is missing.
std::vector<cv::Mat> vtest_masks(const std::string& path, int stride);

// Nearest-neighbour scaling of every mask to `size`.
std::vector<cv::Mat> scaled(const std::vector<cv::Mat>& masks, cv::Size size);

// Blobby scenes: filled ellipses until about `fraction` of the frame is
// foreground. Deterministic for a given seed.
std::vector<cv::Mat> blobby_masks(cv::Size size, double fraction, int count, unsigned seed);

// Isolated foreground pixels at the given density.
std::vector<cv::Mat> salt_masks(cv::Size size, double density, int count, unsigned seed);

// Foreground of OpenCV's MOG2 background subtractor (its defaults), shadows
// dropped, no clean-up, every `stride`-th frame of at most `max_frames`
// (0: all): noisy masks of busy scenes. Empty if the video is missing.
std::vector<cv::Mat> mog2_masks(const std::string& path, int stride, int max_frames);

// The same with OpenCV's KNN background subtractor (its defaults).
std::vector<cv::Mat> knn_masks(const std::string& path, int stride, int max_frames);

// Pictures thresholded against their local mean (textures: a run every few
// pixels), at `size`; missing pictures are skipped.
std::vector<cv::Mat> texture_masks(const std::vector<std::string>& paths, cv::Size size);

// The worst shape for labellers that relabel on every merge: rows of
// 1-pixel-wide vertical stripes, one column apart, `stripe_rows` high, each
// closed by a full bar below, repeated down the frame.
cv::Mat comb_mask(cv::Size size, int stripe_rows);
