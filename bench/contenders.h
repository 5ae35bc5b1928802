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
// under every 4-connectivity algorithm and with 8-connectivity, and
// countNonZero (one read of the mask).
std::vector<Contender> contenders();

// The contender over masks of any size: one state per size, made on first
// use (a segmenter is made for one frame size).
std::function<void(const cv::Mat&)> for_any_size(const Contender& contender);
