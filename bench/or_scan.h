#pragma once

#include <opencv2/core.hpp>

// The cheapest full read of a mask: an OR of every byte, with AVX2 where the
// CPU has it (chosen at run time), 64-bit words otherwise. Nonzero if any
// pixel is set.
uint64_t or_scan(const cv::Mat& mask);

// "AVX2" or "scalar": the kernel or_scan uses on this CPU.
const char* or_scan_kernel();
