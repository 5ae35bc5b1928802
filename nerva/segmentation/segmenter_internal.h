#pragma once

// Shared between the segmenter's stages; not part of the public interface.
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {

// Prints one line on standard error, prefixed with `who`, and returns true
// when the frame cannot be segmented without reading or writing out of
// bounds (uninitialised segmenter, unsuitable mask, region of interest
// outside the mask or the frame, column step below 1).
bool segmenter_refuses_frame(const MV_RLEsegm& s, const cv::Mat& mask, const char* who);

}  // namespace nerva
