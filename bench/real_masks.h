#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

// Masks made from pictures that Debian ships (scikit-image's and OpenCV's
// sample data), each at the picture's own size; pictures that cannot be read
// are left out.

// Document scans: grey pictures thresholded against their 25x25 local mean,
// ink (darker than the mean by 15 or more) as foreground.
std::vector<cv::Mat> document_masks(const std::vector<std::string>& paths);

// Retinal vessels: the green channel's black-hat (vessels are darker than
// their surroundings; an elliptic element about 1/90 of the picture wide),
// Otsu-thresholded.
std::vector<cv::Mat> vessel_masks(const std::vector<std::string>& paths);

// Photographs, grey, Otsu-thresholded (the brighter class as foreground).
std::vector<cv::Mat> otsu_masks(const std::vector<std::string>& paths);

// A picture that already is a silhouette: foreground where one channel
// (-1: grey) is at or above `level`, or below it if `dark_foreground`.
struct Silhouette {
    std::string path;
    int channel;
    int level;
    bool dark_foreground;
};
std::vector<cv::Mat> silhouette_masks(const std::vector<Silhouette>& pictures);

// Horizontal runs of foreground in the mask (4-connectivity's runs).
long count_runs(const cv::Mat& mask);
