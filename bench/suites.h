#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// Benchmarks beside the per-input tables, each with a summary printed after
// the run. Their names start with the suite's ("real/", "incache/",
// "threads/"), so that --benchmark_filter selects them.

// Masks nobody here made, by set (documents, retinal vessels, photographs,
// silhouettes, MOG2 and KNN foreground of busy scenes): exact mode against
// OpenCV, warm and with every cache flushed before each frame. The masks are
// made the first time one of their benchmarks runs.
void register_real_sets(const std::string& opencv_data);
void print_real_summary();

// Exact mode on a mask just read, against an OR scan of the same mask.
void register_in_cache(std::shared_ptr<const std::vector<cv::Mat>> masks, const std::string& name);
void print_in_cache_summary();

// Frames per second of one segmenter on one thread and of two on two, one
// stream each.
void register_threads(std::shared_ptr<const std::vector<cv::Mat>> masks, const std::string& name);
void print_threads_summary();
