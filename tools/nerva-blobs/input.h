#pragma once

#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include <opencv2/core.hpp>

// Where frames come from: a video decoded by OpenCV's FFmpeg backend, a
// sequence of still images named by a printf-style pattern or found in a
// directory, or a live source (a network stream or a V4L2 camera, see
// live_source.h). Every failure to open or decode a file is a RuntimeError
// naming the file.
namespace nerva_blobs {

class FrameSource {
public:
    virtual ~FrameSource() = default;
    // Next frame as decoded (8-bit, one or three channels); false at the end.
    virtual bool read(cv::Mat& frame) = 0;
    // The same, with the decoder's own grey (luma) in `luma` when the source
    // has one; left empty otherwise, and grey is then made from the frame.
    virtual bool read_with_luma(cv::Mat& frame, cv::Mat& luma)
    {
        luma.release();
        return read(frame);
    }
    // Number of frames when the container says so, else -1. Videos may
    // announce a count they do not reach.
    virtual long total() const = 0;
    // Frames per second for writing an annotated video; 25 when unknown.
    virtual double fps() const = 0;
    // The file the last frame came from, for messages; a name the source
    // keeps as long as it lives, so that a frame can point to it.
    virtual std::string_view where() const = 0;
    // The last frame's time in the stream's own clock, milliseconds; NaN
    // when the source keeps none (image files).
    virtual double stream_ms() const { return std::numeric_limits<double>::quiet_NaN(); }

    // Live sources (cameras, network streams) run whether or not they are
    // read: they may drop frames, they end only when they fail, and they can
    // be reopened. Files are read to their end, every frame.
    virtual bool live() const { return false; }
    // Live sources: (re)opens the stream; false when it cannot be opened now.
    virtual bool connect() { return true; }
};

// Picks the kind of source from the path: an existing path is a file,
// directory or device; otherwise a network address or an image pattern.
// `as_masks` keeps single-channel images single-channel instead of expanding
// them to colour. Live sources are returned unopened.
// Video files are decoded to grey (the luma) and, with `colour`, to colour
// as well.
std::unique_ptr<FrameSource> open_source(const std::string& path, bool as_masks, bool colour = true);

}  // namespace nerva_blobs
