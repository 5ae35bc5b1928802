#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>

#include "json_line.h"
#include "nerva/image/change_detection.h"
#include "nerva/segmentation/segmentationRLE.h"
#include "options.h"

// One library segmenter for the whole stream, and the blobs of each frame
// copied out of its pool (the pool is reused by the next frame).
namespace nerva_blobs {

using Blob = nerva_pipeline::BlobRecord;

class Segmenter {
public:
    Segmenter(const Options& options, cv::Size frame_size, cv::Rect roi);
    ~Segmenter();
    Segmenter(const Segmenter&) = delete;
    Segmenter& operator=(const Segmenter&) = delete;

    // mask: 8-bit, one channel, the frame's size.
    const std::vector<Blob>& segment(const cv::Mat& mask);
    // The same for the mask rows of a change detection begun for this
    // frame, read (and so detected and learned) row by row; the frame is
    // finished when the blobs are found.
    const std::vector<Blob>& segment(nerva::ChangeRows& rows);
    // The blobs the last frame held when they were more than the pool
    // keeps (its list then ends early); -1 when the list is whole.
    long components() const;

private:
    const std::vector<Blob>& copy_blobs(nerva::RLEblob* head);

    std::shared_ptr<nerva::MV_RLEsegm> segm_;
    cv::Size size_;
    std::vector<Blob> blobs_;
    bool measures_ = false;
};

// The region of interest in frame coordinates: the option's, checked against
// the frame (UsageError when it does not fit), or the whole frame.
cv::Rect region_of_interest(const Options& options, cv::Size frame_size);

}  // namespace nerva_blobs
