#pragma once

#include <memory>

#include "nerva/blob/RLEblob.h"
#include "nerva/mask_rows.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {

// RLEsegm_segmentKAP for a width x height mask given row by row (MaskRows):
// the same blobs, statistics, observers, steps, region of interest and
// refusals; a size below 1x1 is refused as an empty mask is. The observers
// are notified before the producer's start.
//
// The running average without its mask, the blobs and background of
// detect_changes then RLEsegm_segmentKAP on its mask:
//     ChangeRows rows;  // kept for the stream: its buffers are reused
//     if (rows.begin(background, frame, rate, threshold, &rect) < 0) ...;
//     head = RLEsegm_segment_rows(rows, width, height, segmenter);
//     rows.finish();
std::shared_ptr<RLEblob> RLEsegm_segment_rows(MaskRows& rows, int width, int height, segm_ptr s);

}  // namespace nerva
