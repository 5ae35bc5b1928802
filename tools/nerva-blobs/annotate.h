#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "io_module.h"
#include "nerva/image/image.h"
#include "segmenter.h"

// Pictures of the result: the frame with its blob boxes drawn by the
// library's drawing routines, saved as PNG files or as a video.
namespace nerva_blobs {

class Annotator {
public:
    explicit Annotator(cv::Size frame_size);
    ~Annotator();
    Annotator(const Annotator&) = delete;
    Annotator& operator=(const Annotator&) = delete;

    // `picture` is 8-bit grey or colour of the frame size. The result is
    // valid until the next call.
    const cv::Mat& draw(const cv::Mat& picture, const std::vector<Blob>& blobs, long frame);

private:
    // `rings` one-pixel outlines of the blob's box, from `ring` pixels outside it.
    void outline(const Blob& b, int ring, int rings, unsigned char red, unsigned char green, unsigned char blue);

    nerva::image* canvas_ = nullptr;  // the library's colour image; OpenCV sees it through view_
    cv::Mat view_;
};

// Every Nth annotated frame as DIR/frame_000123.png.
class FrameFiles {
public:
    FrameFiles(const std::string& dir, int every);  // creates DIR
    bool wants(long frame) const { return frame % every_ == 0; }
    void write(const cv::Mat& picture, long frame);
    int written() const { return written_; }

private:
    std::string dir_;
    int every_;
    int written_ = 0;
};

class VideoFile {
public:
    VideoFile(const std::string& path, cv::Size frame_size, double fps);
    void write(const cv::Mat& picture);
    // Closes the file and checks that every frame reached it: RuntimeError
    // when the file came out cut (disk full).
    void finish();

private:
    std::string path_;
    std::unique_ptr<VideoWriter> writer_;
    long written_ = 0;
};

}  // namespace nerva_blobs
