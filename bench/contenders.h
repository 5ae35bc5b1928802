#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// One way of labelling a mask, timed against the others on the same masks.
struct Contender {
    std::string name;
    // Builds a per-benchmark state for masks of one size and returns the
    // per-frame call.
    std::function<std::function<void(const cv::Mat&)>(cv::Size)> make;
};

// nerva with steps (1,1) and (4,2), OpenCV's connectedComponentsWithStats
// under every 4-connectivity algorithm, with 8-connectivity and held to one
// thread, and countNonZero (one read of the mask).
std::vector<Contender> contenders();

// The contender's call for each mask: masks of one size share one state (a
// segmenter is made for one frame size).
std::vector<std::function<void(const cv::Mat&)>> frame_per_mask(const Contender& contender,
                                                                const std::vector<cv::Mat>& masks);
