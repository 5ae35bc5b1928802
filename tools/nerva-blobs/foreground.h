#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "nerva/image/change_detection.h"
#include "options.h"

// Turns each frame into a foreground mask for the segmenter: 8-bit, one
// channel, 255 = foreground, 0 = background, the frame's size.
namespace nerva_blobs {

class Foreground {
public:
    virtual ~Foreground() = default;
    // The mask stays valid until the next call. `luma`, when not empty, is
    // the decoder's own grey of the same frame.
    virtual const cv::Mat& apply(const cv::Mat& frame, const cv::Mat& luma) = 0;
    // Instead of apply, for a detector whose mask nothing but the segmenter
    // reads: readies the frame and returns its mask rows, for
    // Segmenter::segment to detect as it reads them, the mask never written
    // whole (valid until the next call); null, with nothing done, when the
    // mask must be made by apply.
    virtual nerva::ChangeRows* defer(const cv::Mat& frame, const cv::Mat& luma)
    {
        (void)frame, (void)luma;
        return nullptr;
    }
};

// The detector the options ask for, for frames of the given size; `roi`
// limits the work to the pixels that will be segmented. The running average
// defers its masks when nothing else reads them: no clean-up, no overview
// (whose picture shows a mask). UsageError when an --open or --close kernel
// is larger than the frame.
std::unique_ptr<Foreground> make_foreground(const Options& options, cv::Size frame_size, cv::Rect roi);

}  // namespace nerva_blobs
