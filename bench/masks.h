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
