#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>

// Where frames come from: a video decoded by OpenCV's FFmpeg backend, or a
// sequence of still images named by a printf-style pattern or found in a
// directory. Every failure to open or decode is a RuntimeError naming the
// file.
namespace nerva_blobs {

class FrameSource {
public:
    virtual ~FrameSource() = default;
    // Next frame as decoded (8-bit, one or three channels); false at the end.
    virtual bool read(cv::Mat& frame) = 0;
    // Number of frames when the container says so, else -1. Videos may
    // announce a count they do not reach.
    virtual long total() const = 0;
    // Frames per second for writing an annotated video; 25 when unknown.
    virtual double fps() const = 0;
    // The file the last frame came from, for messages.
    virtual std::string where() const = 0;
};

// Picks the kind of source from the path. `as_masks` keeps single-channel
// images single-channel instead of expanding them to colour.
std::unique_ptr<FrameSource> open_source(const std::string& path, bool as_masks);

}  // namespace nerva_blobs
