#pragma once

// Shared between the segmenter's stages; not part of the public interface.
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {

// Prints one line on standard error, prefixed with `who`, and returns true
// when the frame cannot be segmented without reading or writing out of
// bounds (uninitialised segmenter, unsuitable mask, region of interest
// outside the mask or the frame, column step below 1).
bool segmenter_refuses_frame(const MV_RLEsegm& s, const cv::Mat& mask, const char* who);

// Labels the runs of the current frame exactly as img2regs_init,
// img2regs_exec over the rows of interest and img2regs_pass2 would, leaving
// the same regions, run owners and img2regs state, but sweeping on plain
// indices. Run owners need not have been reset by the extraction.
void label_frame(MV_RLEsegm& s);

// Extracts the runs of every row of interest like
// MV_RLEsegm::RLEsegm_build_RLEimageKAP (observers included) for a frame the
// driver has already checked, without resetting the runs' owners, which
// label_frame overwrites.
void extract_frame(MV_RLEsegm& s, const cv::Mat& mask);

}  // namespace nerva
